// The driver's bookkeeping without processes: clocks, score adjudication, Elo, the command
// line, and the opening files that ship with the tool.
#include <gtest/gtest.h>

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

    for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
             {"-engine", "./a"},
             {"-engine", "./a", "-engine", "./b", "-concurrency", "2"},
             {"-engine", "./a", "-engine", "./b", "-tc", "0+1"},
             {"-engine", "./a", "ponder=maybe", "-engine", "./b"},
             {"-engine", "./a", "-engine", "./b", "-resign", "score=600"},
             {"-engine", "./a", "-engine", "./b", "-maxgrowth", "-1"},
             {"-engine", "./a", "-engine", "./b", "stray"}}) {
        EXPECT_EQ(match::parseArguments(bad, s, error), match::ParseResult::Error) << bad.back();
    }
}

// The files that ship with the tool: every position loads, is a game still to play, and none
// comes twice.
TEST(Openings, ShippedFilesHoldDistinctPlayablePositions) {
    const std::string file = __FILE__;
    const std::string tools = file.substr(0, file.rfind("tests/tools/")) + "tools/match/";
    for (const bool chess960 : {false, true}) {
        std::vector<std::string> fens;
        std::string error;
        ASSERT_TRUE(match::loadOpenings(tools + (chess960 ? "openings960.txt" : "openings.txt"),
                                        fens, error))
            << error;
        EXPECT_GE(fens.size(), 18u);
        std::set<std::string> seen;
        for (const std::string& fen : fens) {
            EXPECT_TRUE(seen.insert(fen.substr(0, fen.find(' '))).second) << fen;
            match::Referee r;
            ASSERT_TRUE(r.reset(fen, chess960)) << fen;
            EXPECT_FALSE(r.verdict().over()) << fen;
        }
    }
    // EPD lines lose their operations and get counters.
    EXPECT_EQ(match::normaliseOpening("8/8/8/4k3/8/8/4K3/8 w - - bm Kd3; id \"x\";"),
              "8/8/8/4k3/8/8/4K3/8 w - - 0 1");
}

}  // namespace
