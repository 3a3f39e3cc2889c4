// The match itself: clocks, score adjudication, the UCI conversation with each engine, the
// game loop and the running totals. One game at a time, on one thread.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <deque>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "engine.h"
#include "pgn.h"
#include "referee.h"
#include "settings.h"
#include "stats.h"

namespace match {

// Both clocks of a game, in microseconds. A player who overruns its time by more than the
// lag allowance has lost; a smaller overrun stays on the clock as negative time, so the
// allowance is one per game, not one per move.
class GameClock {
  public:
    GameClock(int64_t baseUs, int64_t incrementUs, int64_t lagUs)
        : increment_(incrementUs), lag_(lagUs), left_{baseUs, baseUs} {}

    int64_t left(bool white) const { return left_[white ? 0 : 1]; }
    // What the engine is told, in milliseconds: never zero or less, which engines may misread.
    int64_t reportedMs(bool white) const { return std::max<int64_t>(left(white) / 1000, 1); }
    int64_t incrementMs() const { return increment_ / 1000; }
    // How long the mover may think from the moment it was told to go.
    int64_t allowanceUs(bool white) const { return left(white) + lag_; }

    // Charges a move's thinking time and adds the increment; false if the flag fell.
    bool charge(bool white, int64_t elapsedUs) {
        int64_t& t = left_[white ? 0 : 1];
        t -= elapsedUs;
        if (t < -lag_) return false;
        t += increment_;
        return true;
    }

  private:
    int64_t increment_;
    int64_t lag_;
    int64_t left_[2];
};

// The resign and draw rules on the scores the engines report with their moves. Each engine
// scores from its own side, which is always the side to move when it searches.
class ScoreAdjudicator {
  public:
    ScoreAdjudicator(const ScoreRule& resign, const ScoreRule& draw)
        : resign_(resign), draw_(draw) {}

    // `hasScore` false (no score in the info lines) breaks every streak of that side.
    void record(bool white, bool hasScore, int score) {
        std::deque<int>& s = scores_[white ? 0 : 1];
        s.push_back(hasScore ? score : NoScore);
        if (s.size() > 1000) s.pop_front();
    }

    // Checked after each move; `moveNumber` is the full move now to be played.
    Verdict check(int moveNumber) const {
        if (resign_.moveCount > 0) {
            for (int side = 0; side < 2; ++side) {
                const bool loserIsWhite = side == 0;
                if (all(side, resign_.moveCount,
                        [&](int s) { return s != NoScore && s <= -resign_.score; }) &&
                    all(1 - side, resign_.moveCount,
                        [&](int s) { return s != NoScore && s >= resign_.score; })) {
                    return forfeit(
                        loserIsWhite, Ending::AdjudicatedWin,
                        std::string(colourName(!loserIsWhite)) + " wins by adjudication");
                }
            }
        }
        if (draw_.moveCount > 0 && moveNumber >= draw_.moveNumber) {
            auto level = [&](int s) {
                return s != NoScore && s <= draw_.score && s >= -draw_.score;
            };
            if (all(0, draw_.moveCount, level) && all(1, draw_.moveCount, level))
                return {Outcome::Draw, Ending::AdjudicatedDraw, "Draw by adjudication"};
        }
        return {};
    }

  private:
    static constexpr int NoScore = -0x7fffffff;

    template <typename Test>
    bool all(int side, int count, Test test) const {
        const std::deque<int>& s = scores_[side];
        if (static_cast<int>(s.size()) < count) return false;
        return std::all_of(s.end() - count, s.end(), test);
    }

