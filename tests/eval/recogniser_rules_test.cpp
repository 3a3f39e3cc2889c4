// The rules of the single recognisers on endings whose result is known. Each position is
// also checked in its colour-mirrored form.
#include <gtest/gtest.h>

#include "recogniser_support.h"

namespace {

struct QuickCase {
    const char* fen;
    bool final;
    int score;  // White's view, when final
    int material = 0;
};

// Drawn endings settle at once with the score given (the pawn side keeps a unit); won or
// unclear ones must be left to the search.
TEST(RecogniserRules, KnownDrawsAndOpenEndings) {
    const QuickCase cases[] = {
        // Rook against rook, nothing hanging.
        {"8/8/3k4/1r6/8/4K3/6R1/8 w - -", true, 0, 700},
        // The defender in the corner in front of the rook pawn and the bishop of the wrong
        // colour; the right bishop wins, and so may a black pawn behind, by promoting.
        {"k7/8/8/8/8/8/P7/2B1K3 w - -", true, 1},
        {"k7/8/p7/P7/8/8/8/2B1K3 w - -", true, 1},
        {"k7/8/8/8/8/8/P7/3BK3 w - -", false, 0},
        {"k7/8/8/P7/8/p7/8/2B1K3 w - -", false, 0},
        // Knight and rook pawn: the king on the queening square beside an unguarded pawn;
        // the own king shut in front of the pawn, the knight to move and of the defending
        // king's colour, so it can never give up the tempo.
        {"k7/P7/8/8/8/8/8/1N2K3 w - -", true, 1},
        {"k7/P7/1K6/8/8/8/8/1N6 w - -", false, 0},
        {"K7/P1k5/8/8/8/8/8/6N1 w - -", true, 1},
        {"K7/P1k5/8/8/8/8/8/5N2 w - -", false, 0},
        {"K7/P1k5/8/8/8/8/8/6N1 b - -", false, 0},
        // Pawn against a minor: a stopper on the pawn's way, or a pawn that runs.
        {"8/4k3/8/4K3/4P3/8/8/7b w - -", true, 1},
        {"8/8/8/4P3/8/2k5/b7/7K w - -", true, 1},
        {"8/1P6/8/8/8/8/5k2/K6b w - -", false, 0},
        {"8/3n4/8/8/4P3/8/8/k6K w - -", true, 1},
        {"7n/8/4P3/8/8/8/8/k6K w - -", false, 0},
        {"8/8/8/3b4/4P3/8/8/k6K w - -", false, 0},
        // Rook pawn against rook: the rook on the sixth against a pawn on the fifth, and the
        // long-side defence, which holds only with the defender to move.
        {"4k3/8/r7/4P3/4K3/8/8/7R w - -", true, 1, 2000},
        {"4k3/8/8/4P3/4K3/8/8/r6R w - -", false, 0, 2000},
        {"8/5k2/8/8/r3P3/8/4K3/7R b - -", true, 1, 2000},
        {"8/5k2/8/8/r3P3/8/4K3/7R w - -", false, 0, 2000},
        // Opposite bishops and one pawn, unless the bishop stands on a line with the king.
        {"7k/8/8/8/4P3/2K5/b7/6B1 w - -", true, 1},
        {"6K1/8/7k/8/4P3/8/b7/6B1 w - -", false, 0},
    };
    for (const QuickCase& c : cases) {
        const QuickAnswer a = askQuick(positionFromFen(c.fen), c.material);
        const QuickAnswer b = askQuick(positionFromFen(mirrorFen(c.fen)), -c.material);
        EXPECT_EQ(a.final, c.final) << c.fen;
        EXPECT_EQ(b.final, c.final) << c.fen;
        if (c.final) {
            EXPECT_EQ(a.score, c.score) << c.fen;
            EXPECT_EQ(b.score, -c.score) << c.fen;
        }
    }
}

struct NodeCase {
    const char* fen;
    int alpha, beta;
    bool ends;
};

// Won endings give a bound, never an exact score, so the mate is still found; a side that
// can't lose gives 0 from below, except where it can be mated.
TEST(RecogniserRules, NodeBounds) {
    const NodeCase cases[] = {
        {"8/8/8/3k4/8/8/8/R3K3 w - -", 0, 7200, true},
        {"8/8/8/3k4/8/8/8/R3K3 w - -", 0, 7201, false},
        {"8/8/8/8/8/8/1k6/R3K3 w - -", 0, 1, false},  // the rook hangs
        {"8/8/3k4/1r6/8/4K3/6R1/8 w - -", -5, 5, true},
        {"8/8/3k4/6r1/8/4K3/6R1/8 w - -", -5, 5, false},
        {"8/8/5n2/8/8/3k4/7R/K7 w - -", -10, 0, true},
        {"8/8/5n2/8/8/3k4/7R/K7 w - -", -10, 1, false},
        {"8/8/5n2/8/8/3k4/7R/K7 b - -", 0, 10, true},
        {"4k3/8/8/8/8/8/2n5/R3K3 w - -", -10, 0, false},   // in check
        {"4k3/8/8/8/3n4/8/8/K6R w - -", -10, 0, false},    // cornered by a knight
        {"r3k3/8/8/8/8/8/8/1NB1K3 w - -", -10, 0, false},  // on the rim against a rook
        {"r3k3/8/8/8/8/8/3K4/1NB5 w - -", -10, 0, true},
        {"k7/8/8/8/8/8/P7/2B1K3 b - -", -5, 5, true},
        {"K7/P7/8/2k5/8/8/8/6n1 w - -", -5, 0, false},
    };
    for (const NodeCase& c : cases) {
        const NodeAnswer a = askNode(positionFromFen(c.fen), c.alpha, c.beta, 16);
        EXPECT_EQ(a.ends, c.ends) << c.fen;
        // The mirror, with the window seen from the other side to move.
        const NodeAnswer b = askNode(positionFromFen(mirrorFen(c.fen)), c.alpha, c.beta, 16);
        EXPECT_EQ(b.ends, c.ends) << mirrorFen(c.fen);
        if (a.ends && b.ends) {
            EXPECT_EQ(a.score, b.score) << c.fen;
        }
    }
    // A king on the rim is reason enough to look.
    EXPECT_TRUE(isSharp(positionFromFen("8/8/3k4/1r6/8/8/6R1/4K3 w - -")));
    // Quiescence settles rook against rook only while nothing hangs.
    EXPECT_TRUE(askQsearch(positionFromFen("8/8/3k4/1r6/8/4K3/6R1/8 b - -")).final);
    EXPECT_FALSE(askQsearch(positionFromFen("8/8/3k4/6r1/8/4K3/6R1/8 w - -")).final);
}

TEST(RecogniserRules, ClampLetsOnlyThePawnSideComeOutBetter) {
    Evaluator e;
    const Position piece = positionFromFen("r3k3/4p3/8/8/8/8/8/R1B1K3 w - -");
    EXPECT_EQ(askFinal(e, piece, 500), 0);
    EXPECT_EQ(askFinal(e, piece, -300), -300);
    const Position pawn = positionFromFen("r1b1k3/8/8/8/8/8/4P3/R3K3 w - -");
    EXPECT_EQ(askFinal(e, pawn, -500), 0);
    EXPECT_EQ(askFinal(e, pawn, 300), 300);
}

TEST(RecogniserRules, EndingScalers) {
    Evaluator e;
    // With more pawns the lead shrinks, but only with the bishops on opposite colours.
    EXPECT_EQ(askFinal(e, positionFromFen("4k3/p1b5/8/8/8/8/P7/2B1K3 w - -"), 2000), 2000);
    EXPECT_LT(askFinal(e, positionFromFen("4k3/p1b5/8/8/8/8/P7/3BK3 w - -"), 2000), 2000);
    // A passer outside the square of the king runs home; inside it is caught.
    const int outside = askFinal(e, positionFromFen("8/7p/8/7k/P7/8/8/K7 w - -"), 0);
    const int inside = askFinal(e, positionFromFen("8/7p/8/2k5/P7/8/8/K7 w - -"), 0);
    EXPECT_GT(outside, inside + 1000);
}

}  // namespace
