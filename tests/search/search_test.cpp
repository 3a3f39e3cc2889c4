#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "board/text.h"
#include "search/limits.h"
#include "search/searcher.h"
#include "search/table.h"
#include "search/threats.h"
#include "support/depth_search.h"

namespace {

struct SearchTest : ::testing::Test {
    std::unique_ptr<Searcher> searcher = std::make_unique<Searcher>(4 << 20);
    SearchLimits limits;

    int searchDepth(const char* fen, int depth) {
        EXPECT_TRUE(setGameFromFen(*searcher, fen)) << fen;
        searcher->table->clearTable();
        searchRootToDepth(*searcher, limits, depth);
        return searcher->rootScore;
    }
    std::string best() {
        char text[16];
        return writeMove(searcher->position, searcher->rootBestMove, StyleCoordinates, text);
    }
};

TEST_F(SearchTest, FreshSearchesCountTheSameNodes) {
    const char* fen = "r1bqk2r/pppp1ppp/2n2n2/2b1p3/2B1P3/2NP1N2/PPP2PPP/R1BQK2R b KQkq - 0 5";
    searchDepth(fen, 6);
    const uint64_t first = searcher->nodeCount;
    const std::string firstMove = best();
    searcher = std::make_unique<Searcher>(4 << 20);
    searchDepth(fen, 6);
    EXPECT_EQ(searcher->nodeCount, first);
    EXPECT_EQ(best(), firstMove);
}

TEST_F(SearchTest, FindsMates) {
    // Mate in one and mate in two, scored from the mate value.
    EXPECT_EQ(searchDepth("6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1", 3), 499999);
    EXPECT_EQ(best(), "a1a8");
    EXPECT_EQ(searchDepth("3r2k1/5ppp/8/8/8/8/4R3/4R1K1 w - - 0 1", 5), 499997);
    EXPECT_EQ(best(), "e2e8");
    // A mated root scores the mate at ply 0.
    EXPECT_EQ(searchDepth("R5k1/5ppp/8/8/8/8/8/6K1 b - - 0 1", 2), -ScoreMate);

    // The principal line of a mate follows the table down to the last moves (the mating move
    // itself is found statically and never stored).
    EXPECT_EQ(searchDepth("8/8/8/8/8/k7/8/2K4R w - - 0 1", 13), 499989);
    Move line[MaxPly];
    const int length = extractPv(*searcher, line, MaxPly, nullptr);
    EXPECT_GE(length, 10);
    Game after = *searcher;
    for (int i = 0; i < length; ++i) {
        ASSERT_TRUE(isLegalFromTo(after.position, line[i])) << i;
        gameMakeMove(after, line[i]);
    }
}

TEST(StaticMate, FindsContactAndBackRankMatesOnly) {
    const struct {
        const char* fen;
        const char* mate;  // empty: none may be claimed
    } cases[] = {
        {"6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1", "a1a8"},
        {"3n2k1/5ppp/8/8/8/8/8/3R2K1 w - - 0 1", "d1d8"},  // taking on the back rank
        {"3nr1k1/5ppp/8/8/8/8/8/3R2K1 w - - 0 1", ""},     // the taken man is guarded
        {"1r4k1/5ppp/8/8/8/8/8/3R2K1 w - - 0 1", ""},      // the rook behind guards the row
        {"6k1/5pp1/7p/8/8/8/8/R5K1 w - - 0 1", ""},        // the king has air
        {"7k/8/5K2/8/8/8/8/6Q1 w - - 0 1", "g1g7"},
        {"k7/8/8/2K5/8/8/8/1Q6 w - - 0 1", ""},  // b7 is guarded only by the queen
    };
    for (const auto& c : cases) {
        Game game;
        constructGame(game);
        ASSERT_TRUE(setGameFromFen(game, c.fen)) << c.fen;
        const Move m = staticMateInOne(game.position);
        char text[16] = "";
        if (m) writeMove(game.position, m, StyleCoordinates, text);
        EXPECT_STREQ(text, c.mate) << c.fen;
    }
}

TEST_F(SearchTest, AvoidsStalematingAWonPosition) {
    // Qf7 would stalemate the king in the corner.
    searchDepth("7k/8/6Q1/8/8/8/8/K7 w - - 0 1", 6);
    Position after = searcher->position;
    UndoRecord undo;
    beginUndo(undo, after);
    ASSERT_TRUE(makeLegal(after, searcher->rootBestMove, undo));
    int result = 0;
    EXPECT_FALSE(hasNoLegalMove(after, &result) && result == 0) << best();
    EXPECT_GT(searcher->rootScore, 5000);
}

TEST_F(SearchTest, OnlyMoveEndsTheSearchAfterOneIteration) {
    searchDepth("7k/8/8/8/8/8/1q6/K7 w - - 0 1", 8);
    EXPECT_EQ(searcher->iterationDepth, 1);
    EXPECT_EQ(best(), "a1b2");
}

}  // namespace
