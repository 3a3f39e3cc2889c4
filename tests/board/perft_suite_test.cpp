#include <gtest/gtest.h>

#include "board/text.h"
#include "frontend/perft.h"
#include "test_positions.h"

namespace {

// The sanitizer build is many times slower; it checks the shallower counts only.
#ifdef NDEBUG
constexpr uint64_t LeafBudget = 12000000;
#else
constexpr uint64_t LeafBudget = 300000;
#endif

// The only suite position with eight pawns and three bishops of one colour: no game can reach
// it, and the board refuses it.
bool isUnreachable(const std::string& fen) {
    return fen.rfind("2kr3r/p1ppqpb1/bB2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R b KQ", 0) == 0;
}

void runSuite(const char* name, bool withTable) {
    const std::vector<SuiteLine> suite = readSuite(name);
    ASSERT_FALSE(suite.empty()) << "missing " << name;
    for (const SuiteLine& line : suite) {
        Position p;
        constructPosition(p);
        if (isUnreachable(line.fen)) {
            EXPECT_EQ(parseFen(p, line.fen.c_str()), nullptr) << line.fen;
            continue;
        }
        ASSERT_NE(parseFen(p, line.fen.c_str()), nullptr) << line.fen;
        for (const auto& [depth, expected] : line.counts) {
            if (expected > LeafBudget) continue;
            PerftTable table(withTable ? 4 : 0);
            EXPECT_EQ(perftCount(table, p, depth), expected) << line.fen << " depth " << depth;
        }
    }
}

TEST(PerftSuite, StandardChess) {
    runSuite("perft-dev.epd", false);
}
TEST(PerftSuite, Chess960ShredderFen) {
    runSuite("perft960-dev.epd", false);
}
TEST(PerftSuite, Chess960Xfen) {
    runSuite("perft960-xfen-dev.epd", false);
}
TEST(PerftSuite, TableGivesTheSameCounts) {
    runSuite("perft-dev.epd", true);
}

TEST(PerftSuite, DepthZeroCountsNothing) {
    Position p;
    constructPosition(p);
    PerftTable table(0);
    EXPECT_EQ(perftCount(table, p, 0), 0u);
}

}  // namespace
