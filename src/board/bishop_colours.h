// Which square colours the bishops of each side stand on: part of the material key of the
// evaluation's caches and an input of the material net.
#pragma once

#include <cstdint>

#include "board/bitboard.h"
#include "board/position.h"

// The same as a small form 0 to 3 (1 differ, 2 same, 0 and 3 neither), as material tables
// store it.
inline int bishopColourForm(const Position& position) {
    // Indexed by four bits, highest first: Black has a bishop on the dark squares, on the
    // light ones, White on the dark ones, on the light ones.
    static constexpr int8_t BishopForm[16] = {0, 0, 0, 0, 0, 2, 1, 3, 0, 1, 2, 3, 0, 3, 3, 3};
    const Bitboard white = position.sides[0].pieces[Bishop];
    const Bitboard black = position.sides[1].pieces[Bishop];
    const int index = ((black & DarkSquares) ? 8 : 0) | ((black & LightSquares) ? 4 : 0) |
                      ((white & DarkSquares) ? 2 : 0) | ((white & LightSquares) ? 1 : 0);
    return BishopForm[index];
}

// The bishop colour code of the material key: -1 if each side has bishops on one square
// colour only and the colours differ, +1 if they are the same, else 0.
inline int bishopColourCode(const Position& position) {
    const int form = bishopColourForm(position);
    return (form >> 1) - (form & 1);
}
