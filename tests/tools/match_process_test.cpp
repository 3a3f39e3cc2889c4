// The driver against real processes: the engine binary against itself, and scripted engines
// that ponder, blunder, dawdle, crash or fall silent, to see each fault counted and the match
// carried on.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "tools/match/driver.h"

namespace {

// A UCI engine in a few lines of shell. Arguments: a mode, then the moves of the whole game;
// at ply n it answers move n and offers move n + 1 as its ponder move. Every go it is given
// is appended to the file named by the script's path and ".go".
//   play      answers every go and ponderhit
//   ponderer  never answers a plain go after the second ply: only ponderhit gets a move
//   miss      like play, but a stopped ponder search answers with a move nobody asked for
//   slow      thinks a second before each move
//   crash     exits when asked to move
//   mute      ignores go and stop
//   c960      like play once UCI_Chess960 has been set, "0000" before
const char* const FakeEngine = R"(set -f
mode=$1; shift
moves="$*"
count=0
pondering=0
answer() {
  set -- $moves
  eval "best=\${$((count + 1)):-0000} next=\${$((count + 2)):-}"
  echo "info depth 1 score cp 12 pv $best"
  if [ -n "$next" ]; then echo "bestmove $best ponder $next"; else echo "bestmove $best"; fi
}
while read -r line; do
  case "$line" in
    uci) echo "id name Fake $mode"; echo "option name Hash type spin default 1 min 1 max 64"
         echo "option name Ponder type check default false"; echo uciok;;
    isready) echo readyok;;
    "setoption name UCI_Chess960 value true") c960=1;;
    position*) set -- $line; count=0; seen=0
               for w in "$@"; do [ $seen -eq 1 ] && count=$((count + 1)); [ "$w" = moves ] && seen=1; done;;
    "go ponder"*) pondering=1;;
    go*) echo "$line" >> "$0.go"
         case $mode in
           slow) sleep 1; answer;;
           crash) exit 3;;
           mute) ;;
           ponderer) [ $count -lt 2 ] && answer;;
           c960) if [ "$c960" = 1 ]; then answer; else echo "bestmove 0000"; fi;;
           *) answer;;
         esac;;
    ponderhit) pondering=0; answer;;
    stop) if [ $pondering -eq 1 ]; then
            pondering=0
            if [ $mode = miss ]; then echo "bestmove a2a3"; else answer; fi
          fi;;
    quit) exit 0;;
  esac
done
)";

const char* const FoolsMate = "f2f3 e7e5 g2g4 d8h4";

// Files of this process alone: ctest may run the tests of this program side by side.
std::string tempPath(const std::string& name) {
    return ::testing::TempDir() + "match_" + std::to_string(getpid()) + "_" + name;
}

const std::string& fakePath() {
    static const std::string path = [] {
        const std::string p = tempPath("fake_engine.sh");
        std::ofstream(p) << FakeEngine;
        return p;
    }();
    return path;
}

std::string fake(const std::string& mode, const std::string& moves = FoolsMate) {
    return "sh " + fakePath() + " " + mode + " " + moves;
}

match::MatchSettings settingsFor(const std::string& first, const std::string& second, int games,
                                 const std::string& pgn) {
    match::MatchSettings s;
    s.engines[0].command = first;
    s.engines[1].command = second;
    s.games = games;
    s.baseSeconds = 2;
    s.incrementSeconds = 0;
    s.timeControl = "2";
    s.timeoutMs = 3000;
    s.pgnPath = tempPath(pgn);
    return s;
}

std::string fileText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool fileHas(const std::string& path, const std::string& part) {
    return fileText(path).find(part) != std::string::npos;
}

TEST(MatchProcess, EngineBinaryAgainstItselfPlaysCleanGames) {
    match::MatchSettings s = settingsFor(ZELMARK_BINARY, ZELMARK_BINARY, 2, "match_self.pgn");
    s.baseSeconds = 1;
    s.incrementSeconds = 0.01;
    s.timeControl = "1+0.01";
    // A loaded test machine must not turn this into a test of the engine's time management.
    s.lagMs = 250;
    s.engines[0].options = {{"Hash", "16"}};
    s.engines[0].ponder = true;
    s.engines[1].threads = 2;
    match::Match m(s, nullptr);
    EXPECT_EQ(m.run(), 0);
    EXPECT_EQ(m.gamesPlayed(), 2);
    for (int i = 0; i < 2; ++i) {
        const match::PlayerCounters& c = m.player(i).counters;
        EXPECT_EQ(c.crashes + c.hangs + c.illegalMoves + c.timeLosses + c.restarts, 0);
        EXPECT_EQ(c.wins + c.draws + c.losses, 2);
    }
    EXPECT_TRUE(m.player(0).undeclaredOptions.empty());
    EXPECT_TRUE(m.player(1).undeclaredOptions.empty());  // threads found NumberOfProcessors
}

