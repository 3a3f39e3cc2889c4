// One search of the current root to a fixed depth on the calling thread, as `go depth N` with
// the blocking option runs it.
#pragma once

#include <cstdint>

#include "search/limits.h"
#include "search/searcher.h"

inline void searchRootToDepth(Searcher& searcher, SearchLimits& limits, int depth) {
    searcher.buildRootList(nullptr, false);
    GoRequest request;
    request.depth = static_cast<int16_t>(depth);
    limits.setLimits(request);
    limits.startClock();
    searcher.searchRunning = true;
    searcher.stopRequested = false;
    runSearch(searcher, &limits);
}
