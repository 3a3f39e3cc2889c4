#include "eval/bitbase_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <vector>

#include "board/move.h"

namespace {

BitbaseKey keyOf(std::vector<int8_t> firstKinds, std::vector<int8_t> firstSquares,
                 std::vector<int8_t> secondKinds, std::vector<int8_t> secondSquares, int sideBit) {
    firstKinds.push_back(None);
    secondKinds.push_back(None);
    BitbaseKey key;
    EXPECT_TRUE(makeBitbaseKey(key, firstKinds.data(), firstSquares.data(), secondKinds.data(),
                               secondSquares.data(), sideBit));
    return key;
}

struct NameCase {
    std::vector<int8_t> first, second;
    const char* name;
};

TEST(BitbaseIndex, NamesListKingThenPawnsToQueensFirstColourFirst) {
    const NameCase cases[] = {
        {{King}, {King}, "KK"},
        {{King, Rook}, {King}, "KTK"},
        {{King}, {King, Rook}, "KKT"},
        {{King, Pawn, Rook}, {King, Knight}, "KBTKS"},
        {{King, Bishop, Knight}, {King}, ""},  // not in ascending order
        {{King, Knight, Bishop, Queen}, {King}, "KSLDK"},
        {{King, Pawn, Pawn}, {King, Pawn}, "KBBKB"},
        {{King, Pawn, Pawn, Pawn}, {King, Pawn}, ""},  // six men
        {{Rook, King}, {King}, ""},
        {{King, King}, {King}, ""},
    };
    for (const NameCase& c : cases) {
        std::vector<int8_t> first = c.first, second = c.second;
        const std::vector<int8_t> squares(8, 0);
        first.push_back(None);
        second.push_back(None);
        BitbaseKey key;
        const bool made =
            makeBitbaseKey(key, first.data(), squares.data(), second.data(), squares.data(), 0);
        EXPECT_EQ(made, c.name[0] != 0) << c.name;
        if (!made) continue;
        EXPECT_STREQ(key.name, c.name);
        BitbaseKey parsed;
        ASSERT_TRUE(bitbaseKeyFromName(parsed, c.name));
        EXPECT_EQ(parsed.pawnIndex, key.pawnIndex) << c.name;
        EXPECT_EQ(parsed.firstCount, key.firstCount) << c.name;
        EXPECT_EQ(bitbaseIndexCount(parsed), bitbaseIndexCount(key)) << c.name;
    }
    for (const char* bad : {"", "K", "TKK", "KKK", "KXK", "KTLK", "KBBBKB", "kTK"}) {
        BitbaseKey key;
        EXPECT_FALSE(bitbaseKeyFromName(key, bad)) << bad;
    }
}

// Worked by hand from the definition, so that engine and generator agree with it as well as
// with each other. Squares: a8 is 0, h1 is 63.
TEST(BitbaseIndex, HandWorkedIndices) {
    struct Case {
        BitbaseKey key;
        uint64_t index;
    };
    const Case cases[] = {
        // King a8 on the diagonal, so is the rook on b7 and the king on h1: no swap.
        {keyOf({King, Rook}, {0, 9}, {King}, {63}, 0), 639},
        // King e1 folds to d8 by XOR 63; Black to move.
        {keyOf({King, Rook}, {60, 56}, {King}, {4}, 1), 29179},
        // King a5 is above the diagonal: slot of d8's mirror a5 and rows swapped with files.
        {keyOf({King, Rook}, {24, 7}, {King}, {42}, 0), 28181},
        // A pawn on e4 folds to file d, and every other man with it.
        {keyOf({King, Pawn}, {60, 36}, {King}, {4}, 0), 167619},
        // A pawn of the second colour counts its row two less.
        {keyOf({King}, {60}, {King, Pawn}, {4, 27}, 0), 69380},
    };
    for (const Case& c : cases) EXPECT_EQ(bitbaseIndex(c.key), c.index) << c.key.name;
}

int transform(int square, int symmetry) {
    if (symmetry & 4) square = (square & 7) * 8 + (square >> 3);
    return square ^ ((symmetry & 1) ? 7 : 0) ^ ((symmetry & 2) ? 56 : 0);
}

// Every placement of the three men, both sides to move: indices in range, the same index for
// the board's symmetries (only the file mirror with a pawn), a different one for positions
// that aren't images of each other, and a position read back from the index that indexes the
// same.
void checkEveryPlacement(const char* name, int symmetries, bool pawnFirst) {
    BitbaseKey material;
    ASSERT_TRUE(bitbaseKeyFromName(material, name));
    const uint64_t count = bitbaseIndexCount(material);
    std::vector<int64_t> classOfIndex(count, -1);
    const int pawnAt = material.pawnIndex;
    int outOfRange = 0, sharedIndex = 0, asymmetric = 0, badReadBack = 0;
    for (int a = 0; a < 64; ++a)
        for (int b = 0; b < 64; ++b)
            for (int c = 0; c < 64; ++c) {
                if (a == b || b == c || a == c) continue;
                if (pawnAt >= 0) {
                    const int row = (pawnAt == 1 ? b : c) >> 3;
                    if (pawnFirst ? (row < 1 || row > 5) : (row < 2 || row > 6)) continue;
                }
                for (int side = 0; side < 2; ++side) {
                    BitbaseKey key = material;
                    key.sideBit = side;
                    key.squares[0] = static_cast<int8_t>(a);
                    key.squares[1] = static_cast<int8_t>(b);
                    key.squares[2] = static_cast<int8_t>(c);
                    const uint64_t index = bitbaseIndex(key);
                    if (index >= count) {
                        ++outOfRange;
                        continue;
                    }
                    int64_t smallest = INT64_MAX;
                    for (int s = 0; s < symmetries; ++s) {
                        BitbaseKey image = key;
                        for (int i = 0; i < 3; ++i)
                            image.squares[i] = static_cast<int8_t>(transform(key.squares[i], s));
                        if (bitbaseIndex(image) != index) ++asymmetric;
                        const int64_t id =
                            ((image.squares[0] * 64 + image.squares[1]) * 64 + image.squares[2]) *
                                2 +
                            side;
                        smallest = std::min(smallest, id);
                    }
                    if (classOfIndex[index] >= 0 && classOfIndex[index] != smallest) ++sharedIndex;
                    classOfIndex[index] = smallest;
                    BitbaseKey readBack = material;
                    if (!bitbasePositionFromIndex(readBack, index) ||
                        bitbaseIndex(readBack) != index)
                        ++badReadBack;
                }
            }
    EXPECT_EQ(outOfRange, 0) << name;
    EXPECT_EQ(asymmetric, 0) << name;
    EXPECT_EQ(sharedIndex, 0) << name;
    EXPECT_EQ(badReadBack, 0) << name;
}

TEST(BitbaseIndex, PawnlessMaterialFoldsAllEightSymmetries) {
    checkEveryPlacement("KTK", 8, false);
}

TEST(BitbaseIndex, PawnMaterialFoldsTheFileMirror) {
    checkEveryPlacement("KBK", 2, true);
    checkEveryPlacement("KKB", 2, false);
}

TEST(BitbaseIndex, PawnsWhereNoFileHasThemGetNoIndex) {
    struct Case {
        BitbaseKey key;
        bool indexed;
    };
    const Case cases[] = {
        {keyOf({King, Pawn}, {60, 52}, {King}, {4}, 1), false},  // e2, its home row
        {keyOf({King, Pawn}, {60, 44}, {King}, {4}, 1), true},   // e3
        {keyOf({King, Pawn}, {60, 8}, {King}, {4}, 1), true},    // a7
        {keyOf({King, Pawn}, {60, 0}, {King}, {4}, 1), false},   // a8, nowhere to stand
        {keyOf({King}, {60}, {King, Pawn}, {4, 12}, 0), false},  // e7, the second colour's home
        {keyOf({King}, {60}, {King, Pawn}, {4, 8}, 0), false},   // a7
        {keyOf({King}, {60}, {King, Pawn}, {4, 16}, 0), true},   // a6
        {keyOf({King}, {60}, {King, Pawn}, {4, 55}, 0), true},   // h2
        {keyOf({King}, {60}, {King, Pawn}, {4, 59}, 0), false},  // d1
        // Only the leading pawn is folded into the field; a second one is a plain square.
        {keyOf({King, Pawn}, {60, 44}, {King, Pawn}, {4, 12}, 0), true},
    };
    for (const Case& c : cases) {
        const uint64_t index = bitbaseIndex(c.key);
        if (c.indexed) {
            EXPECT_LT(index, bitbaseIndexCount(c.key))
                << c.key.name << " " << int(c.key.squares[1]);
        } else {
            EXPECT_EQ(index, NoBitbaseIndex) << c.key.name << " " << int(c.key.squares[1]);
        }
    }
    BitbaseKey key;
    ASSERT_TRUE(bitbaseKeyFromName(key, "KBK"));
    EXPECT_FALSE(bitbasePositionFromIndex(key, bitbaseIndexCount(key)));
    EXPECT_FALSE(bitbasePositionFromIndex(key, 1));  // the leading field starts at 2
}

// The second look of a probe reads the file of the colour-reversed position: reversing colours
// and reading the mirror lands on the first look's file and bit.
TEST(BitbaseIndex, ColourReversedPositionReadsTheSameBit) {
    const BitbaseKey original = keyOf({King, Pawn}, {60, 36}, {King, Knight}, {4, 20}, 0);
    const BitbaseKey reversed =
        keyOf({King, Knight}, {4 ^ 56, 20 ^ 56}, {King, Pawn}, {60 ^ 56, 36 ^ 56}, 1);
    BitbaseKey mirrored;
    mirroredBitbaseKey(reversed, mirrored);
    EXPECT_STREQ(reversed.name, "KSKB");
    EXPECT_STREQ(mirrored.name, original.name);
    EXPECT_EQ(mirrored.pawnIndex, original.pawnIndex);
    EXPECT_EQ(bitbaseIndex(mirrored), bitbaseIndex(original));
}

}  // namespace