// The engine under xboard, in a directory whose ini file turns its book off, against itself
// under UCI: standard chess with pondering on both sides, and Chess960.
TEST(MatchProcess, XboardEngineAgainstUciPlaysCleanGames) {
    const std::string directory = tempPath("xboard_engine");
    ASSERT_EQ(std::system(("mkdir -p " + directory).c_str()), 0);
    std::ofstream(directory + "/Zelmark.ini")
        << "setoption name OwnBook value false\nsetoption name Hash value 16\n";
    for (const bool chess960 : {false, true}) {
        match::MatchSettings s =
            settingsFor("sh -c 'cd " + directory + " && exec " + ZELMARK_BINARY + "'",
                        ZELMARK_BINARY, 2, chess960 ? "xboard960.pgn" : "xboard.pgn");
        s.baseSeconds = 1;
        s.incrementSeconds = 0.05;
        s.timeControl = "1+0.05";
        s.lagMs = 250;
        s.chess960 = chess960;
        if (chess960)
            s.openingsPath = std::string(ZELMARK_TEST_DATA) + "/../../tools/match/openings960.txt";
        s.engines[0].xboard = true;
        s.engines[0].ponder = s.engines[1].ponder = true;
        s.engines[1].options = {{"OwnBook", "false"}};
        match::Match m(s, nullptr);
        EXPECT_EQ(m.run(), 0) << (chess960 ? "Chess960" : "standard");
        EXPECT_EQ(m.gamesPlayed(), 2);
        for (int i = 0; i < 2; ++i) {
            const match::PlayerCounters& c = m.player(i).counters;
            EXPECT_EQ(c.crashes + c.hangs + c.illegalMoves + c.timeLosses + c.restarts + c.refusals,
                      0)
                << (chess960 ? "Chess960, " : "standard, ") << "engine " << i;
        }
        EXPECT_EQ(m.player(0).name, "Zelmark 2.8");
    }
}

TEST(MatchProcess, PonderHitAndPonderMissFollowTheProtocol) {
    // Both engines predict every reply; the ponderer gets its later moves only by ponderhit.
    match::MatchSettings s = settingsFor(fake("ponderer"), fake("ponderer"), 1, "ponder.pgn");
    s.engines[0].ponder = s.engines[1].ponder = true;
    match::Match hits(s, nullptr);
    EXPECT_EQ(hits.run(), 0);
    EXPECT_EQ(hits.endingCount(match::Ending::Checkmate), 1);
    EXPECT_TRUE(fileHas(s.pgnPath, "1. f3 e5 2. g4 Qh4# {Black mates} 0-1"));

    // White expects 1... e6 and is stopped; its answer to stop must not be played.
    s = settingsFor(fake("miss", "f2f3 e7e6 g2g4 d8h4"), fake("play"), 1, "ponder_miss.pgn");
    s.engines[0].ponder = true;
    match::Match miss(s, nullptr);
    EXPECT_EQ(miss.run(), 0);
    EXPECT_TRUE(fileHas(s.pgnPath, "1. f3 e5 2. g4 Qh4# {Black mates} 0-1"));
}

TEST(MatchProcess, Chess960CastlingIsTheKingTakingItsRook) {
    const std::string openings = tempPath("960.txt");
    std::ofstream(openings) << "1r2k1r1/pppppppp/8/8/8/8/PPPPPPPP/1R2K1R1 w GBgb - 0 1\n";
    const std::string moves = "e1b1 e8g8 b2b3 g7g6";
    match::MatchSettings s = settingsFor(fake("c960", moves), fake("c960", moves), 1, "960.pgn");
    s.chess960 = true;
    s.openingsPath = openings;
    match::Match m(s, nullptr);
    EXPECT_EQ(m.run(), 1);  // the script runs out of moves
    EXPECT_TRUE(fileHas(s.pgnPath, "[Variant \"Chess960\"]"));
    EXPECT_TRUE(
        fileHas(s.pgnPath, "1. O-O-O O-O 2. b3 g6 {White makes an illegal move: 0000} 0-1"));
}

