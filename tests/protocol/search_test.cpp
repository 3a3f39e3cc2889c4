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

bool startsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

int countPrefix(const std::vector<std::string>& lines, const char* prefix) {
    int n = 0;
    for (const std::string& l : lines) n += startsWith(l, prefix);
    return n;
}

}  // namespace

TEST(Search, DepthSearchPrintsInfoLinesInFieldOrderAndAPonderMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos moves e2e4");
    const std::vector<std::string> lines = searchUntilBestMove(engine, "go depth 6");
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back())) << lines.back();
    EXPECT_NE(lines.back().find(" ponder "), std::string::npos) << lines.back();
    const std::string pvLine =
        "info depth \\d+ seldepth \\d+ time \\d+ nodes \\d+ pv( [a-h][1-8][a-h][1-8][qrbn]?)+ "
        "score (cp|mate) -?\\d+( lowerbound| upperbound)? hashfull \\d+ nps \\d+";
    int pvLines = 0;
    for (const std::string& l : lines) {
        if (l.find(" pv ") == std::string::npos) continue;
        ++pvLines;
        EXPECT_TRUE(std::regex_match(l, std::regex(pvLine))) << l;
    }
    EXPECT_GT(pvLines, 0);
    // The last status line before the move: depth 6 done.
    ASSERT_GE(lines.size(), 2u);
    EXPECT_TRUE(startsWith(lines[lines.size() - 2], "info depth 6 ")) << lines[lines.size() - 2];
}

TEST(Search, MateIsAnnouncedInMoves) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position fen 3r2k1/5ppp/8/8/8/8/4R3/4R1K1 w - - 0 1");
    const std::vector<std::string> lines = searchUntilBestMove(engine, "go depth 6");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().substr(0, 13), "bestmove e2e8");
    bool mateTwo = false;
    for (const std::string& l : lines) mateTwo |= l.find(" score mate 2") != std::string::npos;
    EXPECT_TRUE(mateTwo);
}

TEST(Search, ClockedSearchAnswersInTime) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos");
    const auto start = std::chrono::steady_clock::now();
    const std::vector<std::string> lines =
        searchUntilBestMove(engine, "go wtime 3000 btime 3000 winc 0 binc 0");
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::steady_clock::now() - start)
                        .count();
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back()));
    EXPECT_LT(ms, 1500);
    engine.send("position startpos");
    const auto start2 = std::chrono::steady_clock::now();
    const std::vector<std::string> timed = searchUntilBestMove(engine, "go movetime 300");
    const auto ms2 = std::chrono::duration_cast<std::chrono::milliseconds>(
                         std::chrono::steady_clock::now() - start2)
                         .count();
    EXPECT_TRUE(isBestMoveLine(timed.back()));
    EXPECT_GE(ms2, 100);  // no iteration starts after 300 / 2.2 ms
    EXPECT_LT(ms2, 1200);
}

TEST(Search, PonderhitAfterTheTimeIsGonePlaysAtOnce) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos moves e2e4 e7e5");
    engine.send("go ponder wtime 400 btime 400");
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    const auto start = std::chrono::steady_clock::now();
    engine.send("ponderhit");
    const std::vector<std::string> lines = engine.readUntil("bestmove", 3000);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::steady_clock::now() - start)
                        .count();
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back())) << lines.back();
    EXPECT_LT(ms, 500);
}

TEST(Search, MultiPvPrintsOneLinePerWantedMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send("setoption name MultiPV value 3");
    engine.send("position startpos");
    const std::vector<std::string> lines = searchUntilBestMove(engine, "go depth 4");
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back()));
    for (const char* k :
         {"info multipv 1 depth 4 ", "info multipv 2 depth 4 ", "info multipv 3 depth 4 "})
        EXPECT_EQ(countPrefix(lines, k), 1) << k;
    EXPECT_EQ(countPrefix(lines, "info multipv 4 "), 0);
}

TEST(Search, SeveralThreadsSearchAndStopCleanly) {
    EngineProcess engine;
    startUci(engine);
    engine.send("setoption name NumberOfProcessors value 3");
    engine.send("position startpos moves d2d4 d7d5 c2c4");
    std::vector<std::string> lines = searchUntilBestMove(engine, "go depth 8");
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back()));
    engine.send("go infinite");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    engine.send("stop");
    lines = engine.readUntil("bestmove", 5000);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back()));
    engine.send("setoption name NumberOfProcessors value 1");
    lines = searchUntilBestMove(engine, "go depth 4");
    EXPECT_TRUE(isBestMoveLine(lines.back()));
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
    const std::vector<std::string> ready = engine.readUntil("readyok", 60000);
    ASSERT_FALSE(ready.empty());
    EXPECT_EQ(ready.back(), "readyok");
    std::vector<std::string> lines = searchUntilBestMove(engine, "go depth 6");
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back()));
    engine.send("setoption name Hash value 1");
    lines = searchUntilBestMove(engine, "go depth 6");
    EXPECT_TRUE(isBestMoveLine(lines.back()));
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
}

TEST(Search, NodesAndMateLimits) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos");
    std::vector<std::string> lines = searchUntilBestMove(engine, "go nodes 5000");
    EXPECT_TRUE(isBestMoveLine(lines.back()));
    engine.send("position fen 6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1");
    lines = searchUntilBestMove(engine, "go mate 1");
    EXPECT_EQ(lines.back().substr(0, 13), "bestmove a1a8");
}

TEST(Search, StopRightAfterGoStillAnswersWithAMove) {
    EngineProcess engine;
    startUci(engine);
    for (int i = 0; i < 5; ++i) {
        engine.send("position startpos moves e2e4");
        engine.send(i % 2 ? "go ponder wtime 1000 btime 1000" : "go infinite");
        engine.send("stop");
        const std::vector<std::string> lines = engine.readUntil("bestmove", 5000);
        ASSERT_FALSE(lines.empty());
        EXPECT_TRUE(isBestMoveLine(lines.back())) << lines.back();
    }
}
