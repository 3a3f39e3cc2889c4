#include "eval/recogniser.h"

#include <algorithm>
#include <cstdlib>

bool EndgameRecogniser::quickScore(const Position&, int&) const {
    return false;
}

bool EndgameRecogniser::qsearchScore(const Position&, int&) const {
    return false;
}

bool EndgameRecogniser::nodeCheck(const Position&, int&, int, int, int, int&) const {
    return false;
}

int EndgameRecogniser::finalScale(const Position&, const Evaluator&, int score) const {
    return score;
}

const RecogniserTable Recognisers{};

const EndgameRecogniser* RecogniserTable::select(const Position&) const {
    return &RecDefault;
}

const EndgameRecogniser* selectRecogniser(const Position& position) {
    return Recognisers.select(position);
}

namespace {

// Steps of one coordinate from the two central files or rows (d/e, 4/5).
int centreGap(int coordinate) {
    return coordinate < 3 ? 3 - coordinate : (coordinate > 4 ? coordinate - 4 : 0);
}

}  // namespace

int mateDrive(int base, const SideState& strong, const SideState& weak) {
    const int weakKing = weak.kingSquare();
    const int strongKing = strong.kingSquare();
    const int fileGap = centreGap(fileOf(weakKing));
    const int rowGap = centreGap(rowOf(weakKing));
    const int centreRookSteps = fileGap + rowGap;
    const int centreKingSteps = std::max(fileGap, rowGap);
    const int fileApart = std::abs(fileOf(weakKing) - fileOf(strongKing));
    const int rowApart = std::abs(rowOf(weakKing) - rowOf(strongKing));
    const int kingsRookSteps = fileApart + rowApart;
    const int kingsKingSteps = std::max(fileApart, rowApart);
    return base + 62 * centreRookSteps + 21 * (centreKingSteps - 2 * kingsRookSteps) -
           16 * kingsKingSteps;
}
