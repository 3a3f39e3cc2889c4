// Reads PGN files with the engine's own reader and counts what it takes and what it refuses:
// the check that game files written by other programs read as they should. The reader's
// messages go to standard error as the engine prints them, one a refusal.
// Usage: pgnscan FILE...
#include <cstdio>
#include <string>
#include <vector>

#include "book/pgn_reader.h"
#include "tools/support/command_line.h"

namespace {

void printUsage(std::FILE* out) {
    std::fputs(
        "Usage: pgnscan FILE...\n"
        "Reads every game of each PGN file as the engine does and prints, a line a file, the\n"
        "games taken, the games refused (each with the reader's message on standard error),\n"
        "the games that start from a FEN tag, and the moves taken.\n",
        out);
}

struct Counts {
    long taken = 0;
    long refused = 0;
    long fromFen = 0;
    long moves = 0;
};

Counts scan(PgnReader& reader) {
    Counts counts;
    std::vector<Move> moves;
    PgnTags tags;
    std::string fen;
    for (;;) {
        if (reader.readGame(moves, &tags, nullptr, &fen)) {
            ++counts.taken;
            counts.moves += static_cast<long>(moves.size());
            counts.fromFen += !fen.empty();
            continue;
        }
        // Without a message the reader met the end of the file; after one, the rest of the
        // refused game is read as the start of the next.
        if (reader.ok) break;
        ++counts.refused;
        reader.ok = true;
        if (reader.eof()) break;
    }
    return counts;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (isHelpWord(word)) {
            printUsage(stdout);
            return 0;
        }
        if (looksLikeOption(word)) {
            std::fprintf(stderr, "pgnscan: unknown option %s\n", word.c_str());
            printUsage(stderr);
            return 2;
        }
        files.push_back(word);
    }
    if (files.empty()) {
        std::fputs("pgnscan: no file given\n", stderr);
        printUsage(stderr);
        return 2;
    }
    int status = 0;
    for (const std::string& file : files) {
        PgnReader reader(file);
        if (!reader.is_open()) {
            status = 1;
            continue;
        }
        const Counts c = scan(reader);
        std::printf("%s: %ld games taken, %ld refused, %ld from a FEN, %ld moves\n", file.c_str(),
                    c.taken, c.refused, c.fromFen, c.moves);
    }
    return status;
}
