// The best-move-change predictor: after each iteration, a net estimates from the last two
// principal variations, their scores and the root position how likely the best move is to
// change in the next iteration. The time control spends by that estimate. Each call also
// describes its inputs in a line of text, which the time log collects as training data.
#pragma once

#include <mutex>

#include "board/move.h"
#include "learn/neural_net.h"

struct Position;

// The stored net in its text form, read when a ChangeNet is built.
extern const char* const ChangeNetText;

constexpr int ChangeInputCount = 22;
// Room for the feature text; a text takes about 110 characters.
constexpr int FeatureTextSize = 500;

class ChangeNet : public NeuralNet {
  public:
    // Built with the embedded weights.
    ChangeNet();
    ~ChangeNet() override = default;
};

// The 22 inputs of the net. Moves past a line's length count as 0 (NoMove); a null line with
// length 0 is allowed. `root` is not changed.
void changeInputs(const Position& root, const Move* previousPv, int previousLength,
                  int previousScore, const Move* pv, int length, int score, bool failedLow,
                  bool failedLowBefore, bool changedNow, bool changedBefore, int rootCount,
                  double inputs[ChangeInputCount]);

// The estimated probability that the best move changes in the next iteration: the raw output
// of the net, nominally 0..1 but unclamped (the caller scales and clamps it).
//   previousPv, previousLength, previousScore: the line and score of the iteration before;
//   pv, length, score: those of the iteration that just ended;
//   failedLow, failedLowBefore: the searcher's fail-low flag of this and the last iteration;
//   changedNow, changedBefore: whether the first moves of the two lines before this one
//     differed, and the same one iteration earlier;
//   rootCount: legal moves at the root.
// When `featureText` is not null it receives, in at most FeatureTextSize bytes, the inputs
// as text: 19 digits 0/1 for inputs 0 to 18, then inputs 19, 20, 21 and the result, each
// followed by a blank and no line end (23 fields).
double predictChange(ChangeNet& net, const Position& root, const Move* previousPv,
                     int previousLength, int previousScore, const Move* pv, int length, int score,
                     bool failedLow, bool failedLowBefore, bool changedNow, bool changedBefore,
                     int rootCount, char* featureText);

// Appends "featureText changed" as one line to the time log, under one lock for the whole
// process. A file that cannot be opened is skipped without a word.
void appendTimeLog(const char* fileName, const char* featureText, int changed);

// The same lock guards every searcher's copy of the log's name: the option may change it
// while a search is running.
std::mutex& timeLogLock();
