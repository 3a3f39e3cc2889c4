// Iterative deepening and the root: each iteration starts with the full window, which closes to
// a null window as soon as the first move has a score.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "board/movegen.h"
#include "board/text.h"
#include "book/opening_book.h"
#include "book/pgn_reader.h"
#include "eval/evaluator.h"
#include "learn/change_net.h"
#include "search/limits.h"
#include "search/search_support.h"
#include "search/searcher.h"
#include "search/table.h"

namespace {

constexpr auto Relaxed = std::memory_order_relaxed;

struct PrincipalVariation {
    int length = 0;
    Move moves[MaxPly];
};

bool stopped(const Searcher& s) {
    return s.stopRequested.load(Relaxed);
}

// The child entry of each root move, looked up when a comparison first needs it and then kept
// for the rest of the sort. Other threads write the table meanwhile, and a comparison whose
// answers change within one sort lets the sort run past the ends of the list.
struct ChildEntries {
    Move moves[MaxRootMoves];
    int8_t state[MaxRootMoves];  // 0 not looked up yet, 1 found, -1 not in the table
    TtEntry entries[MaxRootMoves];
};

// Comparison of two root moves for the order of the next iteration. Works on a private copy
// of the position, as the table lookups make the moves.
struct RootMoveOrder {
    Position* position;
    TranspositionTable* table;
    ChildEntries* children;

    static double key(const RootMove& r) {
        double share = r.nodeShare;
        if (r.score >= -1 && r.score <= 1 && r.nodeShare < 0.005) share = 0.99;  // a cheap draw
        return 1000.0 * share + r.score;
    }

    bool childEntry(Move m, TtEntry& hit) const {
        int i = 0;
        while (children->moves[i] != m) ++i;
        if (children->state[i] == 0) {
            UndoRecord u;
            beginUndo(u, *position);
            makeMove(*position, position->toMove(), position->notToMove(), m, u);
            children->state[i] = table->probe(position->hashKey, 1, children->entries[i]) ? 1 : -1;
            undoMove(u);
        }
        if (children->state[i] != 1) return false;
        hit = children->entries[i];
        return true;
    }

    bool operator()(const RootMove& a, const RootMove& b) const {
        if (a.raisedAlpha != b.raisedAlpha) return a.raisedAlpha;
        if (a.raisedAlpha && a.score != b.score) return a.score > b.score;
        const double ka = key(a), kb = key(b);
        if (ka != kb) return ka > kb;
        TtEntry ea, eb;
        if (!childEntry(a.move, ea)) return false;
        if (!childEntry(b.move, eb)) return true;
        return ea.flags > eb.flags;
    }
};

}  // namespace

void Searcher::resetSearchState() {
    history[0].reset();
    history[1].reset();
    for (int i = 0; i <= MaxPly; ++i) {
        SearchFrame& f = stack[i];
        f.move = NoMove;
        f.bestMove = NoMove;
        f.key = 0;
        f.staticEval = 0;
        f.moveCount = 0;
        f.extension = 0;
        f.reducedQuiet = false;
        for (KillerSlot& k : f.killers) k = KillerSlot{NoMove, KillerEmptyWeight};
        f.undo.capturedKind = 0;
    }
}

void Searcher::buildRootList(const char* filterText, bool exclude) {
    restrictedRoot = filterText != nullptr;
    rootCount = 0;
    MoveEntry list[MaxMovesPerPosition];
    MoveEntry* end = generateMoves(position, GenAll, list);
    UndoRecord undo;
    for (MoveEntry* e = list; e < end && rootCount < MaxRootMoves; ++e) {
        beginUndo(undo, position);
        if (!makeIfKingSafe(position, e->move, undo)) continue;
        TtEntry entry;
        const bool found = table && table->probe(position.hashKey, 1, entry);
        undoMove(undo);
        if (filterText) {
            char text[16];
            writeMove(position, e->move, StyleCoordinates, text);
            const bool listed = std::strstr(filterText, text) != nullptr;
            if (listed == exclude) continue;
        }
        RootMove& r = rootMoves[rootCount++];
        r.move = e->move;
        // The child's entry speaks for the side to move there; the root sees it negated.
        r.score = found ? -entry.score : TableMissRootScore;
        r.nodeShare = found ? 0.1 : 0.01;
        r.raisedAlpha = false;
    }
}

