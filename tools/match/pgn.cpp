#include "pgn.h"

#include <vector>

namespace match {

namespace {

// The standard's small vocabulary for the Termination tag; the comment after the moves says
// what exactly happened.
const char* terminationTag(Ending e) {
    switch (e) {
        case Ending::IllegalMove:
            return "rules infraction";
        case Ending::TimeForfeit:
            return "time forfeit";
        case Ending::Crash:
        case Ending::Hang:
            return "abandoned";
        case Ending::AdjudicatedWin:
        case Ending::AdjudicatedDraw:
            return "adjudication";
        case Ending::None:
            return "unterminated";
        default:
            return "normal";
    }
}

std::string pgnQuoted(const std::string& value) {
    std::string out = "\"";
    for (char c : value) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

// "1. e4 e5 2. Nf3", or "7... Qd8 8. Bc4" when Black moves first; lines of at most 79
// characters, as export format asks, ending with the comment and the result.
std::string pgnMovetext(const Referee& game, const Verdict& verdict) {
    std::vector<std::string> tokens;
    int number = game.firstMoveNumber();
    bool white = game.startsWithWhite();
    const std::vector<std::string>& moves = game.sanMoves();
    for (size_t i = 0; i < moves.size(); ++i) {
        if (white) {
            tokens.push_back(std::to_string(number) + ".");
        } else if (i == 0) {
            tokens.push_back(std::to_string(number) + "...");
        }
        tokens.push_back(moves[i]);
        if (!white) ++number;
        white = !white;
    }
    if (!verdict.detail.empty()) tokens.push_back("{" + verdict.detail + "}");
    tokens.push_back(resultText(verdict.outcome));
    std::string text, line;
    for (const std::string& t : tokens) {
        if (!line.empty() && line.size() + 1 + t.size() > 79) {
            text += line + "\n";
            line.clear();
        }
        if (!line.empty()) line += ' ';
        line += t;
    }
    return text + line + "\n";
}

}  // namespace

std::string pgnText(const GameRecord& record, const Referee& game) {
    std::string text;
    auto tag = [&text](const char* name, const std::string& value) {
        text += std::string("[") + name + " " + pgnQuoted(value) + "]\n";
    };
    tag("Event", record.event);
    tag("Site", record.site);
    tag("Date", record.date);
    tag("Round", record.round);
    tag("White", record.white);
    tag("Black", record.black);
    tag("Result", resultText(record.verdict.outcome));
    if (game.chess960()) tag("Variant", "Chess960");
    if (game.chess960() || game.startFen() != StandardStartFen) {
        tag("SetUp", "1");
        tag("FEN", game.startFen());
    }
    tag("TimeControl", record.timeControl);
    tag("PlyCount", std::to_string(game.sanMoves().size()));
    tag("Termination", terminationTag(record.verdict.ending));
    return text + "\n" + pgnMovetext(game, record.verdict) + "\n";
}

}  // namespace match
