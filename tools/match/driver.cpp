#include "driver.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <ctime>
#include <sstream>

#include "game_clock.h"
#include "openings.h"
#include "pgn.h"
#include "score_adjudicator.h"
#include "stats.h"

namespace match {

namespace {

int64_t seconds(double s) {
    return static_cast<int64_t>(s * 1e6 + 0.5);
}

std::string goTimes(const GameClock& clock) {
    return "wtime " + std::to_string(clock.reportedMs(true)) + " btime " +
           std::to_string(clock.reportedMs(false)) + " winc " +
           std::to_string(clock.incrementMs()) + " binc " + std::to_string(clock.incrementMs());
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char buffer[16];
    std::strftime(buffer, sizeof buffer, "%Y.%m.%d", &local);
    return buffer;
}

struct EndingCount {
    Ending ending;
    const char* label;
};

const EndingCount EndingLabels[] = {
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

}  // namespace

int Match::run() {
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

bool Match::faulty() const {
    for (const Player& p : players_) {
        const PlayerCounters& c = p.counters;
        if (c.crashes || c.hangs || c.illegalMoves || c.timeLosses || c.refusals) return true;
        if (settings_.maxGrowthKiB >= 0 && p.memory.growth() > settings_.maxGrowthKiB) return true;
    }
    return false;
}

Verdict Match::playGame(int whiteIndex, const Opening& opening, Referee& game) {
    Player* side[2] = {&players_[whiteIndex], &players_[1 - whiteIndex]};
    game.reset(opening.fen, settings_.chess960);
    for (const std::string& m : opening.moves) game.play(m);  // checked when loaded
    for (int c = 0; c < 2; ++c) {
        Verdict v = readyForGame(*side[c], c == 0);
        if (v.over()) return v;
        if (side[c]->xboard() && !setUpXboardGame(*side[c], game)) {
            std::string error;
            side[c]->fail(ReadStatus::Closed, "the game's set-up", error);
            return engineFault(*side[c], c == 0, error);
        }
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
        EngineConnection* other = &side[1 - c]->process;
        std::string error;
        bool sent;
        if (mover.xboard()) {
            sent = sendXboardTurn(mover, clock, white, game);
        } else if (!pondering[c].empty() && pondering[c] == game.uciMoves().back()) {
            sent = mover.process.send("ponderhit");
        } else {
            if (!pondering[c].empty() && !mover.stopSearch(error, other)) {
                v = engineFault(mover, white, error);
                break;
            }
            sent = mover.process.send(game.positionCommand()) &&
                   mover.process.send(goCommand(mover.settings(), clock));
        }
        pondering[c].clear();
        const TimePoint start = SteadyClock::now();
        if (!sent) {
            mover.fail(ReadStatus::Closed, "a move", error);
            v = engineFault(mover, white, error);
            break;
        }

        // A node or depth limit replaces the clock; a search that does not end in time is hung.
        const bool timed = !mover.settings().offClock();
        const TimePoint flag =
            start + (timed ? std::chrono::microseconds(clock.allowanceUs(white))
                           : std::chrono::microseconds(settings_.timeoutMs * int64_t{1000}));
        std::string line, ponderMove;
        bool hasScore = false;
        int score = 0;
        ReadStatus s;
        for (;;) {
            s = mover.process.readLine(line, flag, other);
            if (s != ReadStatus::Line) break;
            if (mover.xboard()) {
                int value = 0;
                if (line.compare(0, 5, "move ") == 0) break;
                if (parseThinkingScore(line, value)) {
                    hasScore = true;
                    score = value;
                } else if (line.compare(0, 7, "Error (") == 0 ||
                           line.compare(0, 13, "Illegal move:") == 0) {
                    ++mover.counters.refusals;
                    note("%s (%s): %s\n", mover.name.c_str(), colourName(white), line.c_str());
                }
            } else if (line.compare(0, 5, "info ") == 0) {
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
        if (s == ReadStatus::Timeout && !timed) {
            mover.fail(s, "a move under its search limit", error);
            v = engineFault(mover, white, error);
            break;
        }
        if (s == ReadStatus::Timeout ||
            (timed && !clock.charge(white, microsecondsBetween(start, end)))) {
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
        std::istringstream words(
            line.substr(std::min<size_t>(line.size(), mover.xboard() ? 5 : 9)));
        std::string move, word;
        words >> move;
        if (words >> word && word == "ponder") words >> ponderMove;
        if (mover.xboard()) move = kingTakesRook(game, move);
        if (!game.play(move)) {
            ++mover.counters.illegalMoves;
            v = forfeit(white, Ending::IllegalMove,
                        std::string(colourName(white)) +
                            " makes an illegal move: " + (move.empty() ? "(none)" : move));
            break;
        }
        // The engine knows its own move.
        if (mover.xboard()) mover.pliesSent = game.uciMoves().size();
        adjudicator.record(white, hasScore, score);
        v = game.verdict();
        if (!v.over()) v = adjudicator.check(game.moveNumber());
        if (!v.over() && mover.settings().ponder && !mover.xboard() && !ponderMove.empty()) {
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
        // An xboard engine ponders by itself and learns the result.
        if (side[c]->xboard() && side[c]->process.running()) {
            side[c]->process.send(std::string("result ") + resultText(v.outcome) + " {" + v.detail +
                                  "}");
            side[c]->stopSearch(error, &side[1 - c]->process);
        }
    }
    return v;
}

// xboard writes castling in Chess960 as O-O and O-O-O; the referee wants the king taking its
// rook. Anything else stays as it is.
std::string Match::kingTakesRook(const Referee& game, const std::string& move) {
    if (move != "O-O" && move != "O-O-O") return move;
    const Position& p = game.position();
    const SideState& us = p.toMove();
    auto square = [](const std::string& text, size_t at) {
        return (7 - (text[at + 1] - '1')) * 8 + (text[at] - 'a');
    };
    for (const std::string& m : game.legalMoves()) {
        const int from = square(m, 0);
        const int to = square(m, 2);
        if (from != us.kingSquare() || !(us.pieces[Rook] >> to & 1)) continue;
        if ((to % 8 > from % 8) == (move == "O-O")) return m;
    }
    return move;
}

// New game under xboard, after `new`: the variant, the clock, pondering, and the position
// with the opening's moves, all in force mode.
bool Match::setUpXboardGame(Player& p, const Referee& game) {
    char level[64];
    const int baseSeconds = static_cast<int>(settings_.baseSeconds);
    std::snprintf(level, sizeof level, "level 0 %d:%02d %g", baseSeconds / 60, baseSeconds % 60,
                  settings_.incrementSeconds);
    bool sent = p.process.send("force") &&
                (!settings_.chess960 || p.process.send("variant fischerandom")) &&
                p.process.send(level) && p.process.send("post") &&
                p.process.send(p.settings().ponder ? "hard" : "easy");
    if (game.startFen() != StandardStartFen)
        sent = sent && p.process.send("setboard " + game.startFen());
    for (const std::string& m : game.uciMoves()) sent = sent && p.process.send("usermove " + m);
    p.pliesSent = game.uciMoves().size();
    p.moving = false;
    std::string error;
    return sent && p.synchronise(error);
}

// The engine's turn under xboard: its clocks, the moves it has not seen, and `go` the first
// time in a game; after that the opponent's move starts its search.
bool Match::sendXboardTurn(Player& p, const GameClock& clock, bool white, const Referee& game) {
    bool sent = p.process.send("time " + std::to_string(clock.reportedMs(white) / 10)) &&
                p.process.send("otim " + std::to_string(clock.reportedMs(!white) / 10));
    const std::vector<std::string>& moves = game.uciMoves();
    for (size_t i = p.pliesSent; i < moves.size(); ++i)
        sent = sent && p.process.send("usermove " + moves[i]);
    p.pliesSent = moves.size();
    if (!p.moving) sent = sent && p.process.send("go");
    p.moving = true;
    return sent;
}

Verdict Match::engineFault(Player& p, bool white, const std::string& error) {
    const bool hang = p.lastFault == Ending::Hang;
    note("%s (%s): %s\n", p.name.c_str(), colourName(white), error.c_str());
    return forfeit(
        white, hang ? Ending::Hang : Ending::Crash,
        std::string(colourName(white)) + "'s engine " + (hang ? "stopped answering" : "crashed"));
}

Verdict Match::readyForGame(Player& p, bool white) {
    std::string error;
    const char* newGame = p.xboard() ? "new" : "ucinewgame";
    if (p.process.running()) {
        if (p.process.send(newGame) && p.synchronise(error)) {
            p.failedStarts = 0;
            return {};
        }
        if (error.empty()) p.fail(ReadStatus::Closed, "ucinewgame", error);
        note("%s: %s\n", p.name.c_str(), error.c_str());
    }
    ++p.counters.restarts;
    p.memory.baseline = 0;  // a new process warms up anew
    note("%s: restarting\n", p.name.c_str());
    if (p.start(error) && p.process.send(newGame) && p.synchronise(error)) {
        p.failedStarts = 0;
        return {};
    }
    if (++p.failedStarts >= 3) {
        note("%s: gave up after three failed starts\n", p.name.c_str());
        aborted_ = true;
    }
    return engineFault(p, white, error.empty() ? "the engine ended" : error);
}

Opening Match::drawOpening(const Opening& line) {
    Opening opening = line;
    Referee game;
    game.reset(line.fen, settings_.chess960);
    for (const std::string& m : line.moves) game.play(m);
    for (int ply = 0; ply < settings_.randomPlies; ++ply) {
        const std::vector<std::string> moves = game.legalMoves();
        if (moves.empty()) break;
        const std::string& m =
            moves[std::uniform_int_distribution<size_t>(0, moves.size() - 1)(random_)];
        // The engines are to play the game, not to find it over.
        Referee next = game;
        next.play(m);
        if (next.verdict().over()) break;
        game = next;
        opening.moves.push_back(m);
    }
    return opening;
}

std::string Match::goCommand(const EngineSettings& engine, const GameClock& clock) {
    if (!engine.offClock()) return "go " + goTimes(clock);
    std::string go = "go";
    auto draw = [&](const char* word, const SearchLimit& limit) {
        if (limit.on())
            go += std::string(" ") + word + " " +
                  std::to_string(
                      std::uniform_int_distribution<int64_t>(limit.low, limit.high)(random_));
    };
    draw("depth", engine.depth);
    draw("nodes", engine.nodes);
    return go;
}

bool Match::prepare() {
    if (settings_.openingsPath.empty()) {
        openings_.push_back({StandardStartFen, {}});
    } else if (!loadOpenings(settings_.openingsPath, settings_.chess960, openings_, setupError_)) {
        return setupFailed();
    }
    if (settings_.shuffleOpenings) std::shuffle(openings_.begin(), openings_.end(), random_);
    for (int i = 0; i < 2; ++i) {
        Player& p = players_[i];
        std::string error;
        if (!p.start(error)) {
            setupError_ = "engine " + std::to_string(i + 1) + " (" + settings_.engines[i].command +
                          ") does not start: " + error;
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

bool Match::setupFailed() {
    note("match: %s\n", setupError_.c_str());
    for (Player& p : players_) p.process.kill();
    return false;
}

void Match::playOne(int g, int games) {
    if (g % 2 == 0) pairOpening_ = drawOpening(openings_[(g / 2) % openings_.size()]);
    const int whiteIndex = g % 2;
    Referee game;
    const Verdict v = playGame(whiteIndex, pairOpening_, game);
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
        // Without a clock the standard's "-" stands for an unknown control.
        record.timeControl = settings_.engines[0].offClock() && settings_.engines[1].offClock()
                                 ? "-"
                                 : settings_.timeControl;
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

void Match::printSummary() {
    if (!progress_ || gamesPlayed_ == 0) return;
    const PlayerCounters& a = players_[0].counters;
    const EloEstimate tri = trinomialElo(a.wins, a.draws, a.losses);
    const EloEstimate penta = pentanomialElo(pairCounts_);
    note("\n=== Summary: %d games%s ===\n", gamesPlayed_, aborted_ ? " (aborted)" : "");
    note("Score of %s vs %s: %d - %d - %d  [%.3f]\n", players_[0].name.c_str(),
         players_[1].name.c_str(), a.wins, a.losses, a.draws, tri.score);
    note("Elo difference: %s +/- %s (95%%, trinomial over %d games)\n", formatElo(tri.elo).c_str(),
         formatElo(tri.margin).c_str(), tri.samples);
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
            "time losses %d, restarts %d%s\n",
            p.name.c_str(), c.wins, c.draws, c.losses, c.crashes, c.hangs, c.illegalMoves,
            c.timeLosses, c.restarts,
            p.xboard() ? (", refused inputs " + std::to_string(c.refusals)).c_str() : "");
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

void Match::note(const char* format, ...) {
    if (!progress_) return;
    va_list args;
    va_start(args, format);
    std::vfprintf(progress_, format, args);
    va_end(args);
    std::fflush(progress_);
}

}  // namespace match
