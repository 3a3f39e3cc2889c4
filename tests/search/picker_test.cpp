#include "search/picker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

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

// The first picks select the best of the rest instead of sorting it; that must hand out exactly
// what sorting at once does: with and without the filter of moves other threads have taken
// (some marked beforehand, so that picks skip them), and when a restart part way (as the look
// into the table before the first move does) scans the list for the hash move and for
// captures en passant in list order.
TEST_F(PickerTest, SelectionHandsOutWhatSortingAtOnceDoes) {
    // Two pawns may take en passant on d6.
    load("r3k2r/ppp2ppp/2n2n2/2PpP3/8/2N2N2/PP3PPP/R3K2R w KQkq d6 0 1");
    uint32_t counter = 0x100;
    for (const char* text : {"c5d6", "g2g3", "a2a4", "e1g1", "f3g5", "e5d6", "e5f6", "a1b1"})
        history.counters[moveFromTo(move(text)) & 4095] = counter *= 3;
    enum Filter { NoFilter, EmptyFilter, MarkedFilter };
    const auto picks = [&](bool sortAtOnce, Filter kind, Move hashMove, int before,
                           Move restartMove) {
        uint32_t filter[64] = {};
        if (kind == MarkedFilter) {
            for (const char* text : {"e1g1", "c5d6", "a2a4", "f3g5", "h2h3"}) {
                const uint32_t bit = (move(text) & 0xffff) ^ static_cast<uint32_t>(p.hashKey);
                filter[(bit >> 5) & 63] |= uint32_t{1} << (bit & 31);
            }
        }
        std::vector<Move> moves;
        MoveGenerator gen(&top, p, &history, GenAll, hashMove, nullptr,
                          kind == NoFilter ? nullptr : filter);
        const auto next = [&] {
            if (kind == EmptyFilter) std::fill(std::begin(filter), std::end(filter), 0u);
            // Sorting as soon as the scores are given is what the picker did before.
            if (sortAtOnce && gen.stage == 3 && !gen.restSorted) gen.sortRest();
            MoveEntry* e = gen.next();
            if (e) moves.push_back(e->move);
            return e != nullptr;
        };
        for (int i = 0; i < before && next(); ++i) {
        }
        gen.restart(restartMove);
        while (next()) {
        }
        return moves;
    };
    const Move none = NoMove;
    const Move castles = move("e1g1");
    const Move knight = move("f3d4");
    const Move cases[][2] = {{none, none}, {castles, none}, {castles, knight}, {none, knight}};
    for (const Filter kind : {NoFilter, EmptyFilter, MarkedFilter}) {
        for (const auto& hashMoves : cases) {
            for (int before : {0, 1, 2, 3, 4, 5, 9, 60}) {
                const std::vector<Move> reference =
                    picks(true, kind, hashMoves[0], before, hashMoves[1]);
                EXPECT_EQ(picks(false, kind, hashMoves[0], before, hashMoves[1]), reference)
                    << "filter " << kind << ", " << before << " picks before the restart";
                EXPECT_GT(reference.size(), 30u);
            }
        }
    }
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
