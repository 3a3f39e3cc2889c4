// How a game ended: the result, the reason, and the words the PGN and the summary use for it.
#pragma once

#include <string>

namespace match {

enum class Outcome { Unfinished, WhiteWins, BlackWins, Draw };

// Why a game ended. The PGN tag and the summary counters are derived from it.
enum class Ending {
    None,
    Checkmate,
    Stalemate,
    Repetition,
    FiftyMoves,
    InsufficientMaterial,
    DeadPosition,
    IllegalMove,
    TimeForfeit,
    Crash,
    Hang,
    AdjudicatedWin,
    AdjudicatedDraw,
};

struct Verdict {
    Outcome outcome = Outcome::Unfinished;
    Ending ending = Ending::None;
    std::string detail;  // the human-readable reason, as the PGN comment shows it

    bool over() const { return outcome != Outcome::Unfinished; }
};

const char* resultText(Outcome o);
const char* colourName(bool white);

// A win for the side that did not commit the fault.
Verdict forfeit(bool faultyIsWhite, Ending ending, const std::string& detail);

}  // namespace match
