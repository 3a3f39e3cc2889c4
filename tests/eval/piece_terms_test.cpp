// Piece patterns that rarely come up in random games: each is compared with the same
// position without the pattern, and with its colour mirror.
#include <gtest/gtest.h>

#include <memory>

#include "eval/evaluator.h"
#include "eval_support.h"

namespace {

struct MidEnd {
    int mid;
    int end;
};

class PieceTerms : public ::testing::Test {
  protected:
    MidEnd pieceTerms(const std::string& fen) {
        position = positionFromFen(fen);
        evaluator->position = &position;
        evaluator->currentPawnEntry = &evaluator->pawnEntry();
        MidEnd v{0, 0};
        evaluator->pieceTerms(v.mid, v.end, true, true);
        return v;
    }
    // The terms of `fen`, after checking that the mirror scores the negative.
    MidEnd symmetricTerms(const std::string& fen) {
        const MidEnd m = pieceTerms(mirrorFen(fen));
        const MidEnd v = pieceTerms(fen);
        EXPECT_EQ(v.mid, -m.mid) << fen;
        EXPECT_EQ(v.end, -m.end) << fen;
        return v;
    }

    std::unique_ptr<Evaluator> evaluator = std::make_unique<Evaluator>();
    Position position;
};

TEST_F(PieceTerms, TrappedBishopsCostNearlyTheirValue) {
    // Bxa7 shut in by b6, which c7 defends; undefended, b6 can be taken.
    const MidEnd a7 = symmetricTerms("6k1/B1p5/1p6/8/8/8/8/6K1 w - -");
    EXPECT_LT(a7.mid, -500);
    EXPECT_GT(symmetricTerms("6k1/B7/1p6/8/8/8/8/6K1 w - -").mid, 0);
    // Ba1 behind b2, with c3 holding it.
    EXPECT_LT(symmetricTerms("6k1/7p/8/8/8/2P5/1P6/B5K1 w - -").end, -500);
}

TEST_F(PieceTerms, ShortSideRookShutInByTheKing) {
    // Kf1 and Rh1 without the right cost; with it the rook is only waiting.
    const MidEnd shut = symmetricTerms("4k3/8/8/8/8/8/8/5K1R w - -");
    const MidEnd waiting = symmetricTerms("4k3/8/8/8/8/8/8/4K2R w K -");
    EXPECT_LT(shut.mid, waiting.mid);
    EXPECT_LT(shut.end, waiting.end);
    // The long side has no such pattern.
    const MidEnd longSide = symmetricTerms("4k3/8/8/8/8/8/8/R1K5 w - -");
    EXPECT_EQ(longSide.mid, waiting.mid);
    EXPECT_EQ(longSide.end, waiting.end);
}

}  // namespace
