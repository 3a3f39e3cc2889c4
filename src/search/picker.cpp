// The staged move picker: hash move, recaptures, then the list by score. Scores are sums of
// bit fields: the high bits decide classes, history orders within a class.
#include "search/picker.h"

#include <algorithm>
#include <cstdint>

#include "board/tables.h"

namespace {

constexpr int32_t VictimValue[7] = {0, 0x4000000, 0xC000000, 0xC000000, 0x14000000, 0x24000000, 0};
constexpr int32_t CheapAttackerValue[7] = {0,         0x300000,  0x3200000, 0x3200000,
                                           0x3400000, 0x3800000, 0};

// Added to every move's score by moved kind and destination, seen from White (a8 = 0).
constexpr int16_t OrderTable[7][64] = {
    {},
    {8,  6,  18, 12, 24, 8,  10, 12, 110, 140, 130, 72, 112, 116, 108, 152, 44, 24, 32, 20, 20, 40,
     28, 50, 24, 28, 22, 24, 30, 26, 20,  36,  8,   12, 16,  34,  30,  14,  4,  6,  4,  20, 18, 18,
     28, 18, 16, 8,  0,  0,  0,  0,  0,   0,   0,   0,  0,   0,   0,   0,   0,  0,  0,  0},
    {6,  2,  34, 14, 16, 8,  4,  6,  16, 14, 20, 28, 28, 10, 2,  10, 22, 14, 32, 32, 28, 32,
     6,  34, 6,  28, 18, 34, 32, 22, 24, 8,  6,  14, 18, 14, 16, 14, 12, 6,  10, 38, 42, 34,
     38, 38, 44, 4,  2,  4,  8,  14, 8,  14, 4,  0,  0,  2,  4,  2,  2,  2,  0,  0},
    {0,  6,  10, 2,  6,  2,  4,  0,  4,  10, 6,  22, 8,  6,  0,  4,  8,  2,  24, 6,  22, 2,
     2,  8,  18, 22, 24, 20, 10, 16, 18, 12, 20, 18, 28, 18, 24, 14, 30, 18, 22, 22, 22, 24,
     20, 20, 46, 20, 14, 18, 10, 22, 24, 30, 16, 12, 2,  2,  16, 6,  2,  12, 2,  4},
    {24, 20, 22, 22, 20, 12, 20, 18, 28, 26, 22, 36, 24, 26, 22, 22, 20, 16, 22, 16, 28, 22,
     22, 16, 26, 18, 12, 14, 18, 24, 16, 18, 22, 6,  10, 14, 16, 14, 16, 26, 20, 12, 12, 10,
     18, 12, 18, 10, 20, 6,  8,  10, 12, 6,  6,  6,  14, 4,  18, 16, 8,  10, 4,  10},
    {16, 30, 32, 24, 22, 8,  22, 28, 12, 8,  8,  14, 10, 32, 6,  24, 6,  2,  12, 8,  12, 24,
     4,  12, 14, 24, 16, 28, 14, 34, 18, 20, 18, 18, 12, 14, 12, 10, 12, 10, 26, 32, 16, 24,
     16, 24, 12, 10, 14, 12, 14, 12, 22, 18, 12, 2,  4,  4,  6,  8,  8,  10, 14, 2},
    {0,  0,  2,  8,  18, 8,  10, 0,  2,  26, 12, 12, 52, 34, 32, 16, 24, 16, 16, 14, 26, 22,
     64, 32, 10, 26, 30, 36, 44, 34, 42, 28, 8,  34, 32, 38, 48, 38, 32, 18, 14, 22, 24, 32,
     32, 34, 28, 8,  36, 22, 16, 12, 18, 20, 22, 8,  2,  10, 8,  6,  8,  6,  10, 2},
};

int kindAt(const SideState& side, Bitboard bit) {
    for (int kind = Pawn; kind <= King; ++kind)
        if (side.pieces[kind] & bit) return kind;
    return None;
}

int32_t baseScore(const MoveGenerator& g, Move m) {
    const int kind = moveKind(m);
    const int flip = g.position->whiteToMove ? 0 : 56;
    const uint32_t counter = g.history ? g.history->value(m) : 0;
    return static_cast<int32_t>(counter << 8) + OrderTable[kind][moveTo(m) ^ flip];
}

// What a capture wins by the simple exchange rules, negative when the piece is lost.
int32_t captureGain(const MoveGenerator& g, Move m, int victim) {
    const Bitboard t = squareBit(moveTo(m));
    const Bitboard f = squareBit(moveFrom(m));
    const int kind = moveKind(m);
    int32_t result = VictimValue[victim];
    if (!(t & g.us->enemyAttacks)) {
        if (!(f & g.us->enemyAttacks)) result -= CheapAttackerValue[kind];
    } else if (victim == Queen) {
        result -= CheapAttackerValue[kind];
    } else {
        result -= VictimValue[kind];
    }
    return result;
}

void scoreQuiet(MoveGenerator& g) {
    const SideState& us = *g.us;
    const SideState& them = *g.them;
    const Position& p = *g.position;
    // Squares from which each kind would give check; none when a hash move exists.
    Bitboard checkSquares[7] = {};
    if (!g.hashMove) {
        const int k = them.kingSquare();
        const Bitboard kingBit = squareBit(k);
        checkSquares[Pawn] = p.whiteToMove ? ((kingBit << 7) & ~FileH) | ((kingBit << 9) & ~FileA)
                                           : ((kingBit >> 9) & ~FileH) | ((kingBit >> 7) & ~FileA);
        checkSquares[Knight] = KnightMask[k];
        checkSquares[Bishop] = bishopAttacks(k, p.occupied);
        checkSquares[Rook] = rookAttacks(k, p.occupied);
        checkSquares[Queen] = checkSquares[Bishop] | checkSquares[Rook];
    }
    for (MoveEntry* e = g.listStart; e < g.listEnd; ++e) {
        const Move m = e->move;
        const int kind = moveKind(m);
        const Bitboard t = squareBit(moveTo(m));
        const Bitboard f = squareBit(moveFrom(m));
        // Unsigned: the class bits of a queen promotion reach the top bit.
        uint32_t score = static_cast<uint32_t>(baseScore(g, m));
        const bool queenPromotion = movePromotion(m) == Queen;
        if (queenPromotion) {
            score += 0x20000000;
            if (!(f & us.enemyAttacks)) score |= 0x40000000;
        }
        if (m == g.killer1) score += 0x3c0000;
        if (m == g.killer2) score += 0x340000;
        if (queenPromotion) {
            // Twice on purpose: a queen promotion ends above every capture.
            score += 0x20000000;
            if (!(t & us.enemyAttacks)) score |= 0x40000000;
        }
        if ((t & checkSquares[kind]) && !(t & us.enemyAttacks) && !(t & them.enemyDoubleAttacks))
            score += 0x1000000;
        if (!(t & them.men())) {
            const uint32_t bonus = static_cast<uint32_t>(VictimValue[kind] >> 7);
            if ((f & us.enemyAttacks) && !(f & them.enemyAttacks) && !(t & us.enemyAttacks))
                score += bonus;
            // A move into danger sinks to the bottom of the quiet moves, never below zero,
            // where it would wrap into the class bits.
            if ((t & us.enemyAttacks) && !(t & them.enemyDoubleAttacks))
                score = score > bonus ? score - bonus : 0;
        } else {
            const int32_t gain = captureGain(g, m, kindAt(them, t));
            if (gain >= 0) score = (score + static_cast<uint32_t>(gain)) | 0x40000000;
        }
        e->score = static_cast<int32_t>(score);
    }
}

void scoreTactical(MoveGenerator& g) {
    const SideState& us = *g.us;
    const SideState& them = *g.them;
    for (MoveEntry* e = g.listStart; e < g.listEnd; ++e) {
        const Move m = e->move;
        const Bitboard t = squareBit(moveTo(m));
        int32_t score = baseScore(g, m);
        if (m == g.killer1) score += 0x380000;
        if (m == g.killer2) score += 0x300000;
        if (movePromotion(m) == Queen && !(t & us.enemyAttacks)) score += 0x20000000;
        if (t & them.men()) {
            const int32_t gain = captureGain(g, m, kindAt(them, t));
            if (gain >= 0) score += gain + 0x300000;
        }
        e->score = score;
    }
}

void scoreEvasion(MoveGenerator& g) {
    const SideState& us = *g.us;
    const SideState& them = *g.them;
    for (MoveEntry* e = g.listStart; e < g.listEnd; ++e) {
        const Move m = e->move;
        const int kind = moveKind(m);
        const Bitboard t = squareBit(moveTo(m));
        int32_t score = baseScore(g, m);
        if (m == g.killer1) score += 0x380000;
        if (m == g.killer2) score += 0x300000;
        if (!(t & them.men())) {
            if (kind == Pawn && (t & them.enemyDoubleAttacks)) score += 0x300000;
        } else {
            const int victim = kindAt(them, t);
            int32_t gain = VictimValue[victim];
            if ((t & us.enemyAttacks) && victim != Queen)
                gain -= VictimValue[kind];
            else
                gain -= CheapAttackerValue[kind];
            if (gain >= 0) score += gain + 0x300000;
        }
        e->score = score;
    }
}

// The whole entry as one unsigned number: the score's bits decide, the move breaks ties.
inline uint64_t sortKey(const MoveEntry& e) {
    return (static_cast<uint64_t>(static_cast<uint32_t>(e.score)) << 32) | e.move;
}

// Hands out the entry at `at` by moving it behind the working range.
inline MoveEntry* takeOut(MoveGenerator& g, MoveEntry* at) {
    --g.workEnd;
    std::swap(*at, *g.workEnd);
    g.gaveMove = true;
    return g.workEnd;
}

}  // namespace

