#include "eval/recogniser.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "recogniser_support.h"

namespace {

const RecogniserTable& R = Recognisers;

struct SelectionCase {
    const char* fen;
    const EndgameRecogniser* expected;
};

// Where the rules overlap or where a material is easily misread.
TEST(RecogniserSelection, RepresentativeMaterials) {
    const SelectionCase cases[] = {
        {"r3k3/4p3/8/8/8/8/8/R1B1K3 w - -", &R.RecFortressWhite},
        {"r3k3/4p3/8/8/8/8/8/R3K3 w - -", &R.RecRookPawnVsRookBlack},
        {"2n1k3/4p3/8/8/8/8/8/R3K3 w - -", &R.RecFortressWhite2},
        {"2b1k3/4p3/8/8/8/8/4P3/4K3 w - -", &R.RecPawnsBishopBlack},
        {"4k3/4p3/8/8/8/8/8/1N2KN2 w - -", &R.RecTwoKnightsVsPawn},
        {"1n2kn2/8/8/8/8/8/4P3/4K3 w - -", &R.RecTwoKnightsVsPawn},
        {"2b1k3/8/8/8/8/8/8/1N2K3 w - -", &R.RecDeadDraw},
        // A knight with its pawn goes to the same rules as a bishop with its pawn.
        {"4k3/8/8/8/8/8/P7/1N2K3 w - -", &R.RecPawnsBishopWhite},
        {"1nb1k3/8/8/8/8/8/8/4K3 w - -", &R.RecBishopKnightBlack},
        {"4k3/4p3/8/8/8/8/8/4K3 w - -", &R.RecKpkBlack},
        {"4k3/8/8/8/8/8/8/2B1K3 w - -", &R.RecDeadDraw},
        {"2b1k3/p7/8/8/8/8/P7/1N2K3 w - -", &R.RecMinorEnding},
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", &R.RecDefault},
    };
    for (const SelectionCase& c : cases)
        EXPECT_EQ(selectRecogniser(positionFromFen(c.fen)), c.expected) << c.fen;
}

TEST(RecogniserSelection, CountsAloneDecide) {
    // Quiescence asks with a man taken off the counts only, the board left as it stood.
    Position p = positionFromFen("r3k3/8/8/8/8/8/4P3/R3K3 w - -");
    SideState& white = p.sides[0];
    --white.pieceCount[Pawn];
    --white.pieceCount[AllMen];
    EXPECT_EQ(selectRecogniser(p), &R.RecEqualHeavy);
    --white.pieceCount[Rook];
    --white.pieceCount[AllMen];
    EXPECT_EQ(selectRecogniser(p), &R.RecHeavyBlack);
}

TEST(DeadDraw, MinorsAndBareKingsAreZeroInEveryHook) {
    for (const char* fen :
         {"4k3/8/8/8/8/8/8/4K3 w - -", "4k3/8/8/3N4/8/8/8/4K3 b - -", "4k3/8/8/8/5b2/8/8/4K3 w - -",
          "4k3/8/8/3n4/8/8/8/4K3 w - -", "4k3/8/2b5/8/8/8/6N1/4K3 b - -"}) {
        for (const std::string& text : {std::string(fen), mirrorFen(fen)}) {
            const Position p = positionFromFen(text);
            const QuickAnswer quick = askQuick(p, 3400);
            EXPECT_TRUE(quick.final) << text;
            EXPECT_EQ(quick.score, 0) << text;
            const QuickAnswer qs = askQsearch(p);
            EXPECT_TRUE(qs.final) << text;
            EXPECT_EQ(qs.score, 0) << text;
            for (int depth : {0, 7, 24}) {
                const NodeAnswer node = askNode(p, -100, 100, depth);
                EXPECT_TRUE(node.ends) << text;
                EXPECT_EQ(node.score, 0) << text;
                EXPECT_EQ(node.depthChange, -depth) << text;
            }
            Evaluator e;
            EXPECT_EQ(e.evaluate(p), 0) << text;
        }
    }
}

TEST(DeadDraw, TwoKnightsScoreZeroAndSearchAtMostAPly) {
    for (const std::string& fen :
         {std::string("8/8/3k4/8/8/2NN4/8/4K3 w - -"), mirrorFen("8/8/3k4/8/8/2NN4/8/4K3 w - -"),
          std::string("k7/8/1K6/8/8/8/8/2N2N2 b - -")}) {
        const Position p = positionFromFen(fen);
        const QuickAnswer quick = askQuick(p, 6800), qs = askQsearch(p);
        EXPECT_TRUE(quick.final && qs.final) << fen;
        EXPECT_EQ(quick.score | qs.score, 0) << fen;
        // Mates exist, so the node never ends, but it is not worth a deep search.
        for (int depth : {0, 8, 13, 24}) {
            const NodeAnswer node = askNode(p, -100, 100, depth);
            EXPECT_FALSE(node.ends);
            EXPECT_LE(depth + node.depthChange, 8) << depth;
            EXPECT_LE(node.depthChange, 0);
        }
        Evaluator e;
        EXPECT_EQ(e.evaluate(p), 0) << fen;
    }
}

TEST(KingAndPawn, WinsCountDownFromTheTableAndDrawsKeepAUnit) {
    // Opposition on e5/e7: a draw with White to move, a win with Black to move.
    const char* drawn = "8/4k3/8/4K3/4P3/8/8/8 w - -";
    const char* won = "8/4k3/8/4K3/4P3/8/8/8 b - -";
    const int plies = kpkProbe(false, squareAt("e5"), squareAt("e7"), squareAt("e4"));
    ASSERT_GT(plies, 0);
    ASSERT_LT(plies, 126);

    EXPECT_EQ(askQuick(positionFromFen(drawn), 1234).score, 1);
    EXPECT_TRUE(askQuick(positionFromFen(drawn)).final);
    EXPECT_EQ(askQuick(positionFromFen(mirrorFen(drawn))).score, -1);
    EXPECT_EQ(askQuick(positionFromFen(won)).score, 9550 - plies);
    EXPECT_EQ(askQuick(positionFromFen(mirrorFen(won))).score, -(9550 - plies));

    // Quiescence and the node see the side to move.
    EXPECT_EQ(askQsearch(positionFromFen(won)).score, -(9550 - plies));
    EXPECT_EQ(askQsearch(positionFromFen(mirrorFen(won))).score, -(9550 - plies));
    EXPECT_EQ(askQsearch(positionFromFen(drawn)).score, 1);
    EXPECT_EQ(askQsearch(positionFromFen(mirrorFen(drawn))).score, 1);

    // A draw ends the node exactly; a win is only a bound at 9450.
    NodeAnswer node = askNode(positionFromFen(mirrorFen(drawn)), -5, 5, 16);
    EXPECT_TRUE(node.ends);
    EXPECT_EQ(node.score, 1);
    node = askNode(positionFromFen(won), -9451, 9000, 16);
    EXPECT_FALSE(node.ends);
    node = askNode(positionFromFen(won), -9450, 9000, 16);
    EXPECT_TRUE(node.ends);
    EXPECT_EQ(node.score, -9450);

    // The evaluation takes the value as it stands, turned to the side to move.
    Evaluator e;
    EXPECT_EQ(e.evaluate(positionFromFen(drawn)), 1);
    EXPECT_EQ(e.evaluate(positionFromFen(won)), -(9550 - plies));
}

TEST(BishopKnightMate, TheCornerOfTheBishopsColourScoresMost) {
    // The same picture in each corner: the weak king in the corner, the strong king a
    // knight's jump away. The bishop on a light square wants a8 or h1.
    auto drive = [](const std::string& fen) {
        const Position p = positionFromFen(fen);
        return bishopKnightDrive(p.sides[0], p.sides[1]);
    };
    const int right =
        std::min(drive("k7/2K5/8/5B2/8/8/8/6N1 w - -"), drive("8/8/8/8/2B5/8/5K2/6Nk w - -"));
    const int wrong =
        std::max(drive("7k/5K2/8/8/2B5/8/8/1N6 w - -"), drive("8/8/8/5B2/8/8/2K5/kN6 w - -"));
    EXPECT_GT(right, wrong + 200);
    // With a dark-squared bishop the colours of the corners swap.
    EXPECT_LT(drive("k7/2K5/8/4B3/8/8/8/6N1 w - -") + 200, drive("7k/5K2/8/2B5/8/8/8/1N6 w - -"));
    // Nearer the right corner is better, all else alike.
    EXPECT_GT(drive("8/8/7B/8/8/2k5/8/2K3N1 w - -"), drive("8/8/7B/3k4/8/8/8/2K3N1 w - -"));
}

// Every recogniser answers a colour-mirrored position with the mirrored answer.
TEST(RecogniserSymmetry, MirroredPlacementsGiveMirroredAnswers) {
    struct Material {
        const char* white;
        const char* black;
        Bitboard pawnSquares;
    };
    const Bitboard rookFiles = FileA | FileH;
    const Bitboard all = ~0ULL;
    const Material materials[] = {
        {"KP", "K", all},        {"KR", "K", all},          {"KQ", "K", all},
        {"KR", "KR", all},       {"KQ", "KQ", all},         {"KQ", "KR", all},
        {"KP", "KN", all},       {"KP", "KB", all},         {"KP", "KN", rookFiles},
        {"KR", "KN", all},       {"KR", "KB", all},         {"KBP", "K", rookFiles},
        {"KNP", "K", rookFiles}, {"KBPP", "KP", rookFiles}, {"KBP", "KP", rookFiles},
        {"KBP", "K", all},       {"KBN", "K", all},         {"KNN", "K", all},
        {"KRB", "KR", all},      {"KRN", "KR", all},        {"KBN", "KN", all},
        {"KNN", "KB", all},      {"KBB", "KR", all},        {"KNN", "KP", all},
        {"KQN", "KQ", all},      {"KRB", "KRP", all},       {"KR", "KNP", all},
        {"KRP", "KR", all},      {"KPP", "KP", all},        {"KPPP", "KPP", all},
        {"KBP", "KB", all},      {"KBPP", "KBP", all},      {"KNP", "KN", all},
        {"KQP", "KQ", all},      {"KBPP", "KNP", all},      {"KRN", "KRPP", all},
        {"KNPP", "KBPP", all},   {"KRPP", "KR", all},
    };
    const int windows[][2] = {{-500001, 500001}, {-1, 0},        {0, 1},       {-2, 2},
                              {9000, 9001},      {-9450, -9449}, {4000, 4400}, {-7300, 12600}};
    const int scores[] = {-4000, -800, -1, 0, 1, 150, 600, 2500};
    std::mt19937 random(20240611);
    Evaluator e, em;
    for (const Material& m : materials) {
        for (int round = 0; round < 150; ++round) {
            const std::string fen = randomPlacement(random, m.white, m.black, m.pawnSquares);
            const std::string mirrored = mirrorFen(fen);
            const Position p = positionFromFen(fen);
            const Position q = positionFromFen(mirrored);
            const EndgameRecogniser* rec = selectRecogniser(p);
            ASSERT_NE(rec, &R.RecDefault) << fen;

            const int material = static_cast<int>(random() % 6000) - 3000;
            const QuickAnswer a = askQuick(p, material);
            const QuickAnswer b = askQuick(q, -material);
            ASSERT_EQ(a.final, b.final) << fen;
            ASSERT_EQ(a.score, -b.score) << fen;

            const QuickAnswer qa = askQsearch(p);
            const QuickAnswer qb = askQsearch(q);
            ASSERT_EQ(qa.final, qb.final) << fen;
            if (qa.final) {
                ASSERT_EQ(qa.score, qb.score) << fen;
            }

            for (const auto& w : windows) {
                for (int depth : {0, 9, 17, 22, 24}) {
                    const NodeAnswer na = askNode(p, w[0], w[1], depth);
                    const NodeAnswer nb = askNode(q, w[0], w[1], depth);
                    ASSERT_EQ(na.ends, nb.ends) << fen << " depth " << depth;
                    ASSERT_EQ(na.depthChange, nb.depthChange) << fen;
                    if (na.ends) {
                        ASSERT_EQ(na.score, nb.score) << fen;
                    }
                }
            }
            for (int s : scores) ASSERT_EQ(askFinal(e, p, s), -askFinal(em, q, -s)) << fen << s;
        }
    }
}

}  // namespace
