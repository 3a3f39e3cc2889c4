// The perft command: totals, the per-move split, the table, and its one message.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "protocol/engine_process.h"

namespace {

std::vector<DivideLine> readDivide(EngineProcess& engine, int childDepth, int count) {
    std::vector<DivideLine> lines;
    for (int i = 0; i < count; ++i) {
        const auto line = engine.readLine(60000);
        if (!line) break;
        const auto divide = parseDivideLine(*line);
        EXPECT_TRUE(divide && divide->depth == childDepth) << *line;
        if (divide) lines.push_back(*divide);
    }
    return lines;
}

}  // namespace

TEST(Perft, TotalsOfTheStartPosition) {
    EngineProcess engine;
    startUci(engine);
    const struct {
        const char* command;
        int depth;
        long long nodes;
    } cases[] = {{"perft depth 0", 0, 0},
                 {"perft depth 1", 1, 20},
                 {"perft depth 3", 3, 8902},
                 {"perft depth 4 Hash 16", 4, 197281},
                 {"perft Hash 1 depth 4", 4, 197281}};
    for (const auto& c : cases) {
        engine.send(c.command);
        const std::string answer = engine.readLine(60000).value_or("(none)");
        const auto total = parsePerftTotal(answer);
        ASSERT_TRUE(total) << answer;
        EXPECT_EQ(total->depth, c.depth) << c.command;
        EXPECT_EQ(total->nodes, c.nodes) << c.command;
    }
}

TEST(Perft, DivideSplitsByRootMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send("perft depth 3 divide");
    const std::vector<DivideLine> lines = readDivide(engine, 2, 20);
    ASSERT_EQ(lines.size(), 20u);
    long long total = 0;
    std::set<std::string> moves;
    for (const DivideLine& line : lines) {
        total += line.nodes;
        moves.insert(line.move);
        if (line.move == "e2e4") {
            EXPECT_EQ(line.nodes, 600);
        }
        if (line.move == "g1f3") {
            EXPECT_EQ(line.nodes, 440);
        }
    }
    EXPECT_EQ(total, 8902);
    EXPECT_EQ(moves.size(), 20u);
    EXPECT_TRUE(engine.silentFor(200));  // no sum line

    // A count at depth 0 is 0, so depth 1 divides into zeros.
    engine.send("perft divide depth 1 Hash 4");
    for (const DivideLine& line : readDivide(engine, 0, 20)) EXPECT_EQ(line.nodes, 0);
    EXPECT_TRUE(engine.silentFor(200));

    // Only legal moves are counted: in check, the evasions alone.
    engine.send("position fen 4k3/8/8/8/8/8/4q3/4K3 w - - 0 1");
    engine.send("perft depth 2 divide");
    const std::vector<DivideLine> evasions = readDivide(engine, 1, 1);
    ASSERT_EQ(evasions.size(), 1u);
    EXPECT_EQ(evasions[0].move, "e1e2");
    EXPECT_TRUE(engine.silentFor(200));
}

TEST(Perft, WithoutDepthOnlyDebugModeHears) {
    EngineProcess engine;
    startUci(engine);
    engine.send("perft");
    engine.send("perft depth x");
    engine.send("isready");
    EXPECT_EQ(engine.readLine(), "readyok");
    engine.send("debug on");
    engine.send("perft Hash 4");
    EXPECT_EQ(engine.readLine(), "info string perft without depth ");
}