// Picks made by selection before the rest is sorted.
constexpr int8_t SelectedPicks = 3;

void MoveGenerator::restart(Move newHashMove) {
    // The entries go back in the order a full sort would have left them: the scans for the
    // hash move and recaptures take the first match.
    if (!restSorted) sortRest();
    hashMove = newHashMove;
    stage = 0;
    cursor = listStart;
    workEnd = listEnd;
    gaveMove = false;
}

MoveEntry* MoveGenerator::next() {
    switch (stage) {
        case 0:
            stage = 1;
            if (hashMove) {
                for (MoveEntry* e = cursor; e < workEnd; ++e) {
                    if (e->move != hashMove) continue;
                    stage = 2;
                    e->score = 0x4000000;
                    return takeOut(*this, e);
                }
            }
            [[fallthrough]];
        case 1:
            if (recaptureSquare >= 0 || epTarget > 0) {
                for (; cursor < workEnd; ++cursor) {
                    const Move m = cursor->move;
                    if (moveTo(m) == recaptureSquare ||
                        (moveKind(m) == Pawn && moveTo(m) == epTarget))
                        return takeOut(*this, cursor);
                }
            }
            cursor = listStart;
            stage = 2;
            [[fallthrough]];
        case 2:
            stage = 3;
            if (workEnd - cursor > 1) {
                if (!scored) {
                    scored = true;
                    if (!scoreFunction)
                        scoreFunction = mode == GenAll
                                            ? scoreQuiet
                                            : (mode == GenEvasions ? scoreEvasion : scoreTactical);
                    scoreFunction(*this);
                }
                restSorted = false;
                selectionsLeft = SelectedPicks;
            }
            [[fallthrough]];
        default: {
            if (workEnd <= cursor) return nullptr;
            MoveEntry* top = workEnd - 1;
            if (!restSorted) {
                if (selectionsLeft == 0) {
                    sortRest();
                } else {
                    // Keys are unique (the move breaks ties), so this is the entry a sort puts
                    // on top.
                    --selectionsLeft;
                    MoveEntry* best = top;
                    uint64_t bestKey = sortKey(*best);
                    for (MoveEntry* e = cursor; e < top; ++e) {
                        const uint64_t key = sortKey(*e);
                        if (key > bestKey) {
                            bestKey = key;
                            best = e;
                        }
                    }
                    std::swap(*best, *top);
                }
            }
            if (!searchedMoves || !gaveMove) return takeOut(*this, top);
            // Another thread working on a move at this node leaves its bit set: prefer a move
            // nobody has taken yet.
            for (MoveEntry* e = top; e >= cursor; --e) {
                if (takenByOthers(*e)) {
                    // The scan goes on in score order: sort what selection left, then look
                    // again from the top, which the sort leaves in place.
                    if (!restSorted) {
                        sortRest();
                        e = top + 1;
                    }
                    continue;
                }
                const uint32_t bit = (e->move & 0xffff) ^ static_cast<uint32_t>(keyBits);
                searchedMoves[(bit >> 5) & 63] |= uint32_t{1} << (bit & 31);
                std::swap(*e, *top);
                return takeOut(*this, top);
            }
            return takeOut(*this, top);
        }
    }
}

