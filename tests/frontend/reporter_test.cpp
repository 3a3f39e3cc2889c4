// Score words, blank compression and the UCI reporter's lines.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "board/move.h"
#include "frontend/uci_reporter.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

std::string scoreText(int score, int alpha = -500001, int beta = 500001) {
    std::string line;
    formatScore(line, score, alpha, beta);
    return line;
}

std::string compressed(std::string line) {
    compressBlanks(line);
    return line;
}

// The UCI reporter with its output kept instead of written.
class RecordingUciReporter : public UciReporter {
  public:
    using UciReporter::UciReporter;
    void writeLine(const char* text) override {
        if (!outputOff) lines.emplace_back(text);
    }
    std::vector<std::string> lines;
};

class UciReporterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        searcher = std::make_unique<Searcher>(1 << 20);
        limits.startClock();
        reporter = std::make_unique<RecordingUciReporter>(searcher.get(), &limits);
    }
    std::unique_ptr<Searcher> searcher;
    SearchLimits limits;
    std::unique_ptr<RecordingUciReporter> reporter;
};

const Move E2E4 = makeMoveValue(52, 36, Pawn);
const Move E7E5 = makeMoveValue(12, 28, Pawn);
const Move E2E5 = makeMoveValue(52, 28, Pawn);

}  // namespace

TEST(FormatScore, MateScoresCountMovesFromTheMateValue) {
    EXPECT_EQ(scoreText(500000), " score mate 0");
    EXPECT_EQ(scoreText(499999), " score mate 1");
    EXPECT_EQ(scoreText(499995), " score mate 3");
    EXPECT_EQ(scoreText(400001), " score mate 50000");
    EXPECT_EQ(scoreText(-499999), " score mate -1");
    EXPECT_EQ(scoreText(-499998), " score mate -1");
    EXPECT_EQ(scoreText(-400001), " score mate -50000");
}

TEST(FormatScore, CentipawnsRoundAwayFromZero) {
    EXPECT_EQ(scoreText(400000), " score cp 40000");
    EXPECT_EQ(scoreText(11), " score cp 2");
    EXPECT_EQ(scoreText(10), " score cp 1");
    EXPECT_EQ(scoreText(2), " score cp 1");
    EXPECT_EQ(scoreText(1), " score cp 0");
    EXPECT_EQ(scoreText(0), " score cp 0");
    EXPECT_EQ(scoreText(-1), " score cp 0");
    EXPECT_EQ(scoreText(-2), " score cp -1");
    EXPECT_EQ(scoreText(-11), " score cp -2");
    EXPECT_EQ(scoreText(-400000), " score cp -40000");
}

TEST(FormatScore, BoundsIncludeTheWindowEdges) {
    EXPECT_EQ(scoreText(100, 100, 200), " score cp 10 upperbound");
    EXPECT_EQ(scoreText(200, 100, 200), " score cp 20 lowerbound");
    EXPECT_EQ(scoreText(150, 100, 200), " score cp 15");
    // A collapsed window: lowerbound is tested first.
    EXPECT_EQ(scoreText(100, 100, 100), " score cp 10 lowerbound");
    EXPECT_EQ(scoreText(499999, 0, 1), " score mate 1 lowerbound");
}

TEST(CompressBlanks, EveryRunBecomesOneBlank) {
    EXPECT_EQ(compressed("info depth 3 time               12 nodes  8902"),
              "info depth 3 time 12 nodes 8902");
    EXPECT_EQ(compressed("  lead and trail  "), " lead and trail ");
    EXPECT_EQ(compressed("tabs\t\tstay"), "tabs\t\tstay");
    EXPECT_EQ(compressed(""), "");
    EXPECT_EQ(compressed("     "), " ");
}

TEST_F(UciReporterTest, ErrorsShowOnlyInDebugMode) {
    reporter->reportError("perft without depth", nullptr);
    EXPECT_TRUE(reporter->lines.empty());
    reporter->setDebug(true);
    reporter->reportError("perft without depth", nullptr);
    reporter->reportError("position: illegal move: ", "e2e5");
    reporter->reportInfo("free text");
    const std::vector<std::string> expected = {"info string perft without depth ",
                                               "info string position: illegal move:  e2e5",
                                               "info string free text"};
    EXPECT_EQ(reporter->lines, expected);
}

