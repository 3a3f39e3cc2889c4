// The search controller with several threads, driven in-process so that the thread sanitizer
// sees every thread: start, stop, ponder and ponderhit at changing moments, options in between.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

#include "board/text.h"
#include "frontend/search_controller.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

class CountingReporter : public NullReporter {
  public:
    void reportBestMove(const Move* best, const Move*, bool) override {
        if (best) ++bestMoves;
    }
    std::atomic<int> bestMoves{0};
};

struct ThreadedSearch {
    std::unique_ptr<Searcher> main = std::make_unique<Searcher>(2 << 20);
    SearchLimits limits;
    CountingReporter reporter;
    std::unique_ptr<SearchController> controller;

    ThreadedSearch() {
        controller = std::make_unique<SearchController>(main.get(), &reporter, &limits);
        main->setReporter(&reporter);
    }
    ~ThreadedSearch() {
        controller.reset();
        main->setReporter(nullptr);
    }
    void setPosition(const char* fen) {
        // Commands that touch the position stop a running search first.
        controller->stop();
        ASSERT_TRUE(setGameFromFen(*main, fen));
        main->buildRootList(nullptr, false);
    }
    bool waitForMoves(int count, int timeoutMs) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (reporter.bestMoves < count && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return reporter.bestMoves >= count;
    }
};

const char* const Middlegame = "r1bq1rk1/pp3ppp/2nbpn2/2pp4/3P4/2PBPN2/PP1N1PPP/R1BQ1RK1 w - - 0 8";

TEST(Threads, TwoThreadsFinishADepthSearch) {
    ThreadedSearch t;
    t.controller->setThreadCount(2);
    t.setPosition(Middlegame);
    ASSERT_TRUE(t.controller->launch(false, 0, 0, 0, 5, 0, 0, 0, false));
    EXPECT_TRUE(t.waitForMoves(1, 60000));
    t.controller->stop();
    EXPECT_EQ(t.reporter.bestMoves, 1);
}

TEST(Threads, StopPonderhitAndOptionsAtRandomMoments) {
    ThreadedSearch t;
    std::mt19937 random(11);
    int launched = 0;
    for (int round = 0; round < 24; ++round) {
        t.controller->stop();
        t.controller->setThreadCount(1 + static_cast<int>(random() % 3));
        t.setPosition(round % 2 ? Middlegame : "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1");
        const bool ponder = random() % 2;
        ASSERT_TRUE(t.controller->launch(ponder, 2000, 20, 0, 0, 0, 0, 0, !ponder && random() % 2));
        ++launched;
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 40));
        if (ponder) t.main->ponderHit();
        if (random() % 3 == 0) t.main->clearTable();  // may come at any time
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 40));
        t.controller->stop();
    }
    // Every search ends with exactly one move, whether it stopped by itself or was stopped.
    EXPECT_EQ(t.reporter.bestMoves, launched);
}

}  // namespace
