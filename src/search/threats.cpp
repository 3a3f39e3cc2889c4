#include "search/threats.h"

#include "board/movegen.h"
#include "board/tables.h"

namespace {

// Squares attacked by `side` with one queen left out, seen like the attack maps.
Bitboard attacksWithoutQueen(const Position& p, const SideState& side, int queen, bool white) {
    const Bitboard pawns = side.pieces[Pawn];
    Bitboard attacks = white ? ((pawns >> 9) & ~FileH) | ((pawns >> 7) & ~FileA)
                             : ((pawns << 7) & ~FileH) | ((pawns << 9) & ~FileA);
    for (int i = 0; i < side.pieceCount[Knight]; ++i)
        attacks |= KnightMask[side.pieceList[Knight][i]];
    const Bitboard bishopOcc = p.occupied & ~(side.pieces[Bishop] | side.pieces[Queen]);
    const Bitboard rookOcc = p.occupied & ~(side.pieces[Rook] | side.pieces[Queen]);
    for (int i = 0; i < side.pieceCount[Bishop]; ++i)
        attacks |= bishopAttacks(side.pieceList[Bishop][i], bishopOcc);
    for (int i = 0; i < side.pieceCount[Rook]; ++i)
        attacks |= rookAttacks(side.pieceList[Rook][i], rookOcc);
    for (int i = 0; i < side.pieceCount[Queen]; ++i) {
        const int q = side.pieceList[Queen][i];
        if (q != queen) attacks |= bishopAttacks(q, bishopOcc) | rookAttacks(q, rookOcc);
    }
    return attacks | KingMask[side.kingSquare()];
}

// A queen on `from` may not leave a line that ties it to its own king.
bool queenPinned(const Position& p, const SideState& us, const SideState& them, int from, int to) {
    const Bitboard occ = p.occupied;
    const Bitboard king = us.pieces[King];
    const Bitboard straight = them.pieces[Rook] | them.pieces[Queen];
    const Bitboard diagonal = them.pieces[Bishop] | them.pieces[Queen];
    const Bitboard lines[4] = {rankAttacks(from, occ), fileAttacks(from, occ),
                               risingAttacks(from, occ), fallingAttacks(from, occ)};
    for (int i = 0; i < 4; ++i) {
        const Bitboard sliders = i < 2 ? straight : diagonal;
        if ((lines[i] & king) && (lines[i] & sliders) && !(lines[i] & squareBit(to))) return true;
    }
    return false;
}

Move queenContactMate(const Position& p, const SideState& us, const SideState& them) {
    const int enemyKing = them.kingSquare();
    // `them.enemyAttacks` is what we attack, `us.enemyAttacks` what they attack.
    const Bitboard candidates =
        KingMask[enemyKing] & them.enemyDoubleAttacks & ~us.men() & ~us.enemyDoubleAttacks;
    if (!candidates) return NoMove;
    const bool white = p.whiteToMove != 0;
    const Bitboard withoutKing = p.occupied & ~them.pieces[King];
    for (int i = 0; i < us.pieceCount[Queen]; ++i) {
        const int q = us.pieceList[Queen][i];
        Bitboard targets = candidates & queenAttacks(q, p.occupied);
        if (!targets) continue;
        const Bitboard guards =
            attacksWithoutQueen(p, us, q, white) | them.men() | them.enemyDoubleAttacks;
        for (; targets; targets &= targets - 1) {
            const int t = firstSquare(targets);
            const Bitboard covered = queenAttacks(t, withoutKing & ~squareBit(q)) | guards;
            if ((KingMask[enemyKing] & ~covered) != 0) continue;
            if (queenPinned(p, us, them, q, t)) continue;
            return makeMoveValue(q, t, Queen);
        }
    }
    return NoMove;
}

Move backRankMate(const Position& p, const SideState& us, const SideState& them) {
    if (!(us.pieces[Rook] | us.pieces[Queen])) return NoMove;
    const int enemyKing = them.kingSquare();
    const Bitboard row = them.homeRank;
    if (!(them.pieces[King] & row) || !(them.enemyAttacks & row)) return NoMove;
    const Bitboard neighbours = KingMask[enemyKing];
    // Every flight square off the row must be blocked by their own men or covered by us.
    if (neighbours & ~row & ~them.men() & ~them.enemyAttacks) return NoMove;

    // Squares along the row, outwards from the king, where a checking piece can land: free of
    // our men and covered by no enemy man but the king itself (which attacks its neighbours
    // once). An enemy man may be taken there, but the line to the king ends behind it.
    const Bitboard enemyCover =
        (us.enemyAttacks & ~neighbours) | (us.enemyDoubleAttacks & neighbours);
    const Bitboard open = row & ~us.men() & ~enemyCover;
    Bitboard flood = neighbours & open;
    for (;;) {
        const Bitboard through = flood & ~p.occupied;
        const Bitboard grown =
            flood | ((((through << 1) & ~FileA) | ((through >> 1) & ~FileH)) & open);
        if (grown == flood) break;
        flood = grown;
    }
    const Bitboard singly = them.enemyAttacks & ~them.enemyDoubleAttacks;
    Bitboard landings = flood & them.enemyAttacks & (~neighbours | them.enemyDoubleAttacks);
    for (; landings; landings &= landings - 1) {
        const int land = firstSquare(landings);
        const Bitboard straight = rookAttacks(land, p.occupied) & FileMask[fileOf(land)] &
                                  (us.pieces[Rook] | us.pieces[Queen]);
        const Bitboard diagonal = bishopAttacks(land, p.occupied) & us.pieces[Queen];
        for (Bitboard movers = straight | diagonal; movers; movers &= movers - 1) {
            const int from = firstSquare(movers);
            // The piece may not be the only guard of a flight square it leaves behind.
            const int kind = (us.pieces[Rook] & squareBit(from)) ? Rook : Queen;
            const Bitboard leftBehind =
                kind == Rook ? rookAttacks(from, p.occupied) : queenAttacks(from, p.occupied);
            const Bitboard after = kind == Rook ? rookAttacks(land, p.occupied & ~squareBit(from))
                                                : queenAttacks(land, p.occupied & ~squareBit(from));
            if (neighbours & singly & leftBehind & ~after & ~them.men()) continue;
            return makeMoveValue(from, land, kind);
        }
    }
    return NoMove;
}

// The static finders look only at attack maps; making the move settles it.
bool isMate(Position& p, Move m) {
    if (!isLegalFromTo(p, m)) return false;
    UndoRecord u;
    beginUndo(u, p);
    if (!makeLegal(p, m, u)) return false;
    int result = 0;
    const bool mate = sideToMoveInCheck(p) && hasNoLegalMove(p, &result);
    undoMove(u);
    return mate;
}

}  // namespace

