// The alpha-beta search below the root: one function for every window, a fractional depth in
// eighths of a ply, late quiet moves reduced by one ply after tests on attack maps, and a
// reduced move's child free to refuse the reduction at once.
#include <cmath>

#include "board/keys.h"
#include "board/movegen.h"
#include "board/tables.h"
#include "eval/bitbase_store.h"
#include "eval/evaluator.h"
#include "search/limits.h"
#include "search/picker.h"
#include "search/search_support.h"
#include "search/searcher.h"
#include "search/table.h"
#include "search/threats.h"

namespace {

// Extra depth for a recapture into a pawn ending, by kind taken before and kind taken now.
constexpr int PawnEndingTable[6][6] = {
    {0, 0, 0, 0, 0, 0}, {0, 0, 8, 8, 0, 0}, {0, 0, 8, 8, 8, 0},
    {0, 0, 8, 8, 8, 0}, {0, 0, 8, 8, 8, 8}, {0, 0, 0, 0, 8, 16},
};

bool sameKiller(const KillerSlot* slots, Move m) {
    return slots[0].move == m || slots[1].move == m;
}

}  // namespace

bool lateQuietMayReduce(const SearchFrame& frame, const SideState& us, const SideState& them,
                        int threatTo, Bitboard threatPath, Bitboard passers,
                        const KillerSlot* killers, int moveTotal) {
    const Move m = frame.move;
    const Position& p = *frame.undo.position;
    const Bitboard mask = p.lastMoveMask;
    if (frame.undo.capturedKind || (them.enemyAttacks & them.pieces[King]) ||
        frame.extension != 0 || (them.pieces[Queen] & them.enemyAttacks) || (passers & mask) ||
        moveFrom(m) == threatTo || sameKiller(killers, m) || (squareBit(moveTo(m)) & threatPath) ||
        popcount(mask) <= 1 || moveTotal <= 3)
        return false;
    const Bitboard* usBefore = savedMaps(frame.undo, p, us);
    const Bitboard* themBefore = savedMaps(frame.undo, p, them);
    // `them` maps hold what we attack, `us` maps what they attack.
    const Bitboard newlyAttacked = (them.enemyAttacks & ~themBefore[0]) |
                                   (them.enemyDoubleAttacks & ~themBefore[1]) |
                                   (them.enemyPawnAttacks & ~themBefore[2]);
    if (threatTo >= 0 && (newlyAttacked & squareBit(threatTo))) return false;
    if (squareBit(moveFrom(m)) & ((usBefore[0] & ~themBefore[0]) | usBefore[3])) return false;
    if (newThreats(frame.undo, us, them)) return false;
    const Bitboard menBefore = us.men() ^ mask;
    const Bitboard endangeredBefore = (menBefore & usBefore[0] & ~themBefore[0]) | usBefore[3];
    const Bitboard endangeredAfter =
        (us.men() & us.enemyAttacks & ~them.enemyAttacks) | us.lesserThreats;
    return (endangeredBefore & ~endangeredAfter) == 0;
}

int nextDepth(const Searcher& s, int depth, SearchFrame& frame) {
    const SearchFrame& previous = (&frame)[-1];
    const SearchFrame& before = (&frame)[-2];
    const int captured = static_cast<int>(frame.undo.capturedKind);
    const Position& p = s.position;
    if (captured >= Knight && moveFromTo(previous.move) && !movePromotion(previous.move)) {
        const SideState& w = p.sides[0];
        const SideState& b = p.sides[1];
        const bool pawnsOnly = (w.men() == (w.pieces[Pawn] | w.pieces[King])) &&
                               (b.men() == (b.pieces[Pawn] | b.pieces[King]));
        const unsigned spread = static_cast<unsigned>(w.pieceCount[Pawn] - b.pieceCount[Pawn] + 2);
        if (pawnsOnly && w.pieceCount[Pawn] && b.pieceCount[Pawn] && spread < 5) {
            const int v = PawnEndingTable[previous.undo.capturedKind][captured];
            if (v >= frame.extension) {
                frame.extension = static_cast<int16_t>(v);
                return depth - 8 + v;
            }
        }
    }
    const int e = frame.extension;
    if (e >= 8) return depth - 1;
    if (captured || (e && !frame.reducedQuiet) || previous.undo.capturedKind ||
        (previous.extension && !previous.reducedQuiet) || before.undo.capturedKind ||
        (before.extension && !before.reducedQuiet))
        return depth - 8 + e;
    // In a quiet stretch the fraction of a ply is dropped.
    return depth - (depth & 7) - 8 + e;
}

