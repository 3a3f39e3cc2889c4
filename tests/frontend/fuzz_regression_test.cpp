// Sessions found by the UCI fuzz target in fuzz/, replayed through the interpreter.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "board/text.h"
#include "frontend/search_controller.h"
#include "frontend/uci_interpreter.h"
#include "frontend/uci_reporter.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

class KeptLinesReporter : public UciReporter {
  public:
    using UciReporter::UciReporter;
    void writeLine(const char* text) override { lines.emplace_back(text); }
    std::vector<std::string> lines;
};

TEST(FuzzRegression, RefusedFenLeavesTheReporterOnTheNewRoot) {
    // The refused FEN falls back to the start position; the reporter, which writes the moves of
    // the search from its own copy of the root, must follow, or it walks the principal
    // variation on the stalemate position before it.
    Searcher searcher(1 << 20);
    SearchLimits limits;
    KeptLinesReporter reporter(&searcher, &limits);
    {
        SearchController controller(&searcher, &reporter, &limits);
        UciInterpreter interpreter(&searcher, &reporter, &controller, false);
        searcher.setReporter(&reporter);
        for (const char* line :
             {"setoption name blocking value true", "position fen 7k/5Q2/6K1/8/8/8/8/8 b - - 0 1",
              "go depth 2", "position fen 6k1/5ppp/8/8/8/8/5PPP/R5K0 w - - 0 1"})
            interpreter.handleCommand(line);
        // Checked before the search: out of step, the walk corrupts memory.
        ASSERT_EQ(reporter.position.hashKey, searcher.position.hashKey);
        interpreter.handleCommand("go depth 2");
    }
    searcher.setReporter(nullptr);

    ASSERT_FALSE(reporter.lines.empty());
    char best[16] = {};
    ASSERT_EQ(std::sscanf(reporter.lines.back().c_str(), "bestmove %15s", best), 1)
        << reporter.lines.back();
    Position start;
    constructPosition(start);
    Move move = NoMove;
    EXPECT_TRUE(parseMove(start, best, move, 1)) << best;
}

}  // namespace