// Each faulty script loses both its games, one with each colour, and is counted for it;
// an engine that had to be killed is restarted for the second game.
TEST(MatchProcess, FaultsLoseTheGameAndFailTheRun) {
    struct Fault {
        std::string engine;
        double baseSeconds;
        int timeoutMs;
        int match::PlayerCounters::*counter;
        int restarts;
        const char* pgn;
        bool nodeLimit = false;
    };
    const Fault faults[] = {
        {fake("play", "f2f3 e7e5 e1e3"), 2, 3000, &match::PlayerCounters::illegalMoves, 0,
         "1. f3 e5 {White makes an illegal move: e1e3} 0-1"},
        {fake("slow"), 0.3, 3000, &match::PlayerCounters::timeLosses, 0,
         "{White loses on time} 0-1"},
        {fake("crash"), 2, 3000, &match::PlayerCounters::crashes, 1,
         "{White's engine crashed} 0-1"},
        {fake("mute"), 0.2, 300, &match::PlayerCounters::hangs, 1, "{White loses on time} 0-1"},
        // Under a node limit silence is a hang, not a loss on time.
        {fake("mute"), 0.2, 300, &match::PlayerCounters::hangs, 1,
         "{White's engine stopped answering} 0-1", true},
    };
    for (const Fault& f : faults) {
        match::MatchSettings s = settingsFor(f.engine, fake("play"), 2, "fault.pgn");
        s.baseSeconds = f.baseSeconds;
        s.timeoutMs = f.timeoutMs;
        if (f.nodeLimit) s.engines[0].nodes = {1000, 1000};
        match::Match m(s, nullptr);
        EXPECT_EQ(m.run(), 1) << f.engine;
        const match::PlayerCounters& c = m.player(0).counters;
        EXPECT_EQ(c.*f.counter, 2) << f.engine;
        if (f.nodeLimit) {
            EXPECT_EQ(c.timeLosses, 0) << f.engine;
        }
        EXPECT_EQ(c.restarts, f.restarts) << f.engine;
        EXPECT_EQ(c.losses, 2) << f.engine;
        EXPECT_EQ(m.pairCounts()[0], 1) << f.engine;
        EXPECT_TRUE(fileHas(s.pgnPath, f.pgn)) << f.engine;
    }
}

// Search limits replace the clock: a slow engine does not lose on time, and each move's limit
// is drawn anew within its range.
TEST(MatchProcess, SearchLimitsAreSentInsteadOfTheClock) {
    std::remove((fakePath() + ".go").c_str());
    match::MatchSettings s = settingsFor(fake("slow"), fake("play"), 1, "limits.pgn");
    s.baseSeconds = 0.3;  // the slow engine's two seconds would flag on the clock
    s.engines[0].nodes = {100, 200};
    s.engines[0].depth = {3, 3};
    s.engines[1].nodes = {5000, 5000};
    match::Match m(s, nullptr);
    EXPECT_EQ(m.run(), 0);
    EXPECT_TRUE(fileHas(s.pgnPath, "[TimeControl \"-\"]"));
    EXPECT_TRUE(fileHas(s.pgnPath, "1. f3 e5 2. g4 Qh4# {Black mates} 0-1"));
    std::istringstream goes(fileText(fakePath() + ".go"));
    std::string go, white[2];
    for (int ply = 0; std::getline(goes, go); ++ply) {
        if (ply % 2) {
            EXPECT_EQ(go, "go nodes 5000");
            continue;
        }
        white[ply / 2] = go;
        long nodes = 0;
        ASSERT_EQ(std::sscanf(go.c_str(), "go depth 3 nodes %ld", &nodes), 1) << go;
        EXPECT_TRUE(nodes >= 100 && nodes <= 200) << go;
    }
    EXPECT_NE(white[0], white[1]);  // two draws from a hundred and one counts
}

// A move list opening is played from the start position, and the game's record holds it with
// no FEN tag; random plies after it are the same in both games of the pair.
TEST(MatchProcess, OpeningLineIsPlayedAndRecordedFromTheStartPosition) {
    const std::string openings = tempPath("lines.txt");
    std::ofstream(openings) << "1. e4 e5 2. Nf3 Nc6\n";
    match::MatchSettings s = settingsFor(ZELMARK_BINARY, ZELMARK_BINARY, 2, "lines.pgn");
    s.openingsPath = openings;
    s.randomPlies = 2;
    s.engines[0].nodes = s.engines[1].nodes = {200, 400};
    s.engines[0].options = s.engines[1].options = {{"Hash", "16"}, {"OwnBook", "false"}};
    s.draw = {20, 2, 50};  // short games
    match::Match m(s, nullptr);
    EXPECT_EQ(m.run(), 0);
    EXPECT_EQ(m.gamesPlayed(), 2);
    const std::string pgn = fileText(s.pgnPath);
    EXPECT_EQ(pgn.find("[FEN"), std::string::npos);
    EXPECT_EQ(pgn.find("[SetUp"), std::string::npos);
    std::vector<std::string> starts;
    for (size_t at = pgn.find("\n1. "); at != std::string::npos; at = pgn.find("\n1. ", at + 1))
        starts.push_back(pgn.substr(at + 1, pgn.find(" 4. ", at) - at - 1));
    ASSERT_EQ(starts.size(), 2u);
    EXPECT_EQ(starts[0].rfind("1. e4 e5 2. Nf3 Nc6 3. ", 0), 0u) << starts[0];
    EXPECT_EQ(starts[0], starts[1]);
}

}  // namespace
