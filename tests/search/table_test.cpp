#include "search/table.h"

#include <gtest/gtest.h>

namespace {

TEST(TranspositionTable, SmallestTableAndClear) {
    TranspositionTable table;
    ASSERT_TRUE(table.allocateTable(100));
    EXPECT_EQ(table.ttCount, 498u);
    table.storeEntry(12345, makeMoveValue(52, 36, Pawn), 77, 8 * 8 + BoundExact, 0);
    EXPECT_GT(table.ttFresh, 0u);
    table.clearTable();
    EXPECT_EQ(table.hashfullPermill(), 0);
    Move m;
    int score, flags;
    EXPECT_FALSE(table.probeEntry(12345, 0, m, score, flags));
}

TEST(TranspositionTable, MateScoresAreStoredRelativeToTheNode) {
    TranspositionTable table;
    ASSERT_TRUE(table.allocateTable(1 << 20));
    const uint64_t key = 0x123456789abcdefULL;
    table.storeEntry(key, NoMove, 499990, 16 * 8 + BoundExact, 12);
    EXPECT_EQ(table.entries[table.indexOf(key)].score, 500002);
    Move m;
    int score, flags;
    ASSERT_TRUE(table.probeEntry(key, 4, m, score, flags));
    EXPECT_EQ(score, 499998);
    table.storeEntry(key + 1, NoMove, -499990, 16 * 8 + BoundExact, 12);
    ASSERT_TRUE(table.probeEntry(key + 1, 4, m, score, flags));
    EXPECT_EQ(score, -499998);
}

TEST(TranspositionTable, ShallowerStoreKeepsTheDeeperEntry) {
    TranspositionTable table;
    ASSERT_TRUE(table.allocateTable(1 << 20));
    const uint64_t key = 0xfeedbeefULL;
    const Move deep = makeMoveValue(52, 36, Pawn);
    table.storeEntry(key, deep, 30, 10 * 8 * 8 + BoundLower, 0);
    table.newGeneration();
    table.storeEntry(key, makeMoveValue(51, 35, Pawn), -5, 2 * 8 * 8 + BoundUpper, 0);
    Move m;
    int score, flags;
    ASSERT_TRUE(table.probeEntry(key, 0, m, score, flags));
    EXPECT_EQ(m, deep);
    EXPECT_EQ(score, 30);
    EXPECT_EQ(table.entries[table.indexOf(key)].generation, table.ttGeneration);
}

TEST(TranspositionTable, ReplacementPrefersOldGenerationsThenShallowEntries) {
    TranspositionTable table;
    ASSERT_TRUE(table.allocateTable(24 * 1000));
    // Keys with the same index: the index uses only the low 30 bits.
    const uint64_t base = 0x1234;
    auto key = [&](uint64_t high) { return base | (high << 32); };
    table.storeEntry(key(1), NoMove, 1, 5 * 64, 0);
    table.storeEntry(key(2), NoMove, 2, 3 * 64, 0);
    table.storeEntry(key(3), NoMove, 3, 7 * 64, 0);
    // All three are current: a fourth replaces the shallowest (key 2) when it is not much
    // shallower itself.
    table.storeEntry(key(4), NoMove, 4, 4 * 64, 0);
    Move m;
    int score, flags;
    EXPECT_FALSE(table.probeEntry(key(2), 0, m, score, flags));
    EXPECT_TRUE(table.probeEntry(key(4), 0, m, score, flags));
    // After a new generation the first entry of the window goes first.
    table.newGeneration();
    table.storeEntry(key(5), NoMove, 5, 0, 0);
    EXPECT_FALSE(table.probeEntry(key(1), 0, m, score, flags));
    EXPECT_TRUE(table.probeEntry(key(5), 0, m, score, flags));
}

TEST(TranspositionTable, MuchShallowerEntriesAreDropped) {
    TranspositionTable table;
    ASSERT_TRUE(table.allocateTable(24 * 1000));
    const uint64_t base = 0x777;
    for (uint64_t i = 1; i <= 3; ++i) table.storeEntry(base | (i << 32), NoMove, 0, 20 * 64, 0);
    // Six plies shallower than every current entry: never stored.
    table.storeEntry(base | (9ULL << 32), NoMove, 0, 14 * 64 - 8, 0);
    Move m;
    int score, flags;
    EXPECT_FALSE(table.probeEntry(base | (9ULL << 32), 0, m, score, flags));
}

}  // namespace
