// Leaf counting of the move tree, the end-to-end check of the board code.
#pragma once

#include <cstdint>
#include <vector>

#include "board/position.h"
#include "search/history.h"

struct PerftEntry {
    uint64_t key;  // 0 when free
    uint64_t nodes;
    int32_t depth;
};

// A transposition table for one count; empty when made with 0 MiB.
struct PerftTable {
    explicit PerftTable(int megabytes);
    HistoryTable history;
    std::vector<PerftEntry> entries;
};

// Leaf nodes at `depth` below the position; 0 for a depth below 1.
uint64_t perftCount(PerftTable& table, Position& position, int depth);
