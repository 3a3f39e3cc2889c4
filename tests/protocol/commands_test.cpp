// The UCI commands through the real binary: positions, searches and their ends, messages.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "protocol/engine_process.h"

namespace {

const char* const Kiwipete = "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1";

long long perftAfter(EngineProcess& engine, const std::string& position, int depth) {
    engine.send(position);
    return perftTotal(engine, "perft depth " + std::to_string(depth), depth);
}

int countBestMoves(const std::vector<std::string>& lines) {
    int count = 0;
    for (const std::string& line : lines) count += line.rfind("bestmove ", 0) == 0;
    return count;
}

// The engine has taken all lines so far: isready is answered in order.
void sync(EngineProcess& engine, std::vector<std::string>* seen = nullptr) {
    engine.send("isready");
    std::vector<std::string> lines = engine.readUntil("readyok");
    ASSERT_EQ(lastLine(lines), "readyok");
    lines.pop_back();
    if (seen) seen->insert(seen->end(), lines.begin(), lines.end());
}

// A ponder search lasts until ponderhit or stop whatever the search finds, so it stands for
// any search that is still running when a command arrives.
const char* const LastingSearch = "go ponder wtime 100000 btime 100000";

}  // namespace

TEST(Position, EveryFormAndWhatBadInputLeaves) {
    const std::string kiwipete = std::string("position fen ") + Kiwipete;
    const std::string italian = "position startpos moves e2e4 e7e5 g1f3 b8c6 f1c4 g8f6";
    const struct {
        std::string command;
        int depth;
        long long nodes;
    } cases[] = {
        {"position startpos moves e2e4", 2, 600},
        {kiwipete, 2, 2039},
        // A move after a FEN continues from that FEN, counters or not.
        {kiwipete + " moves a2a3", 1, 44},
        {"position fen r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - moves a2a3",
         1, 44},
        {"position Chess960 518", 3, 8902},
        {"position Chess960 0", 3, 9006},  // BBQNNRKR
        // An illegal move stops the list; the moves before it stay played.
        {"position startpos moves e2e4 e7e5 e1e3 d2d4", 1, 29},
        // Neither form: the old position stays.
        {"position", 1, 29},
        {"position Chess960 x", 1, 29},
        // A bad FEN leaves the start position.
        {"position fen 8/8/8/8/8/8/8/8 w - - 0 1", 3, 8902},
    };
    EngineProcess engine;
    startUci(engine);
    for (const auto& c : cases)
        EXPECT_EQ(perftAfter(engine, c.command, c.depth), c.nodes) << c.command;

    const long long byKing = perftAfter(engine, italian + " e1g1", 3);
    EXPECT_EQ(perftAfter(engine, italian + " O-O", 3), byKing);
    EXPECT_NE(perftAfter(engine, italian, 3), byKing);  // the castling was really played
}

TEST(Debug, ErrorsAreShownInDebugModeOnly) {
    EngineProcess engine;
    startUci(engine);
    const std::vector<std::string> badLines = {"position", "position Chess960",
                                               "position fen 8/8/8/8 w - -",
                                               "position startpos moves e2e4 e1e3", "perft"};
    std::vector<std::string> seen;
    for (const std::string& line : badLines) engine.send(line);
    sync(engine, &seen);
    EXPECT_TRUE(seen.empty());

    engine.send("debug on");
    for (const std::string& line : badLines) engine.send(line);
    sync(engine, &seen);
    ASSERT_EQ(seen.size(), badLines.size());
    // The message is followed by one blank and the detail, so a message that ends in a blank
    // shows two.
    EXPECT_EQ(seen[2], "info string position: Illegal FEN string:  8/8/8/8 w - -");
    EXPECT_EQ(seen[4], "info string perft without depth ");

    // "off" anywhere in the line switches debug mode off.
    engine.send("debug is off");
    engine.send("position");
    seen.clear();
    sync(engine, &seen);
    EXPECT_TRUE(seen.empty());
}

TEST(Go, EveryFiniteSearchAnswersWithOneBestMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos");
    for (const char* go : {"go depth 1", "go", "go foo bar 17", "go wtime 1000 btime 1000",
                           "go movetime 100", "go nodes 100", "go mate 1"}) {
        engine.send(go);
        const std::string line = lastLine(engine.readUntil("bestmove", 20000));
        EXPECT_TRUE(isBestMoveLine(line)) << go << ": " << line;
    }
    std::vector<std::string> seen;
    sync(engine, &seen);
    EXPECT_EQ(countBestMoves(seen), 0);
}

