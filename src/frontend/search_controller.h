// Starts and stops the thread on which a search runs, and keeps the worker searchers.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "search/limits.h"

struct Searcher;
class Reporter;

constexpr int MaxThreadCount = 8;
constexpr int MaxWorkers = MaxThreadCount - 1;
constexpr size_t SearchThreadStackBytes = 1024000;

class SearchController {
  public:
    SearchController(Searcher* mainSearcher, Reporter* reporter, SearchLimits* limits);
    // Stops a search that is still running, as quit does, so that no thread outlives the
    // searcher it works on.
    ~SearchController();
    SearchController(const SearchController&) = delete;
    SearchController& operator=(const SearchController&) = delete;

    // True if the search was started (or, when blocking, has run).
    bool launch(const GoRequest& request);
    // True if a search thread was waited for and ended normally. Returns after its bestmove
    // line was printed.
    bool stop();
    void setThreadCount(int n);

    Searcher* mainSearcher;
    Reporter* reporter;
    SearchLimits* limits;
    // What the workers see: they never stop by time, only by depth or by the main thread.
    SearchClock workerLimits;

    std::mutex lock;  // guards searchThread and the ring
    struct ThreadHandle {
        pthread_t id;
        bool valid;
    };
    ThreadHandle searchThread = {};
    ThreadHandle threadRing[4] = {};
    int32_t ringHead = 0;
    int32_t ringTail = 0;
    pthread_t workerThreads[MaxWorkers] = {};
    int32_t threadCount = 1;
    std::unique_ptr<Searcher> workers[MaxWorkers];
    bool blocking = false;
    // Written by the command thread, read by the search thread as it finishes.
    std::atomic<bool> quitRequested{false};

  private:
    static void* searchThreadEntry(void* controller);
    void searchBody();
    void reapRing();
    // Workers run the whole iterative deepening on their own searchers, from the same root;
    // they meet the main search only in the shared table.
    void launchWorkers();
    void stopWorkers();
    static void* workerThreadEntry(void* worker);
    bool workerRunning[MaxWorkers] = {};
};