    ScoreRule resign_;
    ScoreRule draw_;
    std::deque<int> scores_[2];
};

// "info ... score cp 35 ..." or "score mate -3": the score of the principal line, false for
// lines without one or for the second and further lines of a multi-PV search.
inline bool parseInfoScore(const std::string& line, int& score) {
    std::istringstream in(line);
    std::string word;
    bool found = false;
    while (in >> word) {
        if (word == "multipv") {
            int n = 0;
            if (in >> n && n != 1) return false;
        } else if (word == "score") {
            std::string kind;
            int value = 0;
            if (!(in >> kind >> value)) return false;
            if (kind == "cp") {
                score = value;
                found = true;
            } else if (kind == "mate") {
                // Far beyond any material score, nearer mates further out.
                score = value > 0 ? 100000 - value : -100000 - value;
                found = true;
            }
        }
    }
    return found;
}

struct PlayerCounters {
    int wins = 0;
    int draws = 0;
    int losses = 0;
    int crashes = 0;
    int hangs = 0;
    int illegalMoves = 0;
    int timeLosses = 0;
    int restarts = 0;
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

// One engine: its process, the UCI set-up, and what went wrong with it.
class Player {
  public:
    Player(const EngineSettings& settings, const MatchSettings& match, const std::string& label)
        : settings_(settings), chess960_(match.chess960), timeoutMs_(match.timeoutMs) {
        process.setLog(label, match.debug);
    }

    // Starts the process and runs uci, the options, isready. A failure is counted as a crash
    // (the process ended) or a hang (it went silent) and leaves the process killed.
    bool start(std::string& error) {
        if (!process.launch(settings_.command, error)) {
            lastFault = Ending::Crash;
            ++counters.crashes;
            return false;
        }
        if (!process.send("uci")) return fail(ReadStatus::Closed, "uci", error);
        std::string line;
        for (;;) {
            const ReadStatus s = process.readLine(line, deadline());
            if (s != ReadStatus::Line) return fail(s, "uciok", error);
            if (line == "uciok") break;
            if (line.compare(0, 8, "id name ") == 0) idName = line.substr(8);
            if (line.compare(0, 12, "option name ") == 0) {
                const size_t type = line.find(" type ");
                declared.insert(line.substr(12, type == std::string::npos ? type : type - 12));
            }
        }
        // The driver decides when to ponder, so the engine's Ponder option follows that
        // decision, whatever its default.
        if (settings_.ponder || declared.count("Ponder"))
            setOption("Ponder", settings_.ponder ? "true" : "false");
        if (settings_.threads > 0) {
            const bool oldName = declared.count("NumberOfProcessors") && !declared.count("Threads");
            setOption(oldName ? "NumberOfProcessors" : "Threads",
                      std::to_string(settings_.threads));
        }
        if (chess960_) setOption("UCI_Chess960", "true");
        for (const auto& option : settings_.options) setOption(option.first, option.second);
        return synchronise(error);
    }

    // isready / readyok.
    bool synchronise(std::string& error) {
        std::string line;
        if (!process.send("isready")) return fail(ReadStatus::Closed, "isready", error);
        const ReadStatus s = process.waitFor("readyok", deadline(), line);
        return s == ReadStatus::Line || fail(s, "readyok", error);
    }

    // Stops a running search and throws its bestmove away.
    bool stopSearch(std::string& error, EngineProcess* other) {
        std::string line;
        if (!process.send("stop")) return fail(ReadStatus::Closed, "stop", error);
        const ReadStatus s = process.waitFor("bestmove", deadline(), line, other);
        return s == ReadStatus::Line || fail(s, "bestmove after stop", error);
    }

    // Counts the fault and kills the process, which the next game restarts.
    bool fail(ReadStatus status, const std::string& awaited, std::string& error) {
        lastFault = status == ReadStatus::Timeout ? Ending::Hang : Ending::Crash;
        if (status == ReadStatus::Timeout) {
            ++counters.hangs;
            error = "no " + awaited + " within " + std::to_string(timeoutMs_) + " ms";
        } else {
            ++counters.crashes;
            error = "the engine ended while the driver waited for " + awaited;
        }
        process.kill();
        return false;
    }

    TimePoint deadline() const {
        return SteadyClock::now() + std::chrono::milliseconds(timeoutMs_);
    }

    const EngineSettings& settings() const { return settings_; }

    EngineProcess process;
    std::string idName;
    std::set<std::string> declared;
    std::vector<std::string> undeclaredOptions;  // sent although the engine did not list them
    std::string name;                            // as the PGN shows it
    PlayerCounters counters;
    MemoryTrace memory;
    int failedStarts = 0;  // in a row; the match gives up at three
    Ending lastFault = Ending::Crash;

