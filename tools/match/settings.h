// What a match is asked to do: the two engines, the games, the clock and the rules.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace match {

// A limit on each search in nodes or plies, instead of the clock. A range draws a new value
// for every move, so that engines searching alike at a fixed limit do not replay one game.
struct SearchLimit {
    int64_t low = 0;  // 0: no such limit
    int64_t high = 0;

    bool on() const { return low > 0; }
};

struct EngineSettings {
    std::string command;
    std::string name;  // empty: the name the engine gives itself
    std::vector<std::pair<std::string, std::string>> options;  // sent in this order
    bool ponder = false;
    int threads = 0;  // 0: the engine's default
    SearchLimit nodes;
    SearchLimit depth;
    // Spoken to in the xboard protocol (version 2) instead of UCI. Such an engine takes no
    // options from the driver and ponders by itself when ponder is on.
    bool xboard = false;

    // An engine with a node or depth limit plays without a clock.
    bool offClock() const { return nodes.on() || depth.on(); }
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
    bool shuffleOpenings = false;
    int randomPlies = 0;  // random legal plies after each opening, the same for both colours
    uint64_t seed = 1;    // of the node counts, the random plies and the opening order
    int games = 0;        // 0: each opening twice
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
