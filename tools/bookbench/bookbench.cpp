// Book reading speed: the engine reads its book anew at every game start, so the time of one
// read is time taken from the first move. Reads a book file a number of times and prints its
// records and the mean time per read. It can also write a book of random legal games to have
// something of a known size to read.
#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/text.h"
#include "book/opening_book.h"
#include "tools/support/command_line.h"

namespace {

constexpr long DefaultReads = 20;
constexpr long MaxReads = 100000;
constexpr long MaxGames = 1000000;
// The book tools keep the first 45 plies of a game.
constexpr int PliesPerGame = 45;

const char* const Usage =
    "Usage: bookbench FILE [READS]\n"
    "       bookbench --random GAMES FILE\n"
    "\n"
    "Reads the opening book FILE READS times (default %ld, at most %ld) and prints its number\n"
    "of records and the mean milliseconds per read.\n"
    "With --random, writes to FILE a book of GAMES random legal games (at most %ld) of up to\n"
    "%d plies each, in the layout the book tools write, and prints its number of moves.\n";

int usageError(const std::string& message) {
    std::fprintf(stderr, "bookbench: %s\nTry 'bookbench --help'.\n", message.c_str());
    return 2;
}

int benchRead(const std::string& fileName, long reads) {
    OpeningBook book;
    if (fileName.size() > static_cast<size_t>(MaxBookFileName))
        return usageError("file name longer than " + std::to_string(MaxBookFileName) + ": " +
                          fileName);
    book.setFileName(fileName.c_str());
    double totalMs = 0;
    for (long i = 0; i < reads; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const bool read = book.readBook();
        totalMs +=
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count();
        if (!read) {
            std::fprintf(stderr, "bookbench: %s is no readable book\n", fileName.c_str());
            return 1;
        }
    }
    std::printf("%s: %zu records, %ld reads, %.3f ms per read\n", fileName.c_str(),
                book.records.size(), reads, totalMs / static_cast<double>(reads));
    return 0;
}

// The games as a tree of moves, each node's children in the order they first occurred.
struct TreeNode {
    std::vector<std::pair<Move, size_t>> children;
    int weight = 0;
};

class RandomBook {
  public:
    explicit RandomBook(long games) : random(20240611) {
        nodes.emplace_back();
        for (long g = 0; g < games; ++g) addGame();
    }

    size_t moveCount() const { return nodes.size() - 1; }

    // The layout of the book tools: a move right-aligned in 6 columns, its weight in 3, the
    // first child on the same line, later siblings on new lines indented by depth.
    void write(std::FILE* out) {
        Position p;
        constructPosition(p);
        writeNode(out, p, 0, 0);
        std::fputs("* -1\n", out);
    }

  private:
    void addGame() {
        Position p;
        constructPosition(p);
        size_t node = 0;
        for (int ply = 0; ply < PliesPerGame; ++ply) {
            MoveEntry list[MaxMovesPerPosition];
            const MoveEntry* end = generateMoves(p, GenAll, list);
            std::vector<Move> legal;
            for (const MoveEntry* e = list; e != end; ++e) {
                UndoRecord undo;
                beginUndo(undo, p);
                if (!makeLegal(p, e->move, undo)) continue;
                legal.push_back(e->move);
                undoMove(undo);
            }
            if (legal.empty()) break;
            // Early plies favour a few moves, so that games share their openings as in a
            // real book.
            const size_t choices = ply < 8 ? std::min<size_t>(legal.size(), 3) : legal.size();
            const Move move = legal[random() % choices];
            size_t child = 0;
            for (const auto& [m, index] : nodes[node].children)
                if (m == move) child = index;
            if (child == 0) {
                child = nodes.size();
                nodes[node].children.emplace_back(move, child);
                nodes.emplace_back();
                nodes[child].weight = static_cast<int>(random() % 100);
            }
            UndoRecord undo;
            beginUndo(undo, p);
            makeLegal(p, move, undo);
            node = child;
        }
    }

    void writeNode(std::FILE* out, Position& p, size_t node, int depth) {
        int written = 0;
        for (const auto& [move, child] : nodes[node].children) {
            if (written++ > 0) std::fprintf(out, "\n%*s", 10 * depth, "");
            char text[16];
            writeMove(p, move, StyleCoordinates, text);
            std::fprintf(out, "%6s%3d ", text, nodes[child].weight);
            UndoRecord undo;
            beginUndo(undo, p);
            makeLegal(p, move, undo);
            writeNode(out, p, child, depth + 1);
            undoMove(undo);
            std::fputs("* ", out);
        }
    }

    std::mt19937 random;
    std::vector<TreeNode> nodes;  // node 0 is the start position
};

int writeRandomBook(long games, const std::string& fileName) {
    std::FILE* out = std::fopen(fileName.c_str(), "w");
    if (!out) {
        std::fprintf(stderr, "bookbench: cannot write %s\n", fileName.c_str());
        return 1;
    }
    RandomBook book(games);
    book.write(out);
    const bool written = std::fclose(out) == 0;
    if (!written) {
        std::fprintf(stderr, "bookbench: cannot write %s\n", fileName.c_str());
        return 1;
    }
    std::printf("%s: %ld games, %zu moves\n", fileName.c_str(), games, book.moveCount());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words;
    bool random = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (isHelpWord(word)) {
            std::printf(Usage, DefaultReads, MaxReads, MaxGames, PliesPerGame);
            return 0;
        }
        if (word == "--random" && !random && words.empty()) {
            random = true;
        } else if (looksLikeOption(word)) {
            return usageError("unknown option: " + word);
        } else {
            words.push_back(word);
        }
    }
    if (random) {
        long games = 0;
        if (words.size() != 2) return usageError("--random needs GAMES and FILE");
        if (!parseWholeNumber(words[0], 1, MaxGames, games))
            return usageError("games must be a whole number from 1 to " + std::to_string(MaxGames) +
                              ": " + words[0]);
        return writeRandomBook(games, words[1]);
    }
    if (words.empty()) return usageError("no book file given");
    if (words.size() > 2) return usageError("unexpected argument: " + words[2]);
    long reads = DefaultReads;
    if (words.size() == 2 && !parseWholeNumber(words[1], 1, MaxReads, reads))
        return usageError("reads must be a whole number from 1 to " + std::to_string(MaxReads) +
                          ": " + words[1]);
    return benchRead(words[0], reads);
}