  private:
    void setOption(const std::string& option, const std::string& value) {
        if (!declared.count(option) && std::find(undeclaredOptions.begin(), undeclaredOptions.end(),
                                                 option) == undeclaredOptions.end())
            undeclaredOptions.push_back(option);
        process.send("setoption name " + option + " value " + value);
    }

    EngineSettings settings_;
    bool chess960_;
    int timeoutMs_;
};

struct EndingCount {
    Ending ending;
    const char* label;
};

inline const EndingCount EndingLabels[] = {
    {Ending::Checkmate, "checkmate"},
    {Ending::Stalemate, "stalemate"},
    {Ending::Repetition, "threefold repetition"},
    {Ending::FiftyMoves, "fifty moves"},
    {Ending::InsufficientMaterial, "insufficient material"},
    {Ending::DeadPosition, "blocked pawns"},
    {Ending::IllegalMove, "illegal move"},
    {Ending::TimeForfeit, "loss on time"},
    {Ending::Crash, "engine crash"},
    {Ending::Hang, "engine hang"},
    {Ending::AdjudicatedWin, "resign adjudication"},
    {Ending::AdjudicatedDraw, "draw adjudication"},
};

class Match {
  public:
    // `progress` receives the running score and the summary; null keeps quiet.
    Match(const MatchSettings& settings, std::FILE* progress)
        : settings_(settings),
          progress_(progress),
          players_{Player(settings.engines[0], settings, "1"),
                   Player(settings.engines[1], settings, "2")} {}

    // Plays the whole match. Returns the exit status: 0 clean, 1 if anything went wrong in
    // the games, 2 if the match could not start.
    int run() {
        if (!prepare()) return 2;
        const int games =
            settings_.games > 0 ? settings_.games : 2 * static_cast<int>(openings_.size());
        for (int g = 0; g < games && !aborted_; ++g) playOne(g, games);
        for (Player& p : players_) p.process.quit(settings_.timeoutMs);
        if (pgn_) std::fclose(pgn_);
        pgn_ = nullptr;
        printSummary();
        return aborted_ || faulty() ? 1 : 0;
    }

    bool faulty() const {
        for (const Player& p : players_) {
            const PlayerCounters& c = p.counters;
            if (c.crashes || c.hangs || c.illegalMoves || c.timeLosses) return true;
            if (settings_.maxGrowthKiB >= 0 && p.memory.growth() > settings_.maxGrowthKiB)
                return true;
        }
        return false;
    }

    const Player& player(int i) const { return players_[i]; }
    int gamesPlayed() const { return gamesPlayed_; }
    int endingCount(Ending e) const { return endings_[static_cast<int>(e)]; }
    const int* pairCounts() const { return pairCounts_; }
    const std::string& setupError() const { return setupError_; }

