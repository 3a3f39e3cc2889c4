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

// Hand-checked sums. Every case names the terms that apply; a side without pawns still takes
// the guarded-count term of 0 guarded pawns (-12 in the middlegame).

TEST(PawnStructure, SeventhRowPasserTakesPlacementAndPasserValues) {
    const PawnEntry e = entryFor("b7", "");
    // placement 18 / -38, isolated -123, guarded-count -12 (+12 for Black), one loose +61,
    // passer 570 / 966.
    EXPECT_EQ(e.midScore, 18 - 123 - 12 + 12 + 570);
    EXPECT_EQ(e.endScore, -38 - 123 + 61 + 966);
    EXPECT_EQ(e.passers, squares("b7"));
    EXPECT_EQ(e.whitePasserPath, squares("b7b8"));
}

TEST(PawnStructure, OnlyTheFrontPasserOfAFileScores) {
    const PawnEntry e = entryFor("b5b6", "");
    EXPECT_EQ(e.passers, squares("b6"));
    EXPECT_EQ(e.whitePasserPath, squares("b6b7b8"));
    // placement -66 - 32 / -142 - 97, isolated 2 x 123, doubled (b6) 98 / 93, doubled and
    // isolated 33 / 22, guarded-count -12 + 12, two loose +50, passer b6 337 / 593, and the
    // rear pawn is a candidate with nothing against it: 81 in the ending.
    EXPECT_EQ(e.midScore, -98 - 246 - 98 - 33 - 12 + 12 + 337);
    EXPECT_EQ(e.endScore, -239 - 246 - 93 - 22 + 50 + 593 + 81);
}

TEST(PawnStructure, IsolatedAndDoubledCosts) {
    // Two pawns on the a-file: rook-file isolation is 86 each; the front one is doubled and
    // scores as passer, the rear one is a candidate on the third row (worth 0).
    const PawnEntry e = entryFor("a3a4", "");
    EXPECT_EQ(e.midScore, -164 - 160 - 172 - 98 - 33 - 12 + 12 + 22);
    EXPECT_EQ(e.endScore, -258 - 279 - 172 - 93 - 22 + 50 + 134);

    // Doubled and isolated on the d-file with a Black pawn in front: no passer, and the
    // doubled pawn pays 80 more on the contested file.
    // White d3 d4: placement 28 / -293, isolated 246, doubled 98 / 93, doubled and isolated
    // 33 / 22, guarded-count -12, two loose +50, contested 80. Black d6: placement -14 / -134,
    // isolated 123, guarded-count -12, one loose +61.
    const PawnEntry c = entryFor("d3d4", "d6");
    EXPECT_EQ(c.passers, 0u);
    EXPECT_EQ(c.midScore, (28 - 246 - 98 - 33 - 12 - 80) - (-14 - 123 - 12));
    EXPECT_EQ(c.endScore, (-293 - 246 - 93 - 22 + 50 - 80) - (-134 - 123 + 61));
}

TEST(PawnStructure, CandidatePassedPawn) {
    // c4 and d4 against e7: c4 is passed; d4 meets one guard (e7 on d6) that c4 can answer by
    // stepping to c5, so d4 is a candidate worth 15 in the ending.
    // White: placement 41 / -312, guarded-count -12, two loose +50, passer c4 -14 / 40,
    // candidate +15. Black e7: placement -77 / -87, isolated 123, guarded-count -12, one
    // loose +61; not a candidate, since White's d4 guards e5 and nothing answers it.
    const PawnEntry a = entryFor("c4d4", "e7");
    EXPECT_EQ(a.passers, squares("c4"));
    EXPECT_EQ(a.midScore, (41 - 12 - 14) - (-77 - 123 - 12));
    EXPECT_EQ(a.endScore, (-312 + 50 + 40 + 15) - (-87 - 123 + 61));

    // With c7 as well, d6 has two guards against one possible defender: no candidate.
    const PawnEntry b = entryFor("c4d4", "c7e7");
    EXPECT_EQ(b.passers, 0u);
    EXPECT_EQ(b.midScore, (41 - 12) - (-118 - 77 - 246 - 12));
    EXPECT_EQ(b.endScore, (-312 + 50) - (-137 - 87 - 246 + 50));
}

TEST(PawnStructure, BackwardPawns) {
    // c3 has its only neighbour ahead on d4 and its stop square is hit by b5: backward.
    // b5 is held by a6 behind it, so it is not.
    const PawnEntry e = entryFor("c3d4", "a6b5");
    EXPECT_EQ(e.backward, squares("c3"));
    // A neighbour level with the pawn guards its stop square.
    EXPECT_EQ(entryFor("c3d3", "a6b5").backward, 0u);
    // A neighbour behind can step up to guard it.
    EXPECT_EQ(entryFor("c3d2", "a6b5").backward, 0u);
    // Without the enemy pawn's attack there is nothing to fear.
    EXPECT_EQ(entryFor("c3d4", "a6").backward, 0u);

    EXPECT_EQ(e.whiteFront, squares("c4c5c6c7c8d5d6d7d8"));
    EXPECT_EQ(e.blackFront, squares("a5a4a3a2a1b4b3b2b1"));
    EXPECT_EQ(e.openFileCount, 4);
    EXPECT_EQ(e.openFiles, FileMask[4] | FileMask[5] | FileMask[6] | FileMask[7]);
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

    const PawnEntry start = entryFor("a2b2c2d2e2f2g2h2", "a7b7c7d7e7f7g7h7");
    EXPECT_EQ(start.whiteRegion | start.blackRegion, 0u);
    EXPECT_EQ(start.midScore, 0);
    EXPECT_EQ(start.endScore, 0);
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
