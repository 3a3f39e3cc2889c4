// Arbitrary bytes read as a book file. The reader must agree with a plain recursive reading
// of the same tokens: the same verdict and, for a book that reads, the same records, sorted,
// each a legal move of a position the file reaches. Probes on those positions, and on
// positions a few random moves away, give legal moves with a legal ponder reply.
// The reader takes a file name, so the input goes to a file of this process; a crash leaves
// it behind.
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "book/opening_book.h"
#include "fuzz_support.h"
#include "learn/neural_net.h"

namespace {

bool wholeNumber(const std::string& text) {
    size_t at = text[0] == '+' || text[0] == '-' ? 1 : 0;
    if (at == text.size()) return false;
    for (; at < text.size(); ++at)
        if (text[at] < '0' || text[at] > '9') return false;
    return true;
}

// The grammar of the file, read by recursion over a string stream.
struct ReferenceReading {
    std::istringstream in;
    std::map<uint64_t, Position> reached;  // every position in which an entry stands
    std::vector<BookRecord> records;

    explicit ReferenceReading(const std::string& text) : in(text) {}

    bool take(std::string& token) { return (in >> token) && token.size() <= MaxBookTokenLength; }

    bool node(Position& p, int depth) {
        for (std::string token; take(token);) {
            if (token == "*") return true;
            if (token == "startpos") {
                std::string number;
                if (depth > 0 || !take(number) || !wholeNumber(number)) return false;
                long long rest = 0;
                for (char c : number)
                    if (c >= '0' && c <= '9') rest = (rest * 10 + (c - '0')) % 960;
                if (number[0] == '-') rest = (960 - rest) % 960;
                setChess960Position(p, static_cast<unsigned>(rest));
                continue;
            }
            std::string weightText;
            if (!take(weightText) || !wholeNumber(weightText)) return false;
            const std::string digits =
                weightText.substr(weightText[0] == '+' || weightText[0] == '-');
            const size_t significant = digits.find_first_not_of('0');
            if (significant != std::string::npos && digits.size() - significant > 10) return false;
            const long long weight = std::stoll(weightText);
            if (weight == -1 || weight > INT32_MAX || weight < INT32_MIN) return false;
            Move move = NoMove;
            if (token.find('\0') != std::string::npos || !parseMove(p, token.c_str(), move, 1))
                return false;
            reached[p.hashKey] = p;
            if (weight >= 1)
                records.push_back(BookRecord{p.hashKey, static_cast<int32_t>(weight), move});
            UndoRecord undo;
            beginUndo(undo, p);
            FUZZ_CHECK(makeLegal(p, move, undo), "parsed move refused in " + fenOf(p));
            if (!node(p, depth + 1)) return false;
            undoMove(undo);
        }
        return false;
    }
};

bool inBookOrder(const BookRecord& a, const BookRecord& b) {
    if (a.key != b.key) return a.key < b.key;
    if (a.weight != b.weight)
        return static_cast<uint32_t>(a.weight) > static_cast<uint32_t>(b.weight);
    return a.move < b.move;
}

bool isLegal(Position& p, Move move) {
    for (Move m : legalMoves(p))
        if (m == move) return true;
    return false;
}

// Probes `p`: a hit must be a legal move with a record here, its ponder move legal after it.
void checkProbe(const OpeningBook& book, Position p) {
    Move best = NoMove, ponder = NoMove;
    const bool hit = book.probeBook(p, best, &ponder);
    const bool known = std::any_of(book.records.begin(), book.records.end(),
                                   [&](const BookRecord& r) { return r.key == p.hashKey; });
    FUZZ_CHECK(hit == known, "probe disagrees with the records in " + fenOf(p));
    if (!hit) return;
    FUZZ_CHECK(
        std::any_of(book.records.begin(), book.records.end(),
                    [&](const BookRecord& r) { return r.key == p.hashKey && r.move == best; }),
        "probe gave a move without a record in " + fenOf(p));
    FUZZ_CHECK(isLegal(p, best), "book move not legal in " + fenOf(p));
    UndoRecord undo;
    beginUndo(undo, p);
    makeLegal(p, best, undo);
    if (ponder != NoMove) FUZZ_CHECK(isLegal(p, ponder), "ponder move not legal in " + fenOf(p));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string fileName = "/tmp/zelmark_book_fuzz_" + std::to_string(getpid()) + ".opn";
    {
        std::ofstream out(fileName, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    OpeningBook book;
    book.setFileName(fileName.c_str());
    const bool read = book.readBook();

    ReferenceReading reference(std::string(reinterpret_cast<const char*>(data), size));
    Position board;
    constructPosition(board);
    const bool expected = reference.node(board, 0);
    FUZZ_CHECK(read == expected, read ? "a broken file was read" : "a good file was refused");
    if (!read) {
        FUZZ_CHECK(book.records.empty(), "records left by a failed read");
        std::remove(fileName.c_str());
        return 0;
    }

    for (size_t i = 1; i < book.records.size(); ++i) {
        const BookRecord& a = book.records[i - 1];
        const BookRecord& b = book.records[i];
        FUZZ_CHECK(a.key < b.key || (a.key == b.key && static_cast<uint32_t>(a.weight) >=
                                                           static_cast<uint32_t>(b.weight)),
                   "records out of order at " + std::to_string(i));
    }
    std::vector<BookRecord> ours = book.records;
    std::sort(ours.begin(), ours.end(), inBookOrder);
    std::sort(reference.records.begin(), reference.records.end(), inBookOrder);
    FUZZ_CHECK(ours.size() == reference.records.size(),
               std::to_string(ours.size()) + " records, expected " +
                   std::to_string(reference.records.size()));
    for (size_t i = 0; i < ours.size(); ++i) {
        const BookRecord& a = ours[i];
        const BookRecord& b = reference.records[i];
        FUZZ_CHECK(a.key == b.key && a.weight == b.weight && a.move == b.move,
                   "record " + std::to_string(i) + " differs");
        Position p = reference.reached.at(a.key);
        FUZZ_CHECK(a.weight >= 1 && isLegal(p, a.move), "record not legal in " + fenOf(p));
    }

    // Each reached position, and a short random walk from it.
    RandomSource::instance().seed(static_cast<uint32_t>(size));
    for (auto& [key, position] : reference.reached) {
        Position p = position;
        for (int step = 0; step < 3; ++step) {
            checkProbe(book, p);
            const std::vector<Move> moves = legalMoves(p);
            if (moves.empty()) break;
            UndoRecord undo;
            beginUndo(undo, p);
            makeLegal(p, moves[RandomSource::instance().next() % moves.size()], undo);
        }
    }
    std::remove(fileName.c_str());
    return 0;
}
