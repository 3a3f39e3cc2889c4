// Search signature: a fixed list of positions searched to a fixed depth on a fresh table with
// one thread. The total node count changes only when the search or evaluation changes, so it
// is recorded in signature.txt and checked by the tests; nodes per second measure speed.
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "board/text.h"
#include "search/limits.h"
#include "search/searcher.h"
#include "search/table.h"
#include "tools/support/command_line.h"

namespace {

const char* const BenchPositions[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "r1bqk2r/pppp1ppp/2n2n2/2b1p3/2B1P3/2NP1N2/PPP2PPP/R1BQK2R b KQkq - 0 5",
    "r2q1rk1/pp2bppp/2n1bn2/3p4/3P4/2NBBN2/PP3PPP/R2Q1RK1 w - - 4 11",
    "r1bq1rk1/pp3ppp/2nbpn2/2pp4/3P4/2PBPN2/PP1N1PPP/R1BQ1RK1 w - - 0 8",
    "2r3k1/pp3ppp/4p3/3pP3/3P4/P4N2/1P3PPP/2R3K1 w - - 0 22",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
    "4rrk1/pp1n1pp1/2p2q1p/3p4/3P4/2PBP2P/PP1Q1PP1/R4RK1 w - - 0 16",
    "8/8/4k3/3p4/3P4/4K3/8/8 w - - 0 1",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - - 0 10",
    "6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - - 0 1",
    "2kr3r/ppp2ppp/2n5/2b1q3/4P3/2N2N2/PPP2PPP/R2QKB1R w KQ - 0 11",
};

constexpr long DefaultDepth = 9;
constexpr long DefaultHashMiB = 16;
constexpr long MaxHashMiB = 32767;  // as the engine's Hash option

const long MaxDepth = MaxPly - 1;

// A format for the defaults and limits above, in this order.
const char* const Usage =
    "Usage: bench [DEPTH] [HASH]\n"
    "\n"
    "Searches a fixed list of positions to DEPTH (default %ld, at most %ld) on a fresh table\n"
    "of HASH MiB (default %ld, at most %ld) with one thread. Prints each position's best\n"
    "move and node count, then the total and the nodes per second. The total at the default\n"
    "settings is the signature of the search.\n";

int usageError(const std::string& message) {
    std::fprintf(stderr, "bench: %s\nTry 'bench --help'.\n", message.c_str());
    return 2;
}

int runBench(int depth, int hashMiB) {
    auto searcher = std::make_unique<Searcher>(static_cast<size_t>(hashMiB) * 1048576);
    SearchLimits limits;
    uint64_t totalNodes = 0;
    double totalSeconds = 0;
    for (const char* fen : BenchPositions) {
        if (!setGameFromFen(*searcher, fen)) {
            std::printf("bad position %s\n", fen);
            return 1;
        }
        searcher->table->clearTable();
        searcher->buildRootList(nullptr, false);
        GoRequest request;
        request.depth = static_cast<int16_t>(depth);
        limits.setLimits(request);
        limits.startClock();
        searcher->searchRunning.store(true);
        searcher->stopRequested.store(false);
        const auto start = std::chrono::steady_clock::now();
        runSearch(*searcher, &limits);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        char move[16];
        writeMove(searcher->position, searcher->rootBestMove, StyleCoordinates, move);
        std::printf("%-70s %-6s %10llu nodes %7.3f s\n", fen, move,
                    static_cast<unsigned long long>(searcher->nodeCount), seconds);
        totalNodes += searcher->nodeCount;
        totalSeconds += seconds;
    }
    std::printf("Total: %llu nodes, %.3f s, %.0f nodes/s (depth %d)\n",
                static_cast<unsigned long long>(totalNodes), totalSeconds,
                totalNodes / totalSeconds, depth);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    long numbers[2] = {DefaultDepth, DefaultHashMiB};
    const char* const names[2] = {"depth", "hash size in MiB"};
    const long highest[2] = {MaxDepth, MaxHashMiB};
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (isHelpWord(word)) {
            std::printf(Usage, DefaultDepth, MaxDepth, DefaultHashMiB, MaxHashMiB);
            return 0;
        }
        if (looksLikeOption(word)) return usageError("unknown option: " + word);
        if (count == 2) return usageError("unexpected argument: " + word);
        if (!parseWholeNumber(word, 1, highest[count], numbers[count])) {
            return usageError(std::string(names[count]) + " must be a whole number from 1 to " +
                              std::to_string(highest[count]) + ": " + word);
        }
        ++count;
    }
    return runBench(static_cast<int>(numbers[0]), static_cast<int>(numbers[1]));
}
