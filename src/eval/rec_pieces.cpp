// Recognisers of endings without pawns, or where the pawn hardly matters: dead draws, the
// mating drives, and the material that wins in name only.
#include "eval/rec_support.h"

using namespace rec;

namespace {

// Depth cut for endings that need search only to find tactics: below two plies nothing,
// then the fraction of a ply, and from three plies a whole ply more.
int shallowSearchCut(int depth, int wholePlyFrom) {
    if (depth < 17) return 0;
    if (depth < wholePlyFrom) return -(depth % 8);
    return -8 - depth % 8;
}

}  // namespace

bool DeadDrawRecogniser::quickScore(const Position&, int& score) const {
    score = 0;
    return true;
}

bool DeadDrawRecogniser::qsearchScore(const Position&, int& score) const {
    score = 0;
    return true;
}

bool DeadDrawRecogniser::nodeCheck(const Position&, int& score, int, int, int depth,
                                   int& depthChange) const {
    score = 0;
    depthChange = -depth;
    return true;
}

bool TwoKnightsRecogniser::nodeCheck(const Position&, int& score, int, int, int depth,
                                     int& depthChange) const {
    score = 0;
    depthChange = std::min(0, 8 - depth);
    return false;
}

bool HeavyPieceRecogniser::quickScore(const Position&, int& score) const {
    score += white ? 4000 : -4000;
    return false;
}

bool HeavyPieceRecogniser::nodeCheck(const Position& position, int& score, int alpha, int beta, int,
                                     int&) const {
    const SideState& strong = position.sides[white ? 0 : 1];
    // A piece en prise may still be lost; otherwise the win is sure.
    if (strong.enemyAttacks & strong.men()) return false;
    const int lower = strong.pieceCount[Queen] ? 12550 : 7200;
    const bool strongToMove = (position.whiteToMove != 0) == white;
    return boundCut(lower, ScoreMate, strongToMove, alpha, beta, score);
}

bool EqualHeavyRecogniser::quickScore(const Position&, int& score) const {
    score = 0;
    return true;
}

bool EqualHeavyRecogniser::qsearchScore(const Position& position, int& score) const {
    score = 0;
    return !isSharp(position);
}

bool EqualHeavyRecogniser::nodeCheck(const Position& position, int& score, int, int, int depth,
                                     int& depthChange) const {
    score = 0;
    if (!isSharp(position)) return true;
    depthChange = shallowSearchCut(depth, 24);
    return false;
}

bool QueenVsRookRecogniser::quickScore(const Position&, int& score) const {
    score += white ? 3000 : -3000;
    return false;
}

bool QueenVsRookRecogniser::nodeCheck(const Position& position, int& score, int alpha, int beta,
                                      int, int&) const {
    if (isSharp(position)) return false;
    const bool strongToMove = (position.whiteToMove != 0) == white;
    return boundCut(6350, ScoreMate, strongToMove, alpha, beta, score);
}

bool QueenMinorRecogniser::quickScore(const Position& position, int& score) const {
    const SideState& strong = position.sides[white ? 0 : 1];
    const SideState& weak = position.sides[white ? 1 : 0];
    const int drive = mateDrive(333, strong, weak);
    score = white ? drive : -drive;
    return true;
}

bool QueenMinorRecogniser::nodeCheck(const Position&, int&, int, int, int depth,
                                     int& depthChange) const {
    depthChange = shallowSearchCut(depth, 40);
    return false;
}

int bishopKnightDrive(const SideState& strong, const SideState& weak) {
    const int bishop = firstSquare(strong.pieces[Bishop]);
    const Bitboard bishopBit = squareBit(bishop);
    const Bitboard weakKing = weak.pieces[King];
    const Bitboard attackedByStrong = weak.enemyAttacks;
    const Bitboard attackedByWeak = strong.enemyAttacks;

    // Grow the mating corners orthogonally until they reach the weak king.
    constexpr Bitboard LightCorners = squareBit(0) | squareBit(63);
    constexpr Bitboard DarkCorners = squareBit(56) | squareBit(7);
    Bitboard region = (bishopBit & LightSquares) ? LightCorners : DarkCorners;
    Bitboard inner = 0;
    int v = 3000;
    while (!(region & weakKing)) {
        inner = region;
        region = orthogonalSpread(region);
        v -= 35;
    }

    // The weak king's free squares: worse for the strong side the further out they lead.
    const Bitboard free = KingMask[weak.kingSquare()] & ~attackedByStrong;
    const Bitboard ring = orthogonalSpread(region) & ~region;
    const Bitboard nextRing = orthogonalSpread(region | ring) & ~(region | ring);
    if (nextRing & free) {
        v -= 22;
    } else if (ring & free) {
        v -= 8;
    } else if (region & ~inner & attackedByWeak) {
        v -= 2;
    }

    if (!(bishopBit & inner) && (bishopBit & RimCentres)) v += 2;
    if (bishopBit & inner) v -= 3;
    if (bishopBit & MainDiagonals) v -= 2;
    if (kingDistance(strong.kingSquare(), weak.kingSquare()) < 5) v += 1;

    Bitboard room = free;
    for (int step = 0; step < 2; ++step) room |= kingSpread(room) & ~attackedByStrong;
    return v - popcount(room);
}

