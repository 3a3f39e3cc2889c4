#include "frontend/test_positions.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/text.h"
#include "book/pgn_reader.h"
#include "learn/neural_net.h"
#include "search/searcher.h"
#include "support/line_collector.h"

namespace {

namespace fs = std::filesystem;

const std::string EngineGames = ZELMARK_TEST_DATA "/pgn/engine_games.pgn";

// Small enough for a test, large enough that the searches see something.
TestPositionSettings smallSettings() {
    TestPositionSettings settings;
    settings.tableBytes = 1 << 20;
    settings.maxNodes = 3000;
    settings.maxNodesHard = 30000;
    return settings;
}

std::string fileText(const std::string& name) {
    std::ifstream in(name);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> fileLines(const std::string& name) {
    std::ifstream in(name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class TestPositionFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("zelmark_testpos_" +
               std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) +
               std::to_string(::getpid()));
        fs::create_directories(dir);
        reporter.output = &output;
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string path(const char* name) const { return (dir / name).string(); }
    void writeControl(const std::string& games, long lastDone = 0) {
        std::ofstream(path("control.txt")) << path("middle.txt") << "\n"
                                           << path("end.txt") << "\n"
                                           << lastDone << "\n"
                                           << games << "\n";
    }
    // The games of the engine's test file with one result only, as a file of their own.
    std::string gamesWithResult(const char* result) {
        std::ifstream in(EngineGames);
        std::stringstream all;
        all << in.rdbuf();
        const std::string text = all.str();
        std::string kept;
        for (size_t begin = 0; begin < text.size();) {
            size_t end = text.find("[Event ", begin + 1);
            if (end == std::string::npos) end = text.size();
            const std::string game = text.substr(begin, end - begin);
            if (game.find(std::string("[Result \"") + result + "\"]") != std::string::npos)
                kept += game;
            begin = end;
        }
        const std::string name = path(result[0] == '1' && result[1] == '/' ? "draws.pgn"
                                      : result[0] == '1'                   ? "white.pgn"
                                                                           : "black.pgn");
        std::ofstream(name) << kept;
        return name;
    }
    fs::path dir;
    LineCollector output;
    NullReporter reporter;
};

TEST(TestPositions, KeepRuleFollowsTheResult) {
    struct Case {
        int result;
        long value, clamped;
        bool kept;
    };
    const Case cases[] = {
        {ResultWhiteWins, 100, 100, true},    {ResultWhiteWins, 100, 99, false},
        {ResultWhiteWins, -300, -200, true},  {ResultBlackWins, 100, 99, true},
        {ResultBlackWins, -200, -100, false}, {ResultBlackWins, 50, 50, true},
        {ResultDraw, 300, -300, true},        {ResultDraw, 300, 301, false},
        {ResultDraw, -300, 200, true},        {ResultDraw, -10, -11, false},
        {ResultWhiteWins, 400, 400000, true}, {ResultDraw, 0, 400000, false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(keepsTestPosition(c.result, c.value, c.clamped), c.kept)
            << c.result << " " << c.value << " " << c.clamped;
}

// Every line: the static value, the clamped score and a FEN, of a quiet position out of check
// whose static value is the one written, and that the keep rule of the file's result takes.
void checkKeptLines(const std::vector<std::string>& lines, int resultCode,
                    std::set<uint64_t>& keys) {
    for (const std::string& line : lines) {
        ASSERT_GT(line.size(), TestPositionFenColumn) << line;
        long value = 0, clamped = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "%8ld%8ld", &value, &clamped), 2) << line;
        EXPECT_EQ(line[16], ' ') << line;
        const auto searcher = std::make_unique<Searcher>(1 << 16);
        ASSERT_TRUE(setGameFromFen(*searcher, line.c_str() + TestPositionFenColumn)) << line;
        EXPECT_TRUE(keys.insert(searcher->position.hashKey).second) << "twice: " << line;
        EXPECT_FALSE(sideToMoveInCheck(searcher->position)) << line;
        int quiet = 0;
        EXPECT_TRUE(searcher->quietPosition(&quiet)) << line;
        EXPECT_EQ(quiet, value) << line;
        EXPECT_LE(std::abs(clamped), TestPositionScoreLimit) << line;
        EXPECT_TRUE(keepsTestPosition(resultCode, value, clamped)) << line;
    }
}

TEST_F(TestPositionFiles, KeptPositionsAreQuietOutOfCheckAndAgreeWithTheResult) {
    const struct {
        const char* result;
        int code;
    } files[] = {{"1-0", ResultWhiteWins}, {"0-1", ResultBlackWins}, {"1/2-1/2", ResultDraw}};
    RandomSource::instance().seed(77);
    size_t kept = 0;
    for (const auto& file : files) {
        // Games of different results may share an opening position; within one run's files
        // none comes twice.
        std::set<uint64_t> keys;
        fs::remove(path("middle.txt"));
        fs::remove(path("end.txt"));
        writeControl(gamesWithResult(file.result));
        runTestPositions(path("control.txt"), reporter, smallSettings());
        for (const char* name : {"middle.txt", "end.txt"}) {
            const std::vector<std::string> lines = fileLines(path(name));
            kept += lines.size();
            checkKeptLines(lines, file.code, keys);
        }
    }
    EXPECT_GT(kept, 5u);
}

// The number of each game announced in the progress lines.
std::vector<long> announcedGames(const std::vector<std::string>& lines) {
    std::vector<long> games;
    for (const std::string& line : lines) {
        const size_t at = line.find("Partie");
        if (at != std::string::npos) games.push_back(std::stol(line.substr(at + 6)));
    }
    return games;
}

TEST_F(TestPositionFiles, SecondRunGoesOnAfterTheLastGameAndAddsNoDuplicate) {
    RandomSource::instance().seed(78);
    writeControl(EngineGames);
    runTestPositions(path("control.txt"), reporter, smallSettings());
    const std::vector<std::string> control = fileLines(path("control.txt"));
    ASSERT_EQ(control.size(), 4u);
    const long lastDone = std::stol(control[2]);
    EXPECT_GT(lastDone, 1);
    EXPECT_EQ(control[3], EngineGames);
    const std::vector<long> first = announcedGames(output.take());
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first.front(), 1);

    // As the control file was left: on after the last game that gave a position.
    runTestPositions(path("control.txt"), reporter, smallSettings());
    const std::vector<long> resumed = announcedGames(output.take());
    if (!resumed.empty()) {
        EXPECT_GT(resumed.front(), lastDone);
    }
    EXPECT_GT(first.size(), resumed.size());

    // The files hold the positions of the games seen: searching them again, with fresh random
    // skips, must not write any of them a second time.
    writeControl(EngineGames, 1);
    const std::string middleBefore = fileText(path("middle.txt"));
    const std::string endBefore = fileText(path("end.txt"));
    runTestPositions(path("control.txt"), reporter, smallSettings());
    const std::vector<long> second = announcedGames(output.take());
    ASSERT_FALSE(second.empty());
    EXPECT_GT(second.front(), 1);
    std::set<uint64_t> keys;
    std::vector<std::string> all = fileLines(path("middle.txt"));
    const std::vector<std::string> end = fileLines(path("end.txt"));
    all.insert(all.end(), end.begin(), end.end());
    for (const std::string& line : all) {
        Position p;
        constructPosition(p);
        ASSERT_NE(parseFen(p, line.c_str() + TestPositionFenColumn), nullptr) << line;
        EXPECT_TRUE(keys.insert(p.hashKey).second) << "twice: " << line;
    }
    // What was there stays as it was; new lines only come behind.
    EXPECT_EQ(fileText(path("middle.txt")).compare(0, middleBefore.size(), middleBefore), 0);
    EXPECT_EQ(fileText(path("end.txt")).compare(0, endBefore.size(), endBefore), 0);
}

TEST_F(TestPositionFiles, BadControlFilesTouchNothing) {
    runTestPositions(path("missing.txt"), reporter, smallSettings());
    const std::vector<std::string> lines = output.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "info string error opening the input file " + path("missing.txt"));

