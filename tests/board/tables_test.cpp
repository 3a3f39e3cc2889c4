#include "board/tables.h"

#include <gtest/gtest.h>

#include <random>

#include "board/bitboard.h"
#include "board/move.h"

namespace {

// Everything below is checked against slow, obvious code on (file, row) coordinates, with
// row 0 the eighth rank as in the engine's numbering.
bool onBoard(int file, int row) {
    return file >= 0 && file < 8 && row >= 0 && row < 8;
}

Bitboard walk(int square, Bitboard occupied, int fileStep, int rowStep) {
    Bitboard result = 0;
    int file = square & 7, row = square >> 3;
    for (;;) {
        file += fileStep;
        row += rowStep;
        if (!onBoard(file, row)) return result;
        Bitboard bit = Bitboard{1} << (row * 8 + file);
        result |= bit;
        if (occupied & bit) return result;
    }
}

// Both directions of one line.
Bitboard lineWalk(int square, Bitboard occupied, int fileStep, int rowStep) {
    return walk(square, occupied, fileStep, rowStep) | walk(square, occupied, -fileStep, -rowStep);
}

// Rank, file, rising (towards h8: file up, row down) and falling (towards h1).
constexpr int RankDir[2] = {1, 0};
constexpr int FileDir[2] = {0, 1};
constexpr int RisingDir[2] = {1, -1};
constexpr int FallingDir[2] = {1, 1};

Bitboard rookWalk(int s, Bitboard occ) {
    return lineWalk(s, occ, 1, 0) | lineWalk(s, occ, 0, 1);
}
Bitboard bishopWalk(int s, Bitboard occ) {
    return lineWalk(s, occ, 1, -1) | lineWalk(s, occ, 1, 1);
}

// The squares whose occupancy can matter: each ray without its last square.
Bitboard relevant(int s, bool rook) {
    const int dirs[2][4][2] = {{{1, 1}, {1, -1}, {-1, 1}, {-1, -1}},
                               {{1, 0}, {-1, 0}, {0, 1}, {0, -1}}};
    Bitboard all = 0;
    for (const auto& d : dirs[rook ? 1 : 0]) {
        int file = (s & 7) + d[0], row = (s >> 3) + d[1];
        for (; onBoard(file + d[0], row + d[1]); file += d[0], row += d[1]) {
            all |= Bitboard{1} << (row * 8 + file);
        }
    }
    return all;
}

Bitboard leaper(int s, const int (*steps)[2]) {
    Bitboard result = 0;
    for (int k = 0; k < 8; ++k) {
        int file = (s & 7) + steps[k][0], row = (s >> 3) + steps[k][1];
        if (onBoard(file, row)) result |= Bitboard{1} << (row * 8 + file);
    }
    return result;
}
constexpr int KnightJumps[8][2] = {{1, 2},   {2, 1},   {2, -1}, {1, -2},
                                   {-1, -2}, {-2, -1}, {-2, 1}, {-1, 2}};
constexpr int KingSteps[8][2] = {{1, 0},  {1, 1},   {0, 1},  {-1, 1},
                                 {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};

int sq(const char* name) {
    return squareFromLetters(name[0], name[1]);
}

// Random occupancies of varied density, so that both long and short rays occur.
Bitboard randomOccupancy(std::mt19937_64& rng) {
    switch (rng() % 3) {
        case 0:
            return rng() & rng() & rng();
        case 1:
            return rng() & rng();
        default:
            return rng();
    }
}

TEST(SlidingAttacks, MagicLookupMatchesRayWalkForEverySubset) {
    for (int s = 0; s < 64; ++s) {
        for (bool rook : {false, true}) {
            Bitboard mask = relevant(s, rook);
            Bitboard subset = 0;
            do {
                Bitboard expected = rook ? rookWalk(s, subset) : bishopWalk(s, subset);
                Bitboard actual = rook ? rookAttacks(s, subset) : bishopAttacks(s, subset);
                ASSERT_EQ(actual, expected) << (rook ? "rook" : "bishop") << " on " << s
                                            << " occupancy " << std::hex << subset;
                subset = (subset - mask) & mask;
            } while (subset);
        }
    }
}

TEST(SlidingAttacks, MagicLookupIgnoresIrrelevantSquares) {
    std::mt19937_64 rng(20240611);
    for (int n = 0; n < 20000; ++n) {
        int s = static_cast<int>(rng() % 64);
        Bitboard occ = randomOccupancy(rng);
        ASSERT_EQ(rookAttacks(s, occ), rookWalk(s, occ)) << s << " " << std::hex << occ;
        ASSERT_EQ(bishopAttacks(s, occ), bishopWalk(s, occ)) << s << " " << std::hex << occ;
        ASSERT_EQ(queenAttacks(s, occ), rookWalk(s, occ) | bishopWalk(s, occ));
    }
}

TEST(SlidingAttacks, LineLookupsMatchRayWalkAlongTheirLine) {
    std::mt19937_64 rng(77);
    for (int n = 0; n < 4000; ++n) {
        Bitboard occ = randomOccupancy(rng);
        for (int s = 0; s < 64; ++s) {
            ASSERT_EQ(rankAttacks(s, occ), lineWalk(s, occ, RankDir[0], RankDir[1])) << s;
            ASSERT_EQ(fileAttacks(s, occ), lineWalk(s, occ, FileDir[0], FileDir[1])) << s;
            ASSERT_EQ(risingAttacks(s, occ), lineWalk(s, occ, RisingDir[0], RisingDir[1])) << s;
            ASSERT_EQ(fallingAttacks(s, occ), lineWalk(s, occ, FallingDir[0], FallingDir[1])) << s;
        }
    }
}

TEST(SlidingAttacks, LineEndBlockersChangeNothing) {
    // The lookups index only the six inner squares of a line, so a blocker on either end
    // square of the line must not change the result. The end squares of every rank lie on the
    // a and h files, of every file on the first and eighth ranks, of every diagonal on the rim.
    const Bitboard rankEnds = FileA | FileH;
    const Bitboard fileEnds = RankOne | RankEight;
    const Bitboard rim = rankEnds | fileEnds;
    std::mt19937_64 rng(5);
    for (int n = 0; n < 500; ++n) {
        Bitboard occ = randomOccupancy(rng);
        for (int s = 0; s < 64; ++s) {
            ASSERT_EQ(rankAttacks(s, occ & ~rankEnds), rankAttacks(s, occ | rankEnds)) << s;
            ASSERT_EQ(fileAttacks(s, occ & ~fileEnds), fileAttacks(s, occ | fileEnds)) << s;
            ASSERT_EQ(risingAttacks(s, occ & ~rim), risingAttacks(s, occ | rim)) << s;
            ASSERT_EQ(fallingAttacks(s, occ & ~rim), fallingAttacks(s, occ | rim)) << s;
        }
    }
    // Concrete: a rook on d4 with blockers on a4 and h4 still sees the whole rank.
    EXPECT_EQ(rankAttacks(sq("d4"), squareSetFromText("a4h4")),
              squareSetFromText("a4b4c4e4f4g4h4"));
    EXPECT_EQ(fileAttacks(sq("d4"), squareSetFromText("d6d1")), squareSetFromText("d5d6d3d2d1"));
}

TEST(LineMasks, HoldTheLineWithoutTheSquare) {
    for (int s = 0; s < 64; ++s) {
        EXPECT_EQ(RankLine[s], lineWalk(s, 0, 1, 0)) << s;
        EXPECT_EQ(FileLine[s], lineWalk(s, 0, 0, 1)) << s;
        EXPECT_EQ(RisingLine[s], lineWalk(s, 0, 1, -1)) << s;
        EXPECT_EQ(FallingLine[s], lineWalk(s, 0, 1, 1)) << s;
    }
    for (int f = 0; f < 8; ++f) EXPECT_EQ(FileMask[f], FileA << f);
    // a1-h8 rises, a8-h1 falls.
    EXPECT_EQ(RisingLine[sq("a1")], squareSetFromText("b2c3d4e5f6g7h8"));
    EXPECT_EQ(FallingLine[sq("a8")], squareSetFromText("b7c6d5e4f3g2h1"));
}

TEST(SquarePairs, BetweenAndFromToMask) {
    EXPECT_EQ(Between[sq("e4") + 64 * sq("e5")], 0u);
    EXPECT_EQ(Between[sq("e4") + 64 * sq("f5")], 0u);
    EXPECT_EQ(Between[sq("a1") + 64 * sq("h8")], squareSetFromText("b2c3d4e5f6g7"));
    EXPECT_EQ(Between[sq("a1") + 64 * sq("b3")], 0u);
    EXPECT_EQ(Between[sq("a8") + 64 * sq("a1")], squareSetFromText("a7a6a5a4a3a2"));

    for (int from = 0; from < 64; ++from) {
        for (int to = 0; to < 64; ++to) {
            // Reference: the ray from `from` that reaches `to`, without `to` itself.
            Bitboard expected = 0;
            for (const auto& d : KingSteps) {
                Bitboard ray = walk(from, Bitboard{1} << to, d[0], d[1]);
                if (ray & (Bitboard{1} << to)) expected = ray & ~(Bitboard{1} << to);
            }
            ASSERT_EQ(Between[from + 64 * to], expected) << from << " " << to;
            ASSERT_EQ(Between[from + 64 * to], Between[to + 64 * from]);

            Move m = makeMoveValue(from, to, King, Queen);
            ASSERT_EQ(FromToMask[moveFromTo(m)], (Bitboard{1} << from) | (Bitboard{1} << to));
        }
    }
}

TEST(Leapers, KingKnightAndTwoKnightSteps) {
    for (int s = 0; s < 64; ++s) {
        ASSERT_EQ(KingMask[s], leaper(s, KingSteps)) << s;
        ASSERT_EQ(KnightMask[s], leaper(s, KnightJumps)) << s;
        Bitboard two = 0;
        for (int t = 0; t < 64; ++t) {
            if (leaper(s, KnightJumps) & (Bitboard{1} << t)) two |= leaper(t, KnightJumps);
        }
        ASSERT_EQ(KnightTwoSteps[s], two) << s;
    }
    // Back and forth returns to the start: a1 via b3 and c2 reaches itself and nine more.
    EXPECT_EQ(KnightTwoSteps[sq("a1")], squareSetFromText("a1c1d2d4c5a5a3b4e3e1"));
}

TEST(BitTricks, AgreeWithCompilerBuiltins) {
    std::mt19937_64 rng(99);
    for (int n = 0; n < 100000; ++n) {
        Bitboard x = randomOccupancy(rng);
        ASSERT_EQ(popcount(x), __builtin_popcountll(x)) << std::hex << x;
        if (x) {
            ASSERT_EQ(lowestBitSquare(x & (0 - x)), __builtin_ctzll(x)) << std::hex << x;
            ASSERT_EQ(firstSquare(x), __builtin_ctzll(x)) << std::hex << x;
        }
        // The short form is meant for small sets only.
        Bitboard small = 0;
        for (int k = static_cast<int>(rng() % 16); k > 0; --k) small |= Bitboard{1} << (rng() % 64);
        ASSERT_EQ(popcountSmall(small), __builtin_popcountll(small)) << std::hex << small;
    }
    for (int s = 0; s < 64; ++s) EXPECT_EQ(lowestBitSquare(Bitboard{1} << s), s);
    EXPECT_EQ(popcount(~Bitboard{0}), 64);
    EXPECT_EQ(popcount(0), 0);
}

TEST(SquareText, LettersAndSets) {
    EXPECT_EQ(squareFromLetters('a', '8'), 0);
    EXPECT_EQ(squareFromLetters('h', '8'), 7);
    EXPECT_EQ(squareFromLetters('a', '1'), 56);
    EXPECT_EQ(squareFromLetters('h', '1'), 63);
    for (int file = 0; file < 8; ++file) {
        for (int rank = 1; rank <= 8; ++rank) {
            int expected = (8 - rank) * 8 + file;
            EXPECT_EQ(
                squareFromLetters(static_cast<char>('a' + file), static_cast<char>('0' + rank)),
                expected);
            EXPECT_EQ(
                squareFromLetters(static_cast<char>('A' + file), static_cast<char>('0' + rank)),
                expected);
        }
    }

    EXPECT_EQ(squareSetFromText("A1B2"), (Bitboard{1} << 56) | (Bitboard{1} << 49));
    EXPECT_EQ(squareSetFromText("a1b2"), squareSetFromText("A1B2"));
    EXPECT_EQ(squareSetFromText("H8"), Bitboard{1} << 7);
    EXPECT_EQ(squareSetFromText(""), 0u);

    EXPECT_EQ(popcount(MainDiagonals), 16);
    EXPECT_EQ(MainDiagonals,
              RisingLine[sq("a1")] | FallingLine[sq("a8")] | squareSetFromText("a1a8"));
    EXPECT_EQ(popcount(RimCentres), 16);
    EXPECT_EQ(CornerBlocks, squareSetFromText("a1h1a8h8b2g2b7g7"));
    EXPECT_EQ(LightCornerAreas & DarkCornerAreas, 0u);
    EXPECT_EQ(popcount(LightCornerAreas | DarkCornerAreas), 12);
}

}  // namespace