bool BishopKnightRecogniser::quickScore(const Position& position, int& score) const {
    const SideState& strong = position.sides[white ? 0 : 1];
    const SideState& weak = position.sides[white ? 1 : 0];
    const int drive = bishopKnightDrive(strong, weak);
    score += white ? drive : -drive;
    return true;
}

bool BishopKnightRecogniser::nodeCheck(const Position& position, int& score, int alpha, int beta,
                                       int, int&) const {
    const SideState& strong = position.sides[white ? 0 : 1];
    // A hanging piece or a knight stuck in a corner may still cost the win: only "not lost".
    const bool doubtful =
        (strong.enemyAttacks & strong.men()) || (strong.pieces[Knight] & CornerSquares);
    const bool strongToMove = (position.whiteToMove != 0) == white;
    return boundCut(doubtful ? 1 : 4350, ScoreMate, strongToMove, alpha, beta, score);
}

namespace {

// Weak king squares where a rook and bishop side may stand on one line with the kings and
// the weak rook, the bishop shielding the own king from the rook: no tactic there.
constexpr Bitboard ShieldedLineSquares = squareBit(3) | squareBit(4) | squareBit(24) |
                                         squareBit(31) | squareBit(32) | squareBit(39) |
                                         squareBit(59) | squareBit(60);
constexpr Bitboard CentralArea = 0x3c3c3c3c0000ULL;

bool sameLineInOrder(int a, int b, int c, int d) {
    const bool rank = rowOf(a) == rowOf(b) && rowOf(b) == rowOf(c) && rowOf(c) == rowOf(d);
    const bool file = fileOf(a) == fileOf(b) && fileOf(b) == fileOf(c) && fileOf(c) == fileOf(d);
    if (!rank && !file) return false;
    return (a < b && b < c && c < d) || (a > b && b > c && c > d);
}

}  // namespace

int fortressPoints(const SideState& strong, const SideState& weak, Bitboard occupied,
                   bool strongToMove) {
    const int weakKing = weak.kingSquare();
    const int strongKing = strong.kingSquare();
    const Bitboard weakMen = weak.men();
    const Bitboard nearWeakKing = KingMask[weakKing];
    const Bitboard attackedByStrong = weak.enemyAttacks;
    const Bitboard attackedByWeak = strong.enemyAttacks;
    int n = inCheck(weak) ? 1 : 0;

    if (strongToMove) {
        // Knight forks of the king and another man.
        for (Bitboard knights = strong.pieces[Knight]; knights; knights &= knights - 1) {
            const Bitboard forks = KnightMask[firstSquare(knights)] & KnightMask[weakKing];
            for (Bitboard q = forks; q; q &= q - 1)
                if (popcount(KnightMask[firstSquare(q)] & weakMen) >= 2) return 10;
        }
        if (strong.pieces[Bishop]) {
            // A man on a line with its king, away from it: a pin or a skewer.
            if (bishopAttacks(weakKing, occupied) & weakMen & ~nearWeakKing) return 10;
            if ((squareBit(weakKing) & ShieldedLineSquares) && strong.pieceCount[Bishop] == 1 &&
                strong.pieceCount[Rook] == 1 && weak.pieceCount[Rook] == 1 &&
                !(KingMask[strongKing] & nearWeakKing) && !(weakMen & attackedByStrong) &&
                sameLineInOrder(weak.pieceList[Rook][0], strong.pieceList[Bishop][0], strongKing,
                                weakKing))
                return 0;
        }
        if (strong.pieces[Rook] && (rookAttacks(weakKing, occupied) & weakMen & ~nearWeakKing))
            return 10;
    }

    const Bitboard attacked = weakMen & attackedByStrong;
    if (attacked) {
        if (strongToMove) {
            if (attacked & ~attackedByWeak) return 10;
            if (attacked & weak.enemyDoubleAttacks) return 10;
            if (popcount(attacked) >= 2) return 10;
            if (strong.pieces[Rook] && strong.pieceCount[AllMen] >= 3) {
                // An attacked rook that can neither trade itself nor lean on the king.
                const Bitboard rooks = attacked & weak.pieces[Rook] & ~KingMask[strongKing];
                for (Bitboard r = rooks; r; r &= r - 1)
                    if (!(rookAttacks(firstSquare(r), occupied) & strong.pieces[Rook])) return 10;
            }
        }
        ++n;
    }

    if (weak.pieces[King] & Rim) ++n;
    if (weakMen & weak.enemyDoubleAttacks) ++n;
    if (nearWeakKing & weakMen) ++n;
    if (!(weak.pieces[King] & CentralArea)) ++n;

    const Bitboard bishops = strong.pieces[Bishop];
    if (weak.pieces[King] & LightCornerAreas) {
        ++n;
        if (bishops & LightSquares) return 10;
        if (bishops & DarkSquares) n -= 2;
    } else if (weak.pieces[King] & DarkCornerAreas) {
        ++n;
        if (bishops & DarkSquares) return 10;
        if (bishops & LightSquares) n -= 2;
    }

    if (KingMask[strongKing] & nearWeakKing) ++n;
    if (popcount(nearWeakKing & attackedByStrong) < 3) ++n;

    const Bitboard weakKnights = weak.pieces[Knight];
    if (weakKnights && strong.enemyDoubleAttacks == 0) {
        n += (weakKnights & CornerBlocks) ? 2 : 1;
    } else if (weakKnights & CornerBlocks) {
        ++n;
    }
    return std::max(n, 0);
}

