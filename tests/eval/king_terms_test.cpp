// The colour symmetry of the evaluation and of every piece and king term.
#include <gtest/gtest.h>

#include <memory>

#include "eval/evaluator.h"
#include "eval_support.h"

namespace {

struct Terms {
    int mobilityMid = 0, mobilityEnd = 0;
    int pieceMid = 0, pieceEnd = 0;
    int middlegameKing = 0, endgameKing = 0;
};

// The terms with the evaluator pointed at `p` the way positionalScore finds it.
Terms termsOf(Evaluator& e, const Position& p, bool hasMiddlegame, bool hasEndgame) {
    e.position = &p;
    e.currentPawnEntry = &e.pawnEntry();
    Terms t;
    e.mobilityTerms(t.mobilityMid, t.mobilityEnd);
    e.pieceTerms(t.pieceMid, t.pieceEnd, hasMiddlegame, hasEndgame);
    t.middlegameKing = e.middlegameKingTerms();
    t.endgameKing = e.endgameKingTerms();
    return t;
}

// The mirrored position scores the same for the side to move, term by term: a term that
// reads a square or a direction for one colour only shows here.
TEST(Evaluator, MirroredPositionsScoreTheSameTermByTerm) {
    auto evaluator = std::make_unique<Evaluator>();
    const std::vector<Position> positions = randomGamePositions(RandomGameStarts, 6, 60, 5);
    ASSERT_GT(positions.size(), 1000u);
    int kingSafetyFired = 0, raceOrRingsFired = 0, piecesFired = 0, pawnless = 0;
    for (const Position& p : positions) {
        const std::string fen = fenOf(p);
        const Position m = positionFromFen(mirrorFen(fen));
        for (int gates = 1; gates <= 3; ++gates) {
            const bool hasMiddlegame = gates & 1, hasEndgame = gates & 2;
            const Terms a = termsOf(*evaluator, p, hasMiddlegame, hasEndgame);
            const Terms b = termsOf(*evaluator, m, hasMiddlegame, hasEndgame);
            ASSERT_EQ(a.mobilityMid, -b.mobilityMid) << fen;
            ASSERT_EQ(a.mobilityEnd, -b.mobilityEnd) << fen;
            ASSERT_EQ(a.pieceMid, -b.pieceMid) << fen << " gates " << gates;
            ASSERT_EQ(a.pieceEnd, -b.pieceEnd) << fen << " gates " << gates;
            ASSERT_EQ(a.middlegameKing, -b.middlegameKing) << fen;
            ASSERT_EQ(a.endgameKing, -b.endgameKing) << fen;
            kingSafetyFired += a.middlegameKing != 0;
            raceOrRingsFired += a.endgameKing != 0;
            piecesFired += a.pieceMid != 0;
        }
        // The whole evaluation, the material with its learned blend, and the display.
        const int score = evaluator->evaluate(p);
        const int material = evaluator->materialValue(false);
        const int display = evaluator->evaluateForDisplay(p);
        ASSERT_EQ(evaluator->evaluate(m), score) << fen;
        ASSERT_EQ(evaluator->materialValue(false), -material) << fen;
        ASSERT_EQ(evaluator->evaluateForDisplay(m), display) << fen;
        pawnless += (p.sides[0].pieces[Pawn] | p.sides[1].pieces[Pawn]) == 0;
    }
    // The comparisons above are not about zeros.
    const int samples = static_cast<int>(positions.size()) * 3;
    EXPECT_GT(kingSafetyFired, samples / 2);
    EXPECT_GT(raceOrRingsFired, samples / 2);
    EXPECT_GT(piecesFired, samples / 2);
    EXPECT_GT(pawnless, 100);
}

}  // namespace
