// Mobility, piece and king terms of the positional score. They add nothing yet.
#include "eval/evaluator.h"

void Evaluator::mobilityTerms(int&, int&) {}

void Evaluator::pieceTerms(int&, int&, bool, bool) {}

int Evaluator::middlegameKingTerms() {
    return 0;
}

int Evaluator::endgameKingTerms() {
    return 0;
}
