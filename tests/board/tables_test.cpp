#include "board/tables.h"

#include <gtest/gtest.h>

#include <random>

#include "board/bitboard.h"

namespace {

// The lookups are checked against slow, obvious code on (file, row) coordinates, with
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

Bitboard rookWalk(int s, Bitboard occ) {
    return lineWalk(s, occ, 1, 0) | lineWalk(s, occ, 0, 1);
}
Bitboard bishopWalk(int s, Bitboard occ) {
    return lineWalk(s, occ, 1, -1) | lineWalk(s, occ, 1, 1);
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

// Every subset of the engine's own masks; the random boards below catch a mask that misses
// a square.
TEST(SlidingAttacks, MagicLookupMatchesRayWalkForEverySubset) {
    for (int s = 0; s < 64; ++s) {
        for (bool rook : {false, true}) {
            const Bitboard mask = rook ? RookMagic[s].mask : BishopMagic[s].mask;
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

TEST(SlidingAttacks, EveryLookupMatchesRayWalkOnRandomBoards) {
    std::mt19937_64 rng(77);
    for (int n = 0; n < 4000; ++n) {
        Bitboard occ = randomOccupancy(rng);
        for (int s = 0; s < 64; ++s) {
            ASSERT_EQ(rookAttacks(s, occ), rookWalk(s, occ)) << s << " " << std::hex << occ;
            ASSERT_EQ(bishopAttacks(s, occ), bishopWalk(s, occ)) << s << " " << std::hex << occ;
            ASSERT_EQ(queenAttacks(s, occ), rookWalk(s, occ) | bishopWalk(s, occ));
            ASSERT_EQ(rankAttacks(s, occ), lineWalk(s, occ, 1, 0)) << s;
            ASSERT_EQ(fileAttacks(s, occ), lineWalk(s, occ, 0, 1)) << s;
            ASSERT_EQ(risingAttacks(s, occ), lineWalk(s, occ, 1, -1)) << s;
            ASSERT_EQ(fallingAttacks(s, occ), lineWalk(s, occ, 1, 1)) << s;
        }
    }
}

TEST(BitTricks, AgreeWithCompilerBuiltins) {
    std::mt19937_64 rng(99);
    for (int n = 0; n < 100000; ++n) {
        Bitboard x = randomOccupancy(rng);
        ASSERT_EQ(popcount(x), __builtin_popcountll(x)) << std::hex << x;
        if (x) {
            ASSERT_EQ(firstSquare(x), __builtin_ctzll(x)) << std::hex << x;
        }
        // The short form is meant for small sets only.
        Bitboard small = 0;
        for (int k = static_cast<int>(rng() % 16); k > 0; --k) small |= Bitboard{1} << (rng() % 64);
        ASSERT_EQ(popcountSmall(small), __builtin_popcountll(small)) << std::hex << small;
    }
    // Random sets almost always have a low first square; walk the whole index table.
    for (int s = 0; s < 64; ++s) EXPECT_EQ(lowestBitSquare(Bitboard{1} << s), s);
    EXPECT_EQ(popcount(~Bitboard{0}), 64);
}

TEST(SquareText, LettersAndSets) {
    // The square formula folds the letter's case away.
    EXPECT_EQ(squareFromLetters('a', '8'), 0);
    EXPECT_EQ(squareFromLetters('H', '1'), 63);
    EXPECT_EQ(squareFromLetters('d', '5'), squareFromLetters('D', '5'));
    EXPECT_EQ(squareSetFromText("A1b2"), (Bitboard{1} << 56) | (Bitboard{1} << 49));
    EXPECT_EQ(squareSetFromText(""), 0u);

    EXPECT_EQ(MainDiagonals, RisingLine[squareFromLetters('a', '1')] |
                                 FallingLine[squareFromLetters('a', '8')] |
                                 squareSetFromText("a1a8"));
    EXPECT_EQ(LightCornerAreas & DarkCornerAreas, 0u);
}

}  // namespace
