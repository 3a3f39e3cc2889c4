#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "board/text.h"
#include "search/limits.h"
#include "search/search_support.h"
#include "search/searcher.h"
#include "search/table.h"

namespace {

// Counts what the search reports.
class CountingReporter : public NullReporter {
  public:
    void reportIteration(Searcher& s, int score, int alpha, int beta) override {
        ++iterations;
        lastScore = score;
        NullReporter::reportIteration(s, score, alpha, beta);
    }
    int iterations = 0;
    int lastScore = 0;
};

struct SearchTest : ::testing::Test {
    std::unique_ptr<Searcher> searcher = std::make_unique<Searcher>(4 << 20);
    SearchLimits limits;

    int searchDepth(const char* fen, int depth) {
        EXPECT_TRUE(setGameFromFen(*searcher, fen)) << fen;
        searcher->table->clearTable();
        searcher->buildRootList(nullptr, false);
        limits.setLimits(0, 0, 0, static_cast<int16_t>(depth), 0, 0, 0, false);
        limits.startClock();
        searcher->searchRunning = true;
        searcher->stopRequested = false;
        runSearch(*searcher, &limits);
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

TEST_F(SearchTest, OnlyMoveIsReportedOnceWithoutIterations) {
    CountingReporter reporter;
    searcher->setReporter(&reporter);
    searchDepth("7k/8/8/8/8/8/1q6/K7 w - - 0 1", 8);
    EXPECT_EQ(reporter.iterations, 1);
    EXPECT_EQ(searcher->iterationDepth, 1);
    EXPECT_EQ(best(), "a1b2");
    searcher->setReporter(nullptr);
}

TEST_F(SearchTest, SearchmovesRestrictsTheRoot) {
    ASSERT_TRUE(
        setGameFromFen(*searcher, "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"));
    searcher->buildRootList("a2a3 h2h3 xyz", false);
    EXPECT_EQ(searcher->rootCount, 2);
    searcher->buildRootList("a2a3 h2h3", true);
    EXPECT_EQ(searcher->rootCount, 18);
}

TEST_F(SearchTest, NextDepthKeepsFractionsOnlyAfterCapturesAndExtensions) {
    ASSERT_TRUE(
        setGameFromFen(*searcher, "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"));
    searcher->resetSearchState();
    SearchFrame& frame = searcher->stack[1];
    frame.extension = 0;
    frame.undo.capturedKind = 0;
    EXPECT_EQ(nextDepth(*searcher, 8, frame), 0);
    EXPECT_EQ(nextDepth(*searcher, 13, frame), 0);
    frame.undo.capturedKind = Knight;
    EXPECT_EQ(nextDepth(*searcher, 13, frame), 5);
    frame.undo.capturedKind = 0;
    frame.extension = 8;
    EXPECT_EQ(nextDepth(*searcher, 40, frame), 39);
}

TEST(History, CountersGrowWithoutLeavingTheirRange) {
    HistoryTable table;
    table.reset();
    EXPECT_EQ(table.increment, 65536u);
    EXPECT_EQ(table.ceiling, 65536u);
    const Move m = makeMoveValue(52, 36, Pawn);
    for (int i = 0; i < 2000; ++i) updateHistory(table, m, 12);
    EXPECT_LE(table.value(m), 65536u);
    EXPECT_GT(table.value(m), 0u);
    EXPECT_LE(table.counters[moveFromTo(m)], 0x3c000000u);
}

TEST(Killers, NewMovesWearDownTheSecondSlot) {
    KillerSlot slots[2] = {{NoMove, KillerEmptyWeight}, {NoMove, KillerEmptyWeight}};
    KillerSlot grand[2] = {{NoMove, KillerEmptyWeight}, {NoMove, KillerEmptyWeight}};
    const Move a = makeMoveValue(1, 2, Rook), b = makeMoveValue(3, 4, Rook);
    updateKiller(slots, a, grand, 40, false, false);
    EXPECT_EQ(slots[0].move, a);
    // The old first move keeps its place while the newcomer wears down the second slot.
    updateKiller(slots, b, grand, 40, false, false);
    EXPECT_EQ(slots[0].move, a);
    EXPECT_EQ(slots[1].move, b);
    // A move found again in the second slot moves up.
    updateKiller(slots, b, grand, 40, false, false);
    EXPECT_EQ(slots[0].move, b);
    EXPECT_EQ(slots[1].move, a);
    // A killer of the grandparent is never taken over.
    const Move c = makeMoveValue(5, 6, Rook);
    grand[0].move = c;
    updateKiller(slots, c, grand, 40, false, false);
    EXPECT_NE(slots[0].move, c);
    EXPECT_NE(slots[1].move, c);
}

TEST(Searcher, FramesAndDefaults) {
    auto s = std::make_unique<Searcher>(1 << 20);
    EXPECT_EQ(s->stack - s->frames, 2);
    EXPECT_EQ(FrameCount, 103);
    EXPECT_EQ(s->resignScore, -7000);
    EXPECT_EQ(s->multiPv, 1);
    EXPECT_EQ(s->history[1].shift, 0u);
}

}  // namespace
