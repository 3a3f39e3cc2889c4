// The driver's bookkeeping without processes: clocks, score adjudication, Elo, the command
// line, and the opening files that ship with the tool.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "tools/match/arguments.h"
#include "tools/match/game_clock.h"
#include "tools/match/openings.h"
#include "tools/match/player.h"
#include "tools/match/referee.h"
#include "tools/match/score_adjudicator.h"
#include "tools/match/stats.h"

namespace {

constexpr int64_t Ms = 1000;

TEST(GameClock, LagIsForgivenOncePerGameNotPerMove) {
    match::GameClock clock(1000 * Ms, 10 * Ms, 50 * Ms);
    EXPECT_EQ(clock.allowanceUs(true), 1050 * Ms);
    EXPECT_TRUE(clock.charge(true, 1050 * Ms));  // exactly at the allowance
    EXPECT_EQ(clock.left(true), -40 * Ms);       // the overrun stays, the increment is added
    EXPECT_EQ(clock.reportedMs(true), 1);        // engines are never told zero or less
    EXPECT_EQ(clock.left(false), 1000 * Ms);     // only the mover's clock runs
    EXPECT_FALSE(clock.charge(true, 10 * Ms + 1));
}

TEST(ScoreAdjudicator, ResignNeedsBothEnginesForTheStreakAndDrawWaitsForItsMove) {
    const match::ScoreRule resign{0, 3, 500}, draw{40, 2, 10}, off{};
    match::ScoreAdjudicator a(resign, off), doubt(resign, off), level(off, draw);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(a.check(10).over());
        a.record(true, true, 600);
        a.record(false, true, -700);
        doubt.record(true, i != 1, 600);  // one move without a score breaks the streak
        doubt.record(false, true, -700);
        level.record(true, true, -10);
        level.record(false, true, 5);
    }
    EXPECT_EQ(a.check(10).outcome, match::Outcome::WhiteWins);
    EXPECT_FALSE(doubt.check(10).over());
    EXPECT_FALSE(level.check(39).over());
    EXPECT_EQ(level.check(40).ending, match::Ending::AdjudicatedDraw);
}

TEST(InfoLines, ScoreOfThePrincipalLine) {
    int score = 0;
    EXPECT_TRUE(match::parseInfoScore("info depth 9 multipv 1 score cp -35 lowerbound", score));
    EXPECT_EQ(score, -35);
    EXPECT_FALSE(match::parseInfoScore("info depth 9 multipv 2 score cp 80", score));
    EXPECT_FALSE(match::parseInfoScore("info depth 9 nodes 5", score));
    ASSERT_TRUE(match::parseInfoScore("info score mate 3", score));
    const int mateIn3 = score;
    ASSERT_TRUE(match::parseInfoScore("info score mate 5", score));
    EXPECT_GT(mateIn3, score);
    EXPECT_GT(score, 10000);

    // xboard's thinking lines: depth, score, time, nodes, then the line.
    ASSERT_TRUE(match::parseThinkingScore("9 -35 120 45678 e2e4 e7e5", score));
    EXPECT_EQ(score, -35);
    EXPECT_FALSE(match::parseThinkingScore("move e2e4", score));
    EXPECT_FALSE(match::parseThinkingScore("Error (unknown command): 9 5", score));
    EXPECT_FALSE(match::parseThinkingScore("12 5 7", score));
}

TEST(MemoryTrace, GrowthCountsFromTheEndOfTheWarmUpOrTheLastRestart) {
    match::MemoryTrace m;
    m.record(9000, 1, true);
    m.record(30000, 2, true);  // the tables fill during the warm-up
    m.record(0, 3, false);     // an unreadable figure changes nothing
    m.record(31000, 4, false);
    m.record(30500, 5, false);
    EXPECT_EQ(m.baseline, 30000);
    EXPECT_EQ(m.baselineGame, 2);
    EXPECT_EQ(m.growth(), 500);
    EXPECT_EQ(m.highest, 31000);
    m.baseline = 0;  // what a restart does
    m.record(12000, 6, false);
    EXPECT_EQ(m.growth(), 0);
}

