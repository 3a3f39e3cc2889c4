// The material tools, testpos and the ucitest start word through the real binary.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "protocol/engine_process.h"

namespace {

namespace fs = std::filesystem;

const std::string EngineGames = ZELMARK_TEST_DATA "/pgn/engine_games.pgn";

std::string scratchPath(const std::string& name) {
    return ::testing::TempDir() + "protocol_mat_" + std::to_string(getpid()) + "_" + name;
}

size_t lineCount(const std::string& name) {
    std::ifstream in(name);
    size_t count = 0;
    for (std::string line; std::getline(in, line);) ++count;
    return count;
}

TEST(UciTest, EachSearchPrintsOnlyItsTimingLineWithRunningSumAndGeometricMean) {
    EngineProcess engine;
    engine.send("ucitest");
    // A book move is no search and gets no line; the tests may run beside a book file.
    engine.send("setoption name OwnBook value false");
    engine.send("isready");
    engine.send("position startpos moves e2e4");
    std::vector<double> seconds;
    double sum = 0.0, product = 1.0;
    for (int n = 1; n <= 3; ++n) {
        engine.send("go depth " + std::to_string(3 + n));
        const std::optional<std::string> line = engine.readLine();
        ASSERT_TRUE(line.has_value());
        int count = 0;
        double s = 0, total = 0, mean = 0;
        char rest = 0;
        ASSERT_EQ(
            std::sscanf(line->c_str(), "%4d %lf %lf %lf %c", &count, &s, &total, &mean, &rest), 4)
            << *line;
        EXPECT_EQ(count, n);
        sum += s;
        product *= s;
        EXPECT_NEAR(total, sum, 1e-9) << *line;
        EXPECT_NEAR(mean, std::pow(product, 1.0 / n), 1e-6) << *line;
    }
    // No uciok, readyok, info or bestmove line.
    EXPECT_TRUE(engine.silentFor(300));
    ASSERT_TRUE(engine.finish());
    EXPECT_TRUE(engine.remainingLines.empty());
    EXPECT_EQ(engine.exitStatus, 0);
}

TEST(Mat, FilesThatDoNotOpenAreReportedAndAWriteUsesTheStatisticsUp) {
    const std::string table = scratchPath("table.txt");
    const std::string dump = scratchPath("dump.bin");
    EngineProcess engine;
    startUci(engine);
    // Nothing to write without statistics, and nothing said.
    engine.send("mat write " + table);
    engine.send("mat writemem " + dump);
    engine.send("mat readmem /nonexistent/dump.bin");
    EXPECT_EQ(engine.readLine(), "info string error opening the input file /nonexistent/dump.bin");
    engine.send("mat add /nonexistent/games.pgn");
    engine.send("mat add " + EngineGames + " value 2000");
    engine.send("mat writemem /nonexistent/dump.bin");
    EXPECT_EQ(engine.readLine(), "info string error opening the output file /nonexistent/dump.bin");
    engine.send("mat writemem " + dump);
    engine.send("mat write /nonexistent/table.txt");
    EXPECT_EQ(engine.readLine(),
              "info string error opening the output file /nonexistent/table.txt");
    // That write used the statistics up; the dump brings them back.
    engine.send("mat write " + table);
    engine.send("isready");
    EXPECT_EQ(engine.readLine(), "readyok");
    EXPECT_FALSE(fs::exists(table));
    engine.send("mat readmem " + dump);
    engine.send("mat write " + table);
    engine.send("isready");
    EXPECT_EQ(engine.readLine(), "readyok");
    EXPECT_GT(lineCount(table), 5u);

    // A running search is stopped without a bestmove before the tools start.
    engine.send("go infinite");
    engine.send("mat rnd 20");
    engine.send("mat write " + table);
    engine.send("testpos /nonexistent/control.txt");
    EXPECT_EQ(engine.readUntil("info string"),
              std::vector<std::string>{"info string error opening the input file "
                                       "/nonexistent/control.txt"});
    EXPECT_GT(lineCount(table), 5u);
    ASSERT_TRUE(engine.finish());
    EXPECT_TRUE(engine.remainingLines.empty());
    EXPECT_EQ(engine.exitStatus, 0);
    std::remove(table.c_str());
    std::remove(dump.c_str());
}

}  // namespace
