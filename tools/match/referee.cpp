#include "referee.h"

#include <cstdlib>
#include <cstring>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/text.h"

namespace match {

namespace {

std::string squareText(int square) {
    return {static_cast<char>('a' + (square & 7)), static_cast<char>('8' - (square >> 3))};
}

bool isCastling(const Position& p, Move m) {
    return moveKind(m) == King && (p.toMove().pieces[Rook] & squareBit(moveTo(m)));
}

// The UCI text of a legal move. Standard chess writes castling as the king's two-step move;
// Chess960 as the king taking its own rook, which is also how the board stores it.
std::string uciText(const Position& p, Move m, bool chess960) {
    std::string text = squareText(moveFrom(m)) + squareText(moveTo(m));
    if (isCastling(p, m) && !chess960) {
        const bool shortSide = moveTo(m) == p.toMove().shortRookFrom;
        text[2] = shortSide ? 'g' : 'c';
    }
    if (movePromotion(m)) text += " pnbrqk"[movePromotion(m)];
    return text;
}

std::vector<Move> legalMovesOf(const Position& position) {
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
std::string sanText(const Position& position, Move m) {
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
            for (Move other : legalMovesOf(position)) {
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
int fenMoveNumber(const std::string& fen) {
    const char* s = fen.c_str();
    for (int field = 0; field < 5; ++field) {
        while (*s && *s != ' ' && *s != '\t') ++s;
        while (*s == ' ' || *s == '\t') ++s;
        if (!*s) return 1;
    }
    const int n = std::atoi(s);
    return n > 0 ? n : 1;
}

bool wellFormed(const std::string& t) {
    if (t.size() != 4 && t.size() != 5) return false;
    for (int i : {0, 2})
        if (t[i] < 'a' || t[i] > 'h') return false;
    for (int i : {1, 3})
        if (t[i] < '1' || t[i] > '8') return false;
    return t.size() == 4 || std::strchr("nbrq", t[4]) != nullptr;
}

}  // namespace

bool Referee::reset(const std::string& fen, bool chess960) {
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

bool Referee::play(const std::string& text) {
    if (!wellFormed(text)) return false;
    Position& p = game_.position;
    Move m = NoMove;
    if (!parseMove(p, text.c_str(), m, 1)) return false;
    bool listed = false;
    for (Move legal : legalMovesOf(p)) listed |= legal == m;
    if (!listed || uciText(p, m, chess960_) != text) return false;
    sanMoves_.push_back(sanText(p, m));
    uciMoves_.push_back(text);
    gameMakeMove(game_, m);
    return true;
}

bool Referee::playNotation(const std::string& text) {
    if (wellFormed(text)) return play(text);
    // The board's reader is lenient; only a move of the legal list counts.
    Position p = game_.position;
    Move m = NoMove;
    if (!parseMove(p, text.c_str(), m, 0)) return false;
    for (Move legal : legalMovesOf(p))
        if (legal == m) return play(uciText(p, m, chess960_));
    return false;
}

std::vector<std::string> Referee::legalMoves() const {
    std::vector<std::string> texts;
    for (Move m : legalMovesOf(game_.position))
        texts.push_back(uciText(game_.position, m, chess960_));
    return texts;
}

Verdict Referee::verdict() const {
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

std::string Referee::positionCommand() const {
    std::string line = !chess960_ && startFen_ == StandardStartFen
                           ? std::string("position startpos")
                           : "position fen " + startFen_;
    if (!uciMoves_.empty()) line += " moves";
    for (const std::string& m : uciMoves_) line += " " + m;
    return line;
}

}  // namespace match
