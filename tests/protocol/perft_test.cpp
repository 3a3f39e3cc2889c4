// The perft command: totals and the per-move split.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <string>

#include "protocol/engine_process.h"

namespace {

// The split of a divide: root move to the count below it.
std::map<std::string, long long> readDivide(EngineProcess& engine, int childDepth, int count) {
    static const std::regex form(
        "info move ([a-h][1-8][a-h][1-8][nbrq]?) depth (\\d+) time \\d+ nodes (\\d+)");
    std::map<std::string, long long> split;
    for (int i = 0; i < count; ++i) {
        const std::string line = engine.readLine(60000).value_or("(none)");
        std::smatch match;
        if (!std::regex_match(line, match, form) || std::stoi(match[2]) != childDepth) {
            ADD_FAILURE() << line;
            break;
        }
        split[match[1]] = std::stoll(match[3]);
    }
    return split;
}

}  // namespace

TEST(Perft, TotalsAndTheSplitByRootMove) {
    EngineProcess engine;
    startUci(engine);
    EXPECT_EQ(perftTotal(engine, "perft depth 0", 0), 0);
    EXPECT_EQ(perftTotal(engine, "perft depth 1", 1), 20);
    EXPECT_EQ(perftTotal(engine, "perft depth 4 Hash 16", 4), 197281);
    EXPECT_EQ(perftTotal(engine, "perft Hash 1 depth 4", 4), 197281);

    engine.send("perft depth 3 divide");
    const std::map<std::string, long long> split = readDivide(engine, 2, 20);
    ASSERT_EQ(split.size(), 20u);
    long long total = 0;
    for (const auto& [move, nodes] : split) total += nodes;
    EXPECT_EQ(total, 8902);
    EXPECT_EQ(split.at("e2e4"), 600);
    EXPECT_TRUE(engine.silentFor(200));  // no sum line

    // A count at depth 0 is 0, so depth 1 divides into zeros.
    engine.send("perft divide depth 1 Hash 4");
    for (const auto& [move, nodes] : readDivide(engine, 0, 20)) EXPECT_EQ(nodes, 0) << move;
    EXPECT_TRUE(engine.silentFor(200));
}
