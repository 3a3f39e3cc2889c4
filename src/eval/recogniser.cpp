#include "eval/recogniser.h"

#include "eval/rec_support.h"

using namespace rec;

bool EndgameRecogniser::quickScore(const Position&, int&) const {
    return false;
}

bool EndgameRecogniser::qsearchScore(const Position&, int&) const {
    return false;
}

bool EndgameRecogniser::nodeCheck(const Position&, int&, int, int, int, int&) const {
    return false;
}

int EndgameRecogniser::finalScale(const Position&, const Evaluator&, int score) const {
    return score;
}

const RecogniserTable Recognisers{};

const EndgameRecogniser* selectRecogniser(const Position& position) {
    return Recognisers.select(position);
}

namespace {

// The counts that selection reads, named as in the rules below.
struct Counts {
    explicit Counts(const Position& p) {
        const SideState& w = p.sides[0];
        const SideState& b = p.sides[1];
        wp = w.pieceCount[Pawn];
        wn = w.pieceCount[Knight];
        wb = w.pieceCount[Bishop];
        wr = w.pieceCount[Rook];
        wq = w.pieceCount[Queen];
        bp = b.pieceCount[Pawn];
        bn = b.pieceCount[Knight];
        bb = b.pieceCount[Bishop];
        br = b.pieceCount[Rook];
        bq = b.pieceCount[Queen];
        W = w.pieceCount[AllMen];
        B = b.pieceCount[AllMen];
        wm = wn + wb;
        bm = bn + bb;
        T = W + B;
    }
    int wp, wn, wb, wr, wq, bp, bn, bb, br, bq, W, B, wm, bm, T;
};

}  // namespace

// The first rule that matches wins; the order matters where the conditions overlap.
const EndgameRecogniser* RecogniserTable::select(const Position& position) const {
    const Counts c(position);
    const int wp = c.wp, wn = c.wn, wb = c.wb, wr = c.wr, wq = c.wq;
    const int bp = c.bp, bn = c.bn, bb = c.bb, br = c.br, bq = c.bq;
    const int W = c.W, B = c.B, wm = c.wm, bm = c.bm, T = c.T;

    if (T == 6) {
        if (wr == 1 && br == 1 && wm == 1 && bp == 1) return &RecFortressWhite;
        if (wr == 1 && br == 1 && bm == 1 && wp == 1) return &RecFortressBlack;
        if (wp + bp == 3 && wb == 1 && wp > 0) return &RecPawnsBishopWhite;
        if (wp + bp == 3 && bb == 1 && bp > 0) return &RecPawnsBishopBlack;
    } else if (T == 5) {
        if (wr == 1 && br == 1) {
            if (wp == 1) return &RecRookPawnVsRookWhite;
            if (bp == 1) return &RecRookPawnVsRookBlack;
            if (wm == 1) return &RecRookMinorVsRookWhite;
            if (bm == 1) return &RecRookMinorVsRookBlack;
        }
        if (bm == 1) {
            if (wr == 1 && bp == 1) return &RecFortressWhite2;
            if (wq == 1 && bq == 1) return &RecQueenMinorBlack;
            if (wm == 2) return &RecTwoMinorsWhite;
            if (bb == 1 && bp > 0 && wp + bp == 2) return &RecPawnsBishopBlack;
        }
        if (wm == 1) {
            if (br == 1 && wp == 1) return &RecFortressBlack2;
            if (wq == 1 && bq == 1) return &RecQueenMinorWhite;
            if (bm == 2) return &RecTwoMinorsBlack;
            if (wb == 1 && wp > 0 && wp + bp == 2) return &RecPawnsBishopWhite;
        }
        if (wm == 2) {
            if (br == 1) return &RecTwoMinorsWhite2;
            if (bp == 1 && wn == 2) return &RecTwoKnightsVsPawn;
        }
        if (bm == 2) {
            if (wr == 1) return &RecTwoMinorsBlack2;
            if (wp == 1 && bn == 2) return &RecTwoKnightsVsPawn;
        }
    } else if (T == 4) {
        if (W == B) {
            if (wm == 1 && bm == 1) return &RecDeadDraw;
            if ((wr == 1 && br == 1) || (wq == 1 && bq == 1)) return &RecEqualHeavy;
            if (wr == 1 && bq == 1) return &RecRookVsQueen;
            if (wq == 1 && br == 1) return &RecQueenVsRook;
            if (wr == 1 && bm == 1) return &RecRookVsMinorWhite;
            if (br == 1 && wm == 1) return &RecRookVsMinorBlack;
            if (wp == 1 && bm == 1) return &RecPawnVsMinorWhite;
            if (bp == 1 && wm == 1) return &RecPawnVsMinorBlack;
        } else if (W == 1) {
            if (bm == 2 && bn == 2) return &RecTwoKnights;
            if (bm == 2 && bn == 1) return &RecBishopKnightBlack;
            if (bm == 1 && bp == 1) return &RecPawnsBishopBlack;
        } else if (W == 3) {
            if (wm == 2 && wn == 2) return &RecTwoKnights;
            if (wm == 2 && wn == 1) return &RecBishopKnightWhite;
            if (wm == 1 && wp == 1) return &RecPawnsBishopWhite;
        }
    } else if (T == 3) {
        if (wm + bm > 0) return &RecDeadDraw;
        if (wp > 0) return &RecKpkWhite;
        if (bp > 0) return &RecKpkBlack;
        if (W > 1) return &RecHeavyWhite;
        if (B > 1) return &RecHeavyBlack;
    } else if (T == 2) {
        return &RecDeadDraw;
    }

    const int pieces = T - wp - bp;
    if (pieces < 5) {
        if (pieces == 2) return &RecPawnEnding;
        if (W - wp == 2 && B - bp == 2) {
            if (wb == 1 && bb == 1) return &RecBishopEnding;
            if (wn == 1 && bn == 1) return &RecKnightEnding;
            if ((wb == 1 && bn == 1) || (bb == 1 && wn == 1)) return &RecMinorEnding;
            if (wq == 1 && bq == 1) return &RecQueenEnding;
        }
    }
    if ((wp > 0) != (bp > 0)) return &RecOnePawnSide;
    return &RecDefault;
}