namespace {

// The score of material that wins in name only, from the strong side's view: small, and
// growing with the square of the danger.
int fortressScore(const SideState& strong, const SideState& weak, Bitboard occupied,
                  bool strongToMove, int weight) {
    int d = fortressPoints(strong, weak, occupied, strongToMove);
    if (d >= 1) --d;
    return weight * d * d + 1;
}

struct Sides {
    Sides(const Position& p, bool white)
        : strong(p.sides[white ? 0 : 1]),
          weak(p.sides[white ? 1 : 0]),
          strongToMove((p.whiteToMove != 0) == white) {}
    const SideState& strong;
    const SideState& weak;
    const bool strongToMove;
};

}  // namespace

bool RookVsMinorRecogniser::quickScore(const Position& position, int& score) const {
    const Sides s(position, white);
    const int v = fortressScore(s.strong, s.weak, position.occupied, s.strongToMove, 33);
    score = white ? v : -v;
    return true;
}

bool RookVsMinorRecogniser::qsearchScore(const Position& position, int& score) const {
    const Sides s(position, white);
    // With a tactic in the air quiescence has to look.
    if (fortressPoints(s.strong, s.weak, position.occupied, s.strongToMove) > 1) return false;
    const int v = fortressScore(s.strong, s.weak, position.occupied, s.strongToMove, 33);
    score = s.strongToMove ? v : -v;
    return true;
}

bool RookVsMinorRecogniser::nodeCheck(const Position& position, int& score, int alpha, int beta,
                                      int, int&) const {
    const Sides s(position, white);
    const int king = s.strong.kingSquare();
    // The few ways the strong side can still lose: checks, a king trapped in the corner by a
    // knight, a king on the rim against a rook.
    if (inCheck(s.strong)) return false;
    if ((squareBit(king) & CornerSquares) && (s.weak.pieces[Knight] & KnightTwoSteps[king]))
        return false;
    if (s.weak.pieces[Rook] && (squareBit(king) & Rim)) return false;
    return boundCut(0, ScoreMate, s.strongToMove, alpha, beta, score);
}

bool TwoMinorsRecogniser::quickScore(const Position& position, int& score) const {
    const Sides s(position, white);
    const int v = s.strong.pieceCount[Knight] == 2
                      ? 1
                      : fortressScore(s.strong, s.weak, position.occupied, s.strongToMove, 20);
    score = white ? v : -v;
    return true;
}

bool TwoMinorsRecogniser::qsearchScore(const Position& position, int& score) const {
    const Sides s(position, white);
    int v = 1;
    if (s.strong.pieceCount[Knight] != 2) {
        if (fortressPoints(s.strong, s.weak, position.occupied, s.strongToMove) > 1) return false;
        v = fortressScore(s.strong, s.weak, position.occupied, s.strongToMove, 20);
    }
    score = s.strongToMove ? v : -v;
    return true;
}

bool RookMinorVsRookRecogniser::nodeCheck(const Position& position, int& score, int alpha, int beta,
                                          int depth, int& depthChange) const {
    return EndgameRecogniser::nodeCheck(position, score, alpha, beta, depth, depthChange);
}

bool ClampRecogniser::quickScore(const Position&, int& score) const {
    score = value;
    return false;
}

int ClampRecogniser::finalScale(const Position& position, const Evaluator&, int score) const {
    const bool whitePawn = position.sides[0].pieces[Pawn] != 0;
    if (!whitePawn && score > 0) return 0;
    if (whitePawn && score < 0) return 0;
    return score;
}
