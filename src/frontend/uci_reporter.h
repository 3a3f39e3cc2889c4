// The reporter of the UCI protocol: info lines, bestmove, and errors as "info string" lines
// in debug mode only.
#pragma once

#include "frontend/reporter.h"

class UciReporter : public Reporter {
  public:
    UciReporter(Searcher* searcher, const SearchClock* limits);

    void reportIteration(Searcher& searcher, int score, int alpha, int beta) override;
    void reportCurrentMove(Move move, int number) override;
    void reportMultiPvLine(Searcher& searcher, int index, Move firstMove, int score, int alpha,
                           int beta) override;
    void reportError(const char* message, const char* detail) override;
    void reportInfo(const char* text) override;
    void reportBestMove(const Move* best, const Move* ponder, bool hasBest) override;
    void reportFinalStatistics() override;
    void syncPosition() override;

  private:
    double elapsedMs() const;
    double reportedNodes(const Searcher& searcher) const;
    // Appends the coordinate texts of the line, walked on a copy of the root.
    void appendLine(std::string& text, const Move* line, int length);
};
