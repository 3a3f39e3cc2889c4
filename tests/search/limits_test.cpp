// The clock budget and the four questions of the time control.
#include "search/limits.h"

#include <gtest/gtest.h>

#include <memory>

#include "board/move.h"
#include "search/searcher.h"

namespace {

struct Budget {
    int64_t target, soft, hard;
};

Budget clockBudget(int64_t time, int64_t inc, int16_t movesToGo, bool ponderPlan) {
    SearchLimits limits;
    limits.ponderPlan = ponderPlan;
    GoRequest request;
    request.time = time;
    request.increment = inc;
    request.movesToGo = movesToGo;
    limits.setLimits(request);
    return {limits.targetTime, limits.softLimit, limits.hardLimit};
}

// One field of a go request set on top of another request.
GoRequest withTime(int64_t time) {
    GoRequest request;
    request.time = time;
    return request;
}
GoRequest withMoveTime(GoRequest request, int64_t moveTime) {
    request.moveTime = moveTime;
    return request;
}
GoRequest withDepth(GoRequest request, int16_t depth) {
    request.depth = depth;
    return request;
}
GoRequest withMate(GoRequest request, int16_t mate) {
    request.mate = mate;
    return request;
}
GoRequest withNodes(GoRequest request, int64_t nodes) {
    request.nodes = nodes;
    return request;
}
GoRequest withInfinite(GoRequest request) {
    request.infinite = true;
    return request;
}

// Pretends the clock was started `ms` milliseconds ago.
void pretendElapsed(SearchClock& clock, int64_t ms) {
    clock.startTime = wallClockMs() - ms;
}

}  // namespace

// Reference values worked out by hand from the budget formulas.
TEST(SetLimits, ClockBudgetFollowsBothCurves) {
    const Budget pondering = clockBudget(60000, 0, 0, true);
    EXPECT_EQ(pondering.target, 2193);
    EXPECT_EQ(pondering.soft, 6650);
    EXPECT_EQ(pondering.hard, 9975);
    EXPECT_EQ(clockBudget(60000, 0, 0, false).target, 1548);

    const Budget withMovesToGo = clockBudget(120000, 1000, 40, false);
    EXPECT_EQ(withMovesToGo.target, 4921);
    EXPECT_EQ(withMovesToGo.soft, 16316);
    EXPECT_EQ(withMovesToGo.hard, 24975);

    // A negative increment counts as none; moves to go outside 1 to 80 count as 80.
    EXPECT_EQ(clockBudget(60000, -500, 0, true).target, 2193);
    EXPECT_EQ(clockBudget(60000, 0, 81, true).target, 2193);
    EXPECT_EQ(clockBudget(60000, 0, -3, true).target, 2193);
}

// Short clocks: the reserve before a time control, and a floor that may not drain a clock
// that is not refilled soon. Every budget stays inside the hard limit.
TEST(SetLimits, NearlyEmptyClocksKeepTheFlagUp) {
    const struct {
        int64_t time, inc;
        int16_t movesToGo;
        int64_t hard;
    } cases[] = {
        {500, 0, 1, 48},         // 700 ms reserve: only the floor is usable
        {0, 0, 0, 8},            // `go` with no numbers still gets the floor
        {10000, 2000, 0, 9850},  // a big increment, capped by the usable time
        // Not refilled soon: no more than half the increment beyond the reserve.
        {60, 10, 0, 5},
        {160, 10, 0, 15},
        {190, 20, 0, 50},
        {30, 0, 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.time);
        const Budget b = clockBudget(c.time, c.inc, c.movesToGo, true);
        EXPECT_EQ(b.hard, c.hard);
        EXPECT_LE(b.soft, b.hard);
        EXPECT_LE(b.target, b.soft);
    }
}

TEST(SetLimits, FirstMatchingModeWins) {
    SearchLimits limits;
    limits.setLimits(withInfinite(withTime(60000)));
    EXPECT_EQ(limits.hardLimit, NoTimeLimit);

    limits.setLimits(withDepth(withMoveTime(withTime(60000), 1000), 1));
    EXPECT_EQ(limits.maxDepth, 0);  // iterations count from 0
    EXPECT_EQ(limits.hardLimit, NoTimeLimit);

    limits.setLimits(withMate(withDepth({}, 5), 3));
    EXPECT_EQ(limits.maxDepth, 6);  // the mate value wins over the depth

    limits.setLimits(withMoveTime(withTime(60000), 1000));
    EXPECT_EQ(limits.hardLimit, 1000);
    EXPECT_EQ(limits.maxDepth, 100);
}

