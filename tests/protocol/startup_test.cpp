// Start-up: the protocol word, the option list, and how the run ends.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "protocol/engine_process.h"

namespace {

const std::vector<std::string> VisibleAnswer = {
    "id name Zelmark 2.8",
    "id author Jorin Tesmark",
    "option name Hash type spin default 3 min 1 max 32767",
    "option name Ponder type check default true",
    "option name OwnBook type check default true",
    "option name Clear Hash type button",
    "option name MultiPV type spin default 1 min 1 max 255",
    "option name UCI_Chess960 type check default false",
    "option name BookFile type string default Zelmark.opn",
    "option name Opponent type string default unknown",
    "option name NumberOfProcessors type spin default 1 min 1 max 8",
    "option name NeuroMaterial type spin default 40 min 0 max 100",
    "option name NeuroWidth type spin default 800 min 1 max 10000",
    "option name MaterialFile type string default (internal)",
    "option name TimeLogfile type string default nul:",
};

const std::vector<std::string> HiddenAnswer = {
    "option name BitbaseCache type spin default 0 min 0 max 100",
    "option name BitbasePath type string default .",
    "option name blocking type check default false",
    "option name NoOutput type check default false",
    "option name Resign type spin default 700 min 400 max 2000",
    "option name AlwaysClearHash type check default false",
};

std::vector<std::string> withUciOk(std::vector<std::string> lines) {
    lines.push_back("uciok");
    return lines;
}

const char* const ExpectedWord = "'uci' or 'xboard' expected\n";

}  // namespace

TEST(Startup, UciAnswerWithAndWithoutHiddenOptions) {
    {
        EngineProcess engine;
        engine.send("uci");
        EXPECT_EQ(engine.readUntil("uciok"), withUciOk(VisibleAnswer));
        ASSERT_TRUE(engine.finish());
        EXPECT_EQ(engine.exitStatus, 0);
        EXPECT_TRUE(engine.remainingLines.empty());
    }
    {
        EngineProcess engine({"VersteckteOptionen"});
        engine.send("uci");
        std::vector<std::string> expected = VisibleAnswer;
        expected.insert(expected.end(), HiddenAnswer.begin(), HiddenAnswer.end());
        EXPECT_EQ(engine.readUntil("uciok"), withUciOk(expected));
        // A second `uci` prints the same text again.
        engine.send("uci");
        EXPECT_EQ(engine.readUntil("uciok"), withUciOk(expected));
    }
    {
        // The word is compared exactly; any other argument would name a game file.
        EngineProcess engine({"versteckteoptionen"});
        engine.send("uci");
        EXPECT_EQ(engine.readUntil("uciok"), withUciOk(VisibleAnswer));
    }
}

TEST(Startup, EmptyInputEndsTheRunSilently) {
    EngineProcess engine;
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_TRUE(engine.remainingLines.empty());
    EXPECT_EQ(engine.errorText, "");
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
    EXPECT_EQ(engine.readUntil("uciok"), withUciOk(VisibleAnswer));
    engine.send("isready");
    EXPECT_EQ(engine.readLine(), "readyok");
    ASSERT_TRUE(engine.finish());
    EXPECT_EQ(engine.exitStatus, 0);
    EXPECT_TRUE(engine.remainingLines.empty());
    // Blank lines are ignored; each of the three other words gets the message once.
    EXPECT_EQ(engine.errorText, std::string(ExpectedWord) + ExpectedWord + ExpectedWord);
}

TEST(Startup, OtherProtocolWordsAreAccepted) {
    for (const char* word : {"xboard", "ucitest"}) {
        EngineProcess engine;
        engine.send(word);
        engine.send("uci");
        ASSERT_TRUE(engine.finish());
        EXPECT_EQ(engine.exitStatus, 0) << word;
        EXPECT_EQ(engine.errorText, "") << word;
    }
}

TEST(Startup, AfterTheProtocolWordUnknownCommandsAreSilent) {
    EngineProcess engine;
    startUci(engine);
    engine.send("xboard");
    engine.send("Isready");
    engine.send("hello world");
    engine.send("isready");
    EXPECT_EQ(engine.readLine(), "readyok");
    ASSERT_TRUE(engine.finish());
    EXPECT_TRUE(engine.remainingLines.empty());
    EXPECT_EQ(engine.errorText, "");
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

TEST(Startup, QuitEndsTheRunAndIgnoresTheRest) {
    EngineProcess engine;
    startUci(engine);
    // One write, so that the second line surely reaches the pipe before the engine leaves.
    engine.sendRaw("quit\nisready\n");
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
