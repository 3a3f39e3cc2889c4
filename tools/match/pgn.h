// One finished game as PGN text.
#pragma once

#include <string>

#include "referee.h"
#include "verdict.h"

namespace match {

struct GameRecord {
    std::string event = "Zelmark match";
    std::string site = "?";
    std::string date = "????.??.??";
    std::string round = "?";
    std::string white;
    std::string black;
    std::string timeControl = "-";
    Verdict verdict;
};

// The tags, the movetext in lines of at most 79 characters, the comment and the result.
std::string pgnText(const GameRecord& record, const Referee& game);

}  // namespace match
