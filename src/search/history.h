// Move-ordering memory of a searcher: history counters by from-to and killer slots per ply.
#pragma once

#include <cstdint>

#include "board/move.h"

struct KillerSlot {
    Move move;
    int16_t weight;
};

constexpr int16_t KillerEmptyWeight = -9999;

// The ordering value of a move is counters[m] >> shift, which stays within 0 to 65536 because
// the ceiling doubles together with the shift.
struct HistoryTable {
    uint32_t increment;
    uint32_t ceiling;
    uint32_t shift;
    uint32_t updates;
    uint32_t counters[4096];

    void reset() {
        increment = 0x10000;
        ceiling = 0x10000;
        shift = 0;
        updates = 0;
        for (uint32_t& c : counters) c = 0;
    }
    uint32_t value(Move m) const { return counters[moveFromTo(m) & 4095] >> shift; }
};
