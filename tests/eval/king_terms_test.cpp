// King terms, the colour symmetry of every piece and king term, and the phase gates of the
// positional score.
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

class KingTerms : public ::testing::Test {
  protected:
    // Points the evaluator at `p` the way positionalScore finds it.
    void select(const Position& p) {
        evaluator->position = &p;
        evaluator->currentPawnEntry = &evaluator->pawnEntry();
    }
    Terms termsOf(const Position& p, bool hasMiddlegame, bool hasEndgame) {
        select(p);
        Terms t;
        evaluator->mobilityTerms(t.mobilityMid, t.mobilityEnd);
        evaluator->pieceTerms(t.pieceMid, t.pieceEnd, hasMiddlegame, hasEndgame);
        t.middlegameKing = evaluator->middlegameKingTerms();
        t.endgameKing = evaluator->endgameKingTerms();
        return t;
    }
    int middlegameKing(const std::string& fen) {
        position = positionFromFen(fen);
        select(position);
        return evaluator->middlegameKingTerms();
    }
    int endgameKing(const std::string& fen) {
        position = positionFromFen(fen);
        select(position);
        return evaluator->endgameKingTerms();
    }

    std::unique_ptr<Evaluator> evaluator = std::make_unique<Evaluator>();
    Position position;
};

const std::vector<std::string> Starts = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "r1bqk2r/pppp1ppp/2n2n2/2b1p3/2B1P3/2NP1N2/PPP2PPP/R1BQK2R b KQkq -",
    "r2q1rk1/pp2bppp/2n1bn2/3p4/3P4/2NBBN2/PP3PPP/R2Q1RK1 w - -",
    // Pieces against an exposed king, and rooks with passers.
    "2kr3r/ppp2ppp/2n5/2b1q3/4P3/2N2N2/PPP2PPP/R2QKB1R w KQ -",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
    "2r3k1/1P3ppp/8/p7/8/6P1/5P1P/2R3K1 w - -",
    // Pawn and minor endings for the king races and weak pawns.
    "8/5k2/8/2p5/2P5/8/3K4/8 w - -",
    "8/pp3k2/8/3PP3/8/8/5Kpp/8 w - -",
    "4k3/8/3b4/1p3p2/1P3P2/3N4/8/4K3 b - -",
    "3q2k1/5ppp/8/8/8/8/5PPP/3Q2K1 w - -",
};

