// The xboard protocol through the real binary: the handshake and its ini file, the end of a
// game, pondering, analysis, and what bad input and floods of commands get.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "protocol/engine_process.h"

namespace {

const char* const FeatureLines[] = {
    "feature done=0",      "feature myname=\"Zelmark 2.8\"",
    "feature ping=1",      "feature setboard=1",
    "feature playother=1", "feature usermove=1",
    "feature sigint=0",    "feature variants=\"normal,fischerandom\"",
    "feature colors=0",    "feature ics=0",
    "feature name=1",
};

// Without a book the engine searches from the first move, and "new" finds nothing to miss.
const char* const QuietIni = "setoption name OwnBook value false\n";

// The engine started in a scratch directory of its own, with the ini file given (none if null).
class XboardEngine {
  public:
    explicit XboardEngine(const char* iniText = QuietIni) {
        char pattern[] = "/tmp/zelmark-xboard-XXXXXX";
        directory = mkdtemp(pattern);
        if (iniText) std::ofstream(directory + "/Zelmark.ini") << iniText;
        char previous[4096];
        if (!getcwd(previous, sizeof previous)) previous[0] = 0;
        // The child takes our working directory with it.
        if (chdir(directory.c_str()) != 0) ADD_FAILURE() << "chdir " << directory;
        engine = std::make_unique<EngineProcess>();
        if (previous[0] && chdir(previous) != 0) ADD_FAILURE() << "chdir back";
    }
    ~XboardEngine() {
        engine.reset();
        std::remove((directory + "/Zelmark.ini").c_str());
        rmdir(directory.c_str());
    }

    EngineProcess& operator*() { return *engine; }
    EngineProcess* operator->() { return engine.get(); }

    // "xboard" and "protover 2": the empty line, the features and what the ini file brings.
    std::vector<std::string> handshake() {
        engine->send("xboard");
        engine->send("protover 2");
        return engine->readUntil("feature done=1");
    }

    // The lines the engine writes until it has taken everything so far: a ping is answered in
    // turn when no search runs.
    std::vector<std::string> sync() {
        const std::string pong = "pong " + std::to_string(++pings);
        engine->send("ping " + std::to_string(pings));
        std::vector<std::string> lines = engine->readUntil(pong);
        EXPECT_EQ(lastLine(lines), pong);
        if (!lines.empty()) lines.pop_back();
        return lines;
    }

