// The rules of the single recognisers, on positions whose answer is known by hand. Each
// position is also checked in its colour-mirrored form.
#include <gtest/gtest.h>

#include "recogniser_support.h"

namespace {

// quickScore of the position and of its mirror: the answer and the mirrored answer.
void expectQuick(const std::string& fen, bool final, int score, int material = 0) {
    const QuickAnswer a = askQuick(positionFromFen(fen), material);
    EXPECT_EQ(a.final, final) << fen;
    EXPECT_EQ(a.score, score) << fen;
    const QuickAnswer b = askQuick(positionFromFen(mirrorFen(fen)), -material);
    EXPECT_EQ(b.final, final) << mirrorFen(fen);
    EXPECT_EQ(b.score, -score) << mirrorFen(fen);
}

void expectQsearch(const std::string& fen, bool final, int score = 0) {
    for (const std::string& text : {fen, mirrorFen(fen)}) {
        const QuickAnswer a = askQsearch(positionFromFen(text));
        EXPECT_EQ(a.final, final) << text;
        if (final) {
            EXPECT_EQ(a.score, score) << text;
        }
    }
}

TEST(HeavyPieces, LoneKingBoundsAndEqualEndings) {
    // Rook or queen against the king: material shifted, then a bound once nothing hangs.
    expectQuick("8/8/8/3k4/8/8/8/R3K3 w - -", false, 9000, 5000);
    NodeAnswer n = askNode(positionFromFen("8/8/8/3k4/8/8/8/R3K3 w - -"), 0, 7200, 12);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, 7200);
    EXPECT_FALSE(askNode(positionFromFen("8/8/8/3k4/8/8/8/R3K3 w - -"), 0, 7201, 12).ends);
    n = askNode(positionFromFen("8/8/8/4k3/8/8/8/3QK3 w - -"), 0, 12550, 12);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, 12550);
    EXPECT_FALSE(askNode(positionFromFen("8/8/8/8/8/8/1k6/R3K3 w - -"), 0, 1, 12).ends);

    // Queen against rook: bound only while quiet.
    expectQuick("8/8/3k4/1r6/8/4K3/8/7Q b - -", false, 5000 + 3000, 5000);
    n = askNode(positionFromFen("8/8/3k4/1r6/8/4K3/8/7Q b - -"), -6350, 0, 8);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, -6350);
    EXPECT_FALSE(askNode(positionFromFen("8/8/3k4/3r4/8/4K3/8/7Q b - -"), -6350, 0, 8).ends);

    // Rook against rook: quiet means drawn at once; anything hanging searches on, shallower.
    const std::string quiet = "8/8/3k4/1r6/8/4K3/6R1/8 w - -";
    const std::string hanging = "8/8/3k4/6r1/8/4K3/6R1/8 w - -";
    ASSERT_FALSE(isSharp(positionFromFen(quiet)));
    expectQuick(quiet, true, 0, 700);
    expectQsearch(quiet, true, 0);
    expectQsearch(hanging, false);
    EXPECT_TRUE(askNode(positionFromFen(quiet), -5, 5, 20).ends);
    for (const auto& [depth, change] : {std::pair{10, 0}, {17, -1}, {20, -4}, {24, -8}}) {
        n = askNode(positionFromFen(hanging), -5, 5, depth);
        EXPECT_FALSE(n.ends);
        EXPECT_EQ(n.depthChange, change) << depth;
    }
    // A king on the rim is reason enough to look.
    EXPECT_TRUE(isSharp(positionFromFen("8/8/3k4/1r6/8/8/6R1/4K3 w - -")));
}

