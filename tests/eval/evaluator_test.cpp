#include "eval/evaluator.h"

#include <gtest/gtest.h>

#include <memory>

#include "board/tables.h"
#include "eval/pawn_entry.h"
#include "eval_support.h"

namespace {

const std::vector<std::string> GameStarts = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    // Closed and pawn-heavy.
    "r1bqkbnr/pp3ppp/2n1p3/2ppP3/3P4/2P2N2/PP3PPP/RNBQKB1R b KQkq -",
    "4k3/pppppppp/8/8/8/8/PPPPPPPP/4K3 w - -",
    "6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - -",
    "8/5k2/8/2p5/2P5/8/3K4/8 w - -",
    // Without pawns: a full set of pieces, and small endings that take the mating drive.
    "rnbqkbnr/8/8/8/8/8/8/RNBQKBNR w KQkq -",
    "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -",
    "8/8/3k4/8/8/3K4/8/R7 w - -",
    "8/2n5/3k4/8/8/3K4/5B2/8 b - -",
};

std::unique_ptr<Evaluator> makeEvaluator() {
    return std::make_unique<Evaluator>();
}

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

int squareOf(const char* name) {
    return squareFromLetters(name[0], name[1]);
}

TEST(Evaluator, MirroredPositionsScoreTheSameForTheSideToMove) {
    const std::vector<Position> positions = randomGamePositions(GameStarts, 6, 50, 11);
    ASSERT_GT(positions.size(), 1000u);
    auto e = makeEvaluator();
    int pawnless = 0;
    for (const Position& p : positions) {
        const std::string fen = fenOf(p);
        const Position m = positionFromFen(mirrorFen(fen));

        const int score = e->evaluate(p);
        const int material = e->materialValue(false);
        const int display = e->evaluateForDisplay(p);
        ASSERT_EQ(e->evaluate(m), score) << fen;
        ASSERT_EQ(e->materialValue(false), -material) << fen;
        ASSERT_EQ(e->evaluateForDisplay(m), display) << fen;
        if ((p.sides[0].pieces[Pawn] | p.sides[1].pieces[Pawn]) == 0) ++pawnless;
    }
    EXPECT_GT(pawnless, 100);
}

