#include "search/picker.h"

#include <gtest/gtest.h>

#include <set>

#include "board/movegen.h"
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
    // Every move the generator hands out, each checked to come once.
    std::set<Move> drain(MoveGenerator& gen) {
        std::set<Move> seen;
        while (MoveEntry* e = gen.next()) EXPECT_TRUE(seen.insert(e->move).second);
        return seen;
    }
};

TEST_F(PickerTest, HandsOutEveryMoveOnceAndGivesTheArenaBack) {
    load("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1");
    {
        MoveGenerator gen(&top, p, &history, GenAll, move("e2a6"), nullptr, nullptr);
        EXPECT_EQ(top, arena + gen.count());
        MoveEntry* first = gen.next();
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(first->move, move("e2a6"));  // the hash move first
        EXPECT_EQ(static_cast<int>(drain(gen).size()) + 1, gen.count());
    }
    EXPECT_EQ(top, arena);
    // A hash move from another position (a key collision) is never handed out.
    const Move stale = makeMoveValue(0, 1, Rook);  // a8b8, a move of the side not to move
    MoveGenerator gen(&top, p, &history, GenAll, stale, nullptr, nullptr);
    const std::set<Move> moves = drain(gen);
    EXPECT_EQ(static_cast<int>(moves.size()), gen.count());
    EXPECT_EQ(moves.count(stale), 0u);
}

// Threads share a filter of moves taken at a node: a second generator avoids them, and still
// hands out every move when all are taken.
TEST_F(PickerTest, FilterSteersAwayFromTakenMovesButLosesNone) {
    load("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1");
    uint32_t filter[64] = {};
    MoveGenerator a(&top, p, &history, GenAll, NoMove, nullptr, filter);
    const Move firstOfA = a.next()->move;   // the first move ignores the filter
    const Move secondOfA = a.next()->move;  // this one is marked taken
    MoveGenerator b(&top, p, &history, GenAll, NoMove, nullptr, filter);
    EXPECT_EQ(b.next()->move, firstOfA);
    EXPECT_NE(b.next()->move, secondOfA);

    for (uint32_t& w : filter) w = ~0u;
    MoveGenerator full(&top, p, &history, GenAll, NoMove, nullptr, filter);
    EXPECT_EQ(drain(full).size(), 20u);
}

}  // namespace