TEST(Go, RootMovesCanBeKeptOrDropped) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos");
    engine.send("go depth 1 searchmoves g1f3");
    EXPECT_EQ(lastLine(engine.readUntil("bestmove")), "bestmove g1f3");
    engine.send(
        "go depth 1 excludemoves a2a3 a2a4 b2b3 b2b4 c2c3 c2c4 d2d3 d2d4 e2e3 e2e4 f2f3 f2f4 "
        "g2g3 g2g4 h2h3 b1a3 b1c3 g1f3 g1h3");
    EXPECT_EQ(lastLine(engine.readUntil("bestmove")), "bestmove h2h4");
    // Black's time is ignored with White to move, and the other way round.
    engine.send("position startpos moves e2e4");
    engine.send("go wtime 1 btime 60000 searchmoves e7e5");
    EXPECT_EQ(lastLine(engine.readUntil("bestmove")), "bestmove e7e5");
}

TEST(Go, StopAnswersEverySearchExactlyOnce) {
    EngineProcess engine;
    startUci(engine);
    // Regression: a stop that came before the first root move was searched left go unanswered.
    for (int i = 0; i < 5; ++i) {
        engine.send("position startpos moves e2e4");
        engine.send(i % 2 ? "go ponder wtime 1000 btime 1000" : "go infinite");
        engine.send("stop");
        const std::string line = lastLine(engine.readUntil("bestmove", 5000));
        EXPECT_TRUE(isBestMoveLine(line)) << line;
    }
    // A second stop, and stop or ponderhit with nothing running, print nothing.
    engine.send("stop");
    engine.send("ponderhit");
    std::vector<std::string> seen;
    sync(engine, &seen);
    EXPECT_EQ(countBestMoves(seen), 0);
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_EQ(countBestMoves(engine.remainingLines), 0);
}

TEST(Go, CommandsThatCutASearchSuppressItsMove) {
    EngineProcess engine;
    startUci(engine);
    for (const char* cut : {"position startpos moves d2d4", "ucinewgame", "perft depth 1",
                            "setoption name Hash value 2", LastingSearch}) {
        engine.send(LastingSearch);
        std::vector<std::string> seen;
        sync(engine, &seen);  // isready is answered during the search
        engine.send(cut);
        sync(engine, &seen);
        EXPECT_EQ(countBestMoves(seen), 0) << cut;
    }
    // The last search still runs, alone, and stop prints its move once.
    engine.send("stop");
    EXPECT_TRUE(isBestMoveLine(lastLine(engine.readUntil("bestmove"))));
    std::vector<std::string> seen;
    sync(engine, &seen);
    EXPECT_EQ(countBestMoves(seen), 0);
}

TEST(Go, QuitDuringASearchEndsTheRunWithoutAMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send(LastingSearch);
    sync(engine);
    // One write, so that the line after quit surely reaches the pipe before the engine leaves.
    engine.sendRaw("quit\nisready\n");
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    // The search may still have printed info lines, but no move and nothing after quit.
    EXPECT_EQ(countBestMoves(engine.remainingLines), 0);
    for (const std::string& line : engine.remainingLines) EXPECT_NE(line, "readyok");
}

// A GUI that dies closes the engine's input at any moment: in a search of one or several
// threads, while pondering, in a perft, between the bytes of a line, before the protocol word.
// The engine ends with status 0 and says nothing on standard error.
TEST(EndOfInput, AtAnyMomentEndsTheRunCleanly) {
    const std::vector<std::string> sessions = {
        "uci\ngo infinite\n",
        "uci\nsetoption name NumberOfProcessors value 3\nposition startpos\ngo infinite\n",
        "uci\nsetoption name MultiPV value 3\ngo depth 40\n",
        "uci\nposition startpos moves e2e4\ngo ponder wtime 500000 btime 500000\n",
        "uci\nposition fen " + std::string(Kiwipete) + "\nperft depth 4\n",
        "uci\nsetoption name Hash value 64\neval\n",
        "uci\ngo infinite\nposition startpos moves e2e4 e7",  // cut inside a line
        "uci",  // the protocol word without its line end
        "",
        "xboard\nuci\n",  // the other protocol words are accepted too
        "ucitest\nuci\n",
    };
    for (const std::string& session : sessions) {
        for (int pause : {0, 150}) {
            EngineProcess engine;
            engine.sendRaw(session);
            std::this_thread::sleep_for(std::chrono::milliseconds(pause));
            ASSERT_TRUE(engine.finish(15000)) << "hung at the end of input after: " << session;
            EXPECT_EQ(engine.exitStatus, 0) << session;
            EXPECT_EQ(engine.errorText, "") << session;
        }
    }
}
