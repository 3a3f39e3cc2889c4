// Small board helpers shared by the recogniser bodies.
#pragma once

#include <algorithm>
#include <cstdlib>

#include "board/position.h"
#include "board/tables.h"
#include "eval/pawn_entry.h"
#include "eval/recogniser.h"

namespace rec {

constexpr Bitboard CornerSquares = 0x8100000000000081ULL;
constexpr Bitboard Rim = ~InnerSquares;
constexpr Bitboard CentralBlock = 0x1818000000ULL;

// Each square of `b` with its four orthogonal neighbours.
constexpr Bitboard orthogonalSpread(Bitboard b) {
    return b | ((b & ~FileA) >> 1) | ((b & ~FileH) << 1) | (b >> 8) | (b << 8);
}

// The highest square of a non-empty set: the top bit smeared down and isolated.
inline int lastSquare(Bitboard b) {
    b |= b >> 1;
    b |= b >> 2;
    b |= b >> 4;
    b |= b >> 8;
    b |= b >> 16;
    b |= b >> 32;
    return lowestBitSquare(b ^ (b >> 1));
}

inline Bitboard knightTargets(Bitboard b) {
    Bitboard targets = 0;
    for (; b; b &= b - 1) targets |= KnightMask[firstSquare(b)];
    return targets;
}

// The squares on the file of `square` towards square 0 (`up`) or away from it, the square
// itself excluded.
inline Bitboard fileAhead(int square, bool up) {
    const Bitboard below = squareBit(square) - 1;
    return FileMask[fileOf(square)] & (up ? below : ~below & ~squareBit(square));
}

inline int rookDistance(int a, int b) {
    return std::abs(fileOf(a) - fileOf(b)) + std::abs(rowOf(a) - rowOf(b));
}

// Steps of one coordinate from the two central files or rows (d/e, 4/5).
constexpr int centreGap(int coordinate) {
    return coordinate < 3 ? 3 - coordinate : (coordinate > 4 ? coordinate - 4 : 0);
}
// Orthogonal and king steps from d4, e4, d5, e5.
inline int centreRookSteps(int square) {
    return centreGap(fileOf(square)) + centreGap(rowOf(square));
}
inline int centreKingSteps(int square) {
    return std::max(centreGap(fileOf(square)), centreGap(rowOf(square)));
}

// The squares of the colour of `square`.
constexpr Bitboard colourOf(int square) {
    return (LightSquares & squareBit(square)) ? LightSquares : DarkSquares;
}
// The colours on which the men of `b` stand.
constexpr Bitboard coloursOf(Bitboard b) {
    return ((b & LightSquares) ? LightSquares : 0) | ((b & DarkSquares) ? DarkSquares : 0);
}

inline bool inCheck(const SideState& side) {
    return (side.enemyAttacks & side.pieces[King]) != 0;
}

// A position seen by one colour, the strong side of a recogniser. With Black strong the
// board is turned upside down, so the strong side's pawns always advance towards square 0
// and the weak side's towards 63. Scores made in this view convert back with toWhite (a
// White's-view score) and toMover (the side to move's view).
class StrongView {
  public:
    StrongView(const Position& position, bool whiteStrong)
        : occupied(whiteStrong ? position.occupied : flipRanks(position.occupied)),
          strongToMove((position.whiteToMove != 0) == whiteStrong),
          white(whiteStrong) {
        if (whiteStrong) {
            strongSide = &position.sides[0];
            weakSide = &position.sides[1];
        } else {
            turned[0] = turnedSide(position.sides[1]);
            turned[1] = turnedSide(position.sides[0]);
            strongSide = &turned[0];
            weakSide = &turned[1];
        }
    }
    StrongView(const StrongView&) = delete;
    StrongView& operator=(const StrongView&) = delete;

    const SideState& strong() const { return *strongSide; }
    const SideState& weak() const { return *weakSide; }
    int toWhite(int score) const { return white ? score : -score; }
    int toMover(int score) const { return strongToMove ? score : -score; }
    // A board of the real position in this view.
    Bitboard turn(Bitboard b) const { return white ? b : flipRanks(b); }

    const Bitboard occupied;
    const bool strongToMove;
    const bool white;

  private:
    SideState turned[2];
    const SideState* strongSide;
    const SideState* weakSide;
};

}  // namespace rec
