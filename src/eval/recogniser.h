// Endgame recognisers: one small immutable object per material distribution, chosen by the
// counts alone and cached with the material entry. The search and the evaluation ask it at
// four points; the ordinary object answers every question with "nothing special".
#pragma once

#include "board/position.h"

struct Evaluator;

class EndgameRecogniser {
  public:
    virtual ~EndgameRecogniser() = default;
    // Static evaluation, before any term: `score` enters as the material score from White's
    // view and may be changed. True if `score` is final.
    virtual bool quickScore(const Position& position, int& score) const;
    // Quiescence: true if the node's value is known; `score` is relative to the side to move.
    virtual bool qsearchScore(const Position& position, int& score) const;
    // Node search at small depth: true if the node ends with `score`; `depthChange` may also
    // extend or cut the remaining depth.
    virtual bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                           int& depthChange) const;
    // The last step of the static evaluation, on the full score from White's view.
    virtual int finalScale(const Position& position, const Evaluator& evaluator, int score) const;
};

// All recognisers, built once before main() and shared read-only by every searcher. The
// ordinary one comes first; new instances and their selection rules go here.
struct RecogniserTable {
    EndgameRecogniser RecDefault;

    const EndgameRecogniser* select(const Position& position) const;
};

extern const RecogniserTable Recognisers;

// The recogniser for the counts of `position`.
const EndgameRecogniser* selectRecogniser(const Position& position);

// Reward for driving the weak king away from the centre and bringing the strong king near,
// from the strong side's view; used for endings without pawns.
int mateDrive(int base, const SideState& strong, const SideState& weak);
