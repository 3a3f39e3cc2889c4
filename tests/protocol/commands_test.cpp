// The UCI commands through the real binary: positions, searches and their ends, messages.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "protocol/engine_process.h"

namespace {

const char* const Kiwipete = "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1";

// Leaf count of the current position, through the engine's perft.
long long perftNodes(EngineProcess& engine, int depth) {
    engine.send("perft depth " + std::to_string(depth));
    const std::string line = engine.readLine(60000).value_or("(none)");
    const auto total = parsePerftTotal(line);
    if (!total || total->depth != depth) {
        ADD_FAILURE() << "unexpected perft line: " << line;
        return -1;
    }
    return total->nodes;
}

long long perftAfter(EngineProcess& engine, const std::string& position, int depth) {
    engine.send(position);
    return perftNodes(engine, depth);
}

int countBestMoves(const std::vector<std::string>& lines) {
    int count = 0;
    for (const std::string& line : lines) count += line.rfind("bestmove ", 0) == 0;
    return count;
}

std::string lastLine(const std::vector<std::string>& lines) {
    return lines.empty() ? "(none)" : lines.back();
}

// The engine has taken all lines so far: isready is answered in order.
void sync(EngineProcess& engine, std::vector<std::string>* seen = nullptr) {
    engine.send("isready");
    std::vector<std::string> lines = engine.readUntil("readyok");
    ASSERT_FALSE(lines.empty());
    ASSERT_EQ(lines.back(), "readyok");
    lines.pop_back();
    if (seen) seen->insert(seen->end(), lines.begin(), lines.end());
}

}  // namespace

TEST(Position, StartposFenAndChess960SetTheBoard) {
    EngineProcess engine;
    startUci(engine);
    EXPECT_EQ(perftAfter(engine, "position startpos", 3), 8902);
    EXPECT_EQ(perftAfter(engine, "position startpos moves e2e4", 2), 600);
    EXPECT_EQ(perftAfter(engine, "position startpos moves e2e4 e7e5", 1), 29);
    EXPECT_EQ(perftAfter(engine, std::string("position fen ") + Kiwipete, 2), 2039);
    EXPECT_EQ(perftAfter(engine, "position Chess960 518", 3), 8902);
    // Chess960 number 0 is BBQNNRKR; its knights start on d1 and e1.
    engine.send("position Chess960 0");
    engine.send("perft depth 1 divide");
    std::vector<std::string> divide;
    for (int i = 0; i < 20; ++i) divide.push_back(engine.readLine().value_or(""));
    EXPECT_NE(std::find(divide.begin(), divide.end(), "info move d1c3 depth 0 time 0 nodes 0"),
              divide.end());
    EXPECT_TRUE(engine.silentFor(200));
}

TEST(Position, MovesAfterTheFenAndCastlingWords) {
    EngineProcess engine;
    startUci(engine);
    const std::string italian = "position startpos moves e2e4 e7e5 g1f3 b8c6 f1c4 g8f6";
    const long long byKing = perftAfter(engine, italian + " e1g1", 3);
    EXPECT_EQ(perftAfter(engine, italian + " O-O", 3), byKing);
    EXPECT_NE(perftAfter(engine, italian, 3), byKing);  // the castling was really played

    // A move after a FEN continues from that FEN, counters or not.
    const std::string kiwipete = std::string("position fen ") + Kiwipete;
    engine.send(kiwipete);
    engine.send("perft depth 2 divide");
    long long afterA3 = -1;
    for (int i = 0; i < 48; ++i) {
        const std::string line = engine.readLine().value_or("");
        const auto divide = parseDivideLine(line);
        if (divide && divide->move == "a2a3" && divide->depth == 1) afterA3 = divide->nodes;
    }
    ASSERT_GT(afterA3, 0);
    EXPECT_EQ(perftAfter(engine, kiwipete + " moves a2a3", 1), afterA3);
    const std::string withoutCounters =
        "position fen r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - moves a2a3";
    EXPECT_EQ(perftAfter(engine, withoutCounters, 1), afterA3);
}

TEST(Position, BadInputKeepsWhatTheRulesSay) {
    EngineProcess engine;
    startUci(engine);
    // An illegal move stops the list; the moves before it stay played.
    EXPECT_EQ(perftAfter(engine, "position startpos moves e2e4 e7e5 e1e3 d2d4", 1), 29);
    // Neither form: the old position stays.
    EXPECT_EQ(perftAfter(engine, "position", 1), 29);
    EXPECT_EQ(perftAfter(engine, "position Chess960 x", 1), 29);
    // A bad FEN leaves the start position.
    EXPECT_EQ(perftAfter(engine, "position fen 8/8/8/8/8/8/8/8 w - - 0 1", 3), 8902);
}