  private:
    std::string directory;
    std::unique_ptr<EngineProcess> engine;
    int pings = 0;
};

bool startsWith(const std::string& line, const std::string& prefix) {
    return line.compare(0, prefix.size(), prefix) == 0;
}

int countStarting(const std::vector<std::string>& lines, const std::string& prefix) {
    int count = 0;
    for (const std::string& line : lines) count += startsWith(line, prefix);
    return count;
}

// "DEPTH SCORE TIME NODES MOVES..."
bool isThinkingLine(const std::string& line) {
    static const std::regex form("\\d+ -?\\d+ \\d+ \\d+( \\S+)+");
    return std::regex_match(line, form);
}

// The engine ends by itself: its output closes long before the time limit.
void expectEndsByItself(XboardEngine& engine) {
    const auto start = std::chrono::steady_clock::now();
    while (engine->readLine(5000)) {
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    EXPECT_TRUE(engine->finish());
    EXPECT_EQ(engine->exitStatus, 0);
}

TEST(Xboard, HandshakeSendsTheFeaturesThenTheIniOptions) {
    // Only lines that begin with "setoption " count; the interpreter's error shows that the
    // line arrived, under xboard always.
    XboardEngine engine(
        "# options\nsetoption name NoSuchOption value 1\r\njunk\n setoption name Hash value 2\n"
        "setoptionname Hash\n\nsetoption name OwnBook value false\n");
    std::vector<std::string> expected = {""};
    expected.insert(expected.end(), std::begin(FeatureLines), std::end(FeatureLines));
    expected.push_back("Error ('setoption': unknown option): setoption name NoSuchOption value 1");
    expected.push_back("feature done=1");
    EXPECT_EQ(engine.handshake(), expected);
    EXPECT_TRUE(engine.sync().empty());

    XboardEngine withoutIni(nullptr);
    expected.erase(expected.end() - 2);
    expected.insert(expected.end() - 1, "Error (file 'Zelmark.ini' not found): protover");
    EXPECT_EQ(withoutIni.handshake(), expected);
}

TEST(Xboard, AnythingBeforeProtoverTwoEndsTheEngine) {
    const struct {
        const char* line;
        const char* detail;
    } cases[] = {
        {"usermove e2e4", "usermove e2e4"},
        {"new", "new"},
        {"ping 1", "ping 1"},
        {"protover 1", "1"},
        {"protover x", "x"},
    };
    for (const auto& c : cases) {
        XboardEngine engine;
        engine->send("xboard");
        EXPECT_EQ(engine->readLine().value_or("(none)"), "");
        engine->send(c.line);
        EXPECT_EQ(engine->readLine().value_or("(none)"),
                  std::string("Error (protocol version 2 required): ") + c.detail);
        expectEndsByItself(engine);
    }
}

TEST(Xboard, BadInputGetsItsOwnAnswerAndTheGameGoesOn) {
    const struct {
        const char* line;
        std::vector<std::string> answer;
    } cases[] = {
        {"hello world", {"Error (unknown command): hello world"}},
        {"Usermove e2e4", {"Error (unknown command): Usermove e2e4"}},
        {"level 40 5", {"Error (bad parameters): level 40 5"}},
        {"level 40 5 0 1", {"Error (bad parameters): level 40 5 0 1"}},
        {"level x y z", {"Error (bad parameters): level x y z"}},
        {"usermove e2e5", {"Illegal move: e2e5"}},
        {"usermove", {"Illegal move: "}},
        {"usermove e2e4e5e6", {"Illegal move: e2e4e5"}},
        {"usermove e1g1", {"Illegal move: e1g1"}},
        {"setboard 8/8/8 w", {"Error (Illegal position): 8/8/8 w"}},
        {"setboard", {"Error (Illegal position): internal error"}},
        {"st", {}},
        {"st nan", {}},
        {"sd -5", {}},
        {"time 1e400", {}},
        {"time -7", {}},
        {"level 40 99999999999:99 1e308", {}},
        {"hint", {}},
        {".", {}},
        {"exit", {}},
        {"undo", {}},
        {"remove", {}},
        {"accepted done", {}},
        {"otim 100", {}},
    };
    XboardEngine engine;
    engine.handshake();
    engine->send("new");
    engine->send("force");
    for (const auto& c : cases) {
        engine->send(c.line);
        EXPECT_EQ(engine.sync(), c.answer) << c.line;
    }
    // A refused setboard leaves the start position, and the engine still plays from it.
    engine->send("setboard 8/8/8/8/8/8/8/8 w - - 0 1");
    engine->send("usermove e2e4");
    engine->send("sd 2");
    engine->send("go");
    const std::vector<std::string> lines = engine->readUntil("move ");
    EXPECT_EQ(lines.front(), "Error (Illegal position): 8/8/8/8/8/8/8/8 w - - 0 1");
    EXPECT_TRUE(std::regex_match(lastLine(lines), std::regex("move [a-h][1-8][a-h][1-8]")))
        << lastLine(lines);
    EXPECT_EQ(countStarting(lines, "Illegal"), 0);
}

TEST(Xboard, UndoTakesBackOnlyInForceOrAnalyzeMode) {
    const struct {
        const char* name;
        std::vector<std::string> commands;
        // The move that follows, and whether it is legal then.
        const char* next;
        bool legal;
    } cases[] = {
        {"outside force mode the board stays", {"playother", "undo", "force"}, "g1f3", true},
        {"in force mode the last move goes", {"undo"}, "e7e6", true},
        {"in force mode the last move goes", {"undo"}, "g1f3", false},
        {"remove takes back two moves", {"remove"}, "d2d4", true},
        {"remove takes back two moves", {"remove"}, "e7e5", false},
    };
    for (const auto& c : cases) {
        XboardEngine engine;
        engine.handshake();
        for (const char* line : {"new", "force", "usermove e2e4", "usermove e7e5"})
            engine->send(line);
        for (const std::string& line : c.commands) engine->send(line);
        engine->send(std::string("usermove ") + c.next);
        const std::vector<std::string> expected =
            c.legal ? std::vector<std::string>{}
                    : std::vector<std::string>{std::string("Illegal move: ") + c.next};
        EXPECT_EQ(engine.sync(), expected) << c.name << ", then " << c.next;
    }
}

TEST(Xboard, AUserMoveThatEndsTheGameGetsItsResultAndNoSearch) {
    const struct {
        const char* fen;
        const char* move;
        const char* result;
    } cases[] = {
        {"6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1", "a1a8", "1-0 {White mates}"},
        {"r5k1/8/8/8/8/8/5PPP/6K1 b - - 0 1", "a8a1", "0-1 {Black mates}"},
        {"7k/8/8/6Q1/8/8/8/6K1 w - - 0 1", "g5g6", "1/2-1/2 {Stalemate}"},
        {"7k/8/8/8/8/8/6r1/6KB w - - 0 1", "g1g2", "1/2-1/2 {Insufficient material}"},
        {"7k/8/8/8/8/8/R7/6K1 w - - 99 80", "a2a3", "1/2-1/2 {Draw by 50 move rule}"},
        // Neither king gets past the pawns' guard.
        {"8/8/4k3/p1p1p1p1/P1P1P1P1/8/8/4K3 w - - 0 1", "e1e2", "1/2-1/2 {Dead position}"},
        // Mate on the hundredth half-move is mate.
        {"6k1/5ppp/8/8/8/8/8/R5K1 w - - 99 80", "a1a8", "1-0 {White mates}"},
    };
    for (const auto& c : cases) {
        XboardEngine engine;
        engine.handshake();
        for (const std::string& line : std::vector<std::string>{
                 "new", "force", std::string("setboard ") + c.fen, "playother"})
            engine->send(line);
        engine->send(std::string("usermove ") + c.move);
        EXPECT_EQ(engine.sync(), std::vector<std::string>{c.result}) << c.fen;
        EXPECT_TRUE(engine->silentFor(500)) << c.fen << ": a search started";
    }

    // A third time the same position, by the moves of the game.
    XboardEngine engine;
    engine.handshake();
    engine->send("new");
    engine->send("force");
    for (const char* move : {"g1f3", "g8f6", "f3g1", "f6g8", "g1f3", "g8f6", "f3g1"})
        engine->send(std::string("usermove ") + move);
    engine->send("playother");
    engine->send("usermove f6g8");
    EXPECT_EQ(engine.sync(), std::vector<std::string>{"1/2-1/2 {Draw by repetition}"});
    EXPECT_TRUE(engine->silentFor(500));
}

TEST(Xboard, AMatingMoveIsFollowedByItsResult) {
    const struct {
        const char* fen;
        const char* move;
        const char* result;
    } cases[] = {
        {"6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1", "move a1a8", "1-0 {White mates}"},
        {"r5k1/8/8/8/8/8/5PPP/6K1 b - - 0 1", "move a8a1", "0-1 {Black mates}"},
    };
    for (const auto& c : cases) {
        XboardEngine engine;
        engine.handshake();
        for (const std::string& line : std::vector<std::string>{
                 "new", "force", std::string("setboard ") + c.fen, "nopost", "go"})
            engine->send(line);
        EXPECT_EQ(engine->readLine().value_or("(none)"), c.move);
        EXPECT_EQ(engine->readLine().value_or("(none)"), c.result);
        EXPECT_TRUE(engine.sync().empty());
    }
}

TEST(Xboard, PingDuringThinkingIsAnsweredAfterTheMove) {
    XboardEngine engine;
    engine.handshake();
    for (const char* line : {"new", "level 0 0:20 0", "post", "usermove e2e4"}) engine->send(line);
    const std::vector<std::string> first = engine->readUntil("1 ");
    ASSERT_TRUE(isThinkingLine(lastLine(first))) << lastLine(first);
    engine->send("ping 7");
    const std::vector<std::string> lines = engine->readUntil("pong 7");
    ASSERT_EQ(lastLine(lines), "pong 7");
    EXPECT_EQ(countStarting(lines, "move "), 1);
    EXPECT_TRUE(startsWith(lines[lines.size() - 2], "move ")) << lines[lines.size() - 2];
}

TEST(Xboard, ForceAndQuestionMarkDuringThinking) {
    XboardEngine engine;
    engine.handshake();
    for (const char* line : {"new", "level 0 10 0", "post", "usermove e2e4"}) engine->send(line);
    ASSERT_TRUE(isThinkingLine(lastLine(engine->readUntil("1 "))));
    // "?" asks for the move now.
    engine->send("?");
    const std::vector<std::string> lines = engine->readUntil("move ", 3000);
    ASSERT_TRUE(startsWith(lastLine(lines), "move ")) << lastLine(lines);

    // A search cut off by `force` leaves no move, and the ping it held is answered.
    engine->send("usermove d2d4");
    ASSERT_TRUE(isThinkingLine(lastLine(engine->readUntil("1 "))));
    engine->send("ping 3");
    engine->send("force");
    const std::vector<std::string> after = engine->readUntil("pong 3");
    EXPECT_EQ(lastLine(after), "pong 3");
    EXPECT_EQ(countStarting(engine.sync(), "move "), 0);
    EXPECT_EQ(countStarting(after, "move "), 0);
}

// After the engine's move: the move it ponders on, which stands in front of the ponder
// search's lines, as read from its first line. Empty if none comes.
std::string ponderedMove(XboardEngine& engine) {
    const std::string line = engine->readLine().value_or("");
    if (!isThinkingLine(line)) return std::string();
    char move[16] = {};
    std::sscanf(line.c_str(), "%*d %*d %*d %*d %15s", move);
    return move;
}

TEST(Xboard, PonderHitGoesOnWithThePonderSearch) {
    XboardEngine engine;
    engine.handshake();
    for (const char* line : {"new", "hard", "post", "level 0 0:10 0", "usermove e2e4"})
        engine->send(line);
    ASSERT_TRUE(startsWith(lastLine(engine->readUntil("move ")), "move "));
    const std::string expected = ponderedMove(engine);
    ASSERT_FALSE(expected.empty());
    engine->send("hint");
    EXPECT_EQ(lastLine(engine->readUntil("Hint: ")), "Hint: " + expected);
    // Deep enough into the ponder search that a new search would show.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));

    engine->send("usermove " + expected);
    const std::vector<std::string> lines = engine->readUntil("move ", 20000);
    ASSERT_TRUE(startsWith(lastLine(lines), "move ")) << lastLine(lines);
    for (const std::string& line : lines)
        EXPECT_FALSE(startsWith(line, "1 ")) << "a new search began: " << line;

    // A miss starts a new search of its own.
    const std::string next = ponderedMove(engine);
    ASSERT_FALSE(next.empty());
    engine->send(next == "a2a3" ? "usermove h2h3" : "usermove a2a3");
    const std::vector<std::string> missed = engine->readUntil("move ", 20000);
    ASSERT_TRUE(startsWith(lastLine(missed), "move ")) << lastLine(missed);
    EXPECT_GT(countStarting(missed, "1 "), 0);
}

TEST(Xboard, AnalyzeShowsLinesAndStatusAndExitsCleanly) {
    XboardEngine engine;
    engine.handshake();
    for (const char* line : {"new", "post", "analyze"}) engine->send(line);
    ASSERT_TRUE(isThinkingLine(lastLine(engine->readUntil("3 "))));
    engine->send(".");
    const std::vector<std::string> status = engine->readUntil("stat01:");
    EXPECT_TRUE(
        std::regex_match(lastLine(status), std::regex("stat01: +\\d+ +\\d+ +\\d+ +\\d+ +20 ?\\S*")))
        << lastLine(status);
    // A move restarts the analysis from the new position.
    engine->send("usermove e2e4");
    const std::vector<std::string> restarted = engine->readUntil("1 ");
    ASSERT_TRUE(isThinkingLine(lastLine(restarted)));
    engine->send("hint");
    ASSERT_TRUE(startsWith(lastLine(engine->readUntil("Hint: ")), "Hint: "));
    engine->send("exit");
    const std::vector<std::string> rest = engine.sync();
    EXPECT_EQ(countStarting(rest, "move "), 0);
    EXPECT_TRUE(engine->silentFor(300));
    engine->send(".");  // outside analysis: nothing
    EXPECT_TRUE(engine.sync().empty());
}

TEST(Xboard, AFloodWhileThinkingIsAnsweredInOrderWithOneMove) {
    XboardEngine engine;
    engine.handshake();
    for (const char* line : {"new", "nopost", "level 0 0:10 0", "usermove e2e4"})
        engine->send(line);
    // Far more messages than the queue has slots, all while the search runs.
    std::string flood;
    for (int i = 0; i < 400; ++i) flood += "bogus" + std::to_string(i) + "\nlevel 1\n";
    engine->sendRaw(flood);
    std::vector<std::string> lines = engine->readUntil("move ", 20000);
    std::vector<std::string> more = engine.sync();
    lines.insert(lines.end(), more.begin(), more.end());
    std::vector<std::string> errors;
    for (const std::string& line : lines)
        if (startsWith(line, "Error")) errors.push_back(line);
    ASSERT_EQ(errors.size(), 800u);
    for (int i = 0; i < 400; ++i) {
        EXPECT_EQ(errors[2 * i], "Error (unknown command): bogus" + std::to_string(i));
        EXPECT_EQ(errors[2 * i + 1], "Error (bad parameters): level 1");
    }
    EXPECT_EQ(countStarting(lines, "move "), 1);
}

TEST(Xboard, EndOfInputOrQuitAtAnyMomentEndsTheEngine) {
    const struct {
        const char* name;
        std::vector<std::string> commands;
        bool quit;
    } cases[] = {
        {"right after the handshake", {}, false},
        {"while thinking", {"new", "level 0 5 0", "usermove e2e4"}, false},
        {"while pondering", {"new", "hard", "level 0 0:02 0", "usermove e2e4"}, false},
        {"while analyzing", {"new", "analyze"}, false},
        {"quit while thinking", {"new", "level 0 5 0", "usermove e2e4"}, true},
        {"quit while pondering", {"new", "hard", "level 0 0:02 0", "usermove e2e4"}, true},
        {"quit while analyzing", {"new", "analyze"}, true},
    };
    for (const auto& c : cases) {
        XboardEngine engine;
        engine.handshake();
        for (const std::string& line : c.commands) engine->send(line);
        // Long enough for a two-second game's move and the ponder search after it.
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        if (c.quit) {
            engine->send("quit");
            expectEndsByItself(engine);
        } else {
            EXPECT_TRUE(engine->finish()) << c.name;
            EXPECT_EQ(engine->exitStatus, 0) << c.name;
        }
    }
}

}  // namespace