  private:
    // One game with players_[whiteIndex] as White; `game` holds the moves afterwards.
    Verdict playGame(int whiteIndex, const std::string& fen, Referee& game) {
        Player* side[2] = {&players_[whiteIndex], &players_[1 - whiteIndex]};
        game.reset(fen, settings_.chess960);
        for (int c = 0; c < 2; ++c) {
            Verdict v = readyForGame(*side[c], c == 0);
            if (v.over()) return v;
        }
        GameClock clock(seconds(settings_.baseSeconds), seconds(settings_.incrementSeconds),
                        static_cast<int64_t>(settings_.lagMs) * 1000);
        ScoreAdjudicator adjudicator(settings_.resign, settings_.draw);
        std::string pondering[2];  // the move an engine ponders on, empty if none
        Verdict v = game.verdict();
        while (!v.over()) {
            const bool white = game.whiteToMove();
            const int c = white ? 0 : 1;
            Player& mover = *side[c];
            EngineProcess* other = &side[1 - c]->process;
            std::string error;
            bool sent;
            if (!pondering[c].empty() && pondering[c] == game.uciMoves().back()) {
                sent = mover.process.send("ponderhit");
            } else {
                if (!pondering[c].empty() && !mover.stopSearch(error, other)) {
                    v = engineFault(mover, white, error);
                    break;
                }
                sent = mover.process.send(game.positionCommand()) &&
                       mover.process.send("go " + goTimes(clock));
            }
            pondering[c].clear();
            const TimePoint start = SteadyClock::now();
            if (!sent) {
                mover.fail(ReadStatus::Closed, "a move", error);
                v = engineFault(mover, white, error);
                break;
            }

            const TimePoint flag = start + std::chrono::microseconds(clock.allowanceUs(white));
            std::string line, ponderMove;
            bool hasScore = false;
            int score = 0;
            ReadStatus s;
            for (;;) {
                s = mover.process.readLine(line, flag, other);
                if (s != ReadStatus::Line) break;
                if (line.compare(0, 5, "info ") == 0) {
                    int value = 0;
                    if (parseInfoScore(line, value)) {
                        hasScore = true;
                        score = value;
                    }
                } else if (line.compare(0, 9, "bestmove ") == 0 || line == "bestmove") {
                    break;
                }
            }
            const TimePoint end = SteadyClock::now();
            if (s == ReadStatus::Closed) {
                mover.fail(s, "a move", error);
                v = engineFault(mover, white, error);
                break;
            }
            if (s == ReadStatus::Timeout || !clock.charge(white, microsecondsBetween(start, end))) {
                ++mover.counters.timeLosses;
                // The engine has lost, but it must still answer stop to stay in the match.
                if (s == ReadStatus::Timeout) mover.stopSearch(error, other);
                v = forfeit(white, Ending::TimeForfeit,
                            std::string(colourName(white)) + " loses on time");
                // A bare king cannot win, not even on time.
                if (game.position().sides[white ? 1 : 0].pieceCount[AllMen] == 1) {
                    v.outcome = Outcome::Draw;
                    v.detail += ", but " + std::string(colourName(!white)) + " has a bare king";
                }
                break;
            }
            std::istringstream words(line.substr(std::min<size_t>(line.size(), 9)));
            std::string move, word;
            words >> move;
            if (words >> word && word == "ponder") words >> ponderMove;
            if (!game.play(move)) {
                ++mover.counters.illegalMoves;
                v = forfeit(white, Ending::IllegalMove,
                            std::string(colourName(white)) +
                                " makes an illegal move: " + (move.empty() ? "(none)" : move));
                break;
            }
            adjudicator.record(white, hasScore, score);
            v = game.verdict();
            if (!v.over()) v = adjudicator.check(game.moveNumber());
            if (!v.over() && mover.settings().ponder && !ponderMove.empty()) {
                Referee guess = game;
                if (guess.play(ponderMove) && !guess.verdict().over() &&
                    mover.process.send(guess.positionCommand()) &&
                    mover.process.send("go ponder " + goTimes(clock))) {
                    pondering[c] = ponderMove;
                }
            }
        }
        // A search left running would answer into the next game. An engine that died while
        // pondering is caught here too.
        for (int c = 0; c < 2; ++c) {
            std::string error;
            if (!pondering[c].empty()) side[c]->stopSearch(error, &side[1 - c]->process);
        }
        return v;
    }

    static int64_t seconds(double s) { return static_cast<int64_t>(s * 1e6 + 0.5); }

    static std::string goTimes(const GameClock& clock) {
        return "wtime " + std::to_string(clock.reportedMs(true)) + " btime " +
               std::to_string(clock.reportedMs(false)) + " winc " +
               std::to_string(clock.incrementMs()) + " binc " + std::to_string(clock.incrementMs());
    }

    // A crashed or hung engine loses the game; the kind of fault has been counted already.
    Verdict engineFault(Player& p, bool white, const std::string& error) {
        const bool hang = p.lastFault == Ending::Hang;
        note("%s (%s): %s\n", p.name.c_str(), colourName(white), error.c_str());
        return forfeit(white, hang ? Ending::Hang : Ending::Crash,
                       std::string(colourName(white)) + "'s engine " +
                           (hang ? "stopped answering" : "crashed"));
    }

