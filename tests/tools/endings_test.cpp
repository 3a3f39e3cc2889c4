// The playout's count: each game of the engine against the true result of its start position,
// split by whether the engine's side had to win, hold the draw or lose.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "tools/support/child_process.h"

namespace {

const std::string Script = std::string(ZELMARK_TEST_DATA) + "/../../tools/endings/playout.sh";

std::string writeFile(const std::string& name, const std::string& text) {
    const std::string path = ::testing::TempDir() + name + "_" + std::to_string(getpid());
    FILE* f = std::fopen(path.c_str(), "w");
    EXPECT_NE(f, nullptr) << path;
    if (f) {
        std::fputs(text.c_str(), f);
        std::fclose(f);
    }
    return path;
}

std::string game(const char* white, const char* black, const char* result, const char* fen) {
    return std::string("[White \"") + white + "\"]\n[Black \"" + black + "\"]\n[Result \"" +
           result + "\"]\n[SetUp \"1\"]\n[FEN \"" + fen + "\"]\n\n" + result + "\n\n";
}

TEST(Playout, CountsEachGameByWhatTheEnginesSideHadToDo) {
    const char* won = "8/7k/8/4K3/4PN2/8/8/8 w - - 0 1";   // White wins
    const char* lost = "8/8/8/8/p3k1K1/n7/8/8 w - - 0 1";  // Black wins
    const char* drawn = "8/2K5/2R5/6k1/8/8/3r4/8 w - - 0 1";
    const std::string set =
        writeFile("set", std::string("# a comment\n") + won + " ; result 1-0 ; KBSK\n" + lost +
                             " ; result 0-1 ; KKBS\n" + drawn + " ; result 1/2-1/2 ; KTKT\n");
    const std::string pgn =
        writeFile("games", game("Zelmark", "Other", "1-0", won) +            // win, right
                               game("Other", "Zelmark", "1/2-1/2", won) +    // lose, escaped
                               game("Zelmark", "Other", "0-1", lost) +       // lose, right
                               game("Other", "Zelmark", "1/2-1/2", lost) +   // win, only drawn
                               game("Zelmark", "Other", "1/2-1/2", drawn) +  // hold, right
                               game("Other", "Zelmark", "1-0", drawn) +      // hold, lost
                               game("Zelmark", "Other", "1-0", "8/8/8/8/8/8/8/K1k5 w - - 0 1"));
    ChildProcess child;
    std::string error;
    ASSERT_TRUE(child.spawn({"/bin/sh", Script, "count", set, pgn, "Zelmark"}, true, error))
        << error;
    child.closeInput();
    const auto deadline = ChildProcess::Clock::now() + std::chrono::seconds(10);
    child.drain(deadline);
    int status = -1;
    EXPECT_TRUE(child.waitForExit(deadline, status));
    std::remove(set.c_str());
    std::remove(pgn.c_str());
    EXPECT_EQ(status, 0) << child.errorText();
    EXPECT_EQ(child.takeBufferedOutput(),
              "Zelmark: 3 of 6 games right (win 1 of 2, hold 1 of 2, lose 1 of 2); wins only "
              "drawn: 1\n1 games not in the set\n");
}

}  // namespace
