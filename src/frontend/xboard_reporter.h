// The reporter under xboard: thinking lines in xboard's form, "move" lines through the adapter,
// which also judges the game, and every error as an "Error (...)" line.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "frontend/reporter.h"

class XboardAdapter;

// The score of a thinking line in centipawns; a mate shows as about 32767 less its distance.
int xboardScore(int score);

class XboardReporter : public Reporter {
  public:
    XboardReporter(Searcher* searcher, const SearchClock* limits);

    void reportIteration(Searcher& searcher, int score, int alpha, int beta) override;
    void reportCurrentMove(Move move, int number) override;
    void reportError(const char* message, const char* detail) override;
    void reportInfo(const char* text) override;
    void reportBestMove(const Move* best, const Move* ponder, bool hasBest) override;
    void reportFinalStatistics() override {}
    void syncPosition() override;

    // For the adapter, on the command thread. The analysis fields are written by the search.
    void startAnalysis(int64_t now);
    std::string bestMoveOfAnalysis();
    void setPonderPrefix(const char* text);
    // "stat01: ..." for xboard's `.` during analysis.
    std::string statusLine(int64_t now);

    XboardAdapter* adapter = nullptr;
    std::atomic<bool> postThinking{true};
    std::atomic<bool> analyzing{false};

  private:
    // Guards the texts below, which the search thread and the command thread share.
    std::mutex textLock;
    int32_t currentMoveNumber = 0;
    int64_t analysisStart = 0;
    char bestMoveText[16] = {};
    char ponderPrefix[16] = {};
    char currentMoveText[16] = {};
};
