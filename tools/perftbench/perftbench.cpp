// Perft speed: leaf nodes per second for the start position and a few middle-game positions.
#include <chrono>
#include <cstdio>
#include <string>

#include "board/text.h"
#include "frontend/perft.h"
#include "tools/support/command_line.h"

namespace {

struct BenchPosition {
    const char* name;
    const char* fen;
    int depth;
};

const BenchPosition Positions[] = {
    {"start", "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1", 6},
    {"kiwipete", "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1", 5},
    {"italian", "r1bqk2r/pppp1ppp/2n2n2/2b1p3/2B1P3/2NP1N2/PPP2PPP/R1BQK2R b KQkq - 0 5", 5},
    {"middlegame", "r2q1rk1/pp2bppp/2n1bn2/3p4/3P4/2NBBN2/PP3PPP/R2Q1RK1 w - - 4 11", 5},
    {"endgame", "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1", 7},
};

// The shallowest count is 5 plies: every depth stays at least 1.
constexpr long MaxOffset = 4;

const char* const Usage =
    "Usage: perftbench [OFFSET]\n"
    "\n"
    "Counts the leaf nodes of the move tree of a few positions to a fixed depth each and\n"
    "prints the nodes per second. OFFSET (default 0, from -4 to 4) deepens or shallows\n"
    "every count by that many plies.\n";

int usageError(const std::string& message) {
    std::fprintf(stderr, "perftbench: %s\nTry 'perftbench --help'.\n", message.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    long offset = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (isHelpWord(word)) {
            std::fputs(Usage, stdout);
            return 0;
        }
        if (looksLikeOption(word)) return usageError("unknown option: " + word);
        if (i > 1) return usageError("unexpected argument: " + word);
        if (!parseWholeNumber(word, -MaxOffset, MaxOffset, offset))
            return usageError("the offset must be a whole number from -4 to 4: " + word);
    }
    uint64_t totalNodes = 0;
    double totalSeconds = 0;
    for (const BenchPosition& b : Positions) {
        Position p;
        constructPosition(p);
        if (!parseFen(p, b.fen)) {
            std::printf("%-11s bad FEN\n", b.name);
            return 1;
        }
        PerftTable table(0);
        const int depth = b.depth + static_cast<int>(offset);
        const auto start = std::chrono::steady_clock::now();
        const uint64_t nodes = perftCount(table, p, depth);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        totalNodes += nodes;
        totalSeconds += seconds;
        std::printf("%-11s depth %d  nodes %12llu  time %7.3f s  %7.2f Mnps\n", b.name, depth,
                    static_cast<unsigned long long>(nodes), seconds, nodes / seconds / 1e6);
    }
    std::printf("%-11s          nodes %12llu  time %7.3f s  %7.2f Mnps\n", "total",
                static_cast<unsigned long long>(totalNodes), totalSeconds,
                totalNodes / totalSeconds / 1e6);
    return 0;
}