void pawnPushExtension(SearchFrame& frame, const SideState& us, const SideState& them) {
    const int from = moveFrom(frame.move);
    const int to = moveTo(frame.move);
    const int row = rowOf(to);
    if (row == 1 || row == 6) {
        frame.extension = static_cast<int16_t>(frame.extension + 2);
        return;
    }
    if ((row == 2 && rowOf(from) != 1) || (row == 5 && rowOf(from) != 6)) {
        const int front = row == 2 ? to - 8 : to + 8;
        if (!(us.enemyPawnAttacks & squareBit(to)) && !(them.pieces[Pawn] & squareBit(front)))
            frame.extension = static_cast<int16_t>(frame.extension + 1);
    }
}

void updateKiller(KillerSlot* slots, Move m, const KillerSlot* grand, int depth, bool afterNull,
                  bool isMate) {
    KillerSlot& a = slots[0];
    KillerSlot& b = slots[1];
    if (m == a.move || m == grand[0].move || m == grand[1].move) return;
    const int weight = ((1 + (isMate ? 1 : 0)) * depth + 64 * (afterNull ? 1 : 0)) * 2;
    auto promote = [&]() {
        b.move = a.move;
        b.weight = static_cast<int16_t>(b.weight + depth - a.weight);
        a.move = m;
        a.weight = static_cast<int16_t>(weight);
    };
    if (m == b.move) {
        promote();
        return;
    }
    if (b.weight >= 0 && a.weight >= weight) {
        // The old pair keeps its place until the new move has worn it down.
        b.weight = static_cast<int16_t>(b.weight - weight);
        if (b.weight <= 0) {
            b.move = m;
            b.weight = static_cast<int16_t>(weight);
        }
        return;
    }
    promote();
}

void updateHistory(HistoryTable& table, Move m, int n) {
    uint32_t& counter = table.counters[moveFromTo(m) & 4095];
    int c = static_cast<int16_t>(n * n);
    int t = 1;
    while (c >= 0) {
        ++table.updates;
        const uint32_t old = counter;
        counter += table.increment;
        t += (t >= 2 ? 1 : 0) + (table.increment >= old ? 1 : 0);
        while (counter > table.ceiling) {
            table.ceiling *= 2;
            ++table.shift;
        }
        if (counter > 0x3c000000) {
            for (uint32_t& x : table.counters) x >>= 11;
            table.increment >>= 11;
            table.ceiling >>= 11;
            table.shift -= 11;
            if (table.increment < 256) table.increment = 256;
        }
        c -= t;
    }
}

bool repeatsInTree(const Searcher& s, uint64_t key, int ply) {
    for (int i = ply - 4; i >= 0; i -= 2)
        if (s.stack[i].key == key) return true;
    return false;
}

bool repeatsInGame(const Searcher& s) {
    const UndoRecord& root = s.stack[0].undo;
    const Position& p = s.position;
    return p.sides[0].materialKey == root.savedMaterial[0] &&
           p.sides[1].materialKey == root.savedMaterial[2] && searchDrawState(s) != 0;
}

bool probeFromSearch(const Searcher& s, bool cacheOnly, int& result) {
    const Position& p = s.position;
    // The files hold no pawn on its home row, and no castling.
    if ((p.white().pieces[Pawn] & 0xff000000000000) || (p.black().pieces[Pawn] & 0xff00))
        return false;
    if (!s.bitbases || !s.bitbases->hasTable() || p.castling) return false;
    int8_t kinds[2][BitbaseMaxMen + 1], squares[2][BitbaseMaxMen + 1];
    for (int colour = 0; colour < 2; ++colour) {
        const SideState& side = p.sides[colour];
        int n = 0;
        kinds[colour][n] = King;
        squares[colour][n++] = static_cast<int8_t>(side.kingSquare());
        for (int kind = Pawn; kind <= Queen; ++kind) {
            for (int i = 0; i < side.pieceCount[kind]; ++i) {
                if (n == BitbaseMaxMen) return false;
                kinds[colour][n] = static_cast<int8_t>(kind);
                squares[colour][n++] = side.pieceList[kind][i];
            }
        }
        kinds[colour][n] = None;
    }
    return s.bitbases->probe(kinds[0], kinds[1], squares[0], squares[1], p.whiteToMove != 0,
                             cacheOnly, result);
}

