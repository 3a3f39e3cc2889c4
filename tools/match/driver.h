// The match itself: the UCI conversation with each engine, the game loop, adjudication and
// the running totals. One game at a time, on one thread.
#pragma once

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "game_clock.h"
#include "openings.h"
#include "player.h"
#include "referee.h"
#include "settings.h"
#include "verdict.h"

namespace match {

class Match {
  public:
    // `progress` receives the running score and the summary; null keeps quiet.
    Match(const MatchSettings& settings, std::FILE* progress)
        : settings_(settings),
          progress_(progress),
          players_{Player(settings.engines[0], settings, "1"),
                   Player(settings.engines[1], settings, "2")},
          random_(settings.seed) {}

    // Plays the whole match. Returns the exit status: 0 clean, 1 if anything went wrong in
    // the games, 2 if the match could not start.
    int run();

    bool faulty() const;

    const Player& player(int i) const { return players_[i]; }
    int gamesPlayed() const { return gamesPlayed_; }
    int endingCount(Ending e) const { return endings_[static_cast<int>(e)]; }
    const int* pairCounts() const { return pairCounts_; }
    const std::string& setupError() const { return setupError_; }

  private:
    // One game with players_[whiteIndex] as White; `game` holds the moves afterwards.
    Verdict playGame(int whiteIndex, const Opening& opening, Referee& game);
    // The opening of a game pair: the file's line and the random plies after it.
    Opening drawOpening(const Opening& line);
    // "go" with the engine's limits drawn for this move, or with the clock.
    std::string goCommand(const EngineSettings& engine, const GameClock& clock);
    // A crashed or hung engine loses the game; the kind of fault has been counted already.
    Verdict engineFault(Player& p, bool white, const std::string& error);
    // ucinewgame and isready, restarting the engine first if it is down. An engine that
    // cannot be brought up loses the game.
    Verdict readyForGame(Player& p, bool white);
    bool setUpXboardGame(Player& p, const Referee& game);
    static std::string kingTakesRook(const Referee& game, const std::string& move);
    bool sendXboardTurn(Player& p, const GameClock& clock, bool white, const Referee& game);
    bool prepare();
    bool setupFailed();
    // Game g plays opening g / 2; the first engine has White in even games.
    void playOne(int g, int games);
    void printSummary();
    __attribute__((format(printf, 2, 3))) void note(const char* format, ...);

    MatchSettings settings_;
    std::FILE* progress_;
    Player players_[2];
    std::vector<Opening> openings_;
    Opening pairOpening_;  // both games of a pair start alike
    std::mt19937_64 random_;
    std::FILE* pgn_ = nullptr;
    std::string setupError_;
    int gamesPlayed_ = 0;
    int endings_[16] = {};
    int pairCounts_[5] = {};
    double pairPoints_ = 0;
    bool aborted_ = false;
};

}  // namespace match
