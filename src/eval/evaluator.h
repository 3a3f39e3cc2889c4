// The static evaluation. Each searcher embeds one Evaluator with private pawn and material
// caches. Scores are a thousandth of a pawn and from White's view inside; `evaluate` turns
// the result to the side to move.
#pragma once

#include <cstdint>
#include <string>

#include "board/bishop_colours.h"
#include "board/position.h"
#include "eval/pawn_entry.h"
#include "eval/recogniser.h"
#include "learn/material_net.h"

struct MaterialEntry {
    uint32_t key;
    int32_t value;  // White's view
    const EndgameRecogniser* recogniser;
};
static_assert(sizeof(MaterialEntry) == 16, "the material cache is sized for 16-byte entries");

constexpr int PawnCacheSize = 1024;
constexpr int MaterialCacheSize = 8192;

// Returned by materialValue(true), for the side to move, when the material left would be
// handled by a recogniser other than the ordinary one.
constexpr int RecogniserChangeScore = 1000000;

// Game phase from material and the number of men: 256 is a full middlegame, 0 an ending.
int gamePhase(const Position& position);

// Turns a White's-view score to the side to move and moves it one point away from zero, so
// that 1 and -1 are the smallest values of anything but a dead draw.
constexpr int sideToMoveScore(int whiteScore, bool whiteToMove) {
    const int s = whiteToMove ? whiteScore : -whiteScore;
    return s > 0 ? s + 1 : (s < 0 ? s - 1 : 0);
}

struct Evaluator {
    Evaluator();
    Evaluator(const Evaluator&) = delete;
    Evaluator& operator=(const Evaluator&) = delete;

    // The score of `position` for the side to move. Remembers `position` for materialValue.
    int evaluate(const Position& position);
    // The side-to-move score without the unit that evaluate adds and without the material
    // value: the positional part alone.
    int evaluateForDisplay(const Position& position);

    // With `removed` false: the material value of the position of the last evaluate (White's
    // view); it also sets currentRecogniser and baseMaterial.
    // With `removed` true: the change against baseMaterial, or +RecogniserChangeScore with
    // White to move (-RecogniserChangeScore with Black) when the material now found has a
    // recogniser other than the ordinary one. Quiescence calls it after taking a man off the
    // position it passed to evaluate, by editing in place a side's pieceCount (the kind and
    // the total), materialKey, materialSum and pieces. Nothing else is read here (apart from
    // whiteToMove), so the rest of the board may be left as it was.
    int materialValue(bool removed);
    // The same for `position`, which becomes the position of the calls that follow; for
    // callers that need the material entry of a node before or without evaluating it.
    int materialValue(const Position& position, bool removed);
    bool ordinaryRecogniserActive() const {
        return currentRecogniser == &ordinaryRecogniser->RecDefault;
    }

    // The pawn structure of the current position: the empty entry without pawns, otherwise
    // the cache entry, recomputed in place when its key differs.
    const PawnEntry& pawnEntry();

    void clearCaches();
    // The strength (percent) and width of the learned material blend. A change clears both
    // caches. Both return true.
    bool setNeuroMaterial(int value);
    bool setNeuroWidth(int value);

    // The learned material value blended into the hand-made `base`.
    int blendMaterial(const Position& position, int base) const;
    // Loads the material net: null, empty or "(internal)" for the embedded one. The same name
    // as before does nothing; another clears the caches and is kept even when it can't be
    // read (then the old net, or as much of the new one as was read, stays in use).
    bool setMaterialFile(const char* name);

    // Sum of the two material-and-pawn sums with the terms below, blended by phase.
    int positionalScore(int material);
    // Piece and king terms, White's view (in piece_terms.cpp).
    void mobilityTerms(int& mid, int& end);
    void pieceTerms(int& mid, int& end, bool hasMiddlegame, bool hasEndgame);
    int middlegameKingTerms();
    int endgameKingTerms();

    PawnEntry pawnCache[PawnCacheSize];
    MaterialEntry materialCache[MaterialCacheSize];
    std::string materialFileName;
    // Evaluating the net writes into its nodes; that is scratch, not state of the evaluator.
    mutable MaterialNet materialNet;
    int32_t netStrength = 40;  // NeuroMaterial
    int32_t netBalance = 800;  // NeuroWidth
    PawnEntry emptyPawnEntry;
    const PawnEntry* currentPawnEntry;
    // The recogniser table; its first entry is the ordinary recogniser.
    const RecogniserTable* ordinaryRecogniser;
    const Position* position;
    const EndgameRecogniser* currentRecogniser;
    int32_t baseMaterial;

  private:
    int handMadeMaterial(const Position& p) const;
};
