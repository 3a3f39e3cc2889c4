// Start-up: the protocol word, the hidden options, and how the run ends.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "protocol/engine_process.h"

// Only the exact word on the command line adds the six hidden options to the answer.
TEST(Startup, UciAnswerListsHiddenOptionsOnlyForTheExactWord) {
    const struct {
        const char* argument;
        size_t lines;
    } runs[] = {{nullptr, 16}, {"VersteckteOptionen", 22}, {"versteckteoptionen", 16}};
    for (const auto& run : runs) {
        EngineProcess engine(run.argument ? std::vector<std::string>{run.argument}
                                          : std::vector<std::string>{});
        engine.send("uci");
        const std::vector<std::string> answer = engine.readUntil("uciok");
        ASSERT_EQ(answer.size(), run.lines) << lastLine(answer);
        EXPECT_EQ(answer[0], "id name Zelmark 2.8");
        EXPECT_EQ(answer[2], "option name Hash type spin default 3 min 1 max 32767");
        EXPECT_EQ(answer.back(), "uciok");
    }
}

TEST(Startup, FirstWordMustNameAProtocol) {
    EngineProcess engine;
    engine.send("isready");
    engine.send("UCI");  // capitals are another word
    engine.send("");
    engine.send("   \t ");
    engine.send("ucinewgame");
    EXPECT_TRUE(engine.silentFor(300));
    engine.send("   uci   ");  // blanks around the word do no harm
    EXPECT_EQ(lastLine(engine.readUntil("uciok")), "uciok");
    // After the word, unknown commands and protocol words are silent.
    engine.send("xboard");
    engine.send("Isready");
    engine.send("hello world");
    engine.send("isready");
    EXPECT_EQ(engine.readLine(), "readyok");
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_TRUE(engine.remainingLines.empty());
    // Blank lines are ignored; each of the three other words gets the message once.
    const std::string expected = "'uci' or 'xboard' expected\n";
    EXPECT_EQ(engine.errorText, expected + expected + expected);
}

TEST(Startup, OverlongLineArrivesInPartsWithoutHarm) {
    EngineProcess engine;
    startUci(engine);
    // The tail past the buffer comes as a line of its own, and "isready" after the blanks
    // is still a command.
    engine.send(std::string(40100, 'x'));
    engine.send(std::string(39999, ' ') + "isready");
    engine.send("isready");
    EXPECT_EQ(engine.readLine(), "readyok");
    EXPECT_EQ(engine.readLine(), "readyok");
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_TRUE(engine.remainingLines.empty());
}

TEST(Startup, NoOutputSilencesEverything) {
    EngineProcess engine({"VersteckteOptionen"});
    startUci(engine);
    engine.send("setoption name NoOutput value true");
    engine.send("isready");
    engine.send("debug on");
    engine.send("position nonsense");
    engine.send("go depth 1");
    engine.send("perft depth 1");
    EXPECT_TRUE(engine.silentFor(500));
    engine.send("setoption name NoOutput value false");
    engine.send("isready");
    EXPECT_EQ(engine.readLine(), "readyok");
}
