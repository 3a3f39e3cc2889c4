// The search controller with several threads, driven in-process so that the thread sanitizer
// sees every thread: start, stop, ponder and ponderhit at changing moments, options in between.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "frontend/engine_session.h"
#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "search/searcher.h"

namespace {

// Counts the bestmove lines of a session and drops the rest.
class BestMoveCounter : public OutputSink {
  public:
    void writeLine(const char* text) override {
        if (std::strncmp(text, "bestmove", 8) == 0) ++bestMoves;
    }
    std::atomic<int> bestMoves{0};
};

SessionSettings countingSettings(BestMoveCounter& counter) {
    SessionSettings settings;
    settings.tableBytes = 2 << 20;
    settings.output = &counter;
    return settings;
}

// A UCI session whose controller the tests drive directly.
struct ThreadedSearch {
    BestMoveCounter reporter;
    EngineSession session{countingSettings(reporter)};
    SearchController* controller = nullptr;
    Searcher* main = &session.searcher();

    ThreadedSearch() {
        session.handleLine("uci");
        controller = session.controller();
    }
    void setPosition(const char* fen) {
        // Through the interpreter, which stops a running search and keeps the reporter's copy
        // of the root in step.
        session.handleLine((std::string("position fen ") + fen).c_str());
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
    GoRequest request;
    request.depth = 5;
    ASSERT_TRUE(t.controller->launch(request));
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
        GoRequest request;
        request.ponder = random() % 2;
        request.time = 2000;
        request.increment = 20;
        request.infinite = !request.ponder && random() % 2;
        ASSERT_TRUE(t.controller->launch(request));
        ++launched;
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 40));
        if (request.ponder) t.main->ponderHit();
        if (random() % 3 == 0) t.main->clearTable();  // may come at any time
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 40));
        t.controller->stop();
    }
    // Every search ends with exactly one move, whether it stopped by itself or was stopped.
    EXPECT_EQ(t.reporter.bestMoves, launched);
}

// The command thread of a UCI session in-process: every option arrives while a search runs,
// between go, ponderhit and stop at random moments, and each session ends in a search, by
// quit or by the end of input. Whatever the option touches, the search thread and its workers
// must never race with it, and no thread outlives its session.
TEST(Threads, OptionsArriveDuringASearch) {
    const std::string timeLog = ::testing::TempDir() + "zelmark_threads_timelog.txt";
    // Clear Hash is left out: the table is lockless by design and clearing it during a search
    // is the test above; under the thread sanitizer it only costs time here.
    const std::vector<std::string> options = {"Hash value 2",
                                              "MultiPV value 3",
                                              "MultiPV value 1",
                                              "NumberOfProcessors value 3",
                                              "NumberOfProcessors value 1",
                                              "Ponder value false",
                                              "Ponder value true",
                                              "OwnBook value true",
                                              "UCI_Chess960 value true",
                                              "UCI_Chess960 value false",
                                              "NoOutput value true",
                                              "NoOutput value false",
                                              "AlwaysClearHash value true",
                                              "AlwaysClearHash value false",
                                              "NeuroMaterial value 40",
                                              "NeuroWidth value 700",
                                              "Resign value 500",
                                              "TimeLogfile value " + timeLog,
                                              "TimeLogfile value nul:",
                                              "MaterialFile value /nonexistent/net.txt",
                                              "BookFile value x",
                                              "BitbasePath value /nonexistent",
                                              "BitbaseCache value 2",
                                              "blocking value false"};
    const std::vector<std::string> searches = {"go infinite",
                                               "go wtime 3000 btime 3000 winc 30 binc 30",
                                               "go ponder wtime 2000 btime 2000",
                                               "go depth 30",
                                               "go movetime 60",
                                               "go nodes 40000"};
    std::mt19937 random(5);
    int bestMoves = 0;
    for (int session = 0; session < 3; ++session) {
        BestMoveCounter reporter;
        {
            EngineSession uci(countingSettings(reporter));
            uci.handleLine("uci");
            uci.handleLine("debug on");
            for (int round = 0; round < 20; ++round) {
                uci.handleLine(round % 2
                                   ? "position startpos moves e2e4 c7c5 g1f3"
                                   : "position fen 8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1");
                uci.handleLine(searches[random() % searches.size()].c_str());
                for (int n = 1 + random() % 3; n > 0; --n) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 25));
                    const std::string option =
                        "setoption name " + options[random() % options.size()];
                    uci.handleLine(option.c_str());
                }
                if (random() % 2) uci.handleLine("ponderhit");
                std::this_thread::sleep_for(std::chrono::milliseconds(random() % 25));
                uci.handleLine(random() % 4 ? "stop" : "isready");
            }
            uci.handleLine("setoption name NumberOfProcessors value 3");
            uci.handleLine("go infinite");
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (session == 0) uci.handleLine("quit");
            if (session == 1) uci.handleLine("stop");
            // Session 2 ends with its search running, as at the end of input.
        }
        bestMoves += reporter.bestMoves;
    }
    std::remove(timeLog.c_str());
    EXPECT_GT(bestMoves, 0);
}

}  // namespace