bool boundCut(int lo, int hi, bool ownerToMove, int alpha, int beta, int& score) {
    if (!ownerToMove) {
        const int low = lo;
        lo = -hi;
        hi = -low;
    }
    if (lo >= beta) {
        score = lo;
        return true;
    }
    if (hi <= alpha) {
        score = hi;
        return true;
    }
    return false;
}

bool boundCut(const Position& position, int lo, int hi, int alpha, int beta, int& score) {
    return boundCut(lo, hi, position.whiteToMove != 0, alpha, beta, score);
}

namespace {

// A king with no man of its own beside it, standing on a square its own pieces cover: the
// pattern of skewers and back-rank tricks. `other.enemyAttacks` is what `side` attacks.
bool lonelyKing(const SideState& side, const SideState& other) {
    const int king = side.kingSquare();
    return (KingMask[king] & side.men()) == 0 && (other.enemyAttacks & squareBit(king)) != 0;
}

// Fewer than four squares around the king free of enemy attacks and of double attacks of
// its own side.
bool crampedKing(const SideState& side, const SideState& other) {
    const Bitboard free =
        KingMask[side.kingSquare()] & ~side.enemyAttacks & ~other.enemyDoubleAttacks;
    return popcount(free) < 4;
}

}  // namespace

bool isSharp(const Position& position) {
    const SideState& us = position.toMove();
    const SideState& them = position.notToMove();
    if ((us.men() & us.enemyAttacks) || (them.men() & them.enemyAttacks)) return true;
    if (lonelyKing(us, them) || lonelyKing(them, us)) return true;
    if (crampedKing(us, them) || crampedKing(them, us)) return true;
    return ((us.pieces[King] | them.pieces[King]) & Rim) != 0;
}

int mateDrive(int base, const SideState& strong, const SideState& weak) {
    const int weakKing = weak.kingSquare();
    const int strongKing = strong.kingSquare();
    return base + 62 * centreRookSteps(weakKing) +
           21 * (centreKingSteps(weakKing) - 2 * rookDistance(weakKing, strongKing)) -
           16 * kingDistance(weakKing, strongKing);
}

SideState turnedSide(const SideState& side) {
    SideState t = side;
    t.enemyAttacks = flipRanks(side.enemyAttacks);
    t.enemyDoubleAttacks = flipRanks(side.enemyDoubleAttacks);
    t.enemyPawnAttacks = flipRanks(side.enemyPawnAttacks);
    t.lesserThreats = flipRanks(side.lesserThreats);
    t.homeRank = flipRanks(side.homeRank);
    t.castleEmptyShort = flipRanks(side.castleEmptyShort);
    t.castleSafeShort = flipRanks(side.castleSafeShort);
    t.castleEmptyLong = flipRanks(side.castleEmptyLong);
    t.castleSafeLong = flipRanks(side.castleSafeLong);
    t.pawnStep = static_cast<int8_t>(-side.pawnStep);
    for (int kind = AllMen; kind <= King; ++kind) t.pieces[kind] = flipRanks(side.pieces[kind]);
    for (int kind = Pawn; kind <= King; ++kind)
        for (int i = 0; i < side.pieceCount[kind]; ++i)
            t.pieceList[kind][i] = static_cast<int8_t>(side.pieceList[kind][i] ^ 56);
    return t;
}