TEST_F(UciReporterTest, BestMoveWithAndWithoutPonder) {
    reporter->reportBestMove(&E2E4, &E7E5, true);
    reporter->reportBestMove(&E2E4, nullptr, true);
    // The ponder move is texted on the position after the best move, legal or not.
    reporter->reportBestMove(&E2E4, &E2E5, true);
    const std::vector<std::string> expected = {"bestmove e2e4 ponder e7e5", "bestmove e2e4",
                                               "bestmove e2e4 ponder e2e5"};
    EXPECT_EQ(reporter->lines, expected);
}

TEST_F(UciReporterTest, NoBestMoveIsAnErrorSeenOnlyInDebugMode) {
    reporter->reportBestMove(nullptr, nullptr, false);
    EXPECT_TRUE(reporter->lines.empty());
    reporter->setDebug(true);
    reporter->reportBestMove(nullptr, nullptr, false);
    ASSERT_EQ(reporter->lines.size(), 1u);
    EXPECT_EQ(reporter->lines[0], "info string Kein Zug berechnet ");
}

TEST_F(UciReporterTest, RepeatedLineIsHeldBackEarlyButNotInDebugMode) {
    searcher->rootBestMove = E2E4;
    searcher->firstIteration = false;
    reporter->reportIteration(*searcher, 120, -500001, 500001);
    ASSERT_EQ(reporter->lines.size(), 1u);
    const std::string& line = reporter->lines[0];
    EXPECT_EQ(line.rfind("info depth 1 seldepth 1 time ", 0), 0u) << line;
    EXPECT_NE(line.find(" score cp 12 hashfull "), std::string::npos) << line;
    EXPECT_EQ(line.find("  "), std::string::npos) << line;

    // Same line, a score within 15 units: held back.
    reporter->reportIteration(*searcher, 130, -500001, 500001);
    EXPECT_EQ(reporter->lines.size(), 1u);
    // A score that moved more than 15 units is news.
    reporter->reportIteration(*searcher, 146, -500001, 500001);
    EXPECT_EQ(reporter->lines.size(), 2u);

    reporter->setDebug(true);
    reporter->reportIteration(*searcher, 146, -500001, 500001);
    EXPECT_EQ(reporter->lines.size(), 3u);
    reporter->setDebug(false);

    // After 900 ms every line is printed.
    limits.startTime -= 1000;
    reporter->reportIteration(*searcher, 146, -500001, 500001);
    EXPECT_EQ(reporter->lines.size(), 4u);
}

TEST_F(UciReporterTest, FirstIterationAndMateScoresPassTheThrottle) {
    searcher->rootBestMove = E2E4;
    searcher->firstIteration = true;
    reporter->reportIteration(*searcher, 50, -500001, 500001);
    reporter->reportIteration(*searcher, 50, -500001, 500001);
    EXPECT_EQ(reporter->lines.size(), 2u);

    searcher->firstIteration = false;
    reporter->reportIteration(*searcher, 499990, -500001, 500001);
    EXPECT_EQ(reporter->lines.size(), 3u);
    // A mate score equal to the last one is held back like any other.
    reporter->reportIteration(*searcher, 499990, -500001, 500001);
    EXPECT_EQ(reporter->lines.size(), 3u);
    // Within 15 units but not equal: a mate score always passes.
    reporter->reportIteration(*searcher, 499992, -500001, 500001);
    EXPECT_EQ(reporter->lines.size(), 4u);
}

TEST_F(UciReporterTest, CurrentMoveWaitsForTheFirstSecondUnlessDebugging) {
    reporter->reportCurrentMove(E2E4, 1);
    EXPECT_TRUE(reporter->lines.empty());
    limits.startTime -= 1000;
    reporter->reportCurrentMove(E2E4, 3);
    ASSERT_EQ(reporter->lines.size(), 1u);
    EXPECT_EQ(reporter->lines[0], "info currmove e2e4 currmovenumber 3");
}

TEST_F(UciReporterTest, MultiPvLineHasNoTimeAndNoThrottle) {
    searcher->rootBestMove = E2E4;
    searcher->firstIteration = false;
    const Move d2d4 = makeMoveValue(51, 35, Pawn);
    reporter->reportMultiPvLine(*searcher, 2, d2d4, 30, -500001, 500001);
    reporter->reportMultiPvLine(*searcher, 2, d2d4, 30, -500001, 500001);
    ASSERT_EQ(reporter->lines.size(), 2u);
    EXPECT_EQ(reporter->lines[0], "info multipv 2 depth 1 seldepth 1 score cp 3 pv d2d4");
}
