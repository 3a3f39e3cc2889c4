#include "verdict.h"

namespace match {

const char* resultText(Outcome o) {
    switch (o) {
        case Outcome::WhiteWins:
            return "1-0";
        case Outcome::BlackWins:
            return "0-1";
        case Outcome::Draw:
            return "1/2-1/2";
        default:
            return "*";
    }
}

const char* colourName(bool white) {
    return white ? "White" : "Black";
}

Verdict forfeit(bool faultyIsWhite, Ending ending, const std::string& detail) {
    return {faultyIsWhite ? Outcome::BlackWins : Outcome::WhiteWins, ending, detail};
}

}  // namespace match