void Searcher::sortRootMoves() {
    double total = 0.1;
    for (int i = 0; i < rootCount; ++i) total += rootMoves[i].nodeShare;
    for (int i = 0; i < rootCount; ++i) rootMoves[i].nodeShare /= total;
    Position copy = position;
    ChildEntries children;
    for (int i = 0; i < rootCount; ++i) {
        children.moves[i] = rootMoves[i].move;
        children.state[i] = 0;
    }
    std::sort(rootMoves, rootMoves + rootCount, RootMoveOrder{&copy, table, &children});
}

int extractPv(Searcher& s, Move* movesOut, int maxLength, const Move* firstMove) {
    if (!moveFromTo(s.rootBestMove) || maxLength < 1) {
        s.ponderMove = NoMove;
        return 0;
    }
    const bool updatePonder = !firstMove || *firstMove == s.rootBestMove;
    if (updatePonder) s.ponderMove = NoMove;
    Position p = s.position;
    uint64_t keys[MaxPly + 1];
    keys[0] = p.hashKey;
    int length = 1;
    movesOut[0] = firstMove ? *firstMove : s.rootBestMove;
    int expected = 0;
    if (maxLength > MaxPly) maxLength = MaxPly;
    for (;;) {
        const Move m = movesOut[length - 1];
        if (!isLegalFromTo(p, m)) {
            --length;
            break;
        }
        UndoRecord u;
        beginUndo(u, p);
        if (!makeLegal(p, m, u)) {
            --length;
            break;
        }
        keys[length] = p.hashKey;
        if (length >= maxLength) break;
        // Read at one fixed ply: the chain test below compares node-relative mate scores.
        TtEntry e;
        if (!s.table || !s.table->probe(p.hashKey, 0, e) || !moveFromTo(e.move)) break;
        const int score = e.score;
        if (length == 1) {
            expected = score;
        } else {
            expected = -expected;
            if (expected > ScoreMateZone) ++expected;
            if (expected < -ScoreMateZone) --expected;
            if (score != expected && (e.flags & BoundMask) != BoundExact) break;
        }
        movesOut[length++] = e.move;
        bool repeated = false;
        for (int back = 4; back < length && !repeated; back += 2)
            repeated = keys[length - 1 - back] == keys[length - 1];
        if (repeated) break;
    }
    if (updatePonder && length >= 2) s.ponderMove = movesOut[1];
    return length;
}

void Searcher::lookUpPonderMove() {
    if (!moveFromTo(rootBestMove) || !table) return;
    UndoRecord u;
    beginUndo(u, position);
    if (!makeLegal(position, rootBestMove, u)) return;
    TtEntry e;
    if (table->probe(position.hashKey, 1, e) && moveFromTo(e.move) &&
        isLegalFromTo(position, e.move))
        ponderMove = e.move;
    undoMove(u);
}

