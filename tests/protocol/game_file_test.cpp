// A PGN file on the command line: the engine plays the game's moves while the root is where
// the game stands, and searches for good once it is not.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "protocol/engine_process.h"

namespace {

std::string writeGameFile(const std::string& name, const std::string& text) {
    const std::string path = ::testing::TempDir() + name;
    std::ofstream(path) << text;
    return path;
}

const char* const RuyLopez =
    "[White \"A\"]\n[Black \"B\"]\n[Result \"*\"]\n\n1. e4 e5 2. Nf3 Nc6 3. Bb5 a6 *\n";

struct Answer {
    std::string bestMove;
    bool searched;  // the search printed its lines; a followed move comes without any
};

Answer go(EngineProcess& engine, const std::string& position) {
    engine.send(position);
    engine.send("go depth 4");
    const std::vector<std::string> lines = engine.readUntil("bestmove", 20000);
    Answer answer{lastLine(lines), false};
    for (const std::string& line : lines) answer.searched |= line.rfind("info depth", 0) == 0;
    if (answer.bestMove.rfind("bestmove ", 0) == 0) answer.bestMove = answer.bestMove.substr(9, 4);
    return answer;
}

}  // namespace

TEST(GameFile, WhitesSideIsPlayedUntilTheGameIsLeftThenEverythingIsSearched) {
    const std::string file = writeGameFile("zelmark_follow_white.pgn", RuyLopez);
    EngineProcess engine({file});
    startUci(engine);
    Answer a = go(engine, "position startpos");
    EXPECT_EQ(a.bestMove, "e2e4");
    EXPECT_FALSE(a.searched);
    a = go(engine, "position startpos moves e2e4 e7e5");
    EXPECT_EQ(a.bestMove, "g1f3");
    EXPECT_FALSE(a.searched);
    // Black leaves the game: a search, and from then on the game is out of use.
    a = go(engine, "position startpos moves e2e4 e7e5 g1f3 d7d6");
    EXPECT_TRUE(a.searched);
    a = go(engine, "position startpos moves e2e4 e7e5");
    EXPECT_TRUE(a.searched);
    EXPECT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    std::remove(file.c_str());
}

TEST(GameFile, BlacksSideIsFoundByTheKeyOfTheFirstPosition) {
    const std::string file = writeGameFile("zelmark_follow_black.pgn", RuyLopez);
    EngineProcess engine({file});
    startUci(engine);
    Answer a = go(engine, "position startpos moves e2e4");
    EXPECT_EQ(a.bestMove, "e7e5");
    EXPECT_FALSE(a.searched);
    a = go(engine, "position startpos moves e2e4 e7e5 g1f3");
    EXPECT_EQ(a.bestMove, "b8c6");
    EXPECT_FALSE(a.searched);
    EXPECT_TRUE(engine.finish());
    std::remove(file.c_str());
}

TEST(GameFile, AMissingFileCostsOneMessageAndTheEngineSearches) {
    EngineProcess engine({"/nonexistent/zelmark-games.pgn"});
    startUci(engine);
    const Answer a = go(engine, "position startpos");
    EXPECT_TRUE(a.searched);
    EXPECT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_NE(engine.errorText.find("info string PGN-Parser: file /nonexistent/zelmark-games.pgn "
                                    "line 1 char 1: Cannot open file"),
              std::string::npos)
        << engine.errorText;
}
