#include "learn/change_net.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "board/makemove.h"
#include "board/text.h"
#include "search/searcher.h"

namespace {

Position fromFen(const std::string& fen) {
    Position p;
    constructPosition(p);
    EXPECT_NE(parseFen(p, fen.c_str()), nullptr) << fen;
    return p;
}

// The moves of a line in coordinates, each read in the position the ones before it lead to.
std::vector<Move> line(const Position& root, const std::vector<std::string>& texts) {
    Position p = root;
    std::vector<Move> moves;
    for (const std::string& text : texts) {
        Move m;
        EXPECT_TRUE(parseMove(p, text.c_str(), m, 1)) << text;
        UndoRecord undo;
        beginUndo(undo, p);
        EXPECT_TRUE(makeLegal(p, m, undo)) << text;
        moves.push_back(m);
    }
    return moves;
}

std::vector<double> inputsOf(const Position& root, const std::vector<Move>& previous,
                             const std::vector<Move>& current, int previousScore = 0, int score = 0,
                             int rootCount = 20) {
    std::vector<double> x(ChangeInputCount);
    changeInputs(root, previous.data(), static_cast<int>(previous.size()), previousScore,
                 current.data(), static_cast<int>(current.size()), score, false, false, false,
                 false, rootCount, x.data());
    return x;
}

std::vector<std::string> fields(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// After 1.e4 d5 the last iteration preferred 2.d4 dxe4 Nc3, this one 2.exd5 Qxd5 Nc3 Qa5 d4.
TEST(ChangeNet, FabricatedIteration) {
    auto searcher = std::make_unique<Searcher>(1 << 20);
    ASSERT_TRUE(setGameFromFen(*searcher, "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -"));
    for (const Move m : line(searcher->position, {"e2e4", "d7d5"})) gameMakeMove(*searcher, m);
    const Position& root = searcher->position;
    const std::vector<Move> previous = line(root, {"d2d4", "d5e4", "b1c3"});
    const std::vector<Move> current = line(root, {"e4d5", "d8d5", "b1c3", "d5a5", "d2d4"});

    char text[FeatureTextSize];
    const double p = predictChange(searcher->changeNet, root, previous.data(), 3, 40,
                                   current.data(), 5, 180, true, false, true, false, 31, text);
    EXPECT_GE(p, 0.0);
    EXPECT_LE(p, 1.0);

    // Changed, changed now, failed low; two captures; the pawn had just arrived on d5, and
    // the queen takes back on the same square.
    const std::vector<std::string> f = fields(text);
    ASSERT_EQ(f.size(), 23u) << text;
    const std::string digits = "1101000001100011000";
    for (int i = 0; i < 19; ++i) EXPECT_EQ(f[i], digits.substr(i, 1)) << "input " << i;
    EXPECT_NEAR(std::stod(f[19]), std::tanh(0.07), 1e-14);
    EXPECT_EQ(f[20], "1");  // the pawn on d5, attacked once
    EXPECT_EQ(f[21], "0.775");
    EXPECT_NEAR(std::stod(f[22]), p, 1e-10);
    EXPECT_EQ(std::string(text).back(), ' ');

    // The embedded net reads fully: written back, it is the text it was read from.
    ChangeNet net;
    std::ostringstream out;
    ASSERT_TRUE(net.write(out));
    EXPECT_EQ(fields(out.str()), fields(ChangeNetText));
    EXPECT_EQ(predictChange(net, root, previous.data(), 3, 40, current.data(), 5, 180, true, false,
                            true, false, 31, nullptr),
              p);
}

TEST(ChangeNet, InputsOfShortLinesChecksAndRefusedMoves) {
    const Position start = fromFen("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
    const std::vector<Move> two = line(start, {"e2e4", "e7e5"});

    // No previous line: missing moves compare equal to missing moves only.
    EXPECT_EQ(inputsOf(start, {}, two)[0], 1.0);
    EXPECT_EQ(inputsOf(start, {}, {})[0], 0.0);
    // A line of one move: nothing about its second move, and no fight over a square.
    const std::vector<double> x = inputsOf(start, two, line(start, {"e2e4"}));
    for (int i : {10, 13, 15, 16, 17, 18}) EXPECT_EQ(x[i], 0.0) << i;
    // Scores are clamped before the difference.
    EXPECT_DOUBLE_EQ(inputsOf(start, two, two, -30000, 30000)[19], std::tanh(15.0));

    const Position checks = fromFen("4k3/8/8/8/8/8/8/R3K3 w - -");
    EXPECT_EQ(inputsOf(checks, {}, line(checks, {"a1a8", "e8d7"}))[12], 1.0);
    const Position inCheck = fromFen("4k3/8/8/8/8/8/8/r3K3 w - -");
    EXPECT_EQ(inputsOf(inCheck, {}, line(inCheck, {"e1e2"}))[11], 1.0);

    // A move that the board refuses is skipped, and the next is tried on the same board.
    const Position threats = fromFen("4k3/8/8/1r1n4/4P3/2N5/8/4K3 w - -");
    const std::vector<double> y =
        inputsOf(threats, {}, {makeMoveValue(35, 27, Queen), line(threats, {"e4d5"})[0]});
    EXPECT_EQ(y[9], 0.0);
    EXPECT_EQ(y[10], 1.0);
}

TEST(TimeLog, AppendsWholeLinesAndSkipsBadFiles) {
    const std::string name = (std::filesystem::temp_directory_path() /
                              ("zelmark_timelog_" + std::to_string(::getpid()) + ".txt"))
                                 .string();
    std::remove(name.c_str());
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t)
        writers.emplace_back([&name, t] {
            const std::string text = "1 0 1 " + std::to_string(t) + " ";
            for (int k = 0; k < 50; ++k) appendTimeLog(name.c_str(), text.c_str(), k & 1);
        });
    for (std::thread& w : writers) w.join();
    std::ifstream in(name);
    std::string l;
    int lines = 0;
    for (; std::getline(in, l); ++lines) {
        EXPECT_EQ(l.size(), 10u) << l;
        EXPECT_EQ(l.substr(0, 6), "1 0 1 ") << l;
    }
    EXPECT_EQ(lines, 200);
    std::remove(name.c_str());
    appendTimeLog("/nonexistent-directory/log.txt", "1 ", 0);
    // "nul:" names the null device: no file of that name appears.
    std::remove("nul:");
    appendTimeLog("nul:", "1 ", 0);
    EXPECT_FALSE(std::filesystem::exists("nul:"));
}

}  // namespace
