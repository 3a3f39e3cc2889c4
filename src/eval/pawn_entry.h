// The pawn structure record: everything that depends on the pawns alone, computed once per
// pawn key and kept in the evaluator's pawn cache. Scores are from White's point of view.
#pragma once

#include <cstdint>

#include "board/bitboard.h"

struct PawnEntry {
    uint64_t key;  // pawnKey of the position the entry was computed for
    int32_t midScore;
    int32_t endScore;
    // Own pawns inside the colour's blocked region.
    uint8_t whiteBlockedCount;
    uint8_t blackBlockedCount;
    int32_t openFileCount;
    Bitboard openFiles;  // every square of the files without a pawn
    // Squares ahead of the colour's pawns on their files, the pawns' own squares excluded.
    Bitboard whiteFront;
    Bitboard blackFront;
    // Scored passers with every square ahead of them up to the last row.
    Bitboard whitePasserPath;
    Bitboard blackPasserPath;
    Bitboard passers;   // scored passers, both colours
    Bitboard backward;  // both colours
    // The area behind a closed pawn wall, or 0 when the enemy can walk round the wall.
    Bitboard whiteRegion;
    Bitboard blackRegion;
};
static_assert(sizeof(PawnEntry) == 96, "the pawn cache is sized for 96-byte entries");

// Fills `entry` for the given pawns and stores `key` in it.
void computePawnEntry(PawnEntry& entry, uint64_t key, Bitboard whitePawns, Bitboard blackPawns);

// Rank order reversed (square s becomes s ^ 56): Black's pawns seen as White's.
constexpr Bitboard flipRanks(Bitboard b) {
    b = ((b >> 8) & 0x00ff00ff00ff00ffULL) | ((b & 0x00ff00ff00ff00ffULL) << 8);
    b = ((b >> 16) & 0x0000ffff0000ffffULL) | ((b & 0x0000ffff0000ffffULL) << 16);
    return (b >> 32) | (b << 32);
}
