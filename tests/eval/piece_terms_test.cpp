// Mobility and piece terms, read straight from the term functions on small positions whose
// every contribution is counted by hand in the comments.
#include <gtest/gtest.h>

#include <memory>

#include "eval/evaluator.h"
#include "eval_support.h"

namespace {

struct MidEnd {
    int mid;
    int end;
    bool operator==(const MidEnd& o) const { return mid == o.mid && end == o.end; }
};

std::ostream& operator<<(std::ostream& out, const MidEnd& v) {
    return out << "(" << v.mid << ", " << v.end << ")";
}

class PieceTerms : public ::testing::Test {
  protected:
    MidEnd pieceTerms(const std::string& fen, bool hasMiddlegame = true, bool hasEndgame = true) {
        position = positionFromFen(fen);
        select();
        MidEnd v{0, 0};
        evaluator->pieceTerms(v.mid, v.end, hasMiddlegame, hasEndgame);
        return v;
    }
    MidEnd mobility(const std::string& fen) {
        position = positionFromFen(fen);
        select();
        MidEnd v{0, 0};
        evaluator->mobilityTerms(v.mid, v.end);
        return v;
    }
    // Both colours' view must agree: the mirror scores the negative.
    MidEnd mirroredPieceTerms(const std::string& fen) {
        const MidEnd v = pieceTerms(mirrorFen(fen));
        return {-v.mid, -v.end};
    }

    std::unique_ptr<Evaluator> evaluator = std::make_unique<Evaluator>();
    Position position;

