#include "search/limits.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "search/searcher.h"

int64_t wallClockMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

SearchClock::SearchClock() = default;

void SearchClock::reset() {
    accumulated = 0;
}

void SearchClock::startClock() {
    startTime.store(wallClockMs(), std::memory_order_relaxed);
    running = true;
}

void SearchClock::stopClock() {
    // A second stop must not count the same run twice.
    if (running) accumulated += wallClockMs() - startTime.load(std::memory_order_relaxed);
    running = false;
}

bool SearchClock::mustStop(const Searcher&) const {
    return false;
}

bool SearchClock::timeUsedUp() const {
    return false;
}

bool SearchClock::timeUsedUpAfterPonder() const {
    return false;
}

bool SearchClock::mayStartIteration(uint64_t, int depth, double) const {
    return depth <= maxDepth;
}

int64_t SearchClock::elapsed() const {
    return wallClockMs() - startTime.load(std::memory_order_relaxed);
}

namespace {

// Time held back when only a few moves remain before the next time control, so that the
// last move of a period is not played with the flag hanging.
int64_t reserveFor(int movesToGo) {
    switch (movesToGo) {
        case 1:
            return 700;
        case 2:
            return 1100;
        case 3:
            return 1400;
        case 4:
            return 1600;
        default:
            return 150;
    }
}

}  // namespace

void SearchLimits::setLimits(const GoRequest& request) {
    const int64_t time = request.time;
    const int64_t increment = request.increment;
    const int movesToGo = request.movesToGo;
    const int depth = request.depth;
    const int64_t nodes = request.nodes;
    const int mate = request.mate;
    const int64_t moveTime = request.moveTime;
    const bool infinite = request.infinite;
    // Everything but maxNodesHard is set anew. Infinite, depth and mate searches lift that one
    // too; a timed search keeps it from the last `go nodes`.
    targetTime = NoTimeLimit;
    softLimit = NoTimeLimit;
    hardLimit = NoTimeLimit;
    maxNodes = NoNodeLimit;
    movesToPlan = 10.0;
    maxDepth = 100;

    if (infinite || depth >= 1 || mate > 0) maxNodesHard = NoNodeLimit;
    if (infinite) return;
    if (depth >= 1) {
        maxDepth = static_cast<int16_t>(depth - 1);  // iterations count from 0
        if (mate > 0) maxDepth = static_cast<int16_t>(2 * mate);
        return;
    }
    if (mate > 0) {
        maxDepth = static_cast<int16_t>(2 * mate);
        return;
    }
    if (moveTime > 0) {
        softLimit = moveTime;
        hardLimit = moveTime;
        return;
    }
    if (nodes >= 1) {
        const int64_t n = std::max<int64_t>(nodes, 200);
        maxNodes = n;
        maxNodesHard = 10 * n;
        return;
    }

    const int64_t inc = std::max<int64_t>(increment, 0);
    const int moves = (movesToGo >= 1 && movesToGo <= 80) ? movesToGo : 80;
    const int64_t usable = std::max<int64_t>(time - reserveFor(moves), 50);

    // A tanh-like rise of the planned number of moves with the moves to go; a pondering
    // opponent leaves less time to think on ours, so that curve plans fewer moves.
    double plan;
    if (ponderPlan) {
        plan = (2.0 / (std::exp(-1.6 * moves * 0.03636363636363636) + 1.0) - 1.0) * 27.5 + 0.3;
    } else {
        plan = (2.0 / (std::exp(-2.0 * moves * 0.025) + 1.0) - 1.0) * 40.0 + 0.1;
    }
    movesToPlan = plan;

    const double u = static_cast<double>(usable);
    targetTime = static_cast<int64_t>(std::trunc(u / plan)) + inc;

    const double q = std::pow(1.6, 1.0 - plan);
    const double f9 = (1.0 - q) / 9.0 + q;
    const double f6 = (1.0 - q) / 6.0 + q;
    int64_t soft = static_cast<int64_t>(std::trunc(f9 * u)) + 3 * inc;
    const int64_t hard = std::min(static_cast<int64_t>(std::trunc(f6 * u)) + 5 * inc, usable);
    hardLimit = hard;
    if (1.2 * static_cast<double>(soft) > static_cast<double>(hard)) {
        soft = static_cast<int64_t>(std::trunc(static_cast<double>(hard) * 0.8333333333333334));
    }
    if (2 * targetTime > soft) targetTime = soft / 2;
    softLimit = std::min(6 * targetTime, soft);

    // The 50 ms floor eats into the reserve when the clock is nearly empty. With a time control
    // that does not refill the clock soon (no or many moves to go), that reserve is what keeps
    // the flag up, so only half the increment may go beyond it, and never more than half of
    // what is left. A `go` without any clock keeps the floor.
    if (time > 0 && time - reserveFor(moves) < 50) {
        int64_t cap = time / 2;
        if (reserveFor(moves) == 150)
            cap = std::min(cap, std::max<int64_t>(time - 150, 0) + inc / 2);
        cap = std::max<int64_t>(cap, 1);
        if (hardLimit > cap) {
            hardLimit = cap;
            softLimit = std::min(softLimit, cap);
            targetTime = std::min(targetTime, cap);
        }
    }
}

bool SearchLimits::mustStop(const Searcher& searcher) const {
    const int64_t e = elapsed();
    if (e >= hardLimit) return true;
    if (moveFromTo(searcher.rootBestMove) == 0) return false;
    if (e >= softLimit) return true;
    const uint64_t totalNodes = static_cast<uint64_t>(searcher.threadCount) * searcher.nodeCount;
    return totalNodes >= static_cast<uint64_t>(maxNodesHard);
}

bool SearchLimits::timeUsedUp() const {
    return elapsed() >= softLimit;
}

bool SearchLimits::timeUsedUpAfterPonder() const {
    return elapsed() >= softLimit;
}

bool SearchLimits::mayStartIteration(uint64_t nodes, int depth, double percent) const {
    if (depth > maxDepth || nodes >= static_cast<uint64_t>(maxNodes) || timeUsedUp()) return false;
    const double e = static_cast<double>(elapsed());
    if (e * 2.2 > static_cast<double>(softLimit)) return false;
    // The more likely the best move is to change, the longer a new iteration is worth it.
    return (percent + 15.0) / (e * 1.2000000000000002 + 0.001) >
           26.0 / (static_cast<double>(targetTime) * 0.5454545454545455);
}
