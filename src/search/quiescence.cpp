// Captures (and near the horizon checks) searched to rest. Far below alpha, a material
// selection asks the material table which kinds of capture could reach alpha at all.
#include "board/movegen.h"
#include "board/tables.h"
#include "eval/evaluator.h"
#include "search/picker.h"
#include "search/search_support.h"
#include "search/searcher.h"
#include "search/table.h"
#include "search/threats.h"

namespace {

constexpr int QuiescenceModes[3] = {GenCaptures, GenChecks, GenChecksAndSeventh};

// Takes one man of `kind` off `side` for a material probe, and puts it back.
struct ManRemoved {
    SideState& side;
    int kind;
    ManRemoved(SideState& s, int k) : side(s), kind(k) {
        --side.pieceCount[kind];
        side.materialKey ^= side.materialKeyTable[kind][side.pieceCount[kind]];
        side.materialSum -= MaterialValue[kind];
    }
    ~ManRemoved() {
        side.materialKey ^= side.materialKeyTable[kind][side.pieceCount[kind]];
        ++side.pieceCount[kind];
        side.materialSum += MaterialValue[kind];
    }
};

}  // namespace

int Searcher::quiescence(SideState& us, SideState& them, int alpha, int beta, int depth) {
    // Every return below steps the ply back.
    const PlyStep step(ply);
    if (ply > selDepth) selDepth = ply;
    SearchFrame& frame = stack[ply];
    frame.bestMove &= ~0xffffu;
    if (ply >= MaxPly) return evaluator.evaluate(position);
    const bool inCheck = (us.enemyAttacks & us.pieces[King]) != 0;
    if (!inCheck && staticMateFound(frame)) return mateAt(ply + 1);
    if (ply >= 4 && position.hashKey == stack[ply - 4].key) return 0;
    frame.key = position.hashKey;
    Move hashMove = NoMove;
    TtEntry entry;
    if (table->probe(position.hashKey, ply, entry)) {
        const int tableScore = entry.score;
        const int bound = entry.flags & BoundMask;
        const Move entryMove = entry.move;
        if ((entry.flags >> 3) >= depth &&
            (bound == BoundExact ||
             (beta == alpha + 1 && ((tableScore >= beta && bound != BoundUpper) ||
                                    (tableScore <= alpha && bound == BoundUpper))))) {
            if (tableScore > alpha) frame.bestMove = entryMove;
            return tableScore;
        }
        if (moveFromTo(entryMove)) hashMove = entryMove;
    }

    ++nodeCount;
    const int e = evaluator.evaluate(position);
    int best = -ScoreMate;
    int futileBest = -ScoreMate;
    bool selective = false;
    Bitboard targets[7] = {};
    if (inCheck) {
        best = matedAt(ply);
    } else {
        if (e >= beta) return e;
        if (depth < -3 && !(them.enemyPawnAttacks & (RankOne | RankEight)) &&
            !(them.men() & them.enemyAttacks)) {
            return e;
        }
        best = e;
        if (e > alpha) alpha = e;
        if (e + 3400 < alpha) {
            const int margin = (KingMask[us.kingSquare()] & us.enemyDoubleAttacks) ? 2100 : 1100;
            const int sign = position.whiteToMove ? 1 : -1;
            const Bitboard ourPawnAttacks = them.enemyPawnAttacks;
            Bitboard targetSet = 0;
            --them.pieceCount[AllMen];
            if (them.pieces[Bishop] & them.enemyAttacks) {
                ManRemoved removed(them, Bishop);
                const Bitboard bishops = them.pieces[Bishop];
                for (const Bitboard colour : {LightSquares, DarkSquares}) {
                    const Bitboard these = bishops & colour;
                    if (!these) continue;
                    them.pieces[Bishop] = bishops & ~colour;
                    int v = margin + sign * evaluator.materialValue(true) + e;
                    if (ourPawnAttacks & these) v += 600;
                    them.pieces[Bishop] = bishops;
                    if (v < alpha) {
                        if (v > futileBest) futileBest = v;
                    } else {
                        targetSet |= these;
                    }
                }
            }
            for (const int kind : {Pawn, Knight, Rook, Queen}) {
                const Bitboard men = them.pieces[kind];
                if (!(men & them.enemyAttacks)) continue;
                ManRemoved removed(them, kind);
                int v = sign * evaluator.materialValue(true) + margin + e;
                if (ourPawnAttacks & men) v += 600;
                if (kind == Pawn) v += 600;
                if (v >= alpha) {
                    targetSet |= men;
                } else if (v > futileBest) {
                    futileBest = v;
                }
            }
            ++them.pieceCount[AllMen];
            selective = true;
            const int k = them.kingSquare();
            targets[Pawn] = targetSet | 0xFFFF00000000FFFFULL |
                            (position.epSquare > 0 ? squareBit(position.epSquare) : 0);
            targets[Knight] = targetSet | KnightMask[k];
            targets[Bishop] = targetSet | bishopAttacks(k, position.occupied);
            targets[Rook] = targetSet | rookAttacks(k, position.occupied);
            targets[Queen] = targets[Bishop] | targets[Rook];
            targets[King] = targetSet;
        }
    }

    int recognised = 0;
    if (evaluator.currentRecogniser->qsearchScore(position, recognised)) return recognised;

    const int index = (depth >= -3 ? 1 : 0) + (depth == -1 && e + 3500 >= alpha ? 1 : 0);
    // The history of the side to move: index 1 for White, 0 for Black.
    MoveGenerator gen(&arenaTop, position, &history[position.whiteToMove ? 1 : 0],
                      QuiescenceModes[index], hashMove, frame.killers, nullptr);
    const int checkExt = inCheck && gen.count() == 1 ? 2 : 0;
    beginUndo(frame.undo, position);
    frame.moveCount = 0;
    const int alphaStart = alpha;
    for (MoveEntry* entry; (entry = gen.next()) != nullptr;) {
        const Move m = entry->move;
        if (selective && movePromotion(m) != Queen &&
            !(targets[moveKind(m)] & squareBit(moveTo(m))))
            continue;
        frame.move = m;
        if (!makeLegalThen(position, m, frame.undo, PrefetchEntries{table})) continue;
        int childDepth = -4;
        if (inCheck && depth >= -3) {
            childDepth = depth + checkExt - 1;
            if (childDepth > -1) childDepth = -1;
        }
        const int score = -quiescence(them, us, -beta, -alpha, childDepth);
        undoMove(frame.undo);
        ++frame.moveCount;
        if (score >= beta) {
            table->storeEntry(frame.key, m, score, depth * 8 + BoundLower, ply);
            return score;
        }
        if (score > best) {
            best = score;
            frame.bestMove = m;
            if (score > alpha) alpha = score;
        }
    }
    int result = best;
    if (selective && !inCheck && futileBest > result) result = futileBest;
    if (moveFromTo(frame.bestMove))
        table->storeEntry(frame.key, frame.bestMove, result,
                          depth * 8 + (result > alphaStart ? BoundExact : BoundUpper), ply);
    return result;
}
