// The search's way into the bitbases: which positions it asks about, and that a verdict found
// there decides the search's score.
#include <gtest/gtest.h>

#include <memory>

#include "board/text.h"
#include "eval/bitbase_files.h"
#include "eval/bitbase_store.h"
#include "search/limits.h"
#include "search/search_support.h"
#include "search/searcher.h"
#include "search/table.h"
#include "support/depth_search.h"

namespace {

struct BitbaseSearchTest : ::testing::Test {
    std::unique_ptr<Searcher> searcher = std::make_unique<Searcher>(4 << 20);
    ScratchDirectory dir;

    void useFiles() {
        searcher->setBitbaseCache(1 << 20);
        searcher->setBitbasePath(dir.text().c_str());
    }
    int searchDepth(const char* fen, int depth) {
        EXPECT_TRUE(setGameFromFen(*searcher, fen)) << fen;
        searcher->table->clearTable();
        SearchLimits limits;
        searchRootToDepth(*searcher, limits, depth);
        return searcher->rootScore;
    }
};

TEST_F(BitbaseSearchTest, AsksOnlyWhereTheFilesCanAnswer) {
    // Every file here says the colour listed first, White, wins.
    for (const char* name : {"KTK", "KKT", "KBK", "KKB", "KTTTK"}) writeUniform(dir, name, 255);
    const struct {
        const char* fen;
        bool answered;
    } cases[] = {
        {"4k3/8/8/8/8/8/8/4K2R w - - 0 1", true},     {"4k3/8/8/8/8/8/8/4K2R b - - 0 1", true},
        {"4k3/8/8/8/8/8/8/4K2R w K - 0 1", false},  // a castling right
        {"r3k3/8/8/8/8/8/8/4K3 w q - 0 1", false},    {"4k3/8/8/8/8/P7/8/4K3 w - - 0 1", true},
        {"4k3/8/8/8/8/8/P7/4K3 w - - 0 1", false},  // on its home row
        {"4k3/8/7p/8/8/8/8/4K3 b - - 0 1", true},     {"4k3/7p/8/8/8/8/8/4K3 b - - 0 1", false},
        {"4k3/8/8/8/8/8/8/R3K2R w - - 0 1", false},    // a file but no such material: KTTK
        {"3qk3/8/8/8/8/8/8/RR1RK3 w - - 0 1", false},  // six men
    };
    int result = 7;
    ASSERT_TRUE(setGameFromFen(*searcher, cases[0].fen));
    EXPECT_FALSE(probeFromSearch(*searcher, false, result));  // no cache size yet
    useFiles();
    for (const auto& c : cases) {
        ASSERT_TRUE(setGameFromFen(*searcher, c.fen)) << c.fen;
        result = 7;
        EXPECT_EQ(probeFromSearch(*searcher, false, result), c.answered) << c.fen;
        if (c.answered) {
            EXPECT_EQ(result, 1) << c.fen;  // White's point of view, whoever moves
        }
    }
}

// Files that call every rook ending a draw: the search believes them at every node deep enough
// to ask, so a won ending scores 0.
TEST_F(BitbaseSearchTest, ADrawVerdictDecidesTheScore) {
    const char* fen = "8/8/8/4k3/8/8/8/R3K3 w - - 0 1";
    EXPECT_GT(searchDepth(fen, 10), 5000);
    writeUniform(dir, "KTK", 0);
    writeUniform(dir, "KKT", 0);
    useFiles();
    EXPECT_EQ(searchDepth(fen, 10), 0);
    // Shallower nodes ask only the cache, and a new size empties it: they can't know.
    searcher->setBitbaseCache(1 << 20);
    EXPECT_GT(searchDepth(fen, 8), 5000);
}

}  // namespace
