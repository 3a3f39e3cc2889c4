#include "book/opening_book.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
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

// Tokens from the file, read block by block: memory does not grow with the file, which is
// mostly indentation, nor with a stream that never ends.
class TokenReader {
  public:
    explicit TokenReader(std::FILE* file) : file(file), block(65536) {}

    // False at the end of the file, on a read error (a directory opens but can't be read)
    // and at a token longer than any the format knows.
    bool next(std::string& token) {
        token.clear();
        for (;;) {
            while (at < filled && isSpace(static_cast<unsigned char>(block[at]))) ++at;
            if (at < filled) break;
            if (!refill()) return false;
        }
        for (;;) {
            const size_t start = at;
            while (at < filled && !isSpace(static_cast<unsigned char>(block[at]))) ++at;
            token.append(block.data() + start, at - start);
            if (token.size() > MaxBookTokenLength) return false;
            if (at < filled || !refill()) return true;
        }
    }

  private:
    bool refill() {
        filled = std::fread(block.data(), 1, block.size(), file);
        at = 0;
        return filled > 0;
    }

    std::FILE* file;
    std::vector<char> block;
    size_t at = 0;
    size_t filled = 0;
};

// The whole token: an optional sign and decimal digits, within 32 bits.
bool readWeight(const std::string& token, int32_t& weight) {
    size_t at = token[0] == '-' || token[0] == '+' ? 1 : 0;
    if (at == token.size()) return false;
    int64_t value = 0;
    for (; at < token.size(); ++at) {
        if (!isDigit(token[at])) return false;
        value = value * 10 + (token[at] - '0');
        if (value > int64_t{INT32_MAX} + 1) return false;
    }
    if (token[0] == '-') value = -value;
    if (value > INT32_MAX) return false;
    weight = static_cast<int32_t>(value);
    return true;
}

// Start positions are numbered modulo 960, so any whole number names one; a negative one
// counts back from 960.
bool readStartNumber(const std::string& token, unsigned& number) {
    size_t at = token[0] == '-' || token[0] == '+' ? 1 : 0;
    if (at == token.size()) return false;
    unsigned rest = 0;
    for (; at < token.size(); ++at) {
        if (!isDigit(token[at])) return false;
        rest = (rest * 10 + static_cast<unsigned>(token[at] - '0')) % Chess960Positions;
    }
    number = token[0] == '-' ? (Chess960Positions - rest) % Chess960Positions : rest;
    return true;
}

bool readMove(Position& board, const std::string& token, Move& move) {
    // A byte 0 inside would cut the text the parser sees.
    if (token.size() > MaxMoveText || token.find('\0') != std::string::npos) return false;
    return parseMove(board, token.c_str(), move, 1);
}

// Walks the tree and collects a record for each move of weight 1 or more. The moves that lead
// to the open nodes are kept on an explicit stack of undo records on the heap, not in a
// recursion: under xboard the book is read on a thread of 100,000 bytes of stack, and a tree
// may be deeper than any game. So the depth costs heap, never stack.
bool readTree(TokenReader& reader, std::vector<BookRecord>& found) {
    Position board;
    constructPosition(board);
    std::vector<UndoRecord> path;
    std::string token, weightText;
    while (reader.next(token)) {
        if (token == "*") {
            // The end of the outermost node ends the reading; what follows is ignored.
            if (path.empty()) return true;
            undoMove(path.back());
            path.pop_back();
        } else if (token == "startpos") {
            // Only the outermost node may change the board: the moves of the nodes around
            // could not be taken back on a board set anew.
            unsigned number = 0;
            if (!path.empty() || !reader.next(token) || !readStartNumber(token, number))
                return false;
            setChess960Position(board, number);
        } else {
            int32_t weight = 0;
            Move move = NoMove;
            if (!reader.next(weightText) || !readWeight(weightText, weight) || weight == -1)
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
    std::FILE* file = std::fopen(fileName, "rb");
    if (!file) return false;
    std::vector<BookRecord> found;
    bool read = false;
    // A book too large for the memory is no book, as a broken one.
    try {
        TokenReader reader(file);
        read = readTree(reader, found);
    } catch (const std::bad_alloc&) {
        read = false;
    }
    std::fclose(file);
    if (!read) return false;
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