TEST(Debug, PositionErrorsAreShownExactlyInDebugModeOnly) {
    EngineProcess engine;
    startUci(engine);
    const std::vector<std::string> badLines = {
        "position", "position Chess960", "position fen 8/8/8/8 w - -",
        "position startpos moves e2e4 e1e3", "position startpos moves e2e4 e7e5 Ke2"};
    for (const std::string& line : badLines) engine.send(line);
    std::vector<std::string> seen;
    sync(engine, &seen);
    EXPECT_TRUE(seen.empty());

    engine.send("debug on");
    for (const std::string& line : badLines) engine.send(line);
    seen.clear();
    sync(engine, &seen);
    // The message is followed by one blank and the detail, so a message that ends in a blank
    // shows two.
    const std::vector<std::string> expected = {
        "info string 'position' without 'startpos' and without 'fen' ",
        "info string 'position Chess960' without number ",
        "info string position: Illegal FEN string:  8/8/8/8 w - -",
        "info string position: illegal move:  e1e3",
        "info string position: illegal move:  Ke2",
    };
    EXPECT_EQ(seen, expected);

    // "off" anywhere in the line switches debug mode off.
    engine.send("debug is off");
    engine.send("position");
    seen.clear();
    sync(engine, &seen);
    EXPECT_TRUE(seen.empty());
    engine.send("debug");
    engine.send("position");
    seen.clear();
    sync(engine, &seen);
    EXPECT_EQ(seen.size(), 1u);
}

TEST(Go, EveryFiniteSearchAnswersWithOneBestMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos");
    for (const char* go : {"go depth 1", "go", "go foo bar 17", "go wtime 1000 btime 1000",
                           "go movetime 100", "go nodes 100", "go mate 1"}) {
        engine.send(go);
        const std::vector<std::string> lines = engine.readUntil("bestmove", 20000);
        ASSERT_FALSE(lines.empty()) << go;
        EXPECT_TRUE(isBestMoveLine(lines.back())) << go << ": " << lines.back();
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

// A ponder search lasts until ponderhit or stop whatever the search finds, so it stands for
// any search that is still running when a command arrives.
const char* const LastingSearch = "go ponder wtime 100000 btime 100000";

TEST(Go, InfiniteSearchAndStopGiveExactlyOneMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos");
    engine.send("go infinite");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    engine.send("stop");
    const std::vector<std::string> lines = engine.readUntil("bestmove");
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back())) << lines.back();
    // A second stop, and a stop with nothing running, print nothing.
    engine.send("stop");
    engine.send("stop");
    std::vector<std::string> seen;
    sync(engine, &seen);
    EXPECT_EQ(countBestMoves(seen), 0);
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_EQ(countBestMoves(engine.remainingLines), 0);
}

TEST(Go, StopWhenIdlePrintsNothing) {
    EngineProcess engine;
    startUci(engine);
    engine.send("stop");
    engine.send("ponderhit");
    EXPECT_TRUE(engine.silentFor(300));
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
    const std::vector<std::string> lines = engine.readUntil("bestmove");
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(isBestMoveLine(lines.back())) << lines.back();
    std::vector<std::string> seen;
    sync(engine, &seen);
    EXPECT_EQ(countBestMoves(seen), 0);
}

TEST(Go, QuitDuringASearchPrintsNoMove) {
    EngineProcess engine;
    startUci(engine);
    engine.send(LastingSearch);
    sync(engine);
    engine.send("quit");
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_EQ(countBestMoves(engine.remainingLines), 0);
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

TEST(Go, PonderSearchRunsUntilPonderhitOrStop) {
    EngineProcess engine;
    startUci(engine);
    engine.send("position startpos");
    engine.send(LastingSearch);
    std::vector<std::string> seen;
    sync(engine, &seen);
    EXPECT_EQ(countBestMoves(seen), 0);
    engine.send("stop");
    EXPECT_TRUE(isBestMoveLine(lastLine(engine.readUntil("bestmove"))));

    // The time ran out while pondering: ponderhit plays at once.
    engine.send("go ponder wtime 200 btime 200");
    sync(engine);
    engine.send("ponderhit");
    EXPECT_TRUE(isBestMoveLine(lastLine(engine.readUntil("bestmove", 5000))));
}