    // ucinewgame and isready, restarting the engine first if it is down. An engine that
    // cannot be brought up loses the game.
    Verdict readyForGame(Player& p, bool white) {
        std::string error;
        if (p.process.running()) {
            if (p.process.send("ucinewgame") && p.synchronise(error)) {
                p.failedStarts = 0;
                return {};
            }
            if (error.empty()) p.fail(ReadStatus::Closed, "ucinewgame", error);
            note("%s: %s\n", p.name.c_str(), error.c_str());
        }
        ++p.counters.restarts;
        p.memory.baseline = 0;  // a new process warms up anew
        note("%s: restarting\n", p.name.c_str());
        if (p.start(error) && p.process.send("ucinewgame") && p.synchronise(error)) {
            p.failedStarts = 0;
            return {};
        }
        if (++p.failedStarts >= 3) {
            note("%s: gave up after three failed starts\n", p.name.c_str());
            aborted_ = true;
        }
        return engineFault(p, white, error.empty() ? "the engine ended" : error);
    }

    bool prepare() {
        if (settings_.openingsPath.empty()) {
            openings_.push_back(StandardStartFen);
        } else if (!loadOpenings(settings_.openingsPath, openings_, setupError_)) {
            return setupFailed();
        }
        for (int i = 0; i < 2; ++i) {
            Player& p = players_[i];
            std::string error;
            if (!p.start(error)) {
                setupError_ = "engine " + std::to_string(i + 1) + " (" +
                              settings_.engines[i].command + ") does not start: " + error;
                return setupFailed();
            }
            for (const std::string& o : p.undeclaredOptions)
                note("warning: engine %d does not declare the option %s\n", i + 1, o.c_str());
            p.name = !settings_.engines[i].name.empty() ? settings_.engines[i].name
                     : !p.idName.empty()                ? p.idName
                                                        : settings_.engines[i].command;
        }
        if (players_[0].name == players_[1].name) players_[1].name += " (2)";
        if (!settings_.pgnPath.empty()) {
            pgn_ = std::fopen(settings_.pgnPath.c_str(), "w");
            if (!pgn_) {
                setupError_ = "cannot write " + settings_.pgnPath;
                return setupFailed();
            }
        }
        return true;
    }

    bool setupFailed() {
        note("match: %s\n", setupError_.c_str());
        for (Player& p : players_) p.process.kill();
        return false;
    }

    // Game g plays opening g / 2; the first engine has White in even games.
    void playOne(int g, int games) {
        const std::string& fen = openings_[(g / 2) % openings_.size()];
        const int whiteIndex = g % 2;
        Referee game;
        const Verdict v = playGame(whiteIndex, fen, game);
        ++gamesPlayed_;
        ++endings_[static_cast<int>(v.ending)];
        // The first tenth of the match is the warm-up.
        const bool warmingUp = g + 1 <= std::max(1, games / 10);
        for (Player& p : players_) p.memory.record(p.process.residentKiB(), g + 1, warmingUp);
        double firstPoints = 0.5;
        if (v.outcome == Outcome::Draw) {
            ++players_[0].counters.draws;
            ++players_[1].counters.draws;
        } else {
            const int winner = (v.outcome == Outcome::WhiteWins) ? whiteIndex : 1 - whiteIndex;
            ++players_[winner].counters.wins;
            ++players_[1 - winner].counters.losses;
            firstPoints = winner == 0 ? 1 : 0;
        }
        if (g % 2 == 0) {
            pairPoints_ = firstPoints;
        } else {
            ++pairCounts_[static_cast<int>((pairPoints_ + firstPoints) * 2 + 0.5)];
        }
        if (pgn_) {
            GameRecord record;
            record.event = settings_.event;
            record.site = settings_.site;
            record.date = today();
            record.round = std::to_string(g + 1);
            record.white = players_[whiteIndex].name;
            record.black = players_[1 - whiteIndex].name;
            record.timeControl = settings_.timeControl;
            record.verdict = v;
            const std::string text = pgnText(record, game);
            std::fputs(text.c_str(), pgn_);
            std::fflush(pgn_);
        }
        const PlayerCounters& a = players_[0].counters;
        note("Game %d of %d (%s vs %s): %s {%s}\n", g + 1, games, players_[whiteIndex].name.c_str(),
             players_[1 - whiteIndex].name.c_str(), resultText(v.outcome), v.detail.c_str());
        note("Score of %s vs %s: %d - %d - %d  [%.3f] %d\n", players_[0].name.c_str(),
             players_[1].name.c_str(), a.wins, a.losses, a.draws,
             (a.wins + 0.5 * a.draws) / gamesPlayed_, gamesPlayed_);
    }