    const std::string threeLines = path("middle.txt") + "\n" + path("end.txt") + "\n0\n";
    std::ofstream(path("control.txt")) << threeLines;
    runTestPositions(path("control.txt"), reporter, smallSettings());
    EXPECT_EQ(fileText(path("control.txt")), threeLines);
    EXPECT_FALSE(fs::exists(path("middle.txt")));

    // Names of three characters or fewer stand for no file: nothing to write, nothing walked.
    const std::string noFiles = "abc\n-\n0\n" + EngineGames + "\n";
    std::ofstream(path("control.txt")) << noFiles;
    runTestPositions(path("control.txt"), reporter, smallSettings());
    EXPECT_TRUE(output.take().empty());
    EXPECT_EQ(fileText(path("control.txt")), noFiles);

    // A game file that does not open, or ends in a broken game, ends the walk quietly.
    writeControl(path("none.pgn"));
    runTestPositions(path("control.txt"), reporter, smallSettings());
    std::ofstream(path("broken.pgn")) << "[Event \"x\"]\n[Result \"1-0\"]\n\n1. e4 e5 2. Ke3 1-0\n";
    writeControl(path("broken.pgn"));
    runTestPositions(path("control.txt"), reporter, smallSettings());
    EXPECT_TRUE(announcedGames(output.take()).empty());
}

}  // namespace