TEST(FortressPoints, DangerGrowsTheScoreAndKeepsQuiescenceSearching) {
    // Rook against knight, the black king central, nothing in reach: 1, a draw in all but
    // name, settled in quiescence too.
    const std::string calm = "8/8/5n2/8/8/3k4/7R/K7 w - -";
    expectQuick(calm, true, 1);
    expectQsearch(calm, true, 1);
    // The knight on the king's rank behind an empty square: a skewer for the rook to move
    // (10 points, 33 x 9 x 9 + 1), no danger with Black to move.
    expectQuick("8/8/8/3k1n2/8/8/7R/1K6 w - -", true, 2674);
    expectQsearch("8/8/8/3k1n2/8/8/7R/1K6 w - -", false);
    expectQuick("8/8/8/3k1n2/8/8/7R/1K6 b - -", true, 1);
    expectQsearch("8/8/8/3k1n2/8/8/7R/1K6 b - -", true, -1);
    // The knight beside its king and no square of the king covered: 2 points.
    expectQuick("8/8/8/3kn3/8/8/7R/1K6 w - -", true, 34);

    // Rook and bishop against rook, the king in the light corner: the light bishop is a
    // mating danger, the dark one helps the defence.
    expectQuick("k7/8/1r6/8/8/8/4B3/2K4R b - -", true, 2674);
    expectQuick("k7/8/1r6/8/8/8/3B4/2K4R b - -", true, 34);

    // Two minors: a knight fork is at hand; two knights never win, whatever hangs.
    expectQuick("4k3/8/n7/3N4/8/8/8/2B1K3 w - -", true, 20 * 81 + 1);
    expectQsearch("4k3/8/n7/3N4/8/8/8/2B1K3 w - -", false);
    expectQuick("4k3/8/8/8/8/3b4/8/1N2KN2 w - -", true, 1);
    expectQsearch("4k3/8/8/8/8/3b4/8/1N2KN2 b - -", true, -1);
}

TEST(FortressPoints, NodeCheckGivesOnlyTheLowerBound) {
    // The rook side can't lose: 0 bounds the score from below, for either side to move.
    NodeAnswer n = askNode(positionFromFen("8/8/5n2/8/8/3k4/7R/K7 w - -"), -10, 0, 16);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, 0);
    EXPECT_FALSE(askNode(positionFromFen("8/8/5n2/8/8/3k4/7R/K7 w - -"), -10, 1, 16).ends);
    n = askNode(positionFromFen(mirrorFen("8/8/5n2/8/8/3k4/7R/K7 b - -")), 0, 10, 16);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, 0);
    // Except in check, with the king cornered by a knight, or on the rim against a rook.
    EXPECT_FALSE(askNode(positionFromFen("4k3/8/8/8/8/8/2n5/R3K3 w - -"), -10, 0, 16).ends);
    EXPECT_FALSE(askNode(positionFromFen("4k3/8/8/8/3n4/8/8/K6R w - -"), -10, 0, 16).ends);
    EXPECT_FALSE(askNode(positionFromFen("r3k3/8/8/8/8/8/8/1NB1K3 w - -"), -10, 0, 16).ends);
    EXPECT_TRUE(askNode(positionFromFen("r3k3/8/8/8/8/8/3K4/1NB5 w - -"), -10, 0, 16).ends);
}

TEST(RookPawns, WrongBishopAndKnightCornerDraws) {
    // The defender in the corner in front of the rook pawn and the bishop of the wrong
    // colour: a draw of 1 for the pawn side.
    expectQuick("k7/8/8/8/8/8/P7/2B1K3 w - -", true, 1);
    expectQsearch("k7/8/8/8/8/8/P7/2B1K3 b - -", true, -1);
    NodeAnswer n = askNode(positionFromFen("k7/8/8/8/8/8/P7/2B1K3 b - -"), -5, 5, 16);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, -1);
    // The right bishop wins, and against the bare king the score is at least 0.
    expectQuick("k7/8/8/8/8/8/P7/3BK3 w - -", false, 0);
    n = askNode(positionFromFen("k7/8/8/8/8/8/P7/3BK3 w - -"), -5, 0, 16);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, 0);
    // A black pawn behind the white one may promote; one in front changes nothing.
    expectQuick("k7/8/8/P7/8/p7/8/2B1K3 w - -", false, 0);
    expectQuick("k7/8/p7/P7/8/8/8/2B1K3 w - -", true, 1);
    // A pawn off the rook files is no case at all.
    expectQuick("k7/8/8/8/8/8/1P6/2B1K3 w - -", false, 0);

    // Knight and rook pawn: the king on the queening square beside an unguarded pawn.
    expectQuick("k7/P7/8/8/8/8/8/1N2K3 w - -", true, 1);
    expectQuick("k7/P7/1K6/8/8/8/8/1N6 w - -", false, 0);
    // The own king shut in front of the pawn, the knight to move and of the defending
    // king's colour: it can never give up the tempo.
    expectQuick("K7/P1k5/8/8/8/8/8/6N1 w - -", true, 1);
    expectQuick("K7/P1k5/8/8/8/8/8/5N2 w - -", false, 0);
    expectQuick("K7/P1k5/8/8/8/8/8/6N1 b - -", false, 0);
}