TEST_F(KingTerms, EveryTermIsColourSymmetric) {
    const std::vector<Position> positions = randomGamePositions(Starts, 6, 60, 5);
    ASSERT_GT(positions.size(), 1000u);
    int kingSafetyFired = 0, raceOrRingsFired = 0, piecesFired = 0;
    for (const Position& p : positions) {
        const std::string fen = fenOf(p);
        const Position m = positionFromFen(mirrorFen(fen));
        for (int gates = 1; gates <= 3; ++gates) {
            const bool hasMiddlegame = gates & 1, hasEndgame = gates & 2;
            const Terms a = termsOf(p, hasMiddlegame, hasEndgame);
            const Terms b = termsOf(m, hasMiddlegame, hasEndgame);
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
        // The whole evaluation, with every term in, agrees for the side to move.
        ASSERT_EQ(evaluator->evaluate(p), evaluator->evaluate(m)) << fen;
    }
    // The comparisons above are not about zeros.
    const int samples = static_cast<int>(positions.size()) * 3;
    EXPECT_GT(kingSafetyFired, samples / 2);
    EXPECT_GT(raceOrRingsFired, samples / 2);
    EXPECT_GT(piecesFired, samples / 2);
}

TEST_F(KingTerms, ShortCastlingRightCountsOnTheCastledShelter) {
    // Nothing attacks the king's zone (zone 4) and no neighbour; Ke1 is worth -1. Without the
    // right the shelter is -21 (nothing in front, f2 on a diagonal): s = -26. With it, g1
    // behind g2 is a full shelter of 0, weighted 31/32: (-21 + 0) / 32 = 0, so s = -5.
    // Black's force: 18750 - 3000 - 6200 = 9550; -26 and -5 give -60 and -11.
    const int without = middlegameKing("1qr4k/2p3pp/8/8/8/8/5PPP/4K2R w - -");
    const int with = middlegameKing("1qr4k/2p3pp/8/8/8/8/5PPP/4K2R w K -");
    EXPECT_EQ(with - without, 49);
    EXPECT_EQ(middlegameKing(mirrorFen("1qr4k/2p3pp/8/8/8/8/5PPP/4K2R w K -")), -with);
}

TEST_F(KingTerms, AttackingForceNeedsMoreThanARookUnlessAPasserIsFar) {
    // Black has a rook and one pawn: force 5200 + 1000 - 1000 - 6200 < 0, so the bare White
    // king is safe by this measure.
    EXPECT_EQ(middlegameKing("r6k/8/8/1p6/8/8/8/4K3 w - -"), 0);
    // With the pawn on b3 the force grows by 4000 to 3000. The White king has s = -1 (Ke1),
    // 0 (one zone square, c2, attacked), -31 (no shelter): 3000 x -32 / 4096 = -23.
    EXPECT_EQ(middlegameKing("r6k/8/8/8/8/1p6/8/4K3 w - -"), -23);
}

TEST_F(KingTerms, KingRaceToAPasserInTheEnding) {
    // Centre distance: Kb3 3, Kh8 6: 66.
    // Race to a5: Kb3 in 2 steps (-8); Kh8 in 7 (-173): 165.
    // Rings: Kb3 has 20 safe squares in R2 (60) and the weak a4 in R1 and R2 (58); Kh8 has 9
    // safe squares (27) and no weak pawn in any ring (-42): 118 - (-15) = 133.
    EXPECT_EQ(endgameKing("7k/8/8/8/P7/1K6/8/8 w - -"), 66 + 165 + 133);
    EXPECT_EQ(endgameKing(mirrorFen("7k/8/8/8/P7/1K6/8/8 w - -")), -(66 + 165 + 133));
    // Black's king in front of the passer wins the race. Centre: 22 x (4 - 3) = 22. Race:
    // Ka6 guards a5, so the White king never gets there (-199), Black is one step away (39).
    // Rings: Kb3 keeps the weak a4 in R1 and R2 (58) with 18 safe squares in R2 (54); Ka6
    // has a4 in R2 only (29), an R1 without weak pawns (-14), 11 safe squares in R2 (33).
    EXPECT_EQ(endgameKing("8/8/k7/8/P7/1K6/8/8 w - -"), 22 + (-199 - 39) + (112 - 48));
}

TEST_F(KingTerms, PhaseGatesCallOnlyTheKingTermThePhaseNeeds) {
    struct Case {
        const char* fen;
        int phase;
    };
    const Case cases[] = {
        {"r5k1/5ppp/8/8/8/8/5PPP/3Q1RK1 w - -", 0},
        {"r1bqk2r/pppp1ppp/2n2n2/2b1p3/2B1P3/5N2/PPPP1PPP/RNBQ1RK1 b kq -", 256},
    };
    for (const Case& c : cases) {
        position = positionFromFen(c.fen);
        const Position& p = position;
        ASSERT_EQ(gamePhase(p), c.phase) << c.fen;
        evaluator->position = &p;
        const int material = evaluator->materialValue(false);
        select(p);
        const Terms t = termsOf(p, c.phase > 0, c.phase < 256);
        // Both king terms have a value here, so calling the wrong one would show.
        ASSERT_NE(t.middlegameKing, 0) << c.fen;
        ASSERT_NE(t.endgameKing, 0) << c.fen;

        const PawnEntry& pe = *evaluator->currentPawnEntry;
        const int tempoMid = p.whiteToMove ? 33 : -33, tempoEnd = p.whiteToMove ? 3 : -3;
        const int mid = material + t.mobilityMid + pe.midScore + tempoMid + t.pieceMid;
        const int end = material + t.mobilityEnd + pe.endScore + tempoEnd + t.pieceEnd;
        const int expected = c.phase == 0 ? t.endgameKing + end : t.middlegameKing + mid;
        EXPECT_EQ(evaluator->positionalScore(material), expected) << c.fen;
    }
}

}  // namespace
