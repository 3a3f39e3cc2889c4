// What a match is asked to do: the two engines, the games, the clock and the rules.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace match {

struct EngineSettings {
    std::string command;
    std::string name;  // empty: the name the engine gives itself
    std::vector<std::pair<std::string, std::string>> options;  // sent in this order
    bool ponder = false;
    int threads = 0;  // 0: the engine's default
};

// Adjudication by the engines' own scores, in centipawns from the mover's side. A rule is
// off while moveCount is 0.
struct ScoreRule {
    int moveNumber = 0;  // the draw rule waits for this full move
    int moveCount = 0;   // consecutive own moves of each engine that must agree
    int score = 0;
};

struct MatchSettings {
    EngineSettings engines[2];
    std::string openingsPath;  // empty: every game from the start position
    int games = 0;             // 0: each opening twice
    double baseSeconds = 10;
    double incrementSeconds = 0.1;
    std::string timeControl = "10+0.1";
    int lagMs = 50;          // overrun of the clock that is still forgiven, per game
    int timeoutMs = 5000;    // for uciok, readyok, and a bestmove after stop
    long maxGrowthKiB = -1;  // resident memory an engine may gain after the warm-up; -1: any
    std::string pgnPath;
    bool chess960 = false;
    bool debug = false;
    ScoreRule resign;
    ScoreRule draw;
    std::string event = "Zelmark match";
    std::string site = "?";
};

}  // namespace match