bool Searcher::staticMateFound(SearchFrame& frame) {
    const Move mate = staticMateInOne(position);
    if (mate) frame.bestMove = mate;
    return mate != NoMove;
}

bool Searcher::prescanChildren(MoveGenerator& gen, int beta, int depth) {
    SearchFrame& frame = stack[ply];
    Move first = NoMove, second = NoMove;
    int limit = -beta, secondLimit = -beta;
    bool done = false;
    for (MoveEntry* e; !done && (e = gen.next()) != nullptr;) {
        const Move m = e->move;
        if (gen.searchedMoves) clearSearchingBit(gen.searchedMoves, m, gen.keyBits);
        if (!makeLegalThen(position, m, frame.undo, PrefetchEntries{table})) continue;
        const SideState& child = position.toMove();
        const bool childInCheck = (child.enemyAttacks & child.pieces[King]) != 0;
        int result = 0;
        if (childInCheck && hasNoLegalMove(position, &result)) {
            first = m;
            done = true;
        } else if (repeatsInTree(*this, position.hashKey, ply + 1) || repeatsInGame(*this)) {
            if (limit >= 0) {
                first = m;
                done = true;
            }
        } else {
            bool settled = false;
            if (frame.undo.capturedKind) {
                evaluator.materialValue(position, false);
                int score = 0, depthChange = 0;
                if (evaluator.currentRecogniser->nodeCheck(position, score, -beta, ScoreMate, depth,
                                                           depthChange) &&
                    score <= limit) {
                    first = m;
                    limit = score;
                    settled = true;
                }
            }
            TtEntry entry;
            const bool found = !settled && table->probe(position.hashKey, ply + 1, entry);
            const int score = entry.score;
            if (found && score <= limit && (entry.flags & BoundMask) != BoundLower) {
                const int entryDepth = entry.flags >> 3;
                if (score <= -ScoreMateZone) {
                    first = m;
                    done = true;
                } else if (entryDepth >= depth && (!childInCheck || entryDepth >= depth + 2)) {
                    first = m;
                    limit = score;
                } else if (!first && entryDepth + 8 >= depth && score < secondLimit) {
                    second = m;
                    secondLimit = score;
                }
            }
        }
        undoMove(frame.undo);
    }
    const Move chosen = first ? first : second;
    gen.restart(chosen);
    return chosen != NoMove;
}