Move staticMateInOne(Position& p) {
    const SideState& us = p.toMove();
    const SideState& them = p.notToMove();
    if (us.pieceCount[Queen]) {
        const Move m = queenContactMate(p, us, them);
        if (m && isMate(p, m)) return m;
    }
    const int k = them.kingSquare();
    if (fileOf(k) != 0 && fileOf(k) != 7 && rowOf(k) != 0 && rowOf(k) != 7) return NoMove;
    const Move m = backRankMate(p, us, them);
    return (m && isMate(p, m)) ? m : NoMove;
}

int hangingThreat(const Position& p, const SideState& us, const SideState& them) {
    if (KingMask[us.kingSquare()] & us.enemyDoubleAttacks) return 21100;
    const Bitboard hanging = (us.men() & us.enemyAttacks & ~them.enemyAttacks) |
                             (us.men() & p.pinnedAttacked) | (us.men() & us.enemyDoubleAttacks) |
                             us.lesserThreats;
    if (us.enemyPawnAttacks & (RankOne | RankEight)) return hanging ? 11550 : 10550;
    const int base = (us.enemyPawnAttacks & 0x00ff00000000ff00ULL) ? 1000 : 0;
    if (!hanging) return base;
    int value = base + (popcount(hanging) > 1 ? 1000 : 0);
    static const int Worth[7] = {0, 1000, 3400, 3500, 5200, 10550, 0};
    for (int kind = Queen; kind >= Pawn; --kind) {
        if (hanging & us.pieces[kind]) return value + Worth[kind];
    }
    return value;
}

bool newThreats(const UndoRecord& undo, const SideState& us, const SideState& them) {
    const Position& p = *undo.position;
    const Bitboard* usBefore = savedMaps(undo, p, us);
    const Bitboard* themBefore = savedMaps(undo, p, them);
    const Bitboard after = (them.men() & them.enemyAttacks & ~us.enemyAttacks) | them.lesserThreats;
    const Bitboard before = (them.men() & themBefore[0] & ~usBefore[0]) | themBefore[3];
    return (after & ~before) != 0;
}
