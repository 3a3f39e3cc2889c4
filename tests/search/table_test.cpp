#include "search/table.h"

#include <gtest/gtest.h>

namespace {

struct TableTest : ::testing::Test {
    TranspositionTable table;
    Move move = NoMove;
    int score = 0, flags = 0;
    bool probe(uint64_t key, int ply = 0) { return table.probeEntry(key, ply, move, score, flags); }
};

TEST_F(TableTest, SmallestTableHoldsEntriesUntilCleared) {
    ASSERT_TRUE(table.allocateTable(100));
    table.storeEntry(12345, makeMoveValue(52, 36, Pawn), 77, 8 * 8 + BoundExact, 0);
    EXPECT_TRUE(probe(12345));
    table.clearTable();
    EXPECT_EQ(table.hashfullPermill(), 0);
    EXPECT_FALSE(probe(12345));
}

TEST_F(TableTest, MateScoresAreStoredRelativeToTheNode) {
    ASSERT_TRUE(table.allocateTable(1 << 20));
    const uint64_t key = 0x123456789abcdefULL;
    table.storeEntry(key, NoMove, 499990, 16 * 8 + BoundExact, 12);
    ASSERT_TRUE(probe(key, 4));
    EXPECT_EQ(score, 499998);
    table.storeEntry(key + 1, NoMove, -499990, 16 * 8 + BoundExact, 12);
    ASSERT_TRUE(probe(key + 1, 4));
    EXPECT_EQ(score, -499998);
}

TEST_F(TableTest, ShallowerStoreKeepsTheDeeperEntry) {
    ASSERT_TRUE(table.allocateTable(1 << 20));
    const uint64_t key = 0xfeedbeefULL;
    const Move deep = makeMoveValue(52, 36, Pawn);
    table.storeEntry(key, deep, 30, 10 * 8 * 8 + BoundLower, 0);
    table.newGeneration();
    table.storeEntry(key, makeMoveValue(51, 35, Pawn), -5, 2 * 8 * 8 + BoundUpper, 0);
    ASSERT_TRUE(probe(key));
    EXPECT_EQ(move, deep);
    EXPECT_EQ(score, 30);
    EXPECT_EQ(table.entries[table.indexOf(key)].generation, table.ttGeneration);
}

TEST_F(TableTest, ReplacementPrefersOldGenerationsThenShallowEntries) {
    ASSERT_TRUE(table.allocateTable(24 * 1000));
    // Keys with the same index: the index uses only the low 30 bits.
    auto key = [](uint64_t high) { return 0x1234 | (high << 32); };
    table.storeEntry(key(1), NoMove, 1, 5 * 64, 0);
    table.storeEntry(key(2), NoMove, 2, 3 * 64, 0);
    table.storeEntry(key(3), NoMove, 3, 7 * 64, 0);
    // All three are current: a fourth replaces the shallowest (key 2) when it is not much
    // shallower itself.
    table.storeEntry(key(4), NoMove, 4, 4 * 64, 0);
    EXPECT_FALSE(probe(key(2)));
    EXPECT_TRUE(probe(key(4)));
    // After a new generation the first entry of the window goes first.
    table.newGeneration();
    table.storeEntry(key(5), NoMove, 5, 0, 0);
    EXPECT_FALSE(probe(key(1)));
    EXPECT_TRUE(probe(key(5)));
}

}  // namespace
