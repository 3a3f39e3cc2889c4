#include "book/pgn_reader.h"

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "board/makemove.h"
#include "board/position.h"
#include "board/text.h"
#include "book/exact_move.h"

namespace {

bool isWhite(char c) {
    return std::isspace(static_cast<unsigned char>(c)) || c == '\r' || c == '\n' || c == '\t';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Characters that continue a symbol: enough for moves, results and tag names.
bool continuesSymbol(char c) {
    switch (c) {
        case '_':
        case '+':
        case '#':
        case '=':
        case ':':
        case '-':
        case '/':
            return true;
        default:
            return isDigit(c) || std::isalpha(static_cast<unsigned char>(c));
    }
}

bool isResultMarker(const std::string& text) {
    return text == "1-0" || text == "0-1" || text == "1/2-1/2";
}

// A tag value read as a number the way the C library's atoi does, clamped to int; text that
// doesn't start with a number gives 0.
int tagNumber(const PgnTags& tags, const char* name) {
    const auto found = tags.find(name);
    if (found == tags.end()) return 0;
    const long value = std::strtol(found->second.c_str(), nullptr, 10);
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

}  // namespace

PgnReader::PgnReader(const std::string& name)
    : std::ifstream(name, std::ios::binary), fileName(name) {
    if (!is_open()) {
        error("Cannot open file");
        followExhausted = true;
        return;
    }
    readChar();
}

bool PgnReader::readChar() {
    const int c = get();
    if (c == traits_type::eof()) return false;
    current = static_cast<char>(c);
    ++column;
    if (current == '\n') {
        ++line;
        column = 0;
    }
    return true;
}

int PgnReader::nextToken() {
    // A failed readChar has always consumed `current` already, so a stream that is no longer
    // good has nothing left.
    if (!good()) return TokenEndOfFile;
    for (bool skipped = true; skipped;) {
        skipped = false;
        while (isWhite(current)) {
            skipped = true;
            if (!readChar()) return TokenEndOfFile;
        }
        if (current == ';' || (current == '%' && column == 1)) {
            skipped = true;
            while (current != '\r' && current != '\n')
                if (!readChar()) return TokenEndOfFile;
            if (!readChar()) return TokenEndOfFile;
        }
        if (current == '{') {
            skipped = true;
            while (current != '}')
                if (!readChar()) return TokenEndOfFile;
            if (!readChar()) return TokenEndOfFile;
        }
    }

    switch (current) {
        case '"':
            tokenText.clear();
            while (readChar() && current != '"') {
                if (current == '\\' && !readChar()) break;
                tokenText += current;
            }
            readChar();
            return TokenString;
        case '$':
            tokenText.clear();
            while (readChar() && isDigit(current)) tokenText += current;
            return TokenNag;
        case '(':
            readChar();
            return TokenOpenParenthesis;
        case ')':
            readChar();
            return TokenCloseParenthesis;
        case '*':
            readChar();
            return TokenAsterisk;
        case '.':
            readChar();
            return TokenPeriod;
        case '[':
            readChar();
            return TokenOpenBracket;
        case ']':
            readChar();
            return TokenCloseBracket;
        default:
            break;
    }
    // Any other character starts a symbol, so "!" or "?" standing apart from a move is a
    // symbol of its own and no move.
    tokenText.assign(1, current);
    int kind = isDigit(current) ? TokenInteger : TokenSymbol;
    while (readChar() && continuesSymbol(current)) {
        tokenText += current;
        if (!isDigit(current)) kind = TokenSymbol;
    }
    return kind;
}

bool PgnReader::parseGame(std::vector<Move>& moves, PgnTags& tags) {
    moves.clear();
    tags.clear();
    Position board;
    constructPosition(board);
    // A FEN tag that doesn't read leaves no board to play the moves on.
    bool boardUsable = true;
    std::string result = "*";
    // The marker must agree with the Result tag (none counts as "*"), and the mandatory tags
    // must all be there.
    const auto finish = [&](const std::string& marker) {
        if (marker != result) {
            error("Game termination marker different from Result");
            return false;
        }
        for (const char* name : {"White", "Black", "Result"}) {
            if (tags.count(name)) continue;
            error(("'" + std::string(name) + "' missing (in game above current line)").c_str());
            return false;
        }
        return true;
    };

    for (;;) {
        switch (nextToken()) {
            case TokenEndOfFile:
                return false;
            case TokenInteger:
            case TokenPeriod:
            case TokenNag:
                break;
            case TokenOpenParenthesis:
                // Variations are dropped unread, nested ones with them.
                for (int depth = 1; depth > 0;) {
                    const int kind = nextToken();
                    if (kind == TokenEndOfFile) {
                        error("unexpected end of file");
                        return false;
                    }
                    if (kind == TokenOpenParenthesis) ++depth;
                    if (kind == TokenCloseParenthesis) --depth;
                }
                break;
            case TokenCloseParenthesis:
                error("unexpected ')'");
                return false;
            case TokenCloseBracket:
                error("unexpected ']'");
                return false;
            case TokenString:
                error("unexpected string ", tokenText);
                return false;
            case TokenOpenBracket: {
                if (nextToken() != TokenSymbol) {
                    error("symbol expected");
                    return false;
                }
                const std::string name = tokenText;
                if (nextToken() != TokenString) {
                    error("String erwartet");
                    return false;
                }
                tags[name] = tokenText;
                if (name == "Result") result = tokenText;
                if (name == "FEN") {
                    Position trial = board;
                    boardUsable = parseFen(trial, tokenText.c_str()) != nullptr;
                    if (boardUsable) board = trial;
                }
                if (nextToken() != TokenCloseBracket) {
                    error("']' expected");
                    return false;
                }
                break;
            }
            case TokenAsterisk:
                return finish("*");
            case TokenSymbol:
                if (isResultMarker(tokenText)) return finish(tokenText);
                {
                    Move move = NoMove;
                    if (!boardUsable || !parseMove(board, tokenText.c_str(), move, 0)) {
                        error("illegal move ", tokenText);
                        return false;
                    }
                    UndoRecord undo;
                    beginUndo(undo, board);
                    makeLegal(board, move, undo);
                    moves.push_back(move);
                }
                break;
        }
    }
}

bool PgnReader::readGame(std::vector<Move>& moves, PgnTags* tags, int* resultCode, std::string* fen,
                         int* whiteElo, int* blackElo) {
    if (resultCode) *resultCode = ResultOther;
    PgnTags ownTags;
    PgnTags& gameTags = tags ? *tags : ownTags;
    int white = 0, black = 0;
    do {
        if (!parseGame(moves, gameTags)) return false;
        white = tagNumber(gameTags, "WhiteElo");
        black = tagNumber(gameTags, "BlackElo");
    } while (white < -1 || black < -1);
    if (whiteElo) *whiteElo = white;
    if (blackElo) *blackElo = black;
    if (fen) {
        const auto found = gameTags.find("FEN");
        *fen = found == gameTags.end() ? std::string() : found->second;
    }
    if (resultCode) {
        const auto found = gameTags.find("Result");
        if (found != gameTags.end()) {
            const std::string& text = found->second;
            *resultCode = text == "1-0"       ? ResultWhiteWins
                          : text == "0-1"     ? ResultBlackWins
                          : text == "1/2-1/2" ? ResultDraw
                                              : ResultOther;
        }
    }
    return true;
}

bool PgnReader::loadNextGame() {
    followedMoves.clear();
    std::vector<Move> moves;
    std::string fen;
    if (!readGame(moves, nullptr, nullptr, &fen)) return false;
    Position board;
    constructPosition(board);
    if (!fen.empty() && !parseFen(board, fen.c_str())) return false;
    for (Move move : moves) {
        // The moves were read against the board of the tags as they came, so they may not fit
        // the last FEN tag: a move that is not exactly a move of this board (the same squares
        // with another man count as another move) is left out, so that the engine is never
        // handed an illegal move and the board is never made with a wrong one.
        UndoRecord undo;
        const uint64_t key = board.hashKey;
        if (makeExactMove(board, move, undo)) followedMoves.push_back({key, move});
    }
    return true;
}

bool PgnReader::nextFollowedMove(uint64_t positionKey, Move& move) {
    if (followExhausted) return false;
    while (static_cast<size_t>(followIndex) >= followedMoves.size()) {
        if (!loadNextGame()) {
            followExhausted = true;
            return false;
        }
        // A first position other than the root's means the engine has Black's side.
        followIndex =
            followedMoves.size() > 1 && followedMoves[0].positionKey != positionKey ? 1 : 0;
    }
    if (followedMoves[static_cast<size_t>(followIndex)].positionKey != positionKey) {
        followExhausted = true;
        return false;
    }
    move = followedMoves[static_cast<size_t>(followIndex)].move;
    followIndex += 2;
    return true;
}

void PgnReader::error(const char* message, const std::string& detail) {
    ok = false;
    // Written as one block, so that bytes of the file in the detail pass as they are.
    const std::string text = "info string PGN-Parser: file " + fileName + " line " +
                             std::to_string(line) + " char " + std::to_string(column) + ": " +
                             message + detail + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}
