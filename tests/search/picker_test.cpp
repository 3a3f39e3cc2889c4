#include <gtest/gtest.h>

#include <set>

#include "board/movegen.h"
#include "board/tables.h"
#include "board/text.h"
#include "search/history.h"

namespace {

struct PickerTest : ::testing::Test {
    MoveEntry arena[1000];
    MoveEntry* top = arena;
    HistoryTable history;
    Position p;
    void SetUp() override {
        history.reset();
        constructPosition(p);
    }
    void load(const char* fen) { ASSERT_NE(parseFen(p, fen), nullptr) << fen; }
    Move move(const char* text) {
        Move m = NoMove;
        EXPECT_TRUE(parseMove(p, text, m, 1)) << text;
        return m;
    }
};

TEST_F(PickerTest, HandsOutEveryMoveOnceAndGivesTheArenaBack) {
    load("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1");
    {
        MoveGenerator gen(&top, p, &history, GenAll, move("e2a6"), nullptr, nullptr);
        EXPECT_EQ(top, arena + gen.count());
        std::set<Move> seen;
        MoveEntry* e = gen.next();
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(e->move, move("e2a6"));  // the hash move first
        for (; e; e = gen.next()) EXPECT_TRUE(seen.insert(e->move).second);
        EXPECT_EQ(static_cast<int>(seen.size()), gen.count());
    }
    EXPECT_EQ(top, arena);
}

TEST_F(PickerTest, StaleHashMoveIsIgnoredAndRecapturesComeFirst) {
    // Black just took on d5 with the knight; White recaptures there before anything else.
    load("rnbqkb1r/ppp1pppp/8/3n4/8/2N5/PPPP1PPP/R1BQKBNR w KQkq - 0 4");
    p.lastMoveMask =
        squareBit(squareFromLetters('f', '6')) | squareBit(squareFromLetters('d', '5'));
    MoveGenerator gen(&top, p, &history, GenAll, makeMoveValue(0, 1, Rook), nullptr, nullptr);
    MoveEntry* first = gen.next();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(moveTo(first->move), squareFromLetters('d', '5'));
}

TEST_F(PickerTest, OneMoveListIsNotScored) {
    load("7k/8/8/8/8/8/1q6/K7 w - - 0 1");
    MoveGenerator gen(&top, p, &history, GenAll, NoMove, nullptr, nullptr);
    ASSERT_EQ(gen.count(), 1);
    ASSERT_NE(gen.next(), nullptr);
    EXPECT_FALSE(gen.scored);
    EXPECT_EQ(gen.next(), nullptr);
}

TEST_F(PickerTest, WinningCaptureComesBeforeQuietMoves) {
    // Qxa7 takes an undefended rook; nothing else wins material.
    load("4k3/r7/8/3r4/8/8/8/Q3K3 w - - 0 1");
    MoveGenerator gen(&top, p, &history, GenAll, NoMove, nullptr, nullptr);
    MoveEntry* first = gen.next();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->move, move("a1a7"));
}

TEST_F(PickerTest, FilterStillGivesMovesWhenAllAreTaken) {
    load("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1");
    uint32_t filter[64];
    for (uint32_t& w : filter) w = ~0u;
    MoveGenerator gen(&top, p, &history, GenAll, NoMove, nullptr, filter);
    int n = 0;
    while (gen.next()) ++n;
    EXPECT_EQ(n, 20);
}

TEST_F(PickerTest, FilterSteersAwayFromTakenMoves) {
    load("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1");
    uint32_t filter[64] = {};
    MoveGenerator a(&top, p, &history, GenAll, NoMove, nullptr, filter);
    const Move firstOfA = a.next()->move;   // the first move ignores the filter
    const Move secondOfA = a.next()->move;  // this one is marked taken
    MoveGenerator b(&top, p, &history, GenAll, NoMove, nullptr, filter);
    EXPECT_EQ(b.next()->move, firstOfA);
    EXPECT_NE(b.next()->move, secondOfA);
}

}  // namespace
