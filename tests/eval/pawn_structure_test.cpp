#include <gtest/gtest.h>

#include <random>

#include "board/tables.h"
#include "eval/pawn_entry.h"

namespace {

Bitboard squares(const char* text) {
    return squareSetFromText(text);
}

PawnEntry entryFor(const char* white, const char* black) {
    PawnEntry entry;
    computePawnEntry(entry, 1, squares(white), squares(black));
    return entry;
}

TEST(PawnStructure, PassersAndBackwardPawns) {
    struct Case {
        const char *white, *black, *passers, *backward;
    };
    const Case cases[] = {
        // Only the front pawn of a file is a passer.
        {"b5b6", "", "b6", ""},
        // An enemy pawn in front, or guarding a square on the way, stops it.
        {"d3d4", "d6", "", ""},
        {"c4d4", "e7", "c4", ""},
        {"c4d4", "c7e7", "", ""},
        // c3 has its only neighbour ahead and its stop square is hit by b5, which a6 holds.
        {"c3d4", "a6b5", "a6d4", "c3"},
        // A neighbour level with the pawn guards the stop square; one behind can step up.
        {"c3d3", "a6b5", "a6d3", ""},
        {"c3d2", "a6b5", "a6d2", ""},
        // Without the enemy pawn's attack there is nothing to fear.
        {"c3d4", "a6", "a6c3d4", ""},
    };
    for (const Case& c : cases) {
        const PawnEntry e = entryFor(c.white, c.black);
        EXPECT_EQ(e.passers, squares(c.passers)) << c.white << " " << c.black;
        EXPECT_EQ(e.backward, squares(c.backward)) << c.white << " " << c.black;
    }
}

TEST(PawnStructure, BlockedRegionBehindAClosedChain) {
    // Every White pawn is blocked face to face and no pawn can take: both sides are shut in.
    const PawnEntry closed = entryFor("a4b5c4d5e4f5g4h5", "a5b6c5d6e5f6g5h6");
    EXPECT_EQ(closed.whiteBlockedCount, 8);
    EXPECT_EQ(closed.blackBlockedCount, 8);
    EXPECT_EQ(closed.whiteRegion & RankOne, RankOne);
    EXPECT_EQ(closed.whiteRegion & RankEight, 0u);
    EXPECT_EQ(closed.blackRegion & RankEight, RankEight);
    EXPECT_EQ(closed.blackRegion & RankOne, 0u);

    // The wall, widened by a file and by the squares the blockers guard, still leaves the
    // a-file open here, and the flood goes round it.
    const PawnEntry leaky = entryFor("d5e4f5g4h5", "d6e5f6g5h6");
    EXPECT_EQ(leaky.whiteRegion, 0u);
    EXPECT_EQ(leaky.whiteBlockedCount, 0);
}

TEST(PawnStructure, ColourMirrorOfRandomPawnSets) {
    std::mt19937_64 random(5);
    constexpr Bitboard PawnRows = 0x00ffffffffffff00ULL;
    for (int i = 0; i < 3000; ++i) {
        Bitboard white = random() & random() & PawnRows;
        Bitboard black = random() & random() & PawnRows & ~white;
        while (popcount(white) > 8) white &= white - 1;
        while (popcount(black) > 8) black &= black - 1;
        PawnEntry e, m;
        computePawnEntry(e, 1, white, black);
        computePawnEntry(m, 1, flipRanks(black), flipRanks(white));
        ASSERT_EQ(m.midScore, -e.midScore) << std::hex << white << " " << black;
        ASSERT_EQ(m.endScore, -e.endScore);
        ASSERT_EQ(m.passers, flipRanks(e.passers));
        ASSERT_EQ(m.backward, flipRanks(e.backward));
        ASSERT_EQ(m.blackFront, flipRanks(e.whiteFront));
        ASSERT_EQ(m.blackRegion, flipRanks(e.whiteRegion));
        ASSERT_EQ(m.blackBlockedCount, e.whiteBlockedCount);
        // No enemy pawn stands ahead of a passer on its file.
        ASSERT_EQ(e.passers & white & e.blackFront, 0u);
        ASSERT_EQ(e.passers & black & e.whiteFront, 0u);
    }
}

}  // namespace
