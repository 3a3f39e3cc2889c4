// King safety for the middlegame and king activity for the ending. positionalScore calls only
// the one or two that the phase needs, so each is complete in itself.
#include <array>

#include "board/tables.h"
#include "eval/evaluator.h"
#include "eval/terms_common.h"

namespace {

using namespace terms;

using SquareTable = std::array<int16_t, 64>;

// The king's place in the middlegame: the home corners, ranks 1 and 2 only.
constexpr SquareTable kingPlacementTable() {
    constexpr int16_t lowRows[4][4] = {
        {2, 0, 0, 0}, {3, 0, 0, 0}, {13, 20, 8, -7}, {14, 23, 15, -1}};
    SquareTable table{};
    for (int row = 0; row < 4; ++row) {
        for (int file = 0; file < 4; ++file) {
            table[(row + 4) * 8 + file] = lowRows[row][file];
            table[(row + 4) * 8 + 7 - file] = lowRows[row][file];
        }
    }
    return table;
}
constexpr SquareTable KingPlacement = kingPlacementTable();

// By the number of squares of the 5x5 zone that the enemy attacks and no own pawn guards.
constexpr int16_t ZoneDanger[26] = {4,  0,  0,   1,   4,   9,   14,  20,  28,  36,  46,  57,  69,
                                    82, 95, 111, 125, 135, 143, 150, 155, 155, 155, 155, 155, 155};
// By the number of own pawns next to a king that has no free square.
constexpr int16_t CoverTable[9] = {31, 11, 1, -8, -15, -22, -28, -35, -41};
// By the number of contact squares the enemy queen reaches.
constexpr int16_t QueenContact[3] = {6, 17, 61};
// By i, the contact danger (0 none, 1 one contact square, 2 more).
constexpr int16_t LooseNearKing[3] = {2, 79, 121};
constexpr int16_t PinnedNearKing[3] = {3, 22, 96};
constexpr int16_t QueenReach[3] = {3, 43, 160};

// Steps for the king to the nearest square in front of a passer.
constexpr int16_t KingRace[9] = {116, 39, -8, -48, -83, -115, -145, -173, -199};

constexpr SquareTable centreDistanceTable() {
    SquareTable table{};
    for (int square = 0; square < 64; ++square) {
        const int file = fileOf(square), row = rowOf(square);
        table[square] =
            static_cast<int16_t>((file < 4 ? 3 - file : file - 4) + (row < 4 ? 3 - row : row - 4));
    }
    return table;
}
constexpr SquareTable CentreDistance = centreDistanceTable();

// White's squares; the templates turn them to the colour's own.
constexpr Bitboard G1 = squareAt(6, 1);
constexpr Bitboard C1 = squareAt(2, 1);
// An enemy passer this far advanced makes every attack on the king more dangerous.
constexpr Bitboard EnemyPasserRows = 0xffffff0000000000ULL;

// The shelter of a king standing on `king`: an own pawn right in front is best, one two squares
// ahead guarded by a pawn nearly as good; a pawn on a front diagonal is worth a little too.
template <bool White>
int shelterAt(Bitboard king, Bitboard ourPawns, Bitboard ourPawnAttacks) {
    const Bitboard front = forward<White>(king);
    int value;
    if (front & ourPawns) {
        value = 0;
    } else if (forward<White>(front) & ourPawns & ourPawnAttacks) {
        value = -1;
    } else {
        value = -21;
    }
    if (!((westOf(front) | eastOf(front)) & ourPawns)) value -= 10;
    return value;
}

// The shelter, counting on the castled king's shelter while castling is still possible.
template <bool White>
int shelter(const Position& p, const SideState& us, Bitboard ourPawnAttacks) {
    const Bitboard pawns = us.pieces[Pawn];
    const int here = shelterAt<White>(us.pieces[King], pawns, ourPawnAttacks);
    const bool canShort = p.castling & (White ? CastleWhiteShort : CastleBlackShort);
    const bool canLong = p.castling & (White ? CastleWhiteLong : CastleBlackLong);
    if (!canShort && !canLong) return here;

    const auto pathBlocked = [&](Bitboard safe, Bitboard empty) {
        return ((safe & us.enemyAttacks) | (empty & p.occupied)) != 0;
    };
    if (canShort && !canLong) {
        const int castled = shelterAt<White>(relative<White>(G1), pawns, ourPawnAttacks);
        return castled > here ? (here + 31 * castled) / 32 : here;
    }
    if (canLong && !canShort) {
        const int castled = shelterAt<White>(relative<White>(C1), pawns, ourPawnAttacks);
        if (castled <= here) return here;
        const int w = pathBlocked(us.castleSafeLong, us.castleEmptyLong) ? 18 : 29;
        return ((32 - w) * here + w * castled) / 32;
    }
    const int shortSide = shelterAt<White>(relative<White>(G1), pawns, ourPawnAttacks);
    const int longSide = shelterAt<White>(relative<White>(C1), pawns, ourPawnAttacks);
    if (shortSide < longSide && longSide > here) return (9 * here + 23 * longSide) / 32;
    if (shortSide >= longSide && shortSide > here)
        return pathBlocked(us.castleSafeShort, us.castleEmptyShort) ? (here + 31 * shortSide) / 32
                                                                    : shortSide;
    return here;
}

// How many of `targets` (at most two) an enemy queen reaches in two moves: through a square she
// attacks now, that is safe for her, and from which she attacks the target. Squares on her
// direct line to the target don't count as the first step, so a route is a real turn.
int queenTwoMoveReach(const SideState& them, Bitboard targets, Bitboard occupied,
                      Bitboard safeForQueen) {
    const int queens = them.pieceCount[Queen];
    Bitboard firstSteps[10];
    for (int i = 0; i < queens; ++i)
        firstSteps[i] = queenAttacks(them.pieceList[Queen][i], occupied) & safeForQueen;
    int count = 0;
    for (Bitboard b = targets; b; b &= b - 1) {
        const int target = firstSquare(b);
        const Bitboard intoTarget = queenAttacks(target, occupied);
        for (int i = 0; i < queens; ++i) {
            if (firstSteps[i] & intoTarget & ~Between[them.pieceList[Queen][i] + 64 * target]) {
                if (++count == 2) return 2;
                break;
            }
        }
    }
    return count;
}

template <bool White>
int kingSafety(const Position& p, const PawnEntry& pe) {
    const SideState& us = p.sides[sideIndex(White)];
    const SideState& them = p.sides[sideIndex(!White)];
    const int king = us.kingSquare();
    const Bitboard theirAttacks = us.enemyAttacks;
    const Bitboard ourAttacks = them.enemyAttacks;
    const Bitboard ourPawnAttacks = them.enemyPawnAttacks;
    const Bitboard neighbours = KingMask[king];

    int s = KingPlacement[relativeSquare<White>(king)];
    s -= ZoneDanger[popcount(kingSpread(neighbours) & theirAttacks & ~ourPawnAttacks)];

    if (neighbours & theirAttacks) {
        if ((neighbours & ~(theirAttacks | us.men())) == 0)
            s -= CoverTable[popcountSmall(neighbours & us.pieces[Pawn])];

        // Contact squares: where the enemy has more support than we have defence.
        const Bitboard contact = neighbours & us.enemyDoubleAttacks & ~them.enemyDoubleAttacks;
        int danger = 0;
        if (contact) {
            danger = atMostTwo(contact);
            if (contact & eastOf(contact)) s -= 148;
            if (contact & (contact >> 8)) s -= 86;
            Bitboard queenReach = 0;
            for (int i = 0; i < them.pieceCount[Queen]; ++i)
                queenReach |= queenAttacks(them.pieceList[Queen][i], p.occupied);
            s -= QueenContact[atMostTwo(contact & queenReach)];
        }

        s -= atMostTwo(us.men() & theirAttacks & ~ourAttacks) * LooseNearKing[danger];
        s -= atMostTwo(p.pinnedAttacked & us.men()) * PinnedNearKing[danger];

        const Bitboard thinlyHeld = neighbours & ~them.enemyDoubleAttacks;
        if (them.pieceCount[Queen] != 0 && thinlyHeld) {
            const Bitboard safeForQueen = ~ourAttacks & ~them.men();
            s -= queenTwoMoveReach(them, thinlyHeld, p.occupied, safeForQueen) * QueenReach[danger];
        }
    }

    s += shelter<White>(p, us, ourPawnAttacks);

    // The enemy's attacking force scales it all: little beyond pawns and a rook is no threat.
    int force = them.materialSum - 1000 * them.pieceCount[Pawn] - 6200;
    if (s < 0 && (pe.passers & them.pieces[Pawn] & relative<White>(EnemyPasserRows))) force += 4000;
    return force > 0 ? force * s / 4096 : 0;
}

// The value of the king's way to the nearest of `targets`, through squares it may enter.
int kingRace(int king, Bitboard allowed, Bitboard targets) {
    Bitboard reached = squareBit(king);
    int steps = 0;
    while (steps < 8 && !(reached & targets)) {
        const Bitboard grown = reached | (kingSpread(reached) & allowed);
        if (grown == reached) return KingRace[8];
        reached = grown;
        ++steps;
    }
    return KingRace[steps];
}

// The king's reach in the ending: queen company, safe room and nearness to weak pawns.
template <bool White>
int kingActivity(const Position& p, Bitboard weakPawns) {
    const SideState& us = p.sides[sideIndex(White)];
    const SideState& them = p.sides[sideIndex(!White)];
    const int king = us.kingSquare();
    const Bitboard near = KingMask[king];
    int v = 0;

    // Against a queen, men round the king shield it from checks.
    if (them.pieceCount[Queen] != 0)
        v += 19 * atMostTwo(near & us.men()) + 7 * atMostTwo(near & us.pieces[Pawn]);

    const Bitboard safe = ~us.enemyAttacks;
    const Bitboard ring1 = near;
    const Bitboard ring2 = kingSpread(near & safe);
    const Bitboard ring3 = kingSpread(ring2);
    v += 3 * popcount(ring2 & safe);
    v += 29 * (popcountSmall(ring1 & weakPawns) + popcount(ring2 & weakPawns));
    v -=
        14 * (((ring1 & weakPawns) == 0) + ((ring2 & weakPawns) == 0) + ((ring3 & weakPawns) == 0));
    return v;
}

}  // namespace

