// Attack and start-up tables. All are filled by one static initialiser before main() runs
// and are read-only afterwards, so every thread reads them without a lock.
#pragma once

#include <cstdint>

#include "board/bitboard.h"

struct MagicEntry {
    Bitboard mask;
    uint64_t multiplier;
    const Bitboard* attacks;
};

extern MagicEntry BishopMagic[64];
extern MagicEntry RookMagic[64];

extern Bitboard FromToMask[4096];
extern Bitboard Between[4096];
extern Bitboard KingMask[64];
extern Bitboard KnightMask[64];
extern Bitboard KnightTwoSteps[64];
extern Bitboard RankAttacks[64 * 64];
extern Bitboard FileAttacks[64 * 64];
extern Bitboard RisingAttacks[64 * 64];
extern Bitboard FallingAttacks[64 * 64];
extern Bitboard FileLine[64];
extern Bitboard RankLine[64];
extern Bitboard RisingLine[64];
extern Bitboard FallingLine[64];
extern Bitboard FileMask[8];

extern const Bitboard MainDiagonals;
extern const Bitboard RimCentres;
extern const Bitboard CornerBlocks;
extern const Bitboard LightCornerAreas;
extern const Bitboard DarkCornerAreas;

inline Bitboard bishopAttacks(int square, Bitboard occupied) {
    const MagicEntry& m = BishopMagic[square];
    return m.attacks[((occupied & m.mask) * m.multiplier) >> 55];
}

inline Bitboard rookAttacks(int square, Bitboard occupied) {
    const MagicEntry& m = RookMagic[square];
    return m.attacks[((occupied & m.mask) * m.multiplier) >> 52];
}

inline Bitboard queenAttacks(int square, Bitboard occupied) {
    return bishopAttacks(square, occupied) | rookAttacks(square, occupied);
}

inline Bitboard rankAttacks(int square, Bitboard occupied) {
    return RankAttacks[square * 64 +
                       (((occupied & RankLine[square]) * 0x0202020202020202ULL) >> 58)];
}

inline Bitboard fileAttacks(int square, Bitboard occupied) {
    return FileAttacks[square * 64 +
                       ((((occupied & FileLine[square]) >> (square & 7)) * 0x0080402010080402ULL) >>
                        58)];
}

inline Bitboard risingAttacks(int square, Bitboard occupied) {
    return RisingAttacks[square * 64 +
                         (((occupied & RisingLine[square]) * 0x0202020202020202ULL) >> 58)];
}

inline Bitboard fallingAttacks(int square, Bitboard occupied) {
    return FallingAttacks[square * 64 +
                          (((occupied & FallingLine[square]) * 0x0202020202020202ULL) >> 58)];
}

// Square from a file letter (either case) and a rank digit, e.g. ('a', '8') gives 0.
inline int squareFromLetters(char letter, char digit) {
    return ((letter & ~0x20) - digit * 8 + 383) & 63;
}

// Bitboard of a text of letter-digit pairs such as "A1B2".
Bitboard squareSetFromText(const char* text);

// King and pawn against king: plies until the pawn promotes safely (1 to 125), -1 for a
// draw, 127 for an illegal placement. Squares as seen by a White pawn; callers with a Black
// pawn flip all squares with XOR 56.
int kpkProbe(bool attackerToMove, int attackerKing, int defenderKing, int pawn);

extern uint8_t KpkTable[24 * 8192];
extern int32_t KpkOffset[64];
