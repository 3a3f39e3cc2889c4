#include "frontend/search_controller.h"

#include "frontend/reporter.h"
#include "search/searcher.h"

namespace {

constexpr auto Relaxed = std::memory_order_relaxed;

}  // namespace

SearchController::SearchController(Searcher* mainSearcherIn, Reporter* reporterIn,
                                   SearchLimits* limitsIn)
    : mainSearcher(mainSearcherIn), reporter(reporterIn), limits(limitsIn) {
    workerLimits.maxDepth = 100;
    workerLimits.movesToPlan = 10.0;
    mainSearcher->limits = limits;
}

SearchController::~SearchController() {
    // The run is over: a search that still runs ends as at quit, without printing its move.
    quitRequested = true;
    stop();
    reapRing();
    for (auto& worker : workers) worker.reset();
}

void SearchController::reapRing() {
    for (;;) {
        ThreadHandle finished;
        {
            std::lock_guard<std::mutex> guard(lock);
            if (ringTail == ringHead) return;
            finished = threadRing[ringTail];
            threadRing[ringTail].valid = false;
            ringTail = (ringTail + 1) % 4;
        }
        if (finished.valid) pthread_join(finished.id, nullptr);
    }
}

bool SearchController::launch(const GoRequest& request) {
    const bool ponder = request.ponder;
    limits->setLimits(request);
    limits->startClock();
    mainSearcher->searchRunning.store(true, Relaxed);
    mainSearcher->ponderRequested.store(ponder, Relaxed);
    mainSearcher->infiniteRequested.store(request.infinite, Relaxed);
    mainSearcher->stopRequested.store(false, Relaxed);
    reapRing();

    // A ponder or infinite search never blocks: ponderhit and stop must get through.
    if (blocking && !ponder && !request.infinite) {
        searchBody();
        return true;
    }

    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setstacksize(&attributes, SearchThreadStackBytes);
    // Created under the lock, so that the thread cannot reach its end before its handle is
    // stored where it looks for it.
    std::lock_guard<std::mutex> guard(lock);
    pthread_t id;
    const bool started = pthread_create(&id, &attributes, searchThreadEntry, this) == 0;
    pthread_attr_destroy(&attributes);
    if (started) searchThread = {id, true};
    return started;
}

void* SearchController::searchThreadEntry(void* controller) {
    static_cast<SearchController*>(controller)->searchBody();
    return nullptr;
}

void SearchController::searchBody() {
    launchWorkers();
    runSearch(*mainSearcher, limits);
    stopWorkers();
    if (!quitRequested) {
        Searcher& s = *mainSearcher;
        if (!s.stopRequested.load(Relaxed) && s.nodeCount != 0) reporter->reportFinalStatistics();
        limits->stopClock();
        const Move best = s.rootBestMove;
        const Move ponder = s.ponderMove;
        const bool hasBest = moveFromTo(best) != 0;
        reporter->reportBestMove(hasBest ? &best : nullptr,
                                 moveFromTo(ponder) != 0 ? &ponder : nullptr, hasBest);
    }
    // If stop() has taken the handle already, it joins the thread itself.
    std::lock_guard<std::mutex> guard(lock);
    if (searchThread.valid) {
        threadRing[ringHead] = searchThread;
        ringHead = (ringHead + 1) % 4;
        searchThread.valid = false;
    }
}

void* SearchController::workerThreadEntry(void* worker) {
    runSearch(*static_cast<Searcher*>(worker), nullptr);
    return nullptr;
}

void SearchController::launchWorkers() {
    if (threadCount < 2) return;
    workerLimits.startClock();
    for (int i = 0; i < threadCount - 1 && i < MaxWorkers; ++i) {
        Searcher* worker = workers[i].get();
        if (!worker) continue;
        worker->copyStateFrom(*mainSearcher);
        worker->limits = &workerLimits;
        worker->searchRunning.store(false, Relaxed);
        pthread_attr_t attributes;
        if (pthread_attr_init(&attributes) != 0) continue;
        pthread_attr_setstacksize(&attributes, SearchThreadStackBytes);
        workerRunning[i] =
            pthread_create(&workerThreads[i], &attributes, workerThreadEntry, worker) == 0;
        pthread_attr_destroy(&attributes);
    }
}

void SearchController::stopWorkers() {
    bool any = false;
    for (int i = 0; i < MaxWorkers; ++i) {
        if (!workerRunning[i]) continue;
        Searcher* worker = workers[i].get();
        worker->searchRunning.store(false, Relaxed);
        worker->ponderRequested.store(false, Relaxed);
        worker->stopRequested.store(true, Relaxed);
        any = true;
    }
    for (int i = 0; i < MaxWorkers; ++i) {
        if (!workerRunning[i]) continue;
        pthread_join(workerThreads[i], nullptr);
        workerRunning[i] = false;
    }
    if (any) workerLimits.stopClock();
}

bool SearchController::stop() {
    mainSearcher->searchRunning.store(false, Relaxed);
    mainSearcher->ponderRequested.store(false, Relaxed);
    mainSearcher->infiniteRequested.store(false, Relaxed);
    mainSearcher->stopRequested.store(true, Relaxed);
    ThreadHandle running;
    {
        std::lock_guard<std::mutex> guard(lock);
        running = searchThread;
        searchThread.valid = false;
    }
    if (!running.valid) return false;
    return pthread_join(running.id, nullptr) == 0;
}

void SearchController::setThreadCount(int n) {
    threadCount = n;
    mainSearcher->threadCount = n;
    for (int i = 0; i < MaxWorkers; ++i) {
        if (i < n - 1) {
            if (!workers[i]) {
                workers[i].reset(new Searcher(*mainSearcher, static_cast<unsigned>(i + 1)));
            } else {
                workers[i]->threadCount = n;
            }
        } else {
            workers[i].reset();
        }
    }
}
