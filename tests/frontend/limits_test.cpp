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
    limits.setLimits(time, inc, movesToGo, 0, 0, 0, 0, false);
    EXPECT_EQ(limits.maxDepth, 100);
    EXPECT_EQ(limits.maxNodes, NoNodeLimit);
    return {limits.targetTime, limits.softLimit, limits.hardLimit};
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

    const Budget plain = clockBudget(60000, 0, 0, false);
    EXPECT_EQ(plain.target, 1548);
    EXPECT_EQ(plain.soft, 6650);
    EXPECT_EQ(plain.hard, 9975);

    const Budget withMovesToGo = clockBudget(120000, 1000, 40, false);
    EXPECT_EQ(withMovesToGo.target, 4921);
    EXPECT_EQ(withMovesToGo.soft, 16316);
    EXPECT_EQ(withMovesToGo.hard, 24975);

    const Budget fewMoves = clockBudget(300000, 0, 5, true);
    EXPECT_EQ(fewMoves.target, 43190);
    EXPECT_EQ(fewMoves.soft, 86380);
    EXPECT_EQ(fewMoves.hard, 103657);
}

TEST(SetLimits, ReserveAndIncrementEdges) {
    // One move to go with 500 ms left: 700 ms reserve, so only the 50 ms floor is usable.
    const Budget lastMove = clockBudget(500, 0, 1, true);
    EXPECT_EQ(lastMove.hard, 48);
    EXPECT_EQ(lastMove.soft, 40);
    EXPECT_EQ(lastMove.target, 20);

    // `go` with no numbers at all still gets the 50 ms floor.
    const Budget nothing = clockBudget(0, 0, 0, true);
    EXPECT_EQ(nothing.hard, 8);
    EXPECT_EQ(nothing.soft, 5);
    EXPECT_EQ(nothing.target, 1);

    // An increment above the time left is added to the target, but the hard limit is capped
    // by the usable time.
    const Budget bigIncrement = clockBudget(10000, 2000, 0, true);
    EXPECT_EQ(bigIncrement.target, 2361);
    EXPECT_EQ(bigIncrement.soft, 7094);
    EXPECT_EQ(bigIncrement.hard, 9850);

    // A nearly empty clock: the floor would eat the reserve, so only half the increment goes
    // beyond it; with moves to go the clock refills and the floor stays.
    const Budget flagHanging = clockBudget(60, 10, 0, true);
    EXPECT_EQ(flagHanging.hard, 5);
    EXPECT_LE(flagHanging.soft, 5);
    EXPECT_EQ(clockBudget(160, 10, 0, true).hard, 15);
    EXPECT_EQ(clockBudget(190, 20, 0, true).hard, 50);
    EXPECT_EQ(clockBudget(30, 0, 0, true).hard, 1);
    EXPECT_EQ(clockBudget(500, 0, 1, true).hard, 48);

    // A negative increment counts as none; moves to go outside 1 to 80 count as 80.
    EXPECT_EQ(clockBudget(60000, -500, 0, true).target, 2193);
    EXPECT_EQ(clockBudget(60000, 0, 81, true).target, 2193);
    EXPECT_EQ(clockBudget(60000, 0, -3, true).target, 2193);
}

TEST(SetLimits, FirstMatchingModeWins) {
    SearchLimits limits;
    limits.setLimits(60000, 0, 0, 0, 0, 0, 0, true);
    EXPECT_EQ(limits.maxDepth, 100);
    EXPECT_EQ(limits.softLimit, NoTimeLimit);
    EXPECT_EQ(limits.hardLimit, NoTimeLimit);
    EXPECT_EQ(limits.targetTime, NoTimeLimit);

    limits.setLimits(60000, 0, 0, 1, 0, 0, 1000, false);
    EXPECT_EQ(limits.maxDepth, 0);  // iterations count from 0
    EXPECT_EQ(limits.hardLimit, NoTimeLimit);

    limits.setLimits(0, 0, 0, 5, 0, 3, 0, false);
    EXPECT_EQ(limits.maxDepth, 6);  // the mate value wins over the depth

    limits.setLimits(0, 0, 0, 0, 0, 4, 0, false);
    EXPECT_EQ(limits.maxDepth, 8);

    limits.setLimits(60000, 0, 0, 0, 0, 0, 1000, false);
    EXPECT_EQ(limits.softLimit, 1000);
    EXPECT_EQ(limits.hardLimit, 1000);
    EXPECT_EQ(limits.targetTime, NoTimeLimit);
    EXPECT_EQ(limits.maxDepth, 100);
    EXPECT_DOUBLE_EQ(limits.movesToPlan, 10.0);
}