bool MoveGenerator::takenByOthers(const MoveEntry& e) const {
    const uint32_t bit = (e.move & 0xffff) ^ static_cast<uint32_t>(keyBits);
    return (searchedMoves[(bit >> 5) & 63] >> (bit & 31)) & 1;
}

void MoveGenerator::sortRest() {
    std::sort(cursor, workEnd,
              [](const MoveEntry& a, const MoveEntry& b) { return sortKey(a) < sortKey(b); });
    restSorted = true;
}

MoveGenerator::MoveGenerator(MoveEntry** topAddress, const Position& p,
                             const HistoryTable* historyTable, int generationMode, Move tableMove,
                             const KillerSlot* killers, uint32_t* filter)
    : position(&p),
      us(&p.toMove()),
      them(&p.notToMove()),
      listStart(*topAddress),
      listEnd(*topAddress),
      listTopAddress(topAddress),
      mode(generationMode),
      epTarget(p.epSquare),
      recaptureSquare(-1),
      hashMove(tableMove),
      killer1(NoMove),
      killer2(NoMove),
      history(historyTable),
      scoreFunction(nullptr),
      scored(false),
      searchedMoves(filter),
      keyBits(p.hashKey),
      stage(0),
      cursor(listStart),
      workEnd(listStart),
      gaveMove(false),
      restSorted(true),
      selectionsLeft(0) {
    stage = hashMove ? 0 : 1;
    if (!hashMove) {
        const Bitboard moved = them->men() & p.lastMoveMask;
        const Bitboard worth =
            moved & (~us->enemyDoubleAttacks | them->pieces[Queen] | them->pieces[Rook]);
        if (worth) recaptureSquare = static_cast<int8_t>(firstSquare(worth));
    }
    if (us->enemyAttacks & us->pieces[King]) mode = GenEvasions;
    if (killers) {
        const int first = mode == GenEvasions ? 2 : 0;
        killer1 = killers[first].move;
        killer2 = killers[first + 1].move;
    }
    listEnd = generateMoves(p, mode, listStart);
    workEnd = listEnd;
    *listTopAddress = listEnd;
}
