// Score words and the UCI reporter's lines.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "board/move.h"
#include "frontend/uci_reporter.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

std::string scoreText(int score, int alpha = -ScoreInfinite, int beta = ScoreInfinite) {
    std::string line;
    formatScore(line, score, alpha, beta);
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
        searcher->rootBestMove = makeMoveValue(52, 36, Pawn);
        searcher->firstIteration = false;
    }
    // Reports an iteration over the full window; returns the number of lines so far.
    size_t iterate(int score) {
        reporter->reportIteration(*searcher, score, -500001, 500001);
        return reporter->lines.size();
    }
    std::unique_ptr<Searcher> searcher;
    SearchLimits limits;
    std::unique_ptr<RecordingUciReporter> reporter;
};

}  // namespace

TEST(FormatScore, MatesCentipawnsAndBounds) {
    // Mates count moves from the mate value; centipawns round away from zero.
    const std::pair<int, const char*> cases[] = {
        {500000, " score mate 0"},   {499995, " score mate 3"},
        {-499998, " score mate -1"}, {-400001, " score mate -50000"},
        {400000, " score cp 40000"}, {11, " score cp 2"},
        {1, " score cp 0"},          {-2, " score cp -1"},
    };
    for (const auto& [score, text] : cases) EXPECT_EQ(scoreText(score), text);

    // The window's own edges count as bounds, lowerbound first.
    EXPECT_EQ(scoreText(100, 100, 200), " score cp 10 upperbound");
    EXPECT_EQ(scoreText(200, 100, 200), " score cp 20 lowerbound");
    EXPECT_EQ(scoreText(100, 100, 100), " score cp 10 lowerbound");
    EXPECT_EQ(scoreText(499999, 0, 1), " score mate 1 lowerbound");
}

TEST_F(UciReporterTest, ErrorsShowOnlyInDebugMode) {
    reporter->reportError("perft without depth", nullptr);
    reporter->reportBestMove(nullptr, nullptr, false);
    EXPECT_TRUE(reporter->lines.empty());
    reporter->setDebug(true);
    reporter->reportError("position: illegal move: ", "e2e5");
    reporter->reportBestMove(nullptr, nullptr, false);
    const std::vector<std::string> expected = {"info string position: illegal move:  e2e5",
                                               "info string Kein Zug berechnet "};
    EXPECT_EQ(reporter->lines, expected);
}

TEST_F(UciReporterTest, RepeatedLinesAreHeldBackEarly) {
    ASSERT_EQ(iterate(120), 1u);
    const std::string line = reporter->lines[0];
    EXPECT_EQ(line.rfind("info depth 1 seldepth 1 time ", 0), 0u) << line;
    EXPECT_NE(line.find(" score cp 12 hashfull "), std::string::npos) << line;
    EXPECT_EQ(line.find("  "), std::string::npos) << line;

    EXPECT_EQ(iterate(130), 1u);  // the same line, a score within 15 units
    EXPECT_EQ(iterate(146), 2u);  // a score that moved more than 15 units is news
    EXPECT_EQ(iterate(499990), 3u);
    EXPECT_EQ(iterate(499990), 3u);  // a mate score equal to the last one is held back
    EXPECT_EQ(iterate(499992), 4u);  // but one within 15 units always passes

    // Debug mode, the first iteration and anything after 900 ms pass.
    reporter->setDebug(true);
    EXPECT_EQ(iterate(499992), 5u);
    reporter->setDebug(false);
    searcher->firstIteration = true;
    EXPECT_EQ(iterate(499992), 6u);
    searcher->firstIteration = false;
    limits.startTime -= 1000;
    EXPECT_EQ(iterate(499992), 7u);
}

TEST_F(UciReporterTest, MultiPvLineHasNoTimeAndNoThrottle) {
    const Move d2d4 = makeMoveValue(51, 35, Pawn);
    reporter->reportMultiPvLine(*searcher, 2, d2d4, 30, -500001, 500001);
    reporter->reportMultiPvLine(*searcher, 2, d2d4, 30, -500001, 500001);
    ASSERT_EQ(reporter->lines.size(), 2u);
    EXPECT_EQ(reporter->lines[0], "info multipv 2 depth 1 seldepth 1 score cp 3 pv d2d4");
}
