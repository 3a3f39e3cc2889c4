#include "search/limits.h"
#include "search/searcher.h"

// Stand-in until the real search lands: answers the first legal root move.
bool runSearch(Searcher& searcher, SearchClock* limits) {
    if (limits) searcher.limits = limits;
    searcher.firstIteration = true;
    searcher.nodeCount = 0;
    searcher.iterationDepth = 0;
    searcher.selDepth = 0;
    searcher.rootBestMove = NoMove;
    searcher.ponderMove = NoMove;
    if (searcher.rootCount > 0) {
        searcher.rootBestMove = searcher.rootMoves[0].move;
        searcher.nodeCount = 1;
    }
    searcher.waitWhilePondering();
    return !searcher.stopRequested.load(std::memory_order_relaxed);
}