int Evaluator::middlegameKingTerms() {
    const Position& p = *position;
    const PawnEntry& pe = *currentPawnEntry;
    return kingSafety<true>(p, pe) - kingSafety<false>(p, pe);
}

int Evaluator::endgameKingTerms() {
    const Position& p = *position;
    const PawnEntry& pe = *currentPawnEntry;
    const SideState& white = p.sides[0];
    const SideState& black = p.sides[1];
    const int whiteKing = white.kingSquare();
    const int blackKing = black.kingSquare();

    int v = 22 * (CentreDistance[blackKing] - CentreDistance[whiteKing]);
    // Pawns that no pawn of their own colour guards, whoever they belong to.
    const Bitboard weakPawns = (white.pieces[Pawn] & ~black.enemyPawnAttacks) |
                               (black.pieces[Pawn] & ~white.enemyPawnAttacks);
    v += kingActivity<true>(p, weakPawns) - kingActivity<false>(p, weakPawns);

    const Bitboard whitePassers = pe.passers & white.pieces[Pawn];
    const Bitboard blackPassers = pe.passers & black.pieces[Pawn];
    if (whitePassers | blackPassers) {
        // Each king may walk where the enemy doesn't attack and no own pawn stands.
        const Bitboard whiteWay = ~white.enemyAttacks & ~white.pieces[Pawn];
        const Bitboard blackWay = ~black.enemyAttacks & ~black.pieces[Pawn];
        for (const Bitboard stops : {forward<true>(whitePassers), forward<false>(blackPassers)}) {
            if (stops)
                v += kingRace(whiteKing, whiteWay, stops) - kingRace(blackKing, blackWay, stops);
        }
    }
    return v;
}
