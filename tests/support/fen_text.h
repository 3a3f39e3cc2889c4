// The board as FEN text, for test messages and round trips. The tests and the fuzz targets
// share it.
#pragma once

#include <cstddef>
#include <string>

#include "board/position.h"
#include "board/text.h"

// The longest text writeFen writes: 64 squares and 7 slashes, the side to move, four castling
// rights each with its rook's file, the en-passant square, and the three spaces between.
constexpr size_t LongestFenText = 71 + 1 + 8 + 2 + 3;
// writeFullFen appends the two counters with room for 32 bytes, its end included.
constexpr size_t LongestFullFenText = LongestFenText + 31;

inline std::string fenOf(const Position& p) {
    char buffer[LongestFenText + 1];
    writeFen(p, buffer);
    return buffer;
}

inline std::string fullFenOf(const Game& g) {
    char buffer[LongestFullFenText + 1];
    writeFullFen(g, buffer);
    return buffer;
}