int Searcher::rootSearch(int depth) {
    ply = 0;
    SearchFrame& frame = stack[0];
    frame.key = position.hashKey;
    frame.bestMove &= ~0xffffu;
    ++nodeCount;
    SideState& us = position.toMove();
    SideState& them = position.notToMove();
    const bool inCheck = (us.enemyAttacks & us.pieces[King]) != 0;
    frame.staticEval = evaluator.evaluate(position);
    beginUndo(frame.undo, position);
    const int startAlpha = rootAlpha;
    int best = -ScoreMate;
    int searched = 0;

    // Reports under the root position: the move is taken back while the line is printed.
    auto reportUndone = [&](Move m, int score, int alpha, int beta) {
        undoMove(frame.undo);
        reporter->reportIteration(*this, score, alpha, beta);
        makeLegal(position, m, frame.undo);
    };

    for (int i = 0; i < rootCount; ++i) {
        const Move m = rootMoves[i].move;
        frame.move = m;
        if (!makeLegal(position, m, frame.undo)) continue;
        frame.extension = 0;
        if (moveKind(m) == Pawn) pawnPushExtension(frame, us, them);
        reporter->reportCurrentMove(m, i + 1);
        const uint64_t nodesBefore = nodeCount;
        const int childDepth = nextDepth(*this, depth, frame);
        const Move previousBest = rootBestMove;
        int score = -nodeSearch(them, us, -rootBeta, -rootAlpha, childDepth);
        if (score >= rootBeta && !stopped(*this)) {
            if (iterationDepth > 0) {
                frame.bestMove = m;
                rootBestMove = m;
                reportUndone(m, score, rootAlpha, rootBeta);
            }
            int w = ScoreInfinite;
            if (rootBeta < ScoreMate) w = score + 500 + (score - rootBeta > 250 ? 400 : 0);
            score = -nodeSearch(them, us, -w, -rootAlpha, childDepth);
            if (score >= w && w <= ScoreMate && !stopped(*this)) {
                reportUndone(m, score, rootAlpha, w);
                score = -nodeSearch(them, us, -ScoreInfinite, -rootAlpha, childDepth);
            }
            if (score <= rootAlpha && previousBest != rootBestMove && moveFromTo(previousBest) &&
                !stopped(*this)) {
                // The fail high was false: the old best move comes back.
                failedLow = true;
                rootBestMove = previousBest;
                frame.bestMove = previousBest;
                if (iterationDepth > 0) reportUndone(m, best, best - 1, rootBeta);
            }
        }
        undoMove(frame.undo);
        if (stopped(*this)) break;
        ++searched;
        RootMove& r = rootMoves[i];
        r.score = score;
        r.nodeShare = static_cast<double>(nodeCount - nodesBefore);
        r.raisedAlpha = score > rootAlpha;
        if (score > best) {
            best = score;
            frame.bestMove = m;
            if (score > rootAlpha) {
                rootBestMove = m;
                const int oldAlpha = rootAlpha;
                rootBeta = score + 1;
                if (iterationDepth > 0) reporter->reportIteration(*this, score, oldAlpha, rootBeta);
            }
        }
        if (finishedMoves < MaxMultiPv) multiPvList[finishedMoves++] = MultiPvEntry{m, score};
        if (finishedMoves >= multiPv) {
            // A later move must beat the worst of the wanted lines.
            MultiPvEntry sorted[MaxMultiPv];
            std::copy(multiPvList, multiPvList + finishedMoves, sorted);
            std::sort(
                sorted, sorted + finishedMoves,
                [](const MultiPvEntry& a, const MultiPvEntry& b) { return a.score > b.score; });
            const int s = sorted[multiPv - 1].score;
            if (rootAlpha < s) rootAlpha = (multiPv == 1 && best > s - 1) ? best : s - 1;
        }
        if (searched >= 4 && best > startAlpha && !ponderRequested.load(Relaxed) && limits &&
            limits->timeUsedUp())
            break;
    }
    if (searched == 0 && !stopped(*this)) best = inCheck ? matedAt(0) : 0;
    ply = -1;
    return best;
}

