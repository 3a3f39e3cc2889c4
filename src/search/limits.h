// The clock and the limits of one search, and the four questions the search asks of them.
// The base class SearchClock serves the workers and perft: it never runs out of time and only
// bounds the depth.
#pragma once

#include <atomic>
#include <cstdint>

struct Searcher;

constexpr int64_t NoTimeLimit = 0x7f0000ffff0000LL;
constexpr int64_t NoNodeLimit = 0x7fff0000ffff0000LL;

// Everything a `go` asks for, built once by the protocol layer (or a tool) and read by the
// clock. Depth, mate and moves to go are 16-bit: larger numbers are truncated on the way in.
struct GoRequest {
    int64_t time = 0;  // the clock of the side to move, ms
    int64_t increment = 0;
    int16_t movesToGo = 0;
    int16_t depth = 0;
    int64_t nodes = 0;
    int16_t mate = 0;
    int64_t moveTime = 0;
    bool infinite = false;
    bool ponder = false;
};

// Wall clock in milliseconds.
int64_t wallClockMs();

class SearchClock {
  public:
    SearchClock();
    virtual ~SearchClock() = default;
    virtual void reset();
    virtual void plumbing() {}
    virtual void startClock();
    virtual void stopClock();
    virtual bool mustStop(const Searcher& searcher) const;
    virtual bool timeUsedUp() const;
    virtual bool timeUsedUpAfterPonder() const;
    virtual bool mayStartIteration(uint64_t nodes, int depth, double percent) const;

    int64_t elapsed() const;

    // Restarted by the search thread (around a table clear) while ponderhit reads it.
    std::atomic<int64_t> startTime{0};
    int64_t accumulated = 0;
    int16_t maxDepth = 6;
    bool running = false;
    int64_t targetTime = NoTimeLimit;
    double movesToPlan = 10.0;
    int64_t softLimit = NoTimeLimit;
    int64_t hardLimit = NoTimeLimit;
    int64_t maxNodes = NoNodeLimit;
    int64_t maxNodesHard = NoNodeLimit;
    bool ponderPlan = true;
};

// The limits of the main search, set from `go`.
class SearchLimits : public SearchClock {
  public:
    // Pondering is not a limit: the controller passes it to the search.
    void setLimits(const GoRequest& request);
    bool mustStop(const Searcher& searcher) const override;
    bool timeUsedUp() const override;
    bool timeUsedUpAfterPonder() const override;
    bool mayStartIteration(uint64_t nodes, int depth, double percent) const override;
};
