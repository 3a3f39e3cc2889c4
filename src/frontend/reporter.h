// Everything the engine says goes through a Reporter, so one search serves UCI, xboard and the
// test driver. It also carries the debug and output-off switches and the one lock that keeps
// lines whole on standard output.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "board/move.h"
#include "board/position.h"

struct Searcher;
class SearchClock;

// Where the lines of a reporter go when not to standard output: a session run in-process, as
// by the tests and the fuzz targets. Called under the reporter's lock, one whole line at a time.
class OutputSink {
  public:
    virtual void writeLine(const char* text) = 0;
    virtual ~OutputSink() = default;
};

class Reporter {
  public:
    Reporter();
    virtual void reportIteration(Searcher& searcher, int score, int alpha, int beta) = 0;
    virtual void reportCurrentMove(Move move, int number) = 0;
    virtual void reportMultiPvLine(Searcher& searcher, int index, Move firstMove, int score,
                                   int alpha, int beta);
    virtual void reportSearchStart() {}
    // `detail` may be null.
    virtual void reportError(const char* message, const char* detail);
    virtual void reportInfo(const char* text);
    virtual ~Reporter() = default;
    // `best` and `ponder` may be null.
    virtual void reportBestMove(const Move* best, const Move* ponder, bool hasBest) = 0;
    virtual void reportFinalStatistics() = 0;
    virtual void syncPosition() = 0;
    virtual bool isOutputOff() const { return outputOff; }
    virtual void setOutputOff(bool flag) { outputOff = flag; }
    virtual void setDebug(bool flag) { debug = flag; }
    virtual void writeLine(const char* text);

    std::mutex lock;
    // Null: standard output.
    OutputSink* output = nullptr;
    Move lastPv[20] = {};
    int32_t lastPvLength = 0;
    int32_t lastScore = 1000000;
    // Switched by the command thread while the search thread writes: relaxed atomics.
    std::atomic<bool> debug{false};
    std::atomic<bool> outputOff{false};
    Searcher* searcher = nullptr;
    const SearchClock* limits = nullptr;
    Position position;  // the reporter's own copy of the root, for move texts
};

// Appends the score words of an info line: " score cp N" or " score mate N", with the bound.
void formatScore(std::string& line, int score, int alpha, int beta);

// Reduces every run of blanks to one blank.
void compressBlanks(std::string& line);

// What a searcher reports to when nobody listens: a worker, or a search before the protocol
// is chosen.
class NullReporter : public Reporter {
  public:
    void reportIteration(Searcher& searcher, int score, int alpha, int beta) override;
    void reportCurrentMove(Move, int) override {}
    void reportBestMove(const Move*, const Move*, bool) override {}
    void reportFinalStatistics() override {}
    void syncPosition() override {}
};
