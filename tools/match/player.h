// One engine of a match: its process, the UCI set-up, and what went wrong with it.
#pragma once

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "engine_connection.h"
#include "settings.h"
#include "verdict.h"

namespace match {

struct PlayerCounters {
    int wins = 0;
    int draws = 0;
    int losses = 0;
    int crashes = 0;
    int hangs = 0;
    int illegalMoves = 0;
    int timeLosses = 0;
    int restarts = 0;
    // Lines an xboard engine writes about an input it refused ("Error (...)", "Illegal move").
    int refusals = 0;
};

// Resident memory of an engine between games, in KiB. The baseline is taken at the end of the
// warm-up, when the engine's tables have been filled, and again after a restart; what the
// process holds beyond it at the end is growth.
struct MemoryTrace {
    long baseline = 0;
    int baselineGame = 0;
    long last = 0;
    long highest = 0;

    void record(long kib, int game, bool warmingUp) {
        if (kib <= 0) return;
        if (warmingUp || baseline == 0) {
            baseline = kib;
            baselineGame = game;
        }
        last = kib;
        highest = std::max(highest, kib);
    }
    long growth() const { return baseline ? last - baseline : 0; }
};

class Player {
  public:
    Player(const EngineSettings& settings, const MatchSettings& match, const std::string& label)
        : settings_(settings), chess960_(match.chess960), timeoutMs_(match.timeoutMs) {
        process.setLog(label, match.debug);
    }

    // Starts the process and runs uci, the options, isready (under xboard: xboard, protover 2
    // and its features, ping). A failure is counted as a crash
    // (the process ended) or a hang (it went silent) and leaves the process killed.
    bool start(std::string& error);

    // isready / readyok, or ping / pong.
    bool synchronise(std::string& error, EngineConnection* other = nullptr);

    // Stops a running search and throws its bestmove away; under xboard `force`, which also
    // ends pondering, and a ping.
    bool stopSearch(std::string& error, EngineConnection* other);

    bool xboard() const { return settings_.xboard; }

    // Counts the fault and kills the process, which the next game restarts.
    bool fail(ReadStatus status, const std::string& awaited, std::string& error);

    const EngineSettings& settings() const { return settings_; }

    EngineConnection process;
    std::string idName;
    std::set<std::string> declared;
    std::vector<std::string> undeclaredOptions;  // sent although the engine did not list them
    std::string name;                            // as the PGN shows it
    PlayerCounters counters;
    MemoryTrace memory;
    int failedStarts = 0;  // in a row; the match gives up at three
    Ending lastFault = Ending::Crash;
    // Under xboard: the game's plies the engine has been told of, and whether it has been
    // sent `go` in this game (after that, a user move starts its search).
    size_t pliesSent = 0;
    bool moving = false;

  private:
    TimePoint deadline() const;
    void setOption(const std::string& option, const std::string& value);

    bool startXboard(std::string& error);

    EngineSettings settings_;
    bool chess960_;
    int timeoutMs_;
    int pings_ = 0;
};

}  // namespace match
