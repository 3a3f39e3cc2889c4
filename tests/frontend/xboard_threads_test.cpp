// An xboard session under the thread sanitizer: random commands that cut into thinking and
// pondering (`?`, `force`, `new`, `easy`, a user move, `ping`, `quit`), with the search, the
// command queue and the command thread all running. Every search asked for a move gives exactly
// one "move" line, a search cut off gives at most one, and every move is legal where it is made.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/text.h"
#include "frontend/engine_session.h"
#include "frontend/xboard_game_end.h"
#include "support/line_collector.h"

namespace {

class RandomSession {
  public:
    explicit RandomSession(unsigned seed) : random(seed) {
        SessionSettings settings;
        settings.tableBytes = 1 << 20;
        settings.output = &output;
        session = std::make_unique<EngineSession>(settings);
        // The ini file is read at protover from the working directory: one without the book,
        // so that every search searches.
        char pattern[] = "/tmp/zelmark-threads-XXXXXX";
        const std::string directory = mkdtemp(pattern);
        std::ofstream(directory + "/Zelmark.ini") << "setoption name OwnBook value false\n";
        char previous[4096];
        if (!getcwd(previous, sizeof previous)) previous[0] = 0;
        EXPECT_EQ(chdir(directory.c_str()), 0);
        send("xboard");
        send("protover 2");
        if (previous[0]) {
            EXPECT_EQ(chdir(previous), 0);
        }
        std::remove((directory + "/Zelmark.ini").c_str());
        rmdir(directory.c_str());
        send("new");
        send("force");
        send("level 0 0:01 0");
        constructGame(game);
        sync();
    }

    void send(const std::string& line) { session->handleLine(line.c_str()); }
    bool ended() const { return session->quitRequested(); }

    // Waits for the pong of a fresh ping; the lines before it are collected.
    void sync() {
        const std::string pong = "pong " + std::to_string(++pings);
        send("ping " + std::to_string(pings));
        ASSERT_TRUE(waitFor(pong, 20000)) << "no " << pong;
    }

    // Waits until a line that starts with `prefix` has arrived.
    bool waitFor(const std::string& prefix, int timeoutMs) {
        for (int waited = 0; waited < timeoutMs; ++waited) {
            for (const std::string& line : output.take()) {
                seen.push_back(line);
                takeLine(line);
                if (line.compare(0, prefix.size(), prefix) == 0) return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    // Counts the moves and plays them on the game the test keeps.
    void takeLine(const std::string& line) {
        if (line.compare(0, 5, "move ") == 0) {
            ++moves;
            Move move = NoMove;
            ASSERT_TRUE(parseMove(game.position, line.c_str() + 5, move, 1))
                << line << " after " << history;
            gameMakeMove(game, move);
            history += line.substr(5) + " ";
        } else if (line.compare(0, 6, "Error ") == 0 || line.compare(0, 8, "Illegal ") == 0) {
            ADD_FAILURE() << line << " after " << history;
        }
    }

    // A legal move that does not end the game; empty if there is none.
    std::string quietMove() {
        MoveEntry list[MaxMovesPerPosition];
        const int count = static_cast<int>(generateMoves(game.position, GenAll, list) - list);
        for (int tries = 0; tries < count; ++tries) {
            const Move move = list[(random() + tries) % count].move;
            Game next = game;
            UndoRecord undo;
            beginUndo(undo, next.position);
            if (!makeLegal(next.position, move, undo)) continue;
            undoMove(undo);
            char text[16];
            writeMove(next.position, move, StyleCoordinates, text);
            gameMakeMove(next, move);
            if (gameEndResult(next)) continue;
            return text;
        }
        return std::string();
    }

    void userMove(const std::string& text) {
        Move move = NoMove;
        ASSERT_TRUE(parseMove(game.position, text.c_str(), move, 1));
        gameMakeMove(game, move);
        history += text + " ";
        send("usermove " + text);
    }

    void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(random() % 25)); }

    // A new game when this one is nearly over, so that every search has a move to find.
    void keepGameOpen() {
        if (game.historyCount < 80 && !quietMove().empty() && history.size() < 600) return;
        send("new");
        send("force");
        send("level 0 0:01 0");
        constructGame(game);
        history.clear();
    }

    LineCollector output;
    std::unique_ptr<EngineSession> session;
    std::mt19937 random;
    Game game;
    std::string history;
    std::vector<std::string> seen;
    int moves = 0;
    int pings = 0;
};

TEST(Threads, XboardCommandsDuringThinkingAndPonderingLoseAndDoubleNoMove) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        RandomSession s(seed);
        for (int round = 0; round < 40 && !s.ended(); ++round) {
            s.keepGameOpen();
            const bool ponder = s.random() % 2 == 0;
            s.send(ponder ? "hard" : "easy");
            s.send("time 100");
            s.moves = 0;
            s.send("go");
            const int disruption = static_cast<int>(s.random() % 7);
            if (ponder || disruption == 0) {
                // Thinking to its end: one move.
                ASSERT_TRUE(s.waitFor("move ", 20000)) << "seed " << seed << " round " << round;
            }
            s.pause();
            int expectedAtMost = 1;
            int expectedAtLeast = ponder || disruption == 0 ? 1 : 0;
            switch (disruption) {
                case 0:
                    break;
                case 1:
                case 2:
                    s.send("?");  // while pondering it means nothing
                    expectedAtLeast = 1;
                    if (!ponder) {
                        ASSERT_TRUE(s.waitFor("move ", 20000));
                    }
                    break;
                case 3:
                    s.send("force");
                    break;
                case 4:
                    s.send("new");
                    s.send("force");
                    // A move that was already out belongs to the old game.
                    s.sync();
                    constructGame(s.game);
                    s.history.clear();
                    s.send("level 0 0:01 0");
                    s.moves = 0;
                    expectedAtMost = 0;
                    expectedAtLeast = 0;
                    break;
                case 5: {
                    // While pondering, a user move: a hit or a miss, then one more move.
                    s.send("ping 999");
                    if (!ponder) break;
                    const std::string reply = s.quietMove();
                    if (reply.empty()) break;
                    s.userMove(reply);
                    ASSERT_TRUE(s.waitFor("move ", 20000)) << "after " << reply;
                    expectedAtMost = 2;
                    expectedAtLeast = 2;
                    break;
                }
                case 6:
                    // Late in a session only, so that most rounds get played.
                    s.send(round >= 30 ? "quit" : "force");
                    break;
            }
            if (s.ended()) break;
            s.send("force");
            s.sync();
            EXPECT_LE(s.moves, expectedAtMost) << "seed " << seed << " round " << round;
            EXPECT_GE(s.moves, expectedAtLeast) << "seed " << seed << " round " << round;
        }
        // Nothing may come after quit or the session's end.
        const size_t before = s.seen.size();
        s.session.reset();
        EXPECT_TRUE(s.output.take().empty() || before == s.seen.size());
    }
}

}  // namespace