bool runSearch(Searcher& s, SearchClock* limits) {
    if (limits && s.limits != limits)
        s.limits = limits;  // no write when unchanged: ponderhit reads it
    // The option may rename the log while this search runs; the search keeps the name it began
    // with.
    char timeLog[sizeof s.timeLogName];
    {
        std::lock_guard<std::mutex> guard(timeLogLock());
        std::memcpy(timeLog, s.timeLogName, sizeof timeLog);
    }
    s.firstIteration = true;
    s.nodeCount = 0;
    s.iterationDepth = 0;
    s.selDepth = 0;
    s.rootBestMove = NoMove;
    s.ponderMove = NoMove;
    s.ply = -1;
    s.lastNullPly = -1;
    s.previousNullPly = -10;
    const bool isMain = s.searcherIndex == 0;
    if (isMain) {
        // The game being followed comes first, then the book; either answers at once. Workers
        // ask neither, and the book stays out of a search restricted to some moves.
        Move best = NoMove;
        Move ponder = NoMove;
        const bool known =
            (s.gameFollower && s.gameFollower->nextFollowedMove(s.position.hashKey, best)) ||
            (!s.restrictedRoot && s.useBook && s.book &&
             s.book->probeBook(s.position, best, &ponder));
        if (known) {
            s.rootBestMove = best;
            s.ponderMove = ponder;
            s.rootAlpha = 9;
            s.rootScore = 10;
            s.rootBeta = 11;
            s.searchCount = 0;
        }
        s.table->newGeneration();
    }

    if (!moveFromTo(s.rootBestMove) && !stopped(s)) {
        s.resetSearchState();
        if (s.clearCaches.load(std::memory_order_relaxed)) {
            if (isMain) {
                s.limits->stopClock();
                s.table->clearTable();
                s.limits->startClock();
            }
            s.evaluator.clearCaches();
        }
        int lastScore = 0;
        TtEntry entry;
        if (s.table->probe(s.position.hashKey, 0, entry) &&
            (entry.flags & BoundMask) != BoundUpper) {
            const int tableScore = entry.score;
            int highest = TableMissRootScore;
            RootMove* found = nullptr;
            for (int i = 0; i < s.rootCount; ++i) {
                if (s.rootMoves[i].score > highest) highest = s.rootMoves[i].score;
                if (s.rootMoves[i].move == entry.move) found = &s.rootMoves[i];
            }
            if (found) {
                found->score = highest + 1;
                s.rootBestMove = found->move;
                s.rootScore = tableScore;
                lastScore = tableScore;
            }
        }
        if (!moveFromTo(s.rootBestMove)) {
            s.rootScore = s.quiescence(s.position.toMove(), s.position.notToMove(), -ScoreInfinite,
                                       ScoreInfinite, -4);
            lastScore = s.rootScore;
        }

        if (s.rootCount == 1) {
            if (!moveFromTo(s.rootBestMove)) s.rootBestMove = s.rootMoves[0].move;
            s.reporter->reportIteration(s, s.rootScore, s.rootScore - 1, s.rootScore + 1);
            s.iterationDepth = 1;
            if (!moveFromTo(s.ponderMove)) s.lookUpPonderMove();
            s.waitWhilePondering();
            return true;
        }

        const double bias = s.searchCount == 0 ? 25.0 : 0.0;
        ++s.searchCount;
        double percent = 20.0;
        s.rootAlpha = -ScoreInfinite;
        s.rootBeta = ScoreInfinite;
        PrincipalVariation pvs[2];
        int current = 0;
        char featureText[FeatureTextSize] = "";
        bool changedBefore = false;
        bool failedLowBefore = false;
        Move recordedBest = NoMove;
        while (!stopped(s) && s.rootCount > 0) {
            const int d = s.iterationDepth;
            if (d >= MaxPly) break;
            if (lastScore >= ScoreMateZone && ScoreMate - lastScore <= d - 2) break;
            if (lastScore <= -ScoreMateZone && lastScore + ScoreMate <= d - 2) break;
            if (d != 0) {
                percent += bias;
                const bool goOn = s.limits->mayStartIteration(s.nodeCount, d, percent);
                s.searchRunning.store(goOn, Relaxed);
                if (!goOn && !s.ponderRequested.load(Relaxed)) break;
            }
            s.sortRootMoves();
            s.failedLow = false;
            s.finishedMoves = 0;
            const int previousScore = lastScore;
            const int score = s.rootSearch(d * DepthUnitsPerPly);
            const bool multiple = s.finishedMoves >= 2 && s.multiPv >= 2;
            if (multiple) {
                const Move best = s.rootBestMove;
                std::stable_sort(s.multiPvList, s.multiPvList + s.finishedMoves,
                                 [best](const MultiPvEntry& a, const MultiPvEntry& b) {
                                     if (a.score != b.score) return a.score > b.score;
                                     return a.move == best && b.move != best;
                                 });
            }
            if (!multiple || stopped(s)) {
                if (d == 0 && !stopped(s))
                    s.reporter->reportIteration(s, score, -ScoreInfinite, ScoreInfinite);
            } else {
                const int lines = std::min(s.multiPv, s.finishedMoves);
                for (int k = 1; k <= lines; ++k)
                    s.reporter->reportMultiPvLine(s, k, s.multiPvList[k - 1].move,
                                                  s.multiPvList[k - 1].score, -ScoreInfinite,
                                                  ScoreInfinite);
            }
            ++s.iterationDepth;
            s.firstIteration = false;
            percent = 15.0;  // stays so when no prediction is made
            s.rootAlpha = -ScoreInfinite;
            s.rootBeta = ScoreInfinite;
            if (!stopped(s)) s.rootScore = score;

            const PrincipalVariation& older = pvs[current ^ 1];
            const PrincipalVariation& previous = pvs[current];
            const bool bothLines = older.length >= 1 && previous.length >= 1;
            // The training data of the predictor: last iteration's features, and whether the
            // best move changed since.
            if (timeLog[0] && !stopped(s) && score > -3500 && score < 3500 && s.historyCount < 20 &&
                s.nodeCount >= 25001 && featureText[0] && bothLines) {
                s.evaluator.materialValue(s.position, false);
                if (s.evaluator.ordinaryRecogniserActive())
                    appendTimeLog(timeLog, featureText, s.rootBestMove != recordedBest ? 1 : 0);
            }
            const bool changedNow = bothLines && older.moves[0] != previous.moves[0];
            current ^= 1;
            pvs[current].length = extractPv(s, pvs[current].moves, MaxPly, nullptr);
            recordedBest = s.rootBestMove;
            if (s.multiPv < 2) {
                const double p = predictChange(
                    s.changeNet, s.position, previous.moves, previous.length, previousScore,
                    pvs[current].moves, pvs[current].length, score, s.failedLow, failedLowBefore,
                    changedNow, changedBefore, s.rootCount, featureText);
                percent = std::min(75.0, std::max(0.0, 100.0 * p));
                if (timeLog[0] && std::strcmp(timeLog, "nul:") != 0) {
                    char text[64];
                    std::snprintf(text, sizeof text,
                                  "Best move will change with %5.1f%% probability", percent);
                    s.reporter->reportInfo(text);
                }
            }
            changedBefore = changedNow;
            failedLowBefore = s.failedLow;
            lastScore = score;
        }
    }
    // A stop that came before the first move was searched leaves no best move; the front end
    // still waits for one, so the root move that looked best when the list was built answers.
    if (isMain && !moveFromTo(s.rootBestMove) && s.rootCount > 0) {
        const RootMove* chosen = s.rootMoves;
        for (int i = 1; i < s.rootCount; ++i)
            if (s.rootMoves[i].score > chosen->score) chosen = &s.rootMoves[i];
        s.rootBestMove = chosen->move;
    }
    s.waitWhilePondering();
    return !stopped(s);
}

bool Searcher::quietPosition(int* score) {
    table->newGeneration();
    nodeCount = 0;
    ply = -1;
    lastNullPly = -1;
    previousNullPly = -10;
    selDepth = 0;
    resetSearchState();
    if (clearCaches.load(std::memory_order_relaxed)) evaluator.clearCaches();
    const int e = evaluator.evaluate(position);
    const int value = quiescence(position.toMove(), position.notToMove(), e - 1, e + 1, -1);
    if (score) *score = value;
    return value > e - 1 && value < e + 1;
}
