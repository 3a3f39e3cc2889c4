#include "board/tables.h"

#include "board/magics.h"

MagicEntry BishopMagic[64];
MagicEntry RookMagic[64];
Bitboard FromToMask[4096];
Bitboard Between[4096];
Bitboard KingMask[64];
Bitboard KnightMask[64];
Bitboard KnightTwoSteps[64];
Bitboard RankAttacks[64 * 64];
Bitboard FileAttacks[64 * 64];
Bitboard RisingAttacks[64 * 64];
Bitboard FallingAttacks[64 * 64];
Bitboard FileLine[64];
Bitboard RankLine[64];
Bitboard RisingLine[64];
Bitboard FallingLine[64];
Bitboard FileMask[8];

namespace {

Bitboard attackPool[AttackPoolSize];

// Steps as (file, row) pairs; row grows towards White's side.
constexpr int RookSteps[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
constexpr int BishopSteps[4][2] = {{1, 1}, {1, -1}, {-1, 1}, {-1, -1}};

bool onBoard(int file, int row) {
    return file >= 0 && file < 8 && row >= 0 && row < 8;
}

Bitboard slide(int square, Bitboard occupied, const int (*steps)[2], int stepCount) {
    Bitboard result = 0;
    for (int d = 0; d < stepCount; ++d) {
        int file = fileOf(square) + steps[d][0];
        int row = rowOf(square) + steps[d][1];
        while (onBoard(file, row)) {
            int s = row * 8 + file;
            result |= squareBit(s);
            if (occupied & squareBit(s)) break;
            file += steps[d][0];
            row += steps[d][1];
        }
    }
    return result;
}

Bitboard leaperMask(int square, const int (*steps)[2], int stepCount) {
    Bitboard result = 0;
    for (int d = 0; d < stepCount; ++d) {
        int file = fileOf(square) + steps[d][0];
        int row = rowOf(square) + steps[d][1];
        if (onBoard(file, row)) result |= squareBit(row * 8 + file);
    }
    return result;
}

constexpr int KingSteps[8][2] = {{1, 0}, {-1, 0}, {0, 1},  {0, -1},
                                 {1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
constexpr int KnightSteps[8][2] = {{1, 2},   {2, 1},   {2, -1}, {1, -2},
                                   {-1, -2}, {-2, -1}, {-2, 1}, {-1, 2}};

// All squares of one line through a square, the square itself excluded.
Bitboard lineThrough(int square, int fileStep, int rowStep) {
    const int steps[2][2] = {{fileStep, rowStep}, {-fileStep, -rowStep}};
    return slide(square, 0, steps, 2);
}

// Fills one line table: every occupancy of the line's squares is mapped by the same index
// formula that the lookups use, so table and lookup agree by construction.
template <typename IndexFunction>
void fillLineTable(Bitboard* table, const Bitboard* lines, int fileStep, int rowStep,
                   IndexFunction index) {
    const int steps[2][2] = {{fileStep, rowStep}, {-fileStep, -rowStep}};
    for (int square = 0; square < 64; ++square) {
        Bitboard line = lines[square];
        Bitboard subset = 0;
        do {
            table[square * 64 + index(square, subset)] = slide(square, subset, steps, 2);
            subset = (subset - line) & line;
        } while (subset);
    }
}

void fillMagics(MagicEntry* entries, const MagicConstant* constants, const int (*steps)[2],
                Bitboard occupancyFilter(int), int shift) {
    for (int square = 0; square < 64; ++square) {
        MagicEntry& e = entries[square];
        e.mask = occupancyFilter(square);
        e.multiplier = constants[square].multiplier;
        Bitboard* block = attackPool + constants[square].offset;
        e.attacks = block;
        Bitboard subset = 0;
        do {
            block[(subset * e.multiplier) >> shift] = slide(square, subset, steps, 4);
            subset = (subset - e.mask) & e.mask;
        } while (subset);
    }
}

Bitboard rookMask(int square) {
    Bitboard rank = lineThrough(square, 1, 0) & ~(FileA | FileH);
    Bitboard file = lineThrough(square, 0, 1) & ~(RankOne | RankEight);
    return rank | file;
}

Bitboard bishopMask(int square) {
    return (lineThrough(square, 1, 1) | lineThrough(square, 1, -1)) & InnerSquares;
}

struct TableBuilder {
    TableBuilder() {
        for (int f = 0; f < 8; ++f) FileMask[f] = FileA << f;
        for (int s = 0; s < 64; ++s) {
            KingMask[s] = leaperMask(s, KingSteps, 8);
            KnightMask[s] = leaperMask(s, KnightSteps, 8);
        }
        for (int s = 0; s < 64; ++s) {
            Bitboard two = 0;
            for (Bitboard b = KnightMask[s]; b; b &= b - 1) two |= KnightMask[firstSquare(b)];
            KnightTwoSteps[s] = two;
        }
        for (int from = 0; from < 64; ++from) {
            for (int to = 0; to < 64; ++to) {
                FromToMask[from + 64 * to] = squareBit(from) | squareBit(to);
                Between[from + 64 * to] = 0;
                for (const auto& step : KingSteps) {
                    Bitboard walked = 0;
                    int file = fileOf(from) + step[0], row = rowOf(from) + step[1];
                    for (int n = 0; n < 8 && onBoard(file, row); ++n) {
                        int s = row * 8 + file;
                        if (s == to) {
                            Between[from + 64 * to] = walked;
                            break;
                        }
                        walked |= squareBit(s);
                        file += step[0];
                        row += step[1];
                    }
                    if (Between[from + 64 * to]) break;
                }
            }
        }

        for (int s = 0; s < 64; ++s) {
            RankLine[s] = lineThrough(s, 1, 0);
            FileLine[s] = lineThrough(s, 0, 1);
            RisingLine[s] = lineThrough(s, 1, -1);  // towards h8: file up, row down
            FallingLine[s] = lineThrough(s, 1, 1);
        }
        fillLineTable(RankAttacks, RankLine, 1, 0, [](int s, Bitboard occ) {
            return static_cast<int>(((occ & RankLine[s]) * 0x0202020202020202ULL) >> 58);
        });
        fillLineTable(FileAttacks, FileLine, 0, 1, [](int s, Bitboard occ) {
            return static_cast<int>((((occ & FileLine[s]) >> (s & 7)) * 0x0080402010080402ULL) >>
                                    58);
        });
        fillLineTable(RisingAttacks, RisingLine, 1, -1, [](int s, Bitboard occ) {
            return static_cast<int>(((occ & RisingLine[s]) * 0x0202020202020202ULL) >> 58);
        });
        fillLineTable(FallingAttacks, FallingLine, 1, 1, [](int s, Bitboard occ) {
            return static_cast<int>(((occ & FallingLine[s]) * 0x0202020202020202ULL) >> 58);
        });

        fillMagics(BishopMagic, BishopMagicConstants, BishopSteps, bishopMask, 55);
        fillMagics(RookMagic, RookMagicConstants, RookSteps, rookMask, 52);
    }
};

TableBuilder tableBuilder;

}  // namespace

Bitboard squareSetFromText(const char* text) {
    Bitboard set = 0;
    for (; text[0] && text[1]; text += 2) set |= squareBit(squareFromLetters(text[0], text[1]));
    return set;
}

const Bitboard MainDiagonals = squareSetFromText("A1B2C3D4E5F6G7H8A8B7C6D5E4F3G2H1");
const Bitboard RimCentres = squareSetFromText("C2D2E2F2C7D7E7F7B3B4B5B6G3G4G5G6");
const Bitboard CornerBlocks = squareSetFromText("A1A8H1H8B2B7G2G7");
const Bitboard LightCornerAreas = squareSetFromText("A7A8B8G1H1H2");
const Bitboard DarkCornerAreas = squareSetFromText("B1A1A2G8H8H7");