TEST(SetLimits, NodeLimitIsRaisedAndTheHardOneStays) {
    SearchLimits limits;
    limits.setLimits(withNodes({}, 50));
    EXPECT_EQ(limits.maxNodes, 200);
    EXPECT_EQ(limits.maxNodesHard, 2000);

    // Later searches of other kinds keep the hard node limit of the last `go nodes`.
    limits.setLimits(withTime(60000));
    EXPECT_EQ(limits.maxNodes, NoNodeLimit);
    EXPECT_EQ(limits.maxNodesHard, 2000);

    // Searches without a clock have no node limit at all.
    for (int kind = 0; kind < 3; ++kind) {
        limits.setLimits(withNodes({}, 50));
        limits.setLimits(kind == 0   ? withDepth({}, 7)
                         : kind == 1 ? withMate({}, 2)
                                     : withInfinite({}));
        EXPECT_EQ(limits.maxNodesHard, NoNodeLimit) << kind;
    }
}

TEST(MayStartIteration, MoveTimeAllowsIterationsUntilAlmostHalfTheTime) {
    SearchLimits limits;
    limits.setLimits(withMoveTime({}, 1000));
    pretendElapsed(limits, 400);
    EXPECT_TRUE(limits.mayStartIteration(0, 5, 15.0));
    pretendElapsed(limits, 500);  // 2.2 x 500 is past the soft limit
    EXPECT_FALSE(limits.mayStartIteration(0, 5, 15.0));
    EXPECT_FALSE(limits.timeUsedUp());
    pretendElapsed(limits, 1000);
    EXPECT_TRUE(limits.timeUsedUp());
    EXPECT_TRUE(limits.timeUsedUpAfterPonder());

    // Depth and nodes bound it too.
    pretendElapsed(limits, 0);
    EXPECT_FALSE(limits.mayStartIteration(0, 101, 15.0));
    limits.maxNodes = 1000;
    EXPECT_FALSE(limits.mayStartIteration(1000, 5, 15.0));
    EXPECT_TRUE(limits.mayStartIteration(999, 5, 15.0));
}

TEST(MayStartIteration, PredictedChangeStretchesTheTarget) {
    SearchLimits limits;
    limits.setLimits(withTime(600000));
    const int64_t target = limits.targetTime;
    ASSERT_GT(target, 10000);

    // With percent 15 the next iteration starts until about half the target.
    pretendElapsed(limits, target * 45 / 100);
    EXPECT_TRUE(limits.mayStartIteration(0, 5, 15.0));
    pretendElapsed(limits, target * 60 / 100);
    EXPECT_FALSE(limits.mayStartIteration(0, 5, 15.0));
    // A likely change of the best move buys more time.
    EXPECT_TRUE(limits.mayStartIteration(0, 5, 75.0));
}

TEST(MustStop, HardLimitFirstThenBestMoveThenSoftAndNodes) {
    auto searcher = std::make_unique<Searcher>(1 << 20);
    SearchLimits limits;
    limits.setLimits(withMoveTime({}, 1000));  // soft = hard = 1000

    pretendElapsed(limits, 1000);
    searcher->rootBestMove = NoMove;
    EXPECT_TRUE(limits.mustStop(*searcher));  // the hard limit needs no best move

    limits.hardLimit = 5000;
    EXPECT_FALSE(limits.mustStop(*searcher));  // past soft, but nothing to play yet
    searcher->rootBestMove = makeMoveValue(52, 36, Pawn);
    EXPECT_TRUE(limits.mustStop(*searcher));

    pretendElapsed(limits, 0);
    limits.maxNodesHard = 3000;
    searcher->threadCount = 3;
    searcher->nodeCount = 999;
    EXPECT_FALSE(limits.mustStop(*searcher));
    searcher->nodeCount = 1000;  // three threads count as 3000 nodes
    EXPECT_TRUE(limits.mustStop(*searcher));
}
