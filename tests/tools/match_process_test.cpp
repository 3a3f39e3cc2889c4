// The driver against real processes: the engine binary against itself, and scripted engines
// that ponder, blunder, dawdle, crash or fall silent, to see each fault counted and the match
// carried on.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tools/match/driver.h"

namespace {

// A UCI engine in a few lines of shell. Arguments: a mode, then the moves of the whole game;
// at ply n it answers move n and offers move n + 1 as its ponder move.
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
    go*) case $mode in
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

std::string fake(const std::string& mode, const std::string& moves = FoolsMate) {
    static const std::string path = [] {
        const std::string p = tempPath("fake_engine.sh");
        std::ofstream(p) << FakeEngine;
        return p;
    }();
    return "sh " + path + " " + mode + " " + moves;
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

bool fileHas(const std::string& path, const std::string& part) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str().find(part) != std::string::npos;
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
    };
    const Fault faults[] = {
        {fake("play", "f2f3 e7e5 e1e3"), 2, 3000, &match::PlayerCounters::illegalMoves, 0,
         "1. f3 e5 {White makes an illegal move: e1e3} 0-1"},
        {fake("slow"), 0.3, 3000, &match::PlayerCounters::timeLosses, 0,
         "{White loses on time} 0-1"},
        {fake("crash"), 2, 3000, &match::PlayerCounters::crashes, 1,
         "{White's engine crashed} 0-1"},
        {fake("mute"), 0.2, 300, &match::PlayerCounters::hangs, 1, "{White loses on time} 0-1"},
    };
    for (const Fault& f : faults) {
        match::MatchSettings s = settingsFor(f.engine, fake("play"), 2, "fault.pgn");
        s.baseSeconds = f.baseSeconds;
        s.timeoutMs = f.timeoutMs;
        match::Match m(s, nullptr);
        EXPECT_EQ(m.run(), 1) << f.engine;
        const match::PlayerCounters& c = m.player(0).counters;
        EXPECT_EQ(c.*f.counter, 2) << f.engine;
        EXPECT_EQ(c.restarts, f.restarts) << f.engine;
        EXPECT_EQ(c.losses, 2) << f.engine;
        EXPECT_EQ(m.pairCounts()[0], 1) << f.engine;
        EXPECT_TRUE(fileHas(s.pgnPath, f.pgn)) << f.engine;
    }
}

}  // namespace
