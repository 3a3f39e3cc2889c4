#include "eval/evaluator.h"

#include <gtest/gtest.h>

#include <memory>

#include "board/tables.h"
#include "eval/pawn_entry.h"
#include "eval_support.h"

namespace {

// The hand-made material value alone, without the learned blend.
std::unique_ptr<Evaluator> handMadeEvaluator() {
    auto e = std::make_unique<Evaluator>();
    e->setNeuroMaterial(0);
    return e;
}

int materialOf(Evaluator& e, const Position& p) {
    e.evaluate(p);
    return e.materialValue(false);
}

int materialOf(const std::string& fen) {
    auto e = handMadeEvaluator();
    return materialOf(*e, positionFromFen(fen));
}

// Takes one man of `kind` off `side` the way quiescence does: counts, key, sum and board.
void takeOff(SideState& side, int kind, int square) {
    --side.pieceCount[kind];
    --side.pieceCount[AllMen];
    side.materialKey ^= side.materialKeyTable[kind][side.pieceCount[kind]];
    side.materialSum -= MaterialValue[kind];
    side.pieces[kind] &= ~squareBit(square);
}

TEST(Evaluator, WarmCachesAnswerAsAFreshComputation) {
    const std::vector<Position> positions = randomGamePositions(RandomGameStarts, 4, 60, 23);
    auto warm = std::make_unique<Evaluator>();
    auto cold = std::make_unique<Evaluator>();
    for (const Position& p : positions) {
        cold->clearCaches();
        const int expected = cold->evaluate(p);
        const int expectedMaterial = cold->materialValue(false);
        ASSERT_EQ(warm->evaluate(p), expected) << fenOf(p);
        ASSERT_EQ(warm->materialValue(false), expectedMaterial) << fenOf(p);
        // A second look at the same material is a hit and changes nothing.
        ASSERT_EQ(warm->materialValue(false), expectedMaterial);
    }
}

// Quiescence takes a man off the counts only; the change must match a fresh computation.
TEST(Evaluator, IncrementalMaterialAfterTakingAManOff) {
    struct Case {
        const char* fen;
        int side, kind;
        const char* square;
        const char* after;
    };
    const Case cases[] = {
        {"r1bqkb1r/pppp1ppp/2n2n2/4p3/4P3/2N2N2/PPPP1PPP/R1BQKB1R w KQkq -", 1, Knight, "f6",
         "r1bqkb1r/pppp1ppp/2n5/4p3/4P3/2N2N2/PPPP1PPP/R1BQKB1R w KQkq -"},
        // The bishop colour code of the key changes: White keeps a bishop on the colour of
        // Black's only bishop.
        {"r2qk2r/ppp2ppp/2n1bn2/3pp3/3PP3/2N1BN2/PPP2PPP/R2QKB1R w KQkq -", 0, Bishop, "e3",
         "r2qk2r/ppp2ppp/2n1bn2/3pp3/3PP3/2N2N2/PPP2PPP/R2QKB1R w KQkq -"},
        // Part of the way to the ending the phase, and with it the weight of the pawn term,
        // comes from the counts that were taken down, not from the board.
        {"r1b1k3/ppp5/2n5/8/8/8/PPPPP3/R1B1KB2 w - -", 1, Pawn, "a7",
         "r1b1k3/1pp5/2n5/8/8/8/PPPPP3/R1B1KB2 w - -"},
    };
    auto e = handMadeEvaluator();
    for (const Case& c : cases) {
        Position p = positionFromFen(c.fen);
        e->evaluate(p);
        const int base = e->materialValue(false);
        takeOff(p.sides[c.side], c.kind, squareFromLetters(c.square[0], c.square[1]));
        EXPECT_EQ(e->materialValue(true), materialOf(c.after) - base) << c.fen;
        EXPECT_EQ(e->baseMaterial, base) << c.fen;
    }
}

TEST(Evaluator, MopUpDrivesTheLoneKingToTheCorner) {
    auto e = handMadeEvaluator();
    const int corner = e->evaluate(positionFromFen("k7/8/2K5/8/8/8/8/7R w - -"));
    const int edge = e->evaluate(positionFromFen("8/8/k7/8/2K5/8/8/7R w - -"));
    EXPECT_GT(corner, edge);
    EXPECT_GT(edge, e->evaluate(positionFromFen("8/8/8/4k3/8/2K5/8/7R w - -")));
    // The same for a Black strong side, seen from Black to move.
    EXPECT_GT(e->evaluate(positionFromFen("7r/8/8/8/8/2k5/8/K7 b - -")),
              e->evaluate(positionFromFen("7r/8/2k5/8/4K3/8/8/8 b - -")));
}

TEST(Evaluator, StalemateTrap) {
    auto e = std::make_unique<Evaluator>();
    // White's king has no square, the h-pawn is blocked and takes nothing: stalemate.
    EXPECT_EQ(e->evaluate(positionFromFen("k7/8/8/7p/7P/8/5q2/7K w - -")), 0);
    // A pawn that can still move keeps it a normal (lost) position.
    EXPECT_LT(e->evaluate(positionFromFen("k7/8/8/6p1/7P/8/5q2/7K w - -")), -5000);
    // An en passant capture is a pawn move too.
    EXPECT_NE(e->evaluate(positionFromFen("k7/8/7p/6pP/8/8/5q2/7K w - g6")), 0);
    // Black to move in the mirrored trap.
    EXPECT_EQ(e->evaluate(positionFromFen(mirrorFen("k7/8/8/7p/7P/8/5q2/7K w - -"))), 0);
}

TEST(Evaluator, PawnlessPositionsLeaveThePawnCacheAlone) {
    auto e = std::make_unique<Evaluator>();
    // The empty entry, all files open, and the slot of key 0 stays unwritten.
    for (const char* fen :
         {"rnbqkbnr/8/8/8/8/8/8/RNBQKBNR w KQkq -", "8/8/3k4/8/8/3K4/8/R7 w - -"}) {
        const Position p = positionFromFen(fen);  // the evaluator keeps a pointer to it
        e->evaluate(p);
        const PawnEntry& entry = e->pawnEntry();
        EXPECT_EQ(&entry, &e->emptyPawnEntry);
        EXPECT_EQ(entry.midScore | entry.endScore, 0);
        EXPECT_EQ(entry.openFileCount, 8);
    }
    EXPECT_EQ(e->pawnCache[0].key | e->pawnCache[0].openFiles, 0u);
}

TEST(Evaluator, NetOptionsClearTheCachesOnlyOnChange) {
    auto e = std::make_unique<Evaluator>();
    const Position p = positionFromFen("3rk3/4p3/8/8/8/8/3QP3/4K3 w - -");
    auto stored = [&e] {
        for (const MaterialEntry& m : e->materialCache)
            if (m.recogniser) return true;
        return false;
    };
    const int blended = materialOf(*e, p);
    const int handMade = materialOf("3rk3/4p3/8/8/8/8/3QP3/4K3 w - -");
    ASSERT_NE(blended, handMade);
    e->setNeuroMaterial(40);
    e->setNeuroWidth(800);
    EXPECT_TRUE(stored());
    e->setNeuroMaterial(0);
    EXPECT_FALSE(stored());
    // No stale blended value survives: without the net the hand-made value stands.
    EXPECT_EQ(materialOf(*e, p), handMade);
    e->setNeuroWidth(1);
    EXPECT_FALSE(stored());
}

}  // namespace