TEST(PawnVsMinor, StoppersAndTheTable) {
    // Drawn by the king alone: the bishop doesn't matter.
    expectQuick("8/4k3/8/4K3/4P3/8/8/7b w - -", true, 1);
    // The bishop holds a square of the pawn's way that the pawn side doesn't cover.
    expectQuick("8/8/8/4P3/8/2k5/b7/7K w - -", true, 1);
    // A pawn on the seventh that no piece can stop: not final, the pawn's bonus stands.
    expectQuick("8/1P6/8/8/8/8/5k2/K6b w - -", false, 256);
    // The knight reaches the pawn's way in time, or doesn't.
    expectQuick("8/3n4/8/8/4P3/8/8/k6K w - -", true, 1);
    expectQuick("7n/8/4P3/8/8/8/8/k6K w - -", false, 64);
    // The pawn side to move and the minor hanging: search.
    expectQuick("8/8/8/3b4/4P3/8/8/k6K w - -", false, 1);

    // The node ends with the known draw, gives a lower bound of 0 otherwise, and gives
    // nothing with a knight against a rook pawn and the king in a corner (mates exist).
    NodeAnswer n = askNode(positionFromFen("8/8/8/4P3/8/2k5/b7/7K b - -"), -5, 5, 16);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, -1);
    n = askNode(positionFromFen("7n/8/4P3/8/8/8/8/k6K w - -"), -5, 0, 16);
    EXPECT_TRUE(n.ends);
    EXPECT_EQ(n.score, 0);
    EXPECT_FALSE(askNode(positionFromFen("K7/P7/8/2k5/8/8/8/6n1 w - -"), -5, 0, 16).ends);
}

TEST(RookPawnVsRook, DefencesThatHold) {
    // The king on the queening square, the rook on the sixth against a pawn on the fifth.
    expectQuick("4k3/8/r7/4P3/4K3/8/8/7R w - -", true, 1, 2000);
    // The rook on the first rank instead: no draw; the rook is far on the long side and
    // the strong king covers the cut file, so the score only loses 200.
    expectQuick("4k3/8/8/4P3/4K3/8/8/r6R w - -", false, 1800, 2000);
    // Long-side defence: the strong king can't shelter on the d-file, the defender moves.
    expectQuick("8/5k2/8/8/r3P3/8/4K3/7R b - -", true, 1, 2000);
    expectQuick("8/5k2/8/8/r3P3/8/4K3/7R w - -", false, 1800, 2000);
    // Pawn on the seventh, rook on the fifth, king beside the pawn: a little more.
    expectQuick("8/3kP3/5K2/R7/8/8/8/7r w - -", false, 2060, 2000);
}

TEST(Clamp, OnlyThePawnSideComesOutBetter) {
    Evaluator e;
    const Position piece = positionFromFen("r3k3/4p3/8/8/8/8/8/R1B1K3 w - -");
    expectQuick("r3k3/4p3/8/8/8/8/8/R1B1K3 w - -", false, 100, 2500);
    EXPECT_EQ(askFinal(e, piece, 500), 0);
    EXPECT_EQ(askFinal(e, piece, -300), -300);
    const Position pawn = positionFromFen("r1b1k3/8/8/8/8/8/4P3/R3K3 w - -");
    EXPECT_EQ(askFinal(e, pawn, -500), 0);
    EXPECT_EQ(askFinal(e, pawn, 300), 300);
}