TEST(EloEstimate, KnownCounts) {
    EXPECT_NEAR(match::trinomialElo(50, 0, 50).margin, 68.99, 0.01);
    const match::EloEstimate ahead = match::trinomialElo(60, 20, 20);
    EXPECT_NEAR(ahead.elo, 147.19, 0.01);
    EXPECT_NEAR(ahead.margin, 66.01, 0.01);
    EXPECT_NEAR(match::trinomialElo(30, 40, 30).margin, 53.16, 0.01);  // draws narrow it

    const int pairs[5] = {5, 20, 40, 25, 10};
    const match::EloEstimate penta = match::pentanomialElo(pairs);
    EXPECT_NEAR(penta.elo, 26.11, 0.01);
    EXPECT_NEAR(penta.margin, 34.83, 0.01);

    EXPECT_EQ(match::formatElo(match::trinomialElo(3, 0, 0).margin), "+inf");
    EXPECT_NEAR(match::likelihoodOfSuperiority(60, 20), 0.999996, 1e-6);
}

TEST(CommandLine, EnginesAndSharedSettings) {
    match::MatchSettings s;
    std::string error;
    ASSERT_EQ(match::parseArguments(
                  {"-engine", "./a --flag", "name=A", "Hash=16", "ponder=true", "--engine", "./b",
                   "Threads=2", "-each", "Hash=8", "Ponder=false", "-rounds", "100"},
                  s, error),
              match::ParseResult::Run)
        << error;
    using Options = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(s.engines[0].command, "./a --flag");
    EXPECT_TRUE(s.engines[0].ponder);  // its own setting wins over -each
    EXPECT_EQ(s.engines[0].options, (Options{{"Hash", "8"}, {"Hash", "16"}}));
    EXPECT_FALSE(s.engines[1].ponder);
    EXPECT_EQ(s.engines[1].threads, 2);
    EXPECT_EQ(s.games, 200);  // rounds are pairs of games
    EXPECT_FALSE(s.engines[0].xboard);

    s = match::MatchSettings();
    ASSERT_EQ(match::parseArguments(
                  {"-engine", "./a", "proto=xboard", "ponder=true", "-engine", "./b", "proto=uci"},
                  s, error),
              match::ParseResult::Run)
        << error;
    EXPECT_TRUE(s.engines[0].xboard);
    EXPECT_FALSE(s.engines[1].xboard);

    for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
             {"-engine", "./a"},
             {"-engine", "./a", "-engine", "./b", "-concurrency", "2"},
             {"-engine", "./a", "-engine", "./b", "-tc", "0+1"},
             {"-engine", "./a", "ponder=maybe", "-engine", "./b"},
             {"-engine", "./a", "-engine", "./b", "-resign", "score=600"},
             {"-engine", "./a", "-engine", "./b", "-maxgrowth", "-1"},
             {"-engine", "./a", "-engine", "./b", "stray"},
             {"-engine", "./a", "proto=cecp", "-engine", "./b"},
             // Under xboard the engine's own settings file holds its options.
             {"-engine", "./a", "proto=xboard", "Hash=16", "-engine", "./b"},
             {"-engine", "./a", "proto=xboard", "-engine", "./b", "-nodes", "100"}}) {
        EXPECT_EQ(match::parseArguments(bad, s, error), match::ParseResult::Error) << bad.back();
    }
}

