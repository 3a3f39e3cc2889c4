#include "board/makemove.h"

#include <cstring>

#include "board/keys.h"
#include "board/movegen.h"
#include "board/tables.h"

namespace {

inline Bitboard pawnCapturesTowardsA(Bitboard pawns, bool white) {
    return white ? (pawns >> 9) & ~FileH : (pawns << 7) & ~FileH;
}

inline Bitboard pawnCapturesTowardsH(Bitboard pawns, bool white) {
    return white ? (pawns >> 7) & ~FileA : (pawns << 9) & ~FileA;
}

inline bool kingAttackedBy(const Position& p, const SideState& victim, const SideState& enemy,
                           bool enemyIsWhite) {
    const int king = victim.kingSquare();
    const Bitboard occ = p.occupied;
    if (rookAttacks(king, occ) & (enemy.pieces[Rook] | enemy.pieces[Queen])) return true;
    if (bishopAttacks(king, occ) & (enemy.pieces[Bishop] | enemy.pieces[Queen])) return true;
    if (KnightMask[king] & enemy.pieces[Knight]) return true;
    const Bitboard pawns = enemy.pieces[Pawn];
    return ((pawnCapturesTowardsA(pawns, enemyIsWhite) |
             pawnCapturesTowardsH(pawns, enemyIsWhite)) &
            victim.pieces[King]) != 0;
}

}  // namespace

bool whiteKingAttacked(const Position& p) {
    return kingAttackedBy(p, p.sides[0], p.sides[1], false);
}

bool blackKingAttacked(const Position& p) {
    return kingAttackedBy(p, p.sides[1], p.sides[0], true);
}

bool makeIfKingSafe(Position& p, Move move, UndoRecord& u) {
    makeMove(p, p.toMove(), p.notToMove(), move, u);
    const bool attacked = p.whiteToMove ? blackKingAttacked(p) : whiteKingAttacked(p);
    if (attacked) {
        undoMove(u);
        return false;
    }
    return true;
}

bool makeLegal(Position& p, Move move, UndoRecord& u) {
    makeMove(p, p.toMove(), p.notToMove(), move, u);
    return completeLegal(p, u);
}

bool completeLegal(Position& p, UndoRecord& u) {
    // The move is made: the side to move is the other one now.
    SideState& us = p.notToMove();
    SideState& them = p.toMove();
    updateAttackSummary(us, them, p.occupied, p.whiteToMove != 0);
    if (us.enemyAttacks & us.pieces[King]) {
        undoMove(u);
        return false;
    }
    updateAttackSummary(them, us, p.occupied, p.whiteToMove == 0);
    p.pinnedAttacked = pinnedAndAttacked(p.sides[1], p.sides[0], p.occupied) |
                       pinnedAndAttacked(p.sides[0], p.sides[1], p.occupied);
    return true;
}

void updateAttackSummary(SideState& victim, const SideState& attacker, Bitboard occupied,
                         bool attackerIsWhite) {
    const Bitboard a = pawnCapturesTowardsA(attacker.pieces[Pawn], attackerIsWhite);
    const Bitboard b = pawnCapturesTowardsH(attacker.pieces[Pawn], attackerIsWhite);
    Bitboard attacks = a | b;
    Bitboard doubles = a & b;
    victim.enemyPawnAttacks = attacks;
    Bitboard lesser = (victim.pieces[Knight] | victim.pieces[Bishop]) & attacks;

    auto add = [&attacks, &doubles](Bitboard m) {
        doubles |= attacks & m;
        attacks |= m;
    };
    for (int i = 0; i < attacker.pieceCount[Knight]; ++i)
        add(KnightMask[attacker.pieceList[Knight][i]]);

    // Sliders see through their own batteries.
    const Bitboard bishopOcc = occupied & ~(attacker.pieces[Bishop] | attacker.pieces[Queen]);
    const Bitboard rookOcc = occupied & ~(attacker.pieces[Rook] | attacker.pieces[Queen]);
    for (int i = 0; i < attacker.pieceCount[Bishop]; ++i)
        add(bishopAttacks(attacker.pieceList[Bishop][i], bishopOcc));
    lesser |= victim.pieces[Rook] & attacks;
    for (int i = 0; i < attacker.pieceCount[Rook]; ++i)
        add(rookAttacks(attacker.pieceList[Rook][i], rookOcc));
    lesser |= victim.pieces[Queen] & attacks;
    for (int i = 0; i < attacker.pieceCount[Queen]; ++i) {
        const int s = attacker.pieceList[Queen][i];
        add(bishopAttacks(s, bishopOcc) | rookAttacks(s, rookOcc));
    }
    add(KingMask[attacker.pieceList[King][0]]);

    victim.enemyAttacks = attacks;
    victim.enemyDoubleAttacks = doubles;
    victim.lesserThreats = lesser;
}