    static std::string today() {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        char buffer[16];
        std::strftime(buffer, sizeof buffer, "%Y.%m.%d", &local);
        return buffer;
    }

    void printSummary() {
        if (!progress_ || gamesPlayed_ == 0) return;
        const PlayerCounters& a = players_[0].counters;
        const EloEstimate tri = trinomialElo(a.wins, a.draws, a.losses);
        const EloEstimate penta = pentanomialElo(pairCounts_);
        note("\n=== Summary: %d games%s ===\n", gamesPlayed_, aborted_ ? " (aborted)" : "");
        note("Score of %s vs %s: %d - %d - %d  [%.3f]\n", players_[0].name.c_str(),
             players_[1].name.c_str(), a.wins, a.losses, a.draws, tri.score);
        note("Elo difference: %s +/- %s (95%%, trinomial over %d games)\n",
             formatElo(tri.elo).c_str(), formatElo(tri.margin).c_str(), tri.samples);
        if (penta.samples > 0) {
            note("Elo difference: %s +/- %s (95%%, pentanomial over %d pairs: %d %d %d %d %d)\n",
                 formatElo(penta.elo).c_str(), formatElo(penta.margin).c_str(), penta.samples,
                 pairCounts_[0], pairCounts_[1], pairCounts_[2], pairCounts_[3], pairCounts_[4]);
        }
        note("LOS: %.1f %%\n", 100 * likelihoodOfSuperiority(a.wins, a.losses));
        for (const Player& p : players_) {
            const PlayerCounters& c = p.counters;
            note(
                "%s: %d wins, %d draws, %d losses; crashes %d, hangs %d, illegal moves %d, "
                "time losses %d, restarts %d\n",
                p.name.c_str(), c.wins, c.draws, c.losses, c.crashes, c.hangs, c.illegalMoves,
                c.timeLosses, c.restarts);
        }
        for (const Player& p : players_) {
            const MemoryTrace& m = p.memory;
            if (!m.baseline) continue;
            const bool tooMuch = settings_.maxGrowthKiB >= 0 && m.growth() > settings_.maxGrowthKiB;
            note(
                "%s: memory %ld KiB after game %d, %ld KiB at the end (growth %ld KiB%s), "
                "highest %ld KiB\n",
                p.name.c_str(), m.baseline, m.baselineGame, m.last, m.growth(),
                tooMuch ? ", over the limit" : "", m.highest);
        }
        std::string endings;
        for (const EndingCount& e : EndingLabels) {
            const int n = endings_[static_cast<int>(e.ending)];
            if (n)
                endings +=
                    (endings.empty() ? "" : ", ") + std::string(e.label) + " " + std::to_string(n);
        }
        note("Endings: %s\n", endings.c_str());
    }

    __attribute__((format(printf, 2, 3))) void note(const char* format, ...) {
        if (!progress_) return;
        va_list args;
        va_start(args, format);
        std::vfprintf(progress_, format, args);
        va_end(args);
        std::fflush(progress_);
    }

    MatchSettings settings_;
    std::FILE* progress_;
    Player players_[2];
    std::vector<std::string> openings_;
    std::FILE* pgn_ = nullptr;
    std::string setupError_;
    int gamesPlayed_ = 0;
    int endings_[16] = {};
    int pairCounts_[5] = {};
    double pairPoints_ = 0;
    bool aborted_ = false;
};

}  // namespace match
