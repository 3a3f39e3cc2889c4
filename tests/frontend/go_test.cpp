// How `go` turns its words into one request for the clock.
#include <gtest/gtest.h>

#include "frontend/engine_session.h"
#include "search/limits.h"
#include "support/line_collector.h"

namespace {

TEST(Go, DepthMateAndMovesToGoAreSixteenBitNumbers) {
    LineCollector output;
    SessionSettings settings;
    settings.tableBytes = 1 << 20;
    settings.output = &output;
    EngineSession session(settings);
    for (const char* line : {"uci", "setoption name blocking value true", "position startpos"})
        session.handleLine(line);
    SearchLimits& limits = session.limits();

    // 65537 is 1 in sixteen bits: one iteration, counted from 0.
    session.handleLine("go depth 65537");
    EXPECT_EQ(limits.maxDepth, 0);
    // 65538 is a mate in 2: four plies.
    session.handleLine("go mate 65538");
    EXPECT_EQ(limits.maxDepth, 4);
    // 65576 is 40 moves to go, planned like 40 and not like the 80 of a sudden death.
    session.handleLine("go wtime 1000 btime 1000 movestogo 40");
    const double forty = limits.movesToPlan;
    session.handleLine("go wtime 1000 btime 1000 movestogo 65576");
    EXPECT_EQ(limits.movesToPlan, forty);
    session.handleLine("go wtime 1000 btime 1000");
    EXPECT_NE(limits.movesToPlan, forty);
}

}  // namespace
