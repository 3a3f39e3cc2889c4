// Small helpers shared by the piece and king terms. Each term is written once for a colour as
// a template on `White`; the helpers below turn White's squares, masks and directions into the
// colour's own. Black's board is White's with the ranks reversed (square s becomes s ^ 56), and
// every square table is symmetric from left to right, so that is the same as 63 - s.
#pragma once

#include "board/bitboard.h"
#include "board/position.h"
#include "eval/pawn_entry.h"

namespace terms {

constexpr int sideIndex(bool white) {
    return white ? 0 : 1;
}

template <bool White>
constexpr int relativeSquare(int square) {
    return White ? square : square ^ 56;
}

// A mask given for White, as the colour sees it.
template <bool White>
constexpr Bitboard relative(Bitboard whiteMask) {
    return White ? whiteMask : flipRanks(whiteMask);
}

// One step towards the colour's far rank.
template <bool White>
constexpr Bitboard forward(Bitboard b) {
    return White ? b >> 8 : b << 8;
}

constexpr Bitboard westOf(Bitboard b) {
    return (b & ~FileA) >> 1;
}
constexpr Bitboard eastOf(Bitboard b) {
    return (b & ~FileH) << 1;
}

// Rank masks, White's view: rank 8 is row 0.
constexpr Bitboard rankMask(int rank) {
    return Bitboard{0xff} << (8 * (8 - rank));
}

// The square of a file (0 for a) and rank (1 to 8), as a bit.
constexpr Bitboard squareAt(int file, int rank) {
    return squareBit((8 - rank) * 8 + file);
}

constexpr int atMostTwo(Bitboard b) {
    return b == 0 ? 0 : ((b & (b - 1)) == 0 ? 1 : 2);
}

}  // namespace terms
