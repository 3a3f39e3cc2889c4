// Adjudication by the scores the engines report with their moves.
#pragma once

#include <deque>
#include <string>

#include "settings.h"
#include "verdict.h"

namespace match {

// The resign and draw rules on the reported scores. Each engine scores from its own side,
// which is always the side to move when it searches.
class ScoreAdjudicator {
  public:
    ScoreAdjudicator(const ScoreRule& resign, const ScoreRule& draw)
        : resign_(resign), draw_(draw) {}

    // `hasScore` false (no score in the info lines) breaks every streak of that side.
    void record(bool white, bool hasScore, int score);

    // Checked after each move; `moveNumber` is the full move now to be played.
    Verdict check(int moveNumber) const;

  private:
    template <typename Test>
    bool lastAll(int side, int count, Test test) const;

    ScoreRule resign_;
    ScoreRule draw_;
    std::deque<int> scores_[2];
};

// "info ... score cp 35 ..." or "score mate -3": the score of the principal line, false for
// lines without one or for the second and further lines of a multi-PV search.
bool parseInfoScore(const std::string& line, int& score);

// An xboard thinking line, "DEPTH SCORE TIME NODES PV...", and its score in centipawns.
bool parseThinkingScore(const std::string& line, int& score);

}  // namespace match