int Searcher::nodeSearch(SideState& us, SideState& them, int alpha, int beta, int depth) {
    if (depth < 0) return quiescence(us, them, alpha, beta, -1);

    if (depth > 8 && !ponderRequested.load(std::memory_order_relaxed) && limits &&
        limits->mustStop(*this))
        stopRequested.store(true, std::memory_order_relaxed);
    const int e = evaluator.evaluate(position);
    // Read now: the children's evaluations move the evaluator's current entries.
    const Bitboard passers = evaluator.currentPawnEntry->passers & us.pieces[Pawn];
    ++nodeCount;
    // Every return below steps the ply back.
    const PlyStep step(ply);
    SearchFrame& frame = stack[ply];
    SearchFrame& previous = stack[ply - 1];
    frame.bestMove &= ~0xffffu;
    if (ply >= MaxPly || stopRequested.load(std::memory_order_relaxed)) return e;

    const bool inCheck = (us.enemyAttacks & us.pieces[King]) != 0;
    if (!inCheck && staticMateFound(frame)) return mateAt(ply + 1);
    if (repeatsInTree(*this, position.hashKey, ply) || repeatsInGame(*this)) return 0;
    // Deep enough nodes of few men ask the bitbases; a node below 7 plies only asks the cache,
    // so that it never waits for the disk. A win or loss enters only as the bound 1 or -1.
    if (depth >= 5 * DepthUnitsPerPly && popcount(position.occupied) <= BitbaseMaxMen) {
        int verdict = 0;
        if (probeFromSearch(*this, depth < 7 * DepthUnitsPerPly, verdict)) {
            if (verdict == 0) return 0;
            if (!position.whiteToMove) verdict = -verdict;
            if (verdict > 0 && beta <= 1) return 1;
            if (verdict < 0 && alpha >= -1) return -1;
        }
    }

    frame.key = position.hashKey;
    frame.staticEval = e;

    if (previous.reducedQuiet && moveFromTo(previous.move)) {
        // The child of a reduced move refuses the reduction when the move clearly lost.
        const int delta = e + previous.staticEval;
        const UndoRecord& grand = stack[ply - 2].undo;
        if (delta < -200 || (ply >= 3 && ply > lastNullPly + 3 && delta < 0 &&
                             stack[ply - 3].staticEval + stack[ply - 2].staticEval < 0 &&
                             position.sides[0].materialKey == grand.savedMaterial[0] &&
                             position.sides[1].materialKey == grand.savedMaterial[2])) {
            return alpha;
        }
    }

    const bool nullWindow = beta == alpha + 1;
    bool nullAllowed =
        !inCheck && (ply == lastNullPly + 1 || e > beta) && evaluator.ordinaryRecogniserActive();
    int ext = 0;
    bool ttFlag = false;
    int workingEval = e;
    Move hashMove = NoMove;

    TtEntry entry;
    if (table->probe(position.hashKey, ply, entry)) {
        const int tableScore = entry.score;
        const int bound = entry.flags & BoundMask;
        const int entryDepth = entry.flags >> 3;
        const Move entryMove = entry.move;
        if (entryDepth >= depth &&
            (bound == BoundExact ||
             (nullWindow && ((tableScore >= beta && bound != BoundUpper) ||
                             (tableScore <= alpha && bound == BoundUpper))))) {
            if (tableScore > alpha) frame.bestMove = entryMove;
            return tableScore;
        }
        if (entry.flags & FlagMateThreat) {
            ext += 2;
            ttFlag = true;
            nullAllowed = false;
        } else if (entryDepth > depth) {
            ext += 1;
        }
        if (bound != BoundUpper && moveFromTo(entryMove) &&
            entryDepth + 16 + (entryDepth >= 0 ? 8 : 0) >= depth)
            hashMove = entryMove;
        if (bound != BoundLower) {
            if (tableScore < beta && ply == lastNullPly + 1) nullAllowed = false;
            if (tableScore < e || bound == BoundExact) workingEval = tableScore;
        }
    }

    if (depth <= 24) {
        int score = 0, depthChange = 0;
        if (evaluator.currentRecogniser->nodeCheck(position, score, alpha, beta, depth,
                                                   depthChange)) {
            return score;
        }
        ext += depthChange;
    }

    int threatTo = -1;
    Bitboard threatPath = 0;
    const Bitboard sliders = us.pieces[Bishop] | us.pieces[Rook] | us.pieces[Queen];
    // Squares we could move to freely: the mobility that makes a null move trustworthy.
    const Bitboard freeSquares =
        them.enemyAttacks & ~us.men() & ~us.enemyPawnAttacks & ~them.enemyPawnAttacks;
    const Bitboard kingZone = KingMask[us.kingSquare()];
    bool tryRazor = depth + ext < 8;
    if (!tryRazor && nullAllowed) {
        const Bitboard mobility = (freeSquares & ~(kingZone & ~them.enemyDoubleAttacks)) |
                                  (them.men() & them.enemyPawnAttacks);
        if (ply - 2 <= previousNullPly || popcount(sliders & ~position.pinnedAttacked) < 1 ||
            popcount(mobility) < 3) {
            tryRazor = true;
        } else {
            const Bitboard savedMask = position.lastMoveMask;
            const uint64_t savedKey = position.hashKey;
            const int8_t savedEp = position.epSquare;
            const int16_t savedPreviousNull = previousNullPly;
            previousNullPly = lastNullPly;
            lastNullPly = ply;
            position.whiteToMove ^= 1;
            position.lastMoveMask = 0;
            position.hashKey ^= SideKey;
            if (position.epSquare >= 0) {
                position.hashKey ^= WhiteZobrist[0][position.epSquare];
                position.epSquare = -1;
            }
            frame.key = position.hashKey;
            frame.moveCount = -1;
            frame.move = NoMove;
            frame.extension = 0;
            frame.undo.capturedKind = 0;

            int r = static_cast<int>(std::sqrt(depth * 9.0 * 8.0) + 12 * depth - 280);
            int m = workingEval - beta;
            if (m > 15000) m = 15000;
            while (m > 0) {
                m = m - 100 - (m >> 5) - (m >> 3);
                r -= 8;
            }
            int childDepth = (r >> 7) * 8;
            if (ply - 1 == previousNullPly && childDepth < depth - 24) childDepth = depth - 24;
            const int score = -nodeSearch(them, us, -beta, 1 - beta, childDepth);

            position.whiteToMove ^= 1;
            position.lastMoveMask = savedMask;
            position.hashKey = savedKey;
            position.epSquare = savedEp;
            lastNullPly = previousNullPly;
            previousNullPly = savedPreviousNull;
            frame.key = savedKey;

            if (score >= beta) {
                if (nullWindow) return score;
            } else {
                const Move refutation = stack[ply + 1].bestMove;
                if (moveFromTo(refutation)) {
                    const int threatFrom = moveFrom(refutation);
                    threatTo = moveTo(refutation);
                    threatPath = Between[moveFromTo(refutation)];
                    if (previous.reducedQuiet && moveFromTo(previous.move) &&
                        (threatFrom == moveTo(previous.move) ||
                         (moveFromTo(previous.bestMove) &&
                          (threatPath & squareBit(moveFrom(previous.bestMove)))))) {
                        return alpha;
                    }
                    if (score <= -ScoreMateZone && beta > -ScoreMateZone &&
                        (!(them.enemyAttacks & squareBit(threatFrom)) ||
                         (us.enemyAttacks & squareBit(threatFrom)))) {
                        ext += 2;
                        ttFlag = true;
                    }
                }
            }
        }
    }
    if (tryRazor && nullAllowed && depth + ext < 8 && e >= beta + 125 && beta > -ScoreMateZone &&
        ext <= 0 && nullWindow &&
        us.pieceCount[Bishop] + us.pieceCount[Rook] + us.pieceCount[Queen] > 1 &&
        popcount(freeSquares & ~kingZone) >= 3) {
        const int v = e - hangingThreat(position, us, them) - 125;
        if (v >= beta) return v;
    }

    // The history of the side to move: index 1 for White, 0 for Black.
    HistoryTable& moverHistory = history[position.whiteToMove ? 1 : 0];
    MoveGenerator gen(&arenaTop, position, &moverHistory, GenAll, hashMove, frame.killers,
                      depth >= 8 ? table->searchingMoves : nullptr);
    const int moveTotal = gen.count();
    if (moveTotal == 0) return inCheck ? matedAt(ply) : 0;
    if (moveTotal == 1) ext += 2;
    if (inCheck) ext += 4;
    if (!nullWindow) ext += 1;

    beginUndo(frame.undo, position);
    bool prescanned = false;
    if (ext + depth >= 32 && moveTotal > 1)
        prescanned = prescanChildren(gen, beta, depth + ext - 8);

    int best = -ScoreMate;
    int pruned = 0;
    const bool mayReduce = depth >= 8 && !inCheck && alpha > -ScoreMateZone;
    frame.moveCount = 0;
    const int alphaStart = alpha;
    const KillerSlot* killers = frame.killers + (inCheck ? 2 : 0);
    Move firstTwo[2] = {NoMove, NoMove};
    int legalCount = 0;

    for (MoveEntry* entry; alpha < beta && (entry = gen.next()) != nullptr;) {
        const Move m = entry->move;
        frame.move = m;
        if (!makeLegalThen(position, m, frame.undo, PrefetchEntries{table})) {
            if (gen.searchedMoves) clearSearchingBit(gen.searchedMoves, m, gen.keyBits);
            continue;
        }
        if (legalCount < 2) firstTwo[legalCount] = m;
        ++legalCount;
        frame.extension = static_cast<int16_t>(ext);
        const int kind = moveKind(m);
        if (kind == Pawn) {
            pawnPushExtension(frame, us, them);
            if (movePromotion(m) && depth >= 24 &&
                !(us.men() & position.lastMoveMask & us.enemyAttacks))
                frame.extension = static_cast<int16_t>(frame.extension - (depth < 32 ? 8 : 16));
        }
        const bool givesCheck = (them.enemyAttacks & them.pieces[King]) != 0;
        if (givesCheck && ply > lastNullPly + 1) {
            const Move earlier = stack[ply - 2].move;
            bool extend = moveKind(previous.move) == King;
            if (!extend && moveFrom(m) == moveTo(earlier) && moveFromTo(earlier) &&
                ply > lastNullPly + 2) {
                const int stood = moveFrom(earlier);
                const int to = moveTo(m);
                const bool sameDiagonal = (RisingLine[stood] | FallingLine[stood]) & squareBit(to);
                const bool sameLine = (RankLine[stood] | FileLine[stood]) & squareBit(to);
                extend = kind == Pawn || kind == Knight || (kind == Bishop && !sameDiagonal) ||
                         (kind == Rook && !sameLine) ||
                         (kind == Queen && !sameDiagonal && !sameLine);
            }
            if (extend) frame.extension = static_cast<int16_t>(frame.extension + 2);
        }

        const int fullDepth = nextDepth(*this, depth, frame);
        int score;
        if (fullDepth < 0) {
            const bool isKiller = sameKiller(frame.killers, m);
            if (e + 1200 < alphaStart && !frame.undo.capturedKind && frame.extension <= 0 &&
                frame.moveCount >= 1 && !movePromotion(m) && !inCheck && !givesCheck && !isKiller &&
                nullWindow &&
                popcount(position.occupied &
                         ~(position.sides[0].pieces[Pawn] | position.sides[1].pieces[Pawn])) > 2 &&
                !newThreats(frame.undo, us, them)) {
                ++pruned;
                undoMove(frame.undo);
                if (gen.searchedMoves) clearSearchingBit(gen.searchedMoves, m, gen.keyBits);
                continue;
            }
            score = -quiescence(them, us, -beta, -alpha, -1);
        } else {
            int r = fullDepth;
            const int w = frame.moveCount == 0 ? beta : alpha + 1;
            if (frame.moveCount > 0 && mayReduce &&
                lateQuietMayReduce(frame, us, them, threatTo, threatPath, passers, killers,
                                   moveTotal)) {
                frame.reducedQuiet = true;
                frame.extension = -8;
                r = nextDepth(*this, depth, frame);
                frame.extension = 0;
            }
            score = -nodeSearch(them, us, -w, -alpha, r);
            frame.reducedQuiet = false;
            if (score > alpha && (r < fullDepth || w != beta))
                score = -nodeSearch(them, us, -beta, -alpha, fullDepth);
        }
        undoMove(frame.undo);
        ++frame.moveCount;
        if (gen.searchedMoves) clearSearchingBit(gen.searchedMoves, m, gen.keyBits);
        if (stopRequested.load(std::memory_order_relaxed)) return best;
        if (score > best) {
            best = score;
            frame.bestMove = m;
            if (score > alpha) alpha = score;
        }
    }

    if (frame.moveCount == 0) return inCheck ? matedAt(ply) : 0;
    int bound;
    if (best < beta) {
        if (moverHistory.updates > 1) {
            // Recent history then outweighs old.
            moverHistory.updates = 0;
            moverHistory.increment += moverHistory.increment >> 4;
        }
        if (pruned > 0 && best < e + 1200) best = e + 1200;
        bound = best > alphaStart ? BoundExact : BoundUpper;
    } else {
        bound = BoundLower;
        if (!(prescanned && frame.moveCount == 1 && e >= beta && best <= beta + 1)) {
            const Move m = frame.bestMove;
            const bool afterNull = lastNullPly == ply - 1;
            const Bitboard to = squareBit(moveTo(m));
            const Bitboard* opponentBefore = savedMaps(previous.undo, position, us);
            // A cut-off that only answers the opponent's last move teaches nothing lasting.
            const bool answersLastMove =
                !afterNull &&
                ((to & position.lastMoveMask) || (to & opponentBefore[0] & ~us.enemyAttacks));
            if (!answersLastMove && ply > previousNullPly + 3) {
                updateKiller(frame.killers + (inCheck ? 2 : 0), m,
                             stack[ply - 2].killers + (inCheck ? 2 : 0), depth, afterNull,
                             best == mateAt(ply + 1));
                updateHistory(moverHistory, m, depth / 8);
            }
            if (frame.moveCount > 1) {
                uint32_t& c = moverHistory.counters[moveFromTo(firstTwo[0]) & 4095];
                c -= c >> 2;
            }
            if (frame.moveCount > 2) {
                uint32_t& c = moverHistory.counters[moveFromTo(firstTwo[1]) & 4095];
                c -= c >> 3;
            }
        }
    }
    table->storeEntry(frame.key, frame.bestMove, best, depth * 8 + (ttFlag ? 1 : 0) + bound, ply);
    return best;
}
