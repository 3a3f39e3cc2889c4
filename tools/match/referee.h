// The arbiter of one game: it checks every move an engine sends, keeps the record in UCI and
// SAN form, and decides when the game is over by the rules. Everything goes through the
// engine's own board code, so a match also exercises that code against foreign engines.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/position.h"
#include "board/text.h"

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

inline const char* resultText(Outcome o) {
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

inline const char* colourName(bool white) {
    return white ? "White" : "Black";
}

// A win for the side that did not commit the fault.
inline Verdict forfeit(bool faultyIsWhite, Ending ending, const std::string& detail) {
    return {faultyIsWhite ? Outcome::BlackWins : Outcome::WhiteWins, ending, detail};
}

constexpr const char* StandardStartFen = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";

inline std::string squareText(int square) {
    return {static_cast<char>('a' + (square & 7)), static_cast<char>('8' - (square >> 3))};
}

inline bool isCastling(const Position& p, Move m) {
    return moveKind(m) == King && (p.toMove().pieces[Rook] & squareBit(moveTo(m)));
}

// The UCI text of a legal move. Standard chess writes castling as the king's two-step move;
// Chess960 as the king taking its own rook, which is also how the board stores it.
inline std::string uciText(const Position& p, Move m, bool chess960) {
    std::string text = squareText(moveFrom(m)) + squareText(moveTo(m));
    if (isCastling(p, m) && !chess960) {
        const bool shortSide = moveTo(m) == p.toMove().shortRookFrom;
        text[2] = shortSide ? 'g' : 'c';
    }
    if (movePromotion(m)) text += " pnbrqk"[movePromotion(m)];
    return text;
}

inline std::vector<Move> legalMoves(const Position& position) {
    Position p = position;
    MoveEntry list[MaxMovesPerPosition];
    MoveEntry* end = generateMoves(p, GenAll, list);
    std::vector<Move> moves;
    UndoRecord undo;
    for (MoveEntry* e = list; e < end; ++e) {
        beginUndo(undo, p);
        if (makeLegal(p, e->move, undo)) {
            moves.push_back(e->move);
            undoMove(undo);
        }
    }
    return moves;
}

// Standard algebraic notation with check and mate marks. Disambiguation looks only at legal
// moves, as the PGN standard asks; castling is O-O / O-O-O in both variants.
inline std::string sanText(const Position& position, Move m) {
    std::string text;
    const int kind = moveKind(m);
    const int from = moveFrom(m);
    const int to = moveTo(m);
    if (isCastling(position, m)) {
        text = moveTo(m) == position.toMove().shortRookFrom ? "O-O" : "O-O-O";
    } else {
        const bool capture =
            (position.occupied & squareBit(to)) != 0 || (kind == Pawn && ((from ^ to) & 7) != 0);
        if (kind == Pawn) {
            if (capture) text += static_cast<char>('a' + (from & 7));
        } else {
            text += " PNBRQK"[kind];
            bool clash = false, sameFile = false, sameRank = false;
            for (Move other : legalMoves(position)) {
                if (other == m || moveKind(other) != kind || moveTo(other) != to) continue;
                if (moveFrom(other) == from) continue;  // the same man, another promotion
                clash = true;
                sameFile |= (moveFrom(other) & 7) == (from & 7);
                sameRank |= (moveFrom(other) >> 3) == (from >> 3);
            }
            if (clash) {
                const std::string square = squareText(from);
                if (!sameFile) {
                    text += square[0];
                } else if (!sameRank) {
                    text += square[1];
                } else {
                    text += square;
                }
            }
        }
        if (capture) text += 'x';
        text += squareText(to);
        if (movePromotion(m)) {
            text += '=';
            text += " PNBRQK"[movePromotion(m)];
        }
    }
    Position after = position;
    UndoRecord undo;
    beginUndo(undo, after);
    if (makeLegal(after, m, undo) && sideToMoveInCheck(after)) {
        text += hasNoLegalMove(after, nullptr) ? '#' : '+';
    }
    return text;
}

// The full-move number of a FEN (its sixth field), 1 if absent or unreadable.
inline int fenMoveNumber(const std::string& fen) {
    const char* s = fen.c_str();
    for (int field = 0; field < 5; ++field) {
        while (*s && *s != ' ' && *s != '\t') ++s;
        while (*s == ' ' || *s == '\t') ++s;
        if (!*s) return 1;
    }
    const int n = std::atoi(s);
    return n > 0 ? n : 1;
}

class Referee {
  public:
    // False if the FEN is no legal position.
    bool reset(const std::string& fen, bool chess960) {
        chess960_ = chess960;
        startFen_ = fen;
        uciMoves_.clear();
        sanMoves_.clear();
        constructGame(game_);
        if (!setGameFromFen(game_, fen.c_str())) return false;
        firstMoveNumber_ = fenMoveNumber(fen);
        startsWithWhite_ = game_.position.whiteToMove != 0;
        return true;
    }

    // Plays the engine's move text if it is a legal move in exactly the UCI form; otherwise
    // leaves the game untouched and returns false. The board's parser is tolerant (it takes
    // "e1g1" for Chess960 castling, ignores a stray promotion letter, accepts a pawn reaching
    // the last rank without one), so the move must also be in the legal list and read back
    // to the same text.
    bool play(const std::string& text) {
        if (!wellFormed(text)) return false;
        Position& p = game_.position;
        Move m = NoMove;
        if (!parseMove(p, text.c_str(), m, 1)) return false;
        bool listed = false;
        for (Move legal : legalMoves(p)) listed |= legal == m;
        if (!listed || uciText(p, m, chess960_) != text) return false;
        sanMoves_.push_back(sanText(p, m));
        uciMoves_.push_back(text);
        gameMakeMove(game_, m);
        return true;
    }

    // The result by the rules alone: mate, stalemate, threefold repetition, fifty moves,
    // insufficient material or a dead pawn wall. Mate on the hundredth half-move still counts.
    Verdict verdict() const {
        Position p = game_.position;
        int result = 0;
        if (hasNoLegalMove(p, &result)) {
            if (result == 0) return {Outcome::Draw, Ending::Stalemate, "Draw by stalemate"};
            const bool whiteMated = result < 0;
            return {whiteMated ? Outcome::BlackWins : Outcome::WhiteWins, Ending::Checkmate,
                    std::string(colourName(!whiteMated)) + " mates"};
        }
        switch (gameDrawState(game_)) {
            case 3:
                return {Outcome::Draw, Ending::Repetition, "Draw by threefold repetition"};
            case 10:
                return {Outcome::Draw, Ending::InsufficientMaterial,
                        "Draw by insufficient mating material"};
            case 40:
                return {Outcome::Draw, Ending::DeadPosition, "Draw by blocked pawns"};
            default:
                break;
        }
        if (game_.historyCount > 100)
            return {Outcome::Draw, Ending::FiftyMoves, "Draw by fifty moves rule"};
        return {};
    }

    // The text after "position ": the opening as given, then every move played.
    std::string positionCommand() const {
        std::string line = !chess960_ && startFen_ == StandardStartFen
                               ? std::string("position startpos")
                               : "position fen " + startFen_;
        if (!uciMoves_.empty()) line += " moves";
        for (const std::string& m : uciMoves_) line += " " + m;
        return line;
    }

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
    static bool wellFormed(const std::string& t) {
        if (t.size() != 4 && t.size() != 5) return false;
        for (int i : {0, 2})
            if (t[i] < 'a' || t[i] > 'h') return false;
        for (int i : {1, 3})
            if (t[i] < '1' || t[i] > '8') return false;
        return t.size() == 4 || std::strchr("nbrq", t[4]) != nullptr;
    }

    Game game_;
    std::string startFen_;
    std::vector<std::string> uciMoves_;
    std::vector<std::string> sanMoves_;
    int firstMoveNumber_ = 1;
    bool startsWithWhite_ = true;
    bool chess960_ = false;
};

}  // namespace match
