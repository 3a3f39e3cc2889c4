// The clock the xboard adapter keeps, seen where it ends up: the limits of the search that its
// `go` line starts. A session runs in-process so that those limits can be read.
#include "frontend/xboard_clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/text.h"
#include "frontend/engine_session.h"
#include "frontend/search_controller.h"
#include "frontend/xboard_game_end.h"
#include "frontend/xboard_reporter.h"
#include "search/limits.h"
#include "support/line_collector.h"

namespace {

const char* const Kiwipete = "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1";

struct Session {
    LineCollector output;
    std::unique_ptr<EngineSession> engine;

    Session() {
        SessionSettings settings;
        settings.tableBytes = 1 << 20;
        settings.output = &output;
        engine = std::make_unique<EngineSession>(settings);
        // A position outside the opening book, so that every `go` searches.
        for (const char* line : {"xboard", "protover 2", "new", "force"}) send(line);
        send(std::string("setboard ") + Kiwipete);
    }
    void send(const std::string& line) { engine->handleLine(line.c_str()); }

    bool searching() {
        SearchController& controller = *engine->controller();
        std::lock_guard<std::mutex> guard(controller.lock);
        return controller.searchThread.valid;
    }
    // Waits until the command queue has started a search (which may have ended with its
    // move already), or for two seconds.
    bool waitForSearch() {
        for (int i = 0; i < 2000; ++i) {
            if (searching()) return true;
            for (const std::string& line : output.take())
                if (line.compare(0, 5, "move ") == 0) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }
    // Waits for a line that starts with `prefix`.
    bool waitForLine(const std::string& prefix, int timeoutMs, std::string* found = nullptr) {
        for (int i = 0; i < timeoutMs; ++i) {
            for (const std::string& line : output.take()) {
                if (line.compare(0, prefix.size(), prefix) != 0) continue;
                if (found) *found = line;
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }
};

struct PlannedLimits {
    int64_t hardLimit;
    int64_t softLimit;
    double movesToPlan;
};

// What the limits are for a `go` with this time, increment and number of moves to go.
PlannedLimits expectedLimits(int64_t time, int64_t increment, int movesToGo) {
    GoRequest request;
    request.time = time;
    request.increment = increment;
    request.movesToGo = static_cast<int16_t>(movesToGo);
    SearchLimits limits;
    limits.setLimits(request);
    return {limits.hardLimit, limits.softLimit, limits.movesToPlan};
}

TEST(XboardClock, LevelTimeStAndSdReachTheSearchAsTheRightGo) {
    const struct {
        const char* name;
        std::vector<std::string> commands;
        PlannedLimits expected;
    } cases[] = {
        {"forty moves in five minutes", {"level 40 5 0"}, expectedLimits(300000, 0, 40)},
        {"minutes and seconds", {"level 40 5 0", "level 40 5:30 0"}, expectedLimits(330000, 0, 40)},
        {"increment without moves to go", {"level 0 5 2"}, expectedLimits(300000, 2000, 0)},
        {"a level with four numbers changes nothing",
         {"level 40 5 0", "level 40 1 0 1"},
         expectedLimits(300000, 0, 40)},
        {"time is in centiseconds", {"level 0 5 0", "time 12345"}, expectedLimits(123450, 0, 0)},
        {"three controls, the first in force",
         {"level 40 2 0 20 1 0 10 1 0"},
         expectedLimits(120000, 0, 40)},
        {"no level: five minutes for the game", {}, expectedLimits(300000, 0, 0)},
        {"a malformed time reads as no time", {"time x"}, expectedLimits(0, 0, 0)},
    };
    for (const auto& c : cases) {
        Session session;
        for (const std::string& command : c.commands) session.send(command);
        session.send("go");
        ASSERT_TRUE(session.waitForSearch()) << c.name;
        const SearchLimits& limits = session.engine->limits();
        EXPECT_EQ(limits.hardLimit, c.expected.hardLimit) << c.name;
        EXPECT_EQ(limits.softLimit, c.expected.softLimit) << c.name;
        EXPECT_EQ(limits.movesToPlan, c.expected.movesToPlan) << c.name;
        session.send("force");
    }
}

TEST(XboardClock, StAndSdOverrideTheLevelUntilTheNextOne) {
    Session session;
    // The seconds of `st` are multiplied by a thousand twice on their way to `go movetime`.
    session.send("st 2");
    session.send("go");
    ASSERT_TRUE(session.waitForSearch());
    EXPECT_EQ(session.engine->limits().hardLimit, 2000000);
    session.send("force");

    session.send("sd 3");
    session.send("go");
    ASSERT_TRUE(session.waitForLine("move ", 20000));
    EXPECT_EQ(session.engine->limits().maxDepth, 2);
    session.send("force");

    // A level turns both off again.
    session.send("level 0 5 0");
    session.send("go");
    ASSERT_TRUE(session.waitForSearch());
    EXPECT_EQ(session.engine->limits().hardLimit, expectedLimits(300000, 0, 0).hardLimit);
    session.send("force");
}

// Extends the game by `plies` moves after none of which it is over, chosen by a fixed walk, and
// returns their texts.
std::vector<std::string> quietMoves(Game& game, int plies) {
    std::vector<std::string> moves;
    unsigned seed = 12345;
    while (static_cast<int>(moves.size()) < plies) {
        MoveEntry list[MaxMovesPerPosition];
        const int count = static_cast<int>(generateMoves(game.position, GenAll, list) - list);
        seed = seed * 1103515245 + 12345;
        for (int tries = 0; tries < count; ++tries) {
            const Move move = list[(seed / 65536 + tries) % count].move;
            Game next = game;
            if (!isLegalFromTo(next.position, move)) continue;
            char text[16];
            writeMove(next.position, move, StyleCoordinates, text);
            gameMakeMove(next, move);
            if (gameEndResult(next)) continue;
            game = next;
            moves.push_back(text);
            break;
        }
    }
    return moves;
}

TEST(XboardClock, TheLastMoveOfAControlBringsTheNextBaseTime) {
    Session session;
    session.send("level 40 0:02 0");
    Game game;
    constructGame(game);
    ASSERT_TRUE(setGameFromFen(game, Kiwipete));
    // 39 moves each; the engine's move is the 40th of the control.
    for (const std::string& move : quietMoves(game, 78)) session.send("usermove " + move);
    session.send("time 200");
    session.send("go");
    std::string played;
    ASSERT_TRUE(session.waitForLine("move ", 20000, &played));
    Move move = NoMove;
    ASSERT_TRUE(parseMove(game.position, played.c_str() + 5, move, 1)) << played;
    gameMakeMove(game, move);
    // Without the two seconds of the repeated control the clock would be below two seconds
    // now; the search for the 41st move plans with more than that.
    session.send("usermove " + quietMoves(game, 1)[0]);
    ASSERT_TRUE(session.waitForSearch());
    EXPECT_GT(session.engine->limits().hardLimit, expectedLimits(2000, 0, 40).hardLimit);
    EXPECT_EQ(session.engine->limits().movesToPlan, expectedLimits(2000, 0, 40).movesToPlan);
    session.send("force");
}

TEST(XboardClock, ControlsInForceAndTimeGained) {
    TimeControls controls;
    ASSERT_TRUE(parseLevel("40 5 0 20 1:30 5 10 1 0", controls));
    const struct {
        int fullMoves;
        int index;
        int movesToGo;
        double gained;
    } cases[] = {
        {0, 0, 40, 0.0},  {39, 0, 1, 90000.0}, {40, 1, 20, 5000.0}, {59, 1, 1, 65000.0},
        {60, 2, 10, 0.0}, {69, 2, 1, 60000.0}, {70, 2, 10, 0.0},    {79, 2, 1, 60000.0},
    };
    for (const auto& c : cases) {
        const ControlInForce inForce = controlInForce(controls, c.fullMoves);
        EXPECT_EQ(inForce.index, c.index) << c.fullMoves;
        EXPECT_EQ(inForce.movesToGo, c.movesToGo) << c.fullMoves;
        EXPECT_EQ(timeGainedByMove(controls, c.fullMoves), c.gained) << c.fullMoves;
    }
    // A whole-game control gains its increment alone, however long the game.
    ASSERT_TRUE(parseLevel("0 5 2", controls));
    EXPECT_EQ(controlInForce(controls, 500).movesToGo, 0);
    EXPECT_EQ(timeGainedByMove(controls, 0), 2000.0);

    for (const char* bad : {"", "40", "40 5", "40 5 0 1", "40 5 0 20 1", "x 5 0"})
        EXPECT_FALSE(parseLevel(bad, controls)) << bad;
    // Absurd numbers stay numbers.
    ASSERT_TRUE(parseLevel("40 9999999999999:99 1e308", controls));
}

TEST(XboardScore, TenthsOfCentipawnsAndMates) {
    const struct {
        int score;
        int shown;
    } cases[] = {{1, 0},          {-1, 0},        {2, 1},          {-2, -1},
                 {11, 2},         {-11, -2},      {499999, 32766}, {-499999, -32766},
                 {499990, 32757}, {400000, 40000}};
    for (const auto& c : cases) EXPECT_EQ(xboardScore(c.score), c.shown) << c.score;
}

}  // namespace
