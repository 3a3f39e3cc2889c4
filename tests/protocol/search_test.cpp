// Real searches through the binary: info lines, clocks, pondering, multipv, threads.
#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "protocol/engine_process.h"

namespace {

std::vector<std::string> searchUntilBestMove(EngineProcess& engine, const std::string& go,
                                             int timeoutMs = 20000) {
    engine.send(go);
    return engine.readUntil("bestmove", timeoutMs);
}

int countPrefix(const std::vector<std::string>& lines, const char* prefix) {
    int n = 0;
    for (const std::string& l : lines) n += l.rfind(prefix, 0) == 0;
    return n;
}

long long msSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

}  // namespace

TEST(Search, DepthSearchPrintsInfoLinesInFieldOrderAndAPonderMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos moves e2e4");
    const std::vector<std::string> lines = searchUntilBestMove(engine, "go depth 6");
    ASSERT_GE(lines.size(), 2u);
    EXPECT_TRUE(isBestMoveLine(lines.back())) << lines.back();
    EXPECT_NE(lines.back().find(" ponder "), std::string::npos) << lines.back();
    const std::regex pvLine(
        "info depth \\d+ seldepth \\d+ time \\d+ nodes \\d+ pv( [a-h][1-8][a-h][1-8][qrbn]?)+ "
        "score (cp|mate) -?\\d+( lowerbound| upperbound)? hashfull \\d+ nps \\d+");
    int pvLines = 0;
    for (const std::string& l : lines) {
        if (l.find(" pv ") == std::string::npos) continue;
        ++pvLines;
        EXPECT_TRUE(std::regex_match(l, pvLine)) << l;
    }
    EXPECT_GT(pvLines, 0);
    // The last status line before the move: depth 6 done.
    EXPECT_EQ(lines[lines.size() - 2].rfind("info depth 6 ", 0), 0u) << lines[lines.size() - 2];
}

TEST(Search, ClockedSearchAnswersInTime) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(isBestMoveLine(
        lastLine(searchUntilBestMove(engine, "go wtime 3000 btime 3000 winc 0 binc 0"))));
    EXPECT_LT(msSince(start), 1500);
}

TEST(Search, PonderhitAfterTheTimeIsGonePlaysAtOnce) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos moves e2e4 e7e5");
    engine.send("go ponder wtime 400 btime 400");
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    const auto start = std::chrono::steady_clock::now();
    engine.send("ponderhit");
    EXPECT_TRUE(isBestMoveLine(lastLine(engine.readUntil("bestmove", 3000))));
    EXPECT_LT(msSince(start), 500);
}

TEST(Search, MultiPvPrintsOneLinePerWantedMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send("setoption name MultiPV value 3");
    engine.send("position startpos");
    const std::vector<std::string> lines = searchUntilBestMove(engine, "go depth 4");
    EXPECT_TRUE(isBestMoveLine(lastLine(lines)));
    for (const char* k :
         {"info multipv 1 depth 4 ", "info multipv 2 depth 4 ", "info multipv 3 depth 4 "})
        EXPECT_EQ(countPrefix(lines, k), 1) << k;
    EXPECT_EQ(countPrefix(lines, "info multipv 4 "), 0);
}

TEST(Search, SeveralThreadsSearchAndEndCleanly) {
    EngineProcess engine;
    startUci(engine);
    engine.send("setoption name NumberOfProcessors value 3");
    engine.send("position startpos moves d2d4 d7d5 c2c4");
    EXPECT_TRUE(isBestMoveLine(lastLine(searchUntilBestMove(engine, "go depth 8"))));
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
}

// The largest Hash is more than this kind of machine holds: the table shrinks until the
// system gives the memory, and the engine plays on.
TEST(Search, LargestHashTakesWhatTheMachineGives) {
    EngineProcess engine;
    startUci(engine);
    engine.send("setoption name Hash value 32767");
    engine.send("isready");
    EXPECT_EQ(lastLine(engine.readUntil("readyok", 60000)), "readyok");
    EXPECT_TRUE(isBestMoveLine(lastLine(searchUntilBestMove(engine, "go depth 6"))));
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
}

// An infinite search ends only at stop or quit, also when it has nothing left to search: one
// legal move, a proven mate, or a blocking setting that would otherwise hold the command loop.
TEST(Search, InfiniteSearchWaitsForStopWhateverItFinds) {
    EngineProcess engine;
    startUci(engine);
    const char* const cases[][2] = {
        {"position fen k7/8/8/8/8/8/r7/7K w - - 0 1", "one legal move"},
        {"position fen 6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1", "mate in one"},
        {"setoption name blocking value true", "blocking"},
    };
    for (const auto& c : cases) {
        engine.send(c[0]);
        engine.send("go infinite");
        const std::vector<std::string> early = engine.readUntil("bestmove", 1500);
        EXPECT_EQ(countPrefix(early, "bestmove"), 0) << c[1] << ": " << lastLine(early);
        engine.send("stop");
        const std::string line = lastLine(engine.readUntil("bestmove", 5000));
        EXPECT_TRUE(isBestMoveLine(line)) << c[1] << ": " << line;
    }
    engine.send("go infinite");
    engine.send("quit");
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_EQ(countPrefix(engine.remainingLines, "bestmove"), 0);
}