void updateBothSummaries(Position& p) {
    updateAttackSummary(p.sides[0], p.sides[1], p.occupied, false);
    updateAttackSummary(p.sides[1], p.sides[0], p.occupied, true);
}

Bitboard pinnedAndAttacked(const SideState& victim, const SideState& attacker, Bitboard occupied) {
    const Bitboard candidates =
        ((victim.enemyAttacks & ~victim.enemyPawnAttacks) | victim.enemyDoubleAttacks) &
        victim.men();
    if (!candidates) return 0;
    const int king = victim.kingSquare();
    Bitboard pinned = 0;
    const Bitboard straight = attacker.pieces[Rook] | attacker.pieces[Queen];
    if (straight) {
        for (Bitboard c = candidates & rookAttacks(king, occupied); c; c &= c - 1) {
            const int s = firstSquare(c);
            const Bitboard line =
                fileOf(s) == fileOf(king) ? fileAttacks(s, occupied) : rankAttacks(s, occupied);
            if (line & straight) pinned |= squareBit(s);
        }
    }
    const Bitboard diagonal = attacker.pieces[Bishop] | attacker.pieces[Queen];
    if (diagonal) {
        for (Bitboard c = candidates & bishopAttacks(king, occupied) & InnerSquares; c;
             c &= c - 1) {
            const int s = firstSquare(c);
            const Bitboard line = fileOf(s) + rowOf(s) == fileOf(king) + rowOf(king)
                                      ? risingAttacks(s, occupied)
                                      : fallingAttacks(s, occupied);
            if (line & diagonal) pinned |= squareBit(s);
        }
    }
    return pinned;
}

bool isLegalFromTo(Position& p, Move move) {
    MoveEntry list[MaxMovesPerPosition];
    MoveEntry* end = generateMoves(p, GenAll, list);
    MoveEntry* e = list;
    while (e < end && moveFromTo(e->move) != moveFromTo(move)) ++e;
    if (e == end) return false;
    UndoRecord u;
    beginUndo(u, p);
    const bool safe = makeIfKingSafe(p, move, u);
    if (safe) undoMove(u);
    return safe;
}

bool hasNoLegalMove(Position& p, int* result) {
    MoveEntry list[MaxMovesPerPosition];
    MoveEntry* end = generateMoves(p, GenAll, list);
    UndoRecord u;
    for (MoveEntry* e = list; e < end; ++e) {
        beginUndo(u, p);
        if (makeIfKingSafe(p, e->move, u)) {
            undoMove(u);
            return false;
        }
    }
    if (result) *result = sideToMoveInCheck(p) ? (p.whiteToMove ? -1 : 1) : 0;
    return true;
}

void gameMakeMove(Game& g, Move move) {
    UndoRecord u;
    beginUndo(u, g.position);
    makeLegal(g.position, move, u);
    if (g.historyCount > 0 && isIrreversibleStep(g.history[g.historyCount - 1], g.position)) {
        g.historyCount = 1;
        g.history[0] = fingerprint(g.position);
        return;
    }
    if (g.historyCount < GameHistorySize) g.history[g.historyCount++] = fingerprint(g.position);
}