TEST(EndingScalers, OppositeBishopsOnePawnSideAndQueens) {
    Evaluator e;
    // Opposite bishops: one pawn and the defending bishop on its way is a draw...
    expectQuick("7k/8/8/8/4P3/2K5/b7/6B1 w - -", true, 1);
    // ...unless the bishop stands on a line with the king.
    expectQuick("6K1/8/7k/8/4P3/8/b7/6B1 w - -", false, 0);
    // With more pawns half the lead goes, and over 500 of it half again.
    const Position same = positionFromFen("4k3/p1b5/8/8/8/8/P7/2B1K3 w - -");
    const Position opposite = positionFromFen("4k3/p1b5/8/8/8/8/P7/3BK3 w - -");
    EXPECT_EQ(askFinal(e, same, 2000), 2000);
    EXPECT_EQ(askFinal(e, opposite, 2000), 1250);
    EXPECT_EQ(askFinal(e, opposite, 600), 300);
    EXPECT_EQ(askFinal(e, opposite, -1600), -950);
    // A pawn up, each defending pawn off the bishop's colour costs 30 more.
    EXPECT_EQ(askFinal(e, positionFromFen("4k3/1pb5/8/8/8/8/PP6/3BK3 w - -"), 2000), 1220);

    // Pieces only against pawns: up to a minor more is worth a quarter of the lead.
    const Position pieces = positionFromFen("r3k3/pp6/8/8/8/8/8/R1B1K3 w - -");
    EXPECT_EQ(askFinal(e, pieces, 2000), 875);
    EXPECT_EQ(askFinal(e, pieces, 800), 0);
    EXPECT_EQ(askFinal(e, pieces, -300), -300);

    // Queens: a passer counts while the enemy queen has no safe check.
    const int safe = askFinal(e, positionFromFen("7k/q7/8/P7/8/8/6PP/3Q3K w - -"), 0);
    const int checks = askFinal(e, positionFromFen("3q3k/8/8/P7/8/8/6PP/3Q3K w - -"), 0);
    EXPECT_EQ(safe - checks, 127 + 6 * (5 - 3));
}

TEST(PawnEnding, RaceKingRoomAndTheSquare) {
    // A king without a square deepens the search.
    NodeAnswer n = askNode(positionFromFen("7k/5K2/6P1/8/8/8/p7/8 b - -"), -5, 5, 16);
    EXPECT_FALSE(n.ends);
    EXPECT_EQ(n.depthChange, 7);
    EXPECT_EQ(askNode(positionFromFen("7k/5K2/6P1/8/8/8/p7/8 w - -"), -5, 5, 16).depthChange, 0);

    // A passer outside the square of the king runs home; inside it is caught.
    Evaluator e;
    const int outside = askFinal(e, positionFromFen("8/7p/8/7k/P7/8/8/K7 w - -"), 0);
    const int inside = askFinal(e, positionFromFen("8/7p/8/2k5/P7/8/8/K7 w - -"), 0);
    EXPECT_GT(outside, inside + 1000);
    // Two passers side by side hold off the lone king even when it catches each alone.
    EXPECT_EQ(askFinal(e, positionFromFen("8/8/3k4/8/3PP3/8/8/K7 b - -"), 0), 256 * 2 + 1200);
}

TEST(TwoKnightsVsPawn, BlockadeAndRim) {
    // A knight in front of the pawn, far from the weak king and no further than the own
    // king: 70 + 15 + 15 over the same knight behind on the file.
    const int blockade = askQuick(positionFromFen("7k/8/8/4p3/4N3/8/8/2K2N2 w - -")).score;
    const int behind = askQuick(positionFromFen("7k/8/8/4p3/8/8/4N3/2K2N2 w - -")).score;
    EXPECT_EQ(blockade - behind, 100);
    // The weak king on the rim is worth more to the knights than in the centre.
    EXPECT_GT(askQuick(positionFromFen("7k/8/8/4p3/4N3/8/8/2K2N2 w - -")).score,
              askQuick(positionFromFen("8/8/6k1/4p3/4N3/8/8/2K2N2 w - -")).score);
    EXPECT_LT(askQuick(positionFromFen(mirrorFen("7k/8/8/4p3/4N3/8/8/2K2N2 w - -"))).score, 0);
}

}  // namespace