  private:
    void select() {
        evaluator->position = &position;
        evaluator->currentPawnEntry = &evaluator->pawnEntry();
    }
};

TEST_F(PieceTerms, KnightMobilityAndSpace) {
    // The knight on b1 may go to d2 only: a3 and c3 are hit by the b4 pawn (1 square: -26,
    // -261). Space: White holds c3 (one square of its area), Black holds a3 and c3: -1, so
    // -4 in mid and -10 in end.
    const std::string fen = "7k/8/8/8/1p6/8/8/1N5K w - -";
    EXPECT_EQ(mobility(fen), (MidEnd{-30, -271}));
    const MidEnd mirrored = mobility(mirrorFen(fen));
    EXPECT_EQ(mirrored, (MidEnd{30, 271}));
}

TEST_F(PieceTerms, RookOnOpenFileScoresByTheNumberOfOpenFiles) {
    // d and e are the open files (2): 130 mid, 38 end for the rook on d1; nothing else in
    // these positions scores.
    const std::string open = "6k1/ppp2ppp/8/8/8/8/PPP2PPP/3R2K1 w - -";
    EXPECT_EQ(pieceTerms(open), (MidEnd{130, 38}));
    EXPECT_EQ(mirroredPieceTerms(open), (MidEnd{130, 38}));
    EXPECT_EQ(pieceTerms("6k1/ppp2ppp/8/8/8/8/PPP2PPP/2R3K1 w - -"), (MidEnd{0, 0}));
    // Only the a-file open: less in mid, more in end.
    EXPECT_EQ(pieceTerms("6k1/1pppp3/8/8/8/8/1PPPPPPP/R5K1 w - -"), (MidEnd{83, 47}));
}

TEST_F(PieceTerms, RookOnTheSeventh) {
    // Rd7 on one of six open files: 140, -22. On the seventh: 91 both, and with c7 and e7
    // attacked 30 mid, 100 end. c7 is loose: 68 both. Two Black pawns hit and not guarded
    // by a pawn cost Black 36 mid, 77 end.
    const std::string fen = "5k2/2pRp3/8/8/8/8/8/6K1 w - -";
    const MidEnd expected{140 + 91 + 30 + 68 + 36, -22 + 91 + 100 + 68 + 77};
    EXPECT_EQ(pieceTerms(fen), expected);
    EXPECT_EQ(mirroredPieceTerms(fen), expected);
}

TEST_F(PieceTerms, TrappedBishops) {
    // Bxa7 shut in by b6, which c7 defends: -980. In the ending the bishop also watches one
    // square of the Black passers' path (b6): -25 end.
    const std::string a7 = "6k1/B1p5/1p6/8/8/8/8/6K1 w - -";
    EXPECT_EQ(pieceTerms(a7), (MidEnd{-980, -1005}));
    EXPECT_EQ(mirroredPieceTerms(a7), (MidEnd{-980, -1005}));
    // Undefended, b6 is just a loose pawn: 68 for White, and only the path term remains.
    EXPECT_EQ(pieceTerms("6k1/B7/1p6/8/8/8/8/6K1 w - -"), (MidEnd{68, 68 - 25}));

    // Ba1 behind b2, with c3 holding it: -77 - 575 both; undeveloped as well: -72 mid.
    const std::string a1 = "6k1/7p/8/8/8/2P5/1P6/B5K1 w - -";
    EXPECT_EQ(pieceTerms(a1), (MidEnd{-724, -652}));
    EXPECT_EQ(mirroredPieceTerms(a1), (MidEnd{-724, -652}));
    // Without middlegame only the development term goes; the pawn and bishop terms stay.
    EXPECT_EQ(pieceTerms(a1, false, true), (MidEnd{-652, -652}));
    // The h1 corner with nothing on g3 or f3: only -77, plus the development term.
    EXPECT_EQ(pieceTerms("6k1/p7/8/8/8/8/6P1/6KB w - -"), (MidEnd{-77 - 72, -77}));
}

TEST_F(PieceTerms, KnightOutpost) {
    // Nd5 guarded by e4, no Black pawn able to chase it: knight tables on d5 (80 mid, 58 end)
    // and 18 mid for the distance 3 to the Black king.
    EXPECT_EQ(pieceTerms("6k1/7p/8/3N4/4P3/8/8/6K1 w - -"), (MidEnd{98, 58}));
    EXPECT_EQ(mirroredPieceTerms("6k1/7p/8/3N4/4P3/8/8/6K1 w - -"), (MidEnd{98, 58}));
    // A pawn on c7 may come to c6: no outpost. What is left is the loose c7 pawn.
    EXPECT_EQ(pieceTerms("6k1/2p4p/8/3N4/4P3/8/8/6K1 w - -"), (MidEnd{68, 68}));
}

TEST_F(PieceTerms, PasserFrontSquareAndRookBehind) {
    // b8 free and safe: 254; covered by the king: 500; Rb1 behind the passer: 123. Rook and
    // king both hit b6 on Black's sixth row, which no Black pawn guards: 29 - 45 for Black.
    EXPECT_EQ(pieceTerms("6k1/1PK5/8/8/8/8/8/1R6 w - -"), (MidEnd{893, 893}));
    // A Black knight on b8 blocks (-69), but b8 is still covered (500). The knight is loose
    // (68) and, standing on its home rank, undeveloped (72 mid for White).
    EXPECT_EQ(pieceTerms("1n4k1/1PK5/8/8/8/8/8/1R6 w - -"),
              (MidEnd{-69 + 500 + 123 + 16 + 68 + 72, -69 + 500 + 123 + 16 + 68}));
    // A rook in front of its own passer blocks it.
    EXPECT_EQ(pieceTerms("6k1/8/8/8/8/1R6/1P6/2K5 w - -"), (MidEnd{-69, -69}));
}

TEST_F(PieceTerms, ShortSideRookShutInByTheKing) {
    // All eight files open: a rook on one is worth 120 mid, -52 end. Kf1 and Rh1 without the
    // right: -74 both. With the right the rook is only waiting.
    EXPECT_EQ(pieceTerms("4k3/8/8/8/8/8/8/5K1R w - -"), (MidEnd{120 - 74, -52 - 74}));
    EXPECT_EQ(pieceTerms("4k3/8/8/8/8/8/8/4K2R w K -"), (MidEnd{120, -52}));
    EXPECT_EQ(mirroredPieceTerms("4k3/8/8/8/8/8/8/5K1R w - -"), (MidEnd{120 - 74, -52 - 74}));
    // The long side has no such pattern.
    EXPECT_EQ(pieceTerms("4k3/8/8/8/8/8/8/R1K5 w - -"), (MidEnd{120, -52}));
}

}  // namespace
