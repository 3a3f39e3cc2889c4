// The arbiter of one game: it checks every move an engine sends, keeps the record in UCI and
// SAN form, and decides when the game is over by the rules. Everything goes through the
// engine's own board code, so a match also exercises that code against foreign engines.
#pragma once

#include <string>
#include <vector>

#include "board/position.h"
#include "verdict.h"

namespace match {

constexpr const char* StandardStartFen = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";

class Referee {
  public:
    // False if the FEN is no legal position.
    bool reset(const std::string& fen, bool chess960);

    // Plays the engine's move text if it is a legal move in exactly the UCI form; otherwise
    // leaves the game untouched and returns false. The board's parser is tolerant (it takes
    // "e1g1" for Chess960 castling, ignores a stray promotion letter, accepts a pawn reaching
    // the last rank without one), so the move must also be in the legal list and read back
    // to the same text.
    bool play(const std::string& text);
    // Plays a move of an opening line, in SAN ("Nf3", "exd5", "O-O") or in the UCI form.
    bool playNotation(const std::string& text);
    // Every legal move in the UCI form, in the generator's order.
    std::vector<std::string> legalMoves() const;

    // The result by the rules alone: mate, stalemate, threefold repetition, fifty moves,
    // insufficient material or a dead pawn wall. Mate on the hundredth half-move still counts.
    Verdict verdict() const;

    // The text after "position ": the opening as given, then every move played.
    std::string positionCommand() const;

    bool whiteToMove() const { return game_.position.whiteToMove != 0; }
    // The full-move number of the position now on the board.
    int moveNumber() const {
        return firstMoveNumber_ +
               (static_cast<int>(uciMoves_.size()) + (startsWithWhite_ ? 0 : 1)) / 2;
    }
    const Position& position() const { return game_.position; }
    const std::string& startFen() const { return startFen_; }
    const std::vector<std::string>& uciMoves() const { return uciMoves_; }
    const std::vector<std::string>& sanMoves() const { return sanMoves_; }
    int firstMoveNumber() const { return firstMoveNumber_; }
    bool startsWithWhite() const { return startsWithWhite_; }
    bool chess960() const { return chess960_; }

  private:
    Game game_;
    std::string startFen_;
    std::vector<std::string> uciMoves_;
    std::vector<std::string> sanMoves_;
    int firstMoveNumber_ = 1;
    bool startsWithWhite_ = true;
    bool chess960_ = false;
};

}  // namespace match