TEST(Evaluator, WarmCachesAnswerAsAFreshComputation) {
    const std::vector<Position> positions = randomGamePositions(GameStarts, 4, 60, 23);
    auto warm = makeEvaluator();
    auto cold = makeEvaluator();
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

TEST(Evaluator, MaterialFormula) {
    // Equal counts are 0 whatever the placement or the bishops' square colours.
    EXPECT_EQ(materialOf("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -"), 0);
    EXPECT_EQ(materialOf("4k3/2b5/8/8/8/8/3B4/4K3 w - -"), 0);
    EXPECT_EQ(materialOf("r3k3/pp1b4/8/8/8/8/3BPP2/R3K3 w - -"), 0);

    // Queen and pawn against rook and pawn: 5350 plus 5350 x 128 / 17850 = 38.
    EXPECT_EQ(materialOf("3rk3/4p3/8/8/8/8/3QP3/4K3 w - -"), 5388);
    EXPECT_EQ(materialOf("4k3/3qp3/8/8/8/8/4P3/3RK3 w - -"), -5388);
    // An extra pawn in an ending: 1000 + 9, then the pawn count 40 - 1 at full weight.
    EXPECT_EQ(materialOf("r3k3/4p3/8/8/8/8/3PP3/R3K3 w - -"), 1009 + 39);
    // Two rooks against a queen: -150 (the scaled part truncates to 0), then -95.
    EXPECT_EQ(materialOf("3qk3/8/8/8/8/8/8/R3K2R w - -"), -245);
    EXPECT_EQ(materialOf("r3k2r/8/8/8/8/8/8/3QK3 w - -"), 245);
}

TEST(Evaluator, BishopPair) {
    // Two bishops against bishop and knight: 100, the scaled part 0, the pair 108.
    EXPECT_EQ(materialOf("4k3/2b5/3n4/8/8/8/3BB3/4K3 w - -"), 208);
    EXPECT_EQ(materialOf("4k3/3bb3/8/8/8/3N4/2B5/4K3 w - -"), -208);
    // With a pawn more the pair also counts in the pawn term: 1109 + 108 + (82 + 1 + 140).
    EXPECT_EQ(materialOf("4k3/2b5/3n4/8/8/8/3BBP2/4K3 w - -"), 1440);
    // Both pairs cancel, in the pawn term too: 1000 + 8, then the pawn count 1 + 140.
    EXPECT_EQ(materialOf("4k3/3bb3/8/8/8/8/3BBP2/4K3 w - -"), 1149);
    EXPECT_EQ(materialOf("4k3/3nn3/8/8/8/8/3NNP2/4K3 w - -"), 1149);
    // Part of the way to the ending the pawn term is scaled by 256 - phase: with rook, two
    // bishops and five pawns against rook, bishop, knight and three pawns the phase is 18,
    // so 2100 + 8 + 108 + 238 x (82 + 55 - 53) / 256.
    EXPECT_EQ(materialOf("r1b1k3/ppp5/2n5/8/8/8/PPPPP3/R1B1KB2 w - -"), 2294);
}

TEST(Evaluator, IncrementalMaterialAfterTakingAManOff) {
    const std::string fen = "r1bqkb1r/pppp1ppp/2n2n2/4p3/4P3/2N2N2/PPPP1PPP/R1BQKB1R w KQkq -";
    Position p = positionFromFen(fen);
    auto e = handMadeEvaluator();
    e->evaluate(p);
    const int base = e->materialValue(false);
    ASSERT_EQ(base, 0);

    takeOff(p.sides[1], Knight, squareOf("f6"));
    const int withoutKnight =
        materialOf("r1bqkb1r/pppp1ppp/2n5/4p3/4P3/2N2N2/PPPP1PPP/R1BQKB1R w KQkq -");
    EXPECT_EQ(e->materialValue(true), withoutKnight - base);
    EXPECT_GT(withoutKnight, 3400);

    // Taking a bishop off changes the bishop colour code of the key: White keeps a bishop on
    // the colour of Black's only bishop.
    const std::string bishops = "r2qk2r/ppp2ppp/2n1bn2/3pp3/3PP3/2N1BN2/PPP2PPP/R2QKB1R w KQkq -";
    Position q = positionFromFen(bishops);
    e->evaluate(q);
    const int before = e->materialValue(false);
    EXPECT_GT(before, 3000);
    takeOff(q.sides[0], Bishop, squareOf("e3"));
    EXPECT_EQ(e->materialValue(true), -before);
    EXPECT_EQ(e->baseMaterial, before);

    // Part of the way to the ending the phase, and with it the weight of the pawn term, comes
    // from the counts that were taken down, not from the board.
    Position r = positionFromFen("r1b1k3/ppp5/2n5/8/8/8/PPPPP3/R1B1KB2 w - -");
    e->evaluate(r);
    const int full = e->materialValue(false);
    takeOff(r.sides[1], Pawn, squareOf("a7"));
    EXPECT_EQ(e->materialValue(true),
              materialOf("r1b1k3/1pp5/2n5/8/8/8/PPPPP3/R1B1KB2 w - -") - full);
}

TEST(Evaluator, SideToMoveUnit) {
    EXPECT_EQ(sideToMoveScore(1, true), 2);
    EXPECT_EQ(sideToMoveScore(0, false), 0);
    EXPECT_EQ(sideToMoveScore(5, false), -6);
    // The start position is balanced but for the tempo of 33, plus the unit.
    auto e = makeEvaluator();
    const std::string start = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
    EXPECT_EQ(e->evaluate(positionFromFen(start)), 34);
    EXPECT_EQ(e->evaluate(positionFromFen(mirrorFen(start))), 34);
    EXPECT_EQ(e->evaluateForDisplay(positionFromFen(start)), 33);
}

TEST(Evaluator, MopUpDrivesTheLoneKingToTheCorner) {
    auto e = handMadeEvaluator();
    // Rook against king: material 5200 + 125 and the recogniser's 4000 for a won ending, the
    // weak king on a8 is 6 rook and 3 king steps from the centre, the kings 4 and 2 apart:
    // 9325 + 372 - 105 - 32, plus 3.
    const int corner = e->evaluate(positionFromFen("k7/8/2K5/8/8/8/8/7R w - -"));
    EXPECT_EQ(corner, 9563);
    EXPECT_EQ(e->evaluate(positionFromFen("k7/8/2K5/8/8/8/8/7R b - -")), -9557);
    const int edge = e->evaluate(positionFromFen("8/8/k7/8/2K5/8/8/7R w - -"));
    EXPECT_GT(corner, edge);
    EXPECT_GT(edge, e->evaluate(positionFromFen("8/8/8/4k3/8/2K5/8/7R w - -")));
    // The same for a Black strong side, seen from Black to move.
    EXPECT_GT(e->evaluate(positionFromFen("7r/8/8/8/8/2k5/8/K7 b - -")),
              e->evaluate(positionFromFen("7r/8/2k5/8/4K3/8/8/8 b - -")));
}

TEST(Evaluator, StalemateTrap) {
    auto e = makeEvaluator();
    // White's king has no square, the h-pawn is blocked and takes nothing: stalemate.
    EXPECT_EQ(e->evaluate(positionFromFen("k7/8/8/7p/7P/8/5q2/7K w - -")), 0);
    // A pawn that can still move keeps it a normal (lost) position.
    EXPECT_LT(e->evaluate(positionFromFen("k7/8/8/6p1/7P/8/5q2/7K w - -")), -5000);
    // An en passant capture is a pawn move too.
    EXPECT_NE(e->evaluate(positionFromFen("k7/8/7p/6pP/8/8/5q2/7K w - g6")), 0);
    // Black to move in the mirrored trap.
    EXPECT_EQ(e->evaluate(positionFromFen(mirrorFen("k7/8/8/7p/7P/8/5q2/7K w - -"))), 0);
}

TEST(Evaluator, PawnCache) {
    auto e = makeEvaluator();
    // Without pawns: the empty entry, all files open, and the slot of key 0 stays unwritten.
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

    // Moving only pieces keeps the entry: a mark put into it survives the next evaluation.
    const Position a =
        positionFromFen("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq -");
    const Position b =
        positionFromFen("r1bqkb1r/pppp1ppp/2n2n2/4p3/4P3/2N2N2/PPPP1PPP/R1BQKB1R w KQkq -");
    e->evaluate(a);
    PawnEntry& cached = e->pawnCache[a.pawnKey & (PawnCacheSize - 1)];
    ASSERT_EQ(cached.key, b.pawnKey);
    cached.midScore = 12345;
    e->evaluate(b);
    EXPECT_EQ(e->pawnEntry().midScore, 12345);
}

TEST(Evaluator, NetOptionsClearTheCachesOnlyOnChange) {
    auto e = makeEvaluator();
    const Position p = positionFromFen("3rk3/4p3/8/8/8/8/3QP3/4K3 w - -");
    e->evaluate(p);
    auto stored = [&e] {
        for (const MaterialEntry& m : e->materialCache)
            if (m.recogniser) return true;
        return false;
    };
    e->setNeuroMaterial(40);
    e->setNeuroWidth(800);
    EXPECT_TRUE(stored());
    e->setNeuroMaterial(0);
    EXPECT_FALSE(stored());
    // Without the net the hand-made value stands.
    EXPECT_EQ(materialOf(*e, p), 5388);
    e->setNeuroWidth(1);
    EXPECT_FALSE(stored());
}

}  // namespace
