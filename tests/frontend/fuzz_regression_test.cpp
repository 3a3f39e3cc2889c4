// Sessions found by the UCI fuzz target in fuzz/, replayed through the interpreter.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "board/text.h"
#include "frontend/engine_session.h"
#include "frontend/reporter.h"
#include "search/searcher.h"
#include "support/line_collector.h"

namespace {

TEST(FuzzRegression, RefusedFenLeavesTheReporterOnTheNewRoot) {
    // The refused FEN falls back to the start position; the reporter, which writes the moves of
    // the search from its own copy of the root, must follow, or it walks the principal
    // variation on the stalemate position before it.
    LineCollector output;
    std::vector<std::string> lines;
    {
        SessionSettings settings;
        settings.tableBytes = 1 << 20;
        settings.output = &output;
        EngineSession session(settings);
        for (const char* line : {"uci", "setoption name blocking value true",
                                 "position fen 7k/5Q2/6K1/8/8/8/8/8 b - - 0 1", "go depth 2",
                                 "position fen 6k1/5ppp/8/8/8/8/5PPP/R5K0 w - - 0 1"})
            session.handleLine(line);
        // Checked before the search: out of step, the walk corrupts memory.
        ASSERT_EQ(session.reporter()->position.hashKey, session.searcher().position.hashKey);
        session.handleLine("go depth 2");
        lines = output.take();
    }

    ASSERT_FALSE(lines.empty());
    char best[16] = {};
    ASSERT_EQ(std::sscanf(lines.back().c_str(), "bestmove %15s", best), 1) << lines.back();
    Position start;
    constructPosition(start);
    Move move = NoMove;
    EXPECT_TRUE(parseMove(start, best, move, 1)) << best;
}

}  // namespace