bool isIrreversibleStep(const PositionFingerprint& f, const Position& p) {
    const Bitboard whitePawns = p.sides[0].pieces[Pawn];
    const Bitboard pawns = whitePawns | p.sides[1].pieces[Pawn];
    if (f.pawns != pawns || (f.pawns & f.whiteMen) != whitePawns) return true;
    const Bitboard men = f.pawns | f.rookKingPlane | f.diagonalPlane | f.knightQueenPlane;
    return popcount(men) != popcount(p.occupied);
}

int materialDrawKind(const Position& p) {
    const SideState& w = p.sides[0];
    const SideState& b = p.sides[1];
    const int men = w.pieceCount[AllMen] + b.pieceCount[AllMen];
    if (men == 2) return 10;
    const int minors =
        w.pieceCount[Knight] + w.pieceCount[Bishop] + b.pieceCount[Knight] + b.pieceCount[Bishop];
    if (men == 3 && minors == 1) return 10;
    const Bitboard kings = w.pieces[King] | b.pieces[King];
    const Bitboard bishops = w.pieces[Bishop] | b.pieces[Bishop];
    if ((kings | bishops) == p.occupied &&
        ((bishops & LightSquares) == 0 || (bishops & DarkSquares) == 0))
        return 10;
    const Bitboard wp = w.pieces[Pawn];
    const Bitboard bp = b.pieces[Pawn];
    if ((kings | wp | bp) != p.occupied) return 0;

    // A dead position: every pawn blocked head-on, none can take, and neither king can reach
    // an enemy pawn.
    if ((wp >> 8) & ~bp) return 0;
    if ((bp << 8) & ~wp) return 0;
    const Bitboard whitePawnAttacks =
        pawnCapturesTowardsA(wp, true) | pawnCapturesTowardsH(wp, true);
    const Bitboard blackPawnAttacks =
        pawnCapturesTowardsA(bp, false) | pawnCapturesTowardsH(bp, false);
    if ((whitePawnAttacks & bp) || (blackPawnAttacks & wp)) return 0;
    auto kingReaches = [](Bitboard king, Bitboard allowed, Bitboard targets) {
        Bitboard region = king;
        for (;;) {
            const Bitboard grown = region | (kingSpread(region) & allowed);
            if (grown & targets) return true;
            if (grown == region) return false;
            region = grown;
        }
    };
    if (kingReaches(w.pieces[King], ~wp & ~blackPawnAttacks, bp)) return 0;
    if (kingReaches(b.pieces[King], ~bp & ~whitePawnAttacks, wp)) return 0;
    return 40;
}

int gameDrawState(const Game& g) {
    if (g.historyCount >= 2) {
        const PositionFingerprint& last = g.history[g.historyCount - 1];
        int equal = 0;
        for (int i = 0; i < g.historyCount - 1; ++i)
            if (g.history[i] == last) ++equal;
        if (equal > 1) return 3;
    }
    return materialDrawKind(g.position);
}

int searchDrawState(const Game& g) {
    const Position& p = g.position;
    if (g.historyCount > 0) {
        const PositionFingerprint& first = g.history[0];
        const Bitboard whitePawns = p.sides[0].pieces[Pawn];
        const Bitboard pawns = whitePawns | p.sides[1].pieces[Pawn];
        const Bitboard firstMen =
            first.pawns | first.rookKingPlane | first.diagonalPlane | first.knightQueenPlane;
        if (first.pawns == pawns && (first.pawns & first.whiteMen) == whitePawns &&
            popcount(firstMen & ~first.pawns) == popcount(p.occupied & ~pawns)) {
            const PositionFingerprint now = fingerprint(p);
            int matches = 0;
            for (int i = 0; i < g.historyCount; ++i)
                if (g.history[i] == now) ++matches;
            if (matches == 1) return 1;
            if (matches > 1) return 3;
        }
    }
    return materialDrawKind(p);
}