TEST(CommandLine, SearchLimitsSeedAndOpeningOrder) {
    match::MatchSettings s;
    std::string error;
    ASSERT_EQ(match::parseArguments({"-engine", "./a", "depth=4-6", "nodes=300", "-engine", "./b",
                                     "-nodes", "800-1600", "-seed", "42", "-randomplies", "3",
                                     "-openings", "eco.pgn", "order=random", "-games", "8"},
                                    s, error),
              match::ParseResult::Run)
        << error;
    EXPECT_EQ(s.engines[0].nodes.low, 300);  // its own setting wins over -nodes
    EXPECT_EQ(s.engines[0].nodes.high, 300);
    EXPECT_EQ(s.engines[0].depth.low, 4);
    EXPECT_EQ(s.engines[0].depth.high, 6);
    EXPECT_EQ(s.engines[1].nodes.low, 800);
    EXPECT_EQ(s.engines[1].nodes.high, 1600);
    EXPECT_FALSE(s.engines[1].depth.on());
    EXPECT_TRUE(s.engines[1].offClock());
    EXPECT_EQ(s.seed, 42u);
    EXPECT_EQ(s.randomPlies, 3);
    EXPECT_EQ(s.openingsPath, "eco.pgn");
    EXPECT_TRUE(s.shuffleOpenings);
    EXPECT_EQ(s.games, 8);  // the order's word did not swallow the next option

    for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
             {"-engine", "./a", "nodes=0", "-engine", "./b"},
             {"-engine", "./a", "nodes=500-400", "-engine", "./b"},
             {"-engine", "./a", "nodes=-5", "-engine", "./b"},
             {"-engine", "./a", "depth=4-", "-engine", "./b"},
             {"-engine", "./a", "-engine", "./b", "-nodes", "1k"},
             {"-engine", "./a", "ponder=true", "-engine", "./b", "-nodes", "1000"},
             {"-engine", "./a", "-engine", "./b", "-seed", "-1"},
             {"-engine", "./a", "-engine", "./b", "-randomplies", "-1"},
             {"-engine", "./a", "-engine", "./b", "-openings", "f.txt", "order=backwards"}}) {
        EXPECT_EQ(match::parseArguments(bad, s, error), match::ParseResult::Error) << bad[2];
    }
}

std::string openingsFile(const std::string& name, const std::string& text) {
    const std::string path =
        ::testing::TempDir() + "openings_" + std::to_string(getpid()) + "_" + name;
    std::ofstream(path) << text;
    return path;
}

using Moves = std::vector<std::string>;

// Move lists in SAN or coordinates, numbered or not, beside FEN lines; each line is one
// opening, played from the start position and kept in the UCI form.
TEST(Openings, MoveListLinesPlayFromTheStartPosition) {
    const std::string path =
        openingsFile("lines.txt",
                     "# Italian, then the same in coordinates\n"
                     "1. e4 e5 2. Nf3 Nc6 3. Bc4 Bc5 4. O-O *\n"
                     "e2e4 e7e5 g1f3 b8c6 f1c4 f8c5 e1g1\n"
                     "1.d4 Nf6 2.c4 e6 3.Nc3 Bb4 4.Qc2 O-O 5.a3 Bxc3+ 1/2-1/2\n"
                     "\n"
                     "8/8/8/4k3/8/8/4K3/8 w - -\n");
    std::vector<match::Opening> openings;
    std::string error;
    ASSERT_TRUE(match::loadOpenings(path, false, openings, error)) << error;
    ASSERT_EQ(openings.size(), 4u);
    const Moves italian = {"e2e4", "e7e5", "g1f3", "b8c6", "f1c4", "f8c5", "e1g1"};
    EXPECT_EQ(openings[0].fen, match::StandardStartFen);
    EXPECT_EQ(openings[0].moves, italian);
    EXPECT_EQ(openings[1].moves, italian);
    EXPECT_EQ(openings[2].moves, (Moves{"d2d4", "g8f6", "c2c4", "e7e6", "b1c3", "f8b4", "d1c2",
                                        "e8g8", "a2a3", "b4c3"}));
    EXPECT_EQ(openings[3].fen, "8/8/8/4k3/8/8/4K3/8 w - - 0 1");
    EXPECT_TRUE(openings[3].moves.empty());

    // A move that cannot be played names its line; so does a FEN that is no position.
    for (const char* bad : {"1. e4 e5\n1. e4 e4\n", "1. e4 e5\nd2d4 d7d5 e1e3\n",
                            "e4 e5\nrnbqkbnr/pppppppp w KQkq -\n"}) {
        std::vector<match::Opening> none;
        EXPECT_FALSE(match::loadOpenings(openingsFile("bad.txt", bad), false, none, error));
        EXPECT_NE(error.find("bad.txt:2: "), std::string::npos) << error;
    }
}

