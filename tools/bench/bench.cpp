// Search signature: a fixed list of positions searched to a fixed depth on a fresh table with
// one thread. The total node count changes only when the search or evaluation changes, so it
// is quoted in commit messages; nodes per second measure speed.
// Usage: bench [depth] [hash MiB]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "board/text.h"
#include "search/limits.h"
#include "search/searcher.h"
#include "search/table.h"

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

}  // namespace

int main(int argc, char** argv) {
    const int depth = argc > 1 ? std::atoi(argv[1]) : 9;
    const int hashMiB = argc > 2 ? std::atoi(argv[2]) : 16;
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