TEST(SetLimits, NodeLimitIsRaisedAndTheHardOneStays) {
    SearchLimits limits;
    EXPECT_EQ(limits.maxNodesHard, NoNodeLimit);
    limits.setLimits(0, 0, 0, 0, 50, 0, 0, false);
    EXPECT_EQ(limits.maxNodes, 200);
    EXPECT_EQ(limits.maxNodesHard, 2000);
    EXPECT_EQ(limits.softLimit, NoTimeLimit);

    // Later searches of other kinds keep the hard node limit of the last `go nodes`.
    limits.setLimits(60000, 0, 0, 0, 0, 0, 0, false);
    EXPECT_EQ(limits.maxNodes, NoNodeLimit);
    EXPECT_EQ(limits.maxNodesHard, 2000);
    limits.setLimits(0, 0, 0, 0, 0, 0, 0, true);
    EXPECT_EQ(limits.maxNodesHard, 2000);
}

TEST(MayStartIteration, MoveTimeAllowsIterationsUntilAlmostHalfTheTime) {
    SearchLimits limits;
    limits.setLimits(0, 0, 0, 0, 0, 0, 1000, false);
    pretendElapsed(limits, 0);
    EXPECT_TRUE(limits.mayStartIteration(0, 5, 15.0));
    pretendElapsed(limits, 400);
    EXPECT_TRUE(limits.mayStartIteration(0, 5, 15.0));
    pretendElapsed(limits, 500);  // 2.2 x 500 is past the soft limit
    EXPECT_FALSE(limits.mayStartIteration(0, 5, 15.0));
    EXPECT_FALSE(limits.timeUsedUp());
    pretendElapsed(limits, 1000);
    EXPECT_TRUE(limits.timeUsedUp());
    EXPECT_TRUE(limits.timeUsedUpAfterPonder());
}

TEST(MayStartIteration, PredictedChangeStretchesTheTarget) {
    SearchLimits limits;
    limits.setLimits(600000, 0, 0, 0, 0, 0, 0, false);
    const int64_t target = limits.targetTime;
    ASSERT_GT(target, 10000);

    // With percent 15 the next iteration starts until about half the target.
    pretendElapsed(limits, target * 45 / 100);
    EXPECT_TRUE(limits.mayStartIteration(0, 5, 15.0));
    pretendElapsed(limits, target * 60 / 100);
    EXPECT_FALSE(limits.mayStartIteration(0, 5, 15.0));
    // A likely change of the best move buys more time.
    EXPECT_TRUE(limits.mayStartIteration(0, 5, 75.0));

    pretendElapsed(limits, 0);
    EXPECT_FALSE(limits.mayStartIteration(0, 101, 15.0));
    EXPECT_TRUE(limits.mayStartIteration(0, 100, 15.0));
    limits.maxNodes = 1000;
    EXPECT_FALSE(limits.mayStartIteration(1000, 5, 15.0));
    EXPECT_TRUE(limits.mayStartIteration(999, 5, 15.0));
}

TEST(SearchClock, BaseNeverRunsOutAndBoundsOnlyTheDepth) {
    SearchClock clock;
    clock.maxDepth = 100;
    pretendElapsed(clock, 1000000);
    EXPECT_FALSE(clock.timeUsedUp());
    EXPECT_FALSE(clock.timeUsedUpAfterPonder());
    EXPECT_TRUE(clock.mayStartIteration(~0ULL, 100, 0.0));
    EXPECT_FALSE(clock.mayStartIteration(0, 101, 100.0));

    clock.startClock();
    EXPECT_TRUE(clock.running);
    clock.startTime -= 250;
    clock.stopClock();
    EXPECT_FALSE(clock.running);
    EXPECT_GE(clock.accumulated, 250);
    const int64_t once = clock.accumulated;
    clock.stopClock();  // a second stop adds nothing
    EXPECT_EQ(clock.accumulated, once);
    clock.reset();
    EXPECT_EQ(clock.accumulated, 0);
}

TEST(MustStop, HardLimitFirstThenBestMoveThenSoftAndNodes) {
    auto searcher = std::make_unique<Searcher>(1 << 20);
    SearchLimits limits;
    limits.setLimits(0, 0, 0, 0, 0, 0, 1000, false);  // soft = hard = 1000

    pretendElapsed(limits, 1000);
    searcher->rootBestMove = NoMove;
    EXPECT_TRUE(limits.mustStop(*searcher));  // the hard limit needs no best move

    limits.hardLimit = 5000;
    EXPECT_FALSE(limits.mustStop(*searcher));  // past soft, but nothing to play yet
    searcher->rootBestMove = makeMoveValue(52, 36, Pawn);
    EXPECT_TRUE(limits.mustStop(*searcher));

    pretendElapsed(limits, 0);
    EXPECT_FALSE(limits.mustStop(*searcher));
    limits.maxNodesHard = 3000;
    searcher->threadCount = 3;
    searcher->nodeCount = 999;
    EXPECT_FALSE(limits.mustStop(*searcher));
    searcher->nodeCount = 1000;  // three threads count as 3000 nodes
    EXPECT_TRUE(limits.mustStop(*searcher));
}