// A PGN file of opening lines as an ECO classification has them: a comment before the first
// game, brackets inside tag values, comments, variations and NAGs within the moves, a game
// from a FEN tag, and games that end without a result.
TEST(Openings, PgnGamesAreOpeningsFromTheirStart) {
    const std::string path =
        openingsFile("lines.pgn",
                     "{ Classification [of] openings }\n"
                     "[ECO \"C36\"]\n"
                     "[Variation \"Abbazia defence (classical defence[!])\"]\n"
                     "\n"
                     "1. e4 {best by test} e5 (1... c5 2. Nf3 (2. c3 d5)) 2. f4 $1 exf4!? 3. Nf3\n"
                     "d5 *\n"
                     "\n"
                     "[FEN \"4k3/8/8/8/8/8/4P3/4K3 w - - 0 1\"]\n"
                     "1. e4 Kd7\n"
                     "[ECO \"D00\"]\n"
                     "% an escaped line: 1. h4\n"
                     "1. d4 d5 ; the rest of the line is a comment: 2. h4\n"
                     "2. Bf4\n");
    std::vector<match::Opening> openings;
    std::string error;
    ASSERT_TRUE(match::loadOpenings(path, false, openings, error)) << error;
    ASSERT_EQ(openings.size(), 3u);
    EXPECT_EQ(openings[0].fen, match::StandardStartFen);
    EXPECT_EQ(openings[0].moves, (Moves{"e2e4", "e7e5", "f2f4", "e5f4", "g1f3", "d7d5"}));
    EXPECT_EQ(openings[1].fen, "4k3/8/8/8/8/8/4P3/4K3 w - - 0 1");
    EXPECT_EQ(openings[1].moves, (Moves{"e2e4", "e8d7"}));
    EXPECT_EQ(openings[2].moves, (Moves{"d2d4", "d7d5", "c1f4"}));

    std::vector<match::Opening> none;
    EXPECT_FALSE(match::loadOpenings(
        openingsFile("bad.pgn", "[ECO \"A00\"]\n\n1. e4 e5 2. Ke3 *\n"), false, none, error));
    EXPECT_NE(error.find("bad.pgn:3: not a legal move: Ke3"), std::string::npos) << error;
}

// The files that ship with the tool: every position loads, is a game still to play, and none
// comes twice.
TEST(Openings, ShippedFilesHoldDistinctPlayablePositions) {
    const std::string file = __FILE__;
    const std::string tools = file.substr(0, file.rfind("tests/tools/")) + "tools/match/";
    for (const bool chess960 : {false, true}) {
        std::vector<match::Opening> openings;
        std::string error;
        ASSERT_TRUE(match::loadOpenings(tools + (chess960 ? "openings960.txt" : "openings.txt"),
                                        chess960, openings, error))
            << error;
        EXPECT_GE(openings.size(), 18u);
        std::set<std::string> seen;
        for (const match::Opening& o : openings) {
            EXPECT_TRUE(o.moves.empty()) << o.fen;
            EXPECT_TRUE(seen.insert(o.fen.substr(0, o.fen.find(' '))).second) << o.fen;
            match::Referee r;
            ASSERT_TRUE(r.reset(o.fen, chess960)) << o.fen;
            EXPECT_FALSE(r.verdict().over()) << o.fen;
        }
    }
    // EPD lines lose their operations and get counters.
    EXPECT_EQ(match::normaliseOpening("8/8/8/4k3/8/8/4K3/8 w - - bm Kd3; id \"x\";"),
              "8/8/8/4k3/8/8/4K3/8 w - - 0 1");
}

}  // namespace
