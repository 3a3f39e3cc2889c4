#include "book/opening_book.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "board/makemove.h"
#include "board/text.h"
#include "learn/neural_net.h"

namespace {

constexpr unsigned Chess960Positions = 960;
// No text the move parser accepts is longer: six characters of move and its claims.
constexpr size_t MaxMoveText = 31;

// The white space of the C library's default locale; every other byte belongs to a token.
bool isSpace(unsigned char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

struct Token {
    const char* begin = nullptr;
    const char* end = nullptr;

    bool is(const char* word) const {
        const size_t length = std::strlen(word);
        return static_cast<size_t>(end - begin) == length && std::memcmp(begin, word, length) == 0;
    }
};

class TokenScanner {
  public:
    explicit TokenScanner(const std::string& text)
        : cursor(text.data()), end(text.data() + text.size()) {}

    bool next(Token& token) {
        while (cursor < end && isSpace(static_cast<unsigned char>(*cursor))) ++cursor;
        if (cursor == end) return false;
        token.begin = cursor;
        while (cursor < end && !isSpace(static_cast<unsigned char>(*cursor))) ++cursor;
        token.end = cursor;
        return true;
    }

  private:
    const char* cursor;
    const char* end;
};

// The whole token: an optional sign and decimal digits, within 32 bits.
bool readWeight(const Token& token, int32_t& weight) {
    const char* p = token.begin;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    if (p == token.end) return false;
    int64_t value = 0;
    for (; p < token.end; ++p) {
        if (!isDigit(*p)) return false;
        value = value * 10 + (*p - '0');
        if (value > int64_t{INT32_MAX} + 1) return false;
    }
    if (negative) value = -value;
    if (value > INT32_MAX) return false;
    weight = static_cast<int32_t>(value);
    return true;
}

// Start positions are numbered modulo 960, so any whole number names one; a negative one
// counts back from 960.
bool readStartNumber(const Token& token, unsigned& number) {
    const char* p = token.begin;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    if (p == token.end) return false;
    unsigned rest = 0;
    for (; p < token.end; ++p) {
        if (!isDigit(*p)) return false;
        rest = (rest * 10 + static_cast<unsigned>(*p - '0')) % Chess960Positions;
    }
    number = negative ? (Chess960Positions - rest) % Chess960Positions : rest;
    return true;
}

bool readMove(Position& board, const Token& token, Move& move) {
    const size_t length = static_cast<size_t>(token.end - token.begin);
    // A NUL inside would cut the text the parser sees.
    if (length > MaxMoveText || std::memchr(token.begin, 0, length)) return false;
    char text[MaxMoveText + 1];
    std::memcpy(text, token.begin, length);
    text[length] = 0;
    return parseMove(board, text, move, 1);
}

// The whole file, or false if it can't be opened or read (a directory opens but can't be
// read).
bool readWholeFile(const char* name, std::string& text) {
    std::FILE* file = std::fopen(name, "rb");
    if (!file) return false;
    size_t used = 0;
    text.resize(65536);
    for (;;) {
        used += std::fread(&text[used], 1, text.size() - used, file);
        if (used < text.size()) break;
        text.resize(text.size() * 2);
    }
    text.resize(used);
    const bool readFine = !std::ferror(file);
    std::fclose(file);
    return readFine;
}

// Walks the tree and collects a record for each move of weight 1 or more. The moves that lead
// to the open nodes are kept on an explicit stack of undo records on the heap, not in a
// recursion: under xboard the book is read on a thread of 100,000 bytes of stack, and a tree
// may be deeper than any game. So the depth costs heap, never stack.
bool readTree(const std::string& text, std::vector<BookRecord>& found) {
    Position board;
    constructPosition(board);
    std::vector<UndoRecord> path;
    TokenScanner scanner(text);
    Token token;
    while (scanner.next(token)) {
        if (token.is("*")) {
            // The end of the outermost node ends the reading; what follows is ignored.
            if (path.empty()) return true;
            undoMove(path.back());
            path.pop_back();
        } else if (token.is("startpos")) {
            // Only the outermost node may change the board: the moves of the nodes around
            // could not be taken back on a board set anew.
            unsigned number = 0;
            if (!path.empty() || !scanner.next(token) || !readStartNumber(token, number))
                return false;
            setChess960Position(board, number);
        } else {
            Token weightToken;
            int32_t weight = 0;
            Move move = NoMove;
            if (!scanner.next(weightToken) || !readWeight(weightToken, weight) || weight == -1)
                return false;
            if (!readMove(board, token, move)) return false;
            if (weight >= 1) found.push_back(BookRecord{board.hashKey, weight, move});
            path.emplace_back();
            beginUndo(path.back(), board);
            if (!makeLegal(board, move, path.back())) return false;
        }
    }
    return false;  // the file ended inside a node
}

// A function object rather than a function pointer, so that the sort inlines it.
struct RecordOrder {
    bool operator()(const BookRecord& a, const BookRecord& b) const {
        if (a.key != b.key) return a.key < b.key;
        return static_cast<uint32_t>(a.weight) > static_cast<uint32_t>(b.weight);
    }
};

bool keyBelow(const BookRecord& record, uint64_t key) {
    return record.key < key;
}

}  // namespace

OpeningBook::OpeningBook() {
    std::snprintf(fileName, sizeof fileName, "%s", "Zelmark.opn");
}

void OpeningBook::setFileName(const char* name) {
    if (std::strlen(name) > MaxBookFileName) return;
    std::snprintf(fileName, sizeof fileName, "%s", name);
}

bool OpeningBook::readBook() {
    std::vector<BookRecord>().swap(records);
    std::string text;
    std::vector<BookRecord> found;
    if (!readWholeFile(fileName, text) || !readTree(text, found)) return false;
    std::sort(found.begin(), found.end(), RecordOrder());
    records.swap(found);
    return true;
}

bool OpeningBook::probeBook(const Position& position, Move& bestMove, Move* ponderMove) const {
    if (records.empty()) return false;
    const auto first = std::lower_bound(records.begin(), records.end(), position.hashKey, keyBelow);
    // A 64-bit sum: the records of a position can't add up to 0 by wrapping around.
    uint64_t total = 0;
    auto last = first;
    for (; last != records.end() && last->key == position.hashKey; ++last)
        total += static_cast<uint32_t>(last->weight);
    if (total == 0) return false;

    // Strictly greater, on purpose: r equal to a weight stays with its record, so the first
    // and heaviest move gets one chance more than its weight and the last one chance less.
    uint64_t r = RandomSource::instance().next() % total;
    auto chosen = first;
    while (chosen + 1 != last && r > static_cast<uint32_t>(chosen->weight)) {
        r -= static_cast<uint32_t>(chosen->weight);
        ++chosen;
    }
    if (moveFromTo(chosen->move) == 0) return false;
    bestMove = chosen->move;
    if (!ponderMove) return true;

    // The heaviest reply, looked up on a copy so that the caller's board stays untouched.
    *ponderMove = NoMove;
    Position after = position;
    UndoRecord undo;
    beginUndo(undo, after);
    makeMove(after, after.toMove(), after.notToMove(), bestMove, undo);
    const auto reply = std::lower_bound(records.begin(), records.end(), after.hashKey, keyBelow);
    if (reply != records.end() && reply->key == after.hashKey && moveFromTo(reply->move) != 0 &&
        reply->weight > 0)
        *ponderMove = reply->move;
    return true;
}
