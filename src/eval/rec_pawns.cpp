// Recognisers of endings with a pawn or two against little or nothing. The bodies read the
// board in the strong side's view (its pawns advancing towards square 0), so one text serves
// both colours.
#include "eval/rec_support.h"

using namespace rec;

namespace {

// The square of the king and pawn ending, from the pawn side's view: a win in d plies is
// worth 9550 - d, a draw 1 (so keeping the pawn is still preferred).
int kingPawnScore(const StrongView& v) {
    const int d = kpkProbe(v.strongToMove, v.strong().kingSquare(), v.weak().kingSquare(),
                           v.strong().pieceList[Pawn][0]);
    return d < 0 ? 1 : 9550 - d;
}

}  // namespace

bool KingPawnRecogniser::quickScore(const Position& position, int& score) const {
    const StrongView v(position, white);
    score = v.toWhite(kingPawnScore(v));
    return true;
}

bool KingPawnRecogniser::qsearchScore(const Position& position, int& score) const {
    const StrongView v(position, white);
    score = v.toMover(kingPawnScore(v));
    return true;
}

bool KingPawnRecogniser::nodeCheck(const Position& position, int& score, int alpha, int beta, int,
                                   int&) const {
    const StrongView v(position, white);
    const int s = kingPawnScore(v);
    // A draw is exact; a win only bounds the score, so that the search finds the real mate.
    if (s < 2) {
        score = v.toMover(s);
        return true;
    }
    return boundCut(9450, ScoreMate, v.strongToMove, alpha, beta, score);
}

bool rookPawnDraw(const SideState& strong, const SideState& weak, bool strongToMove) {
    const Bitboard strongPawns = strong.pieces[Pawn];
    const Bitboard pawns = strongPawns | weak.pieces[Pawn];
    if (!strongPawns || (pawns & ~(FileA | FileH))) return false;
    if ((pawns & FileA) && (pawns & FileH)) return false;

    const int weakKing = weak.kingSquare();
    const int strongKing = strong.kingSquare();
    const int file = fileOf(firstSquare(strongPawns));
    const int corner = firstSquare(weak.homeRank & FileMask[file]);
    const Bitboard cornerBit = squareBit(corner);
    const Bitboard knights = strong.pieces[Knight];

    if (weak.pieces[King] & CornerSquares) {
        if (knights) {
            // The knight can't drive the king from the corner in front of the pawn.
            if (weakKing != corner) return false;
            return (KingMask[weakKing] & strongPawns & ~KingMask[strongKing]) != 0;
        }
        const Bitboard bishopColours = coloursOf(strong.pieces[Bishop]);
        if ((weak.enemyAttacks & cornerBit) || strongKing == corner || (bishopColours & cornerBit))
            return false;
        if (weak.pieces[Pawn]) {
            // A weak pawn behind the strong ones may yet run and promote.
            const int lastPawn = lastSquare(strongPawns);
            if (weak.pieces[Pawn] & fileAhead(lastPawn, false)) return false;
        }
        if (fileOf(weakKing) == file && std::abs(rowOf(weakKing) - rowOf(corner)) <= 3 &&
            !(Between[weakKing + 64 * corner] & strongPawns))
            return true;
        Bitboard reach = strong.pieces[King];
        if (strongToMove) reach |= KingMask[strongKing] & ~strong.enemyAttacks;
        const Bitboard area = kingSpread(reach);
        if ((KingMask[weakKing] & cornerBit) && !(area & cornerBit)) return true;
        const Bitboard avoid = kingSpread(area & ~strong.enemyAttacks) & ~bishopColours;
        const Bitboard firstStep = KingMask[weakKing] & ~avoid;
        return (kingSpread(firstStep) & cornerBit & ~avoid) != 0;
    }

    // The strong king shut in its corner in front of its own pawn, the knight to move and
    // unable to gain a tempo on a king of its colour.
    if (!(strong.pieces[King] & CornerSquares) || !strongToMove || !knights) return false;
    if (!(strong.pieces[King] & weak.homeRank) || !(KingMask[strongKing] & strongPawns) ||
        !(KingMask[strongKing] & KingMask[weakKing]))
        return false;
    if (!(colourOf(firstSquare(knights)) & weak.pieces[King])) return false;
    const Bitboard lastTwoRanks =
        weak.homeRank | (weak.homeRank == RankEight ? RankEight << 8 : RankOne >> 8);
    return (weak.pieces[King] & lastTwoRanks) != 0;
}

bool RookPawnsRecogniser::quickScore(const Position& position, int& score) const {
    const StrongView v(position, white);
    if (!rookPawnDraw(v.strong(), v.weak(), v.strongToMove)) return false;
    score = v.toWhite(1);
    return true;
}

bool RookPawnsRecogniser::qsearchScore(const Position& position, int& score) const {
    const StrongView v(position, white);
    if (!rookPawnDraw(v.strong(), v.weak(), v.strongToMove)) return false;
    score = v.toMover(1);
    return true;
}

bool RookPawnsRecogniser::nodeCheck(const Position& position, int& score, int alpha, int beta, int,
                                    int&) const {
    const StrongView v(position, white);
    if (rookPawnDraw(v.strong(), v.weak(), v.strongToMove)) {
        score = v.toMover(1);
        return true;
    }
    // Against the bare king the minor and pawns can't lose.
    if (v.weak().pieceCount[AllMen] == 1)
        return boundCut(0, ScoreMate, v.strongToMove, alpha, beta, score);
    return false;
}

bool knightStopsPawn(const SideState& strong, const SideState& weak, bool strongToMove) {
    int pawn = strong.pieceList[Pawn][0];
    const int weakKing = weak.kingSquare();
    Bitboard knights = weak.pieces[Knight];
    if (rowOf(pawn) == 6 && (knightTargets(knights) & squareBit(pawn - 8))) return true;

    // The squares the knight may have reached, against the pawn's progress; the pawn's own
    // king, one step nearer each move, takes away the squares around its reach.
    Bitboard reach = strong.pieces[King];
    if (strongToMove) {
        pawn -= 8;
        reach = kingSpread(reach);
    }
    while (rowOf(pawn) > 0) {
        knights |= knightTargets(knights);
        knights &= ~upPawnAttacks(squareBit(pawn)) & ~weak.pieces[King] & ~CornerSquares;
        knights &= ~kingSpread(reach) | KingMask[weakKing];
        if (!knights) return false;
        const Bitboard path = squareBit(pawn - 8);
        if ((knightTargets(knights) & path) && !(path & CornerSquares)) return true;
        pawn -= 8;
        reach = kingSpread(reach);
    }
    return false;
}

bool bishopStopsPawn(const SideState& strong, const SideState& weak, bool strongToMove) {
    const int pawn = strong.pieceList[Pawn][0];
    const Bitboard bishop = weak.pieces[Bishop];
    const Bitboard attackedByPawnSide = weak.enemyAttacks;
    const Bitboard attackedByBishopSide = strong.enemyAttacks;
    if (strongToMove) {
        if (upPawnAttacks(squareBit(pawn)) & bishop) return false;
        if ((bishop & attackedByPawnSide) && !(bishop & attackedByBishopSide)) return false;
    }
    Bitboard path = fileAhead(pawn, true);
    if (!strongToMove) path |= squareBit(pawn);
    return (path & attackedByBishopSide & ~attackedByPawnSide) ||
           (path & strong.enemyDoubleAttacks);
}

namespace {

// The pawn side's score of pawn against minor, from its view; `final` tells whether it
// stands as the whole evaluation.
int pawnVsMinorScore(const StrongView& v, bool& final) {
    const SideState& strong = v.strong();
    const SideState& weak = v.weak();
    const int pawn = strong.pieceList[Pawn][0];
    const Bitboard minor = weak.pieces[Knight] | weak.pieces[Bishop];
    const bool mayTakeMinor = v.strongToMove && (upPawnAttacks(squareBit(pawn)) & minor);
    final = true;

    if (!mayTakeMinor) {
        const bool moverInCheck = inCheck(v.strongToMove ? strong : weak);
        if (!moverInCheck && rowOf(pawn) != 1 &&
            kpkProbe(v.strongToMove, strong.kingSquare(), weak.kingSquare(), pawn) < 0) {
            // Drawn even without the minor. With a knight one pattern on the pawn's rank
            // still needs the search: pawn, knight and king side by side, falling order.
            if (!weak.pieces[Knight]) return 1;
            const int knight = weak.pieceList[Knight][0];
            const int king = weak.kingSquare();
            const bool row = rowOf(knight) == rowOf(pawn) && rowOf(king) == rowOf(pawn) &&
                             std::abs(knight - pawn) == 1 && std::abs(king - knight) == 1;
            if (!row || !(pawn > knight && knight > king)) return 1;
            final = false;
            return 1;
        }
    }
    if (v.strongToMove && (minor & weak.enemyAttacks)) {
        final = false;
        return 1;
    }
    const bool stopped = weak.pieces[Knight] ? knightStopsPawn(strong, weak, v.strongToMove)
                                             : bishopStopsPawn(strong, weak, v.strongToMove);
    if (stopped) return 1;
    final = false;
    if (pawn < 24) {
        const int gap = 24 - (pawn & 56);
        return gap * gap;
    }
    return 1;
}

// Squares where the pawn side's king may be mated by king, knight and its own rook pawn.
// a8, b8, a7, g8, h8, h7 and the same turned over.
constexpr Bitboard MatingCorners = 0xc3810000000081c3ULL;

}  // namespace

bool PawnVsMinorRecogniser::quickScore(const Position& position, int& score) const {
    const StrongView v(position, white);
    bool final;
    score = v.toWhite(pawnVsMinorScore(v, final));
    return final;
}

bool PawnVsMinorRecogniser::nodeCheck(const Position& position, int& score, int alpha, int beta,
                                      int, int&) const {
    const StrongView v(position, white);
    const bool mateRisk = v.weak().pieces[Knight] && (v.strong().pieces[Pawn] & (FileA | FileH)) &&
                          (v.strong().pieces[King] & MatingCorners);
    if (mateRisk) return false;
    bool final;
    const int s = pawnVsMinorScore(v, final);
    if (final) {
        score = v.toMover(s);
        return true;
    }
    return boundCut(0, ScoreMate, v.strongToMove, alpha, beta, score);
}

RookPawnVsRookRecogniser::RookPawnVsRookRecogniser(bool whiteStrong)
    : white(whiteStrong), rank{RankOne,         RankEight,   RankEight << 8, RankEight << 16,
                               RankEight << 24, 0xffffffULL, 0xffffffffULL} {
    if (!white)
        for (Bitboard& r : rank) r = flipRanks(r);
}

bool RookPawnVsRookRecogniser::quickScore(const Position& position, int& score) const {
    const SideState& strong = position.sides[white ? 0 : 1];
    const SideState& weak = position.sides[white ? 1 : 0];
    const bool strongToMove = (position.whiteToMove != 0) == white;
    const bool weakToMove = !strongToMove;
    const Bitboard first = rank[0], eighth = rank[1], seventh = rank[2], sixth = rank[3],
                   fifth = rank[4], sixthToEighth = rank[5];

    int s = white ? score : -score;
    const int pawn = strong.pieceList[Pawn][0];
    const int pawnFile = fileOf(pawn);
    const Bitboard stops = fileAhead(pawn, white);
    const Bitboard weakKing = weak.pieces[King];
    const int weakRook = weak.pieceList[Rook][0];
    const Bitboard weakRookBit = squareBit(weakRook);
    const int strongKing = strong.kingSquare();
    const Bitboard strongRook = strong.pieces[Rook];
    const bool rookAttacked = (weakRookBit & weak.enemyAttacks) != 0;
    const bool drawn = [&] {
        // The defending king in front of the pawn on the back rank.
        if ((weakKing & stops) && (weakKing & (first | eighth))) {
            if (!(squareBit(pawn) & sixthToEighth)) {
                if ((weakRookBit & sixth) && (weakToMove || !rookAttacked)) return true;
            } else if (weakRookBit & first) {
                if ((weakToMove && !inCheck(weak)) || inCheck(strong)) return true;
            }
            const Bitboard kingRank = (weakKing & first) ? first : eighth;
            if ((squareBit(pawn) & 0xc3c3c3c3c3c3c3c3ULL) && (weakRookBit & kingRank) &&
                (weakToMove || !rookAttacked))
                return true;
        }
        // The rook far away on the long side, the strong king not yet sheltering the pawn.
        const int rookFile = fileOf(weakRook);
        const int kingFile = fileOf(weak.kingSquare());
        if ((rookFile < pawnFile - 3 && kingFile >= pawnFile) ||
            (rookFile > pawnFile + 3 && kingFile <= pawnFile)) {
            s -= 200;
            const int cutFile = rookFile < pawnFile ? pawnFile - 1 : pawnFile + 1;
            const Bitboard fromPawnRank =
                white ? (squareBit(pawn | 7) << 1) - 1 : ~(squareBit(pawn & 56) - 1);
            const Bitboard cutSquares = FileMask[cutFile] & fromPawnRank;
            const Bitboard shelter =
                strong.pieces[King] | (KingMask[strongKing] & ~strong.enemyAttacks);
            const bool rookPlaced = !(strongRook & FileMask[pawnFile]) || (strongRook & stops);
            if (!(shelter & cutSquares) && rookPlaced && (weakToMove || inCheck(strong)))
                return true;
        }
        return false;
    }();
    if (drawn) {
        score = white ? 1 : -1;
        return true;
    }
    if ((squareBit(pawn) & seventh) && (strongRook & fifth) &&
        (KingMask[strongKing] & squareBit(pawn)))
        s += 60;
    score = white ? s : -s;
    return false;
}

int pawnKnightsDrive(const SideState& strong, const SideState& weak, Bitboard occupied,
                     bool strongToMove) {
    static constexpr int CentreTable[8] = {0, 20, 55, 105, 170, 230, 250, 0};
    static constexpr int WayTable[8] = {0, -250, 0, 120, 200, 250, 250, 0};
    const int weakKing = weak.kingSquare();
    const int strongKing = strong.kingSquare();
    const int pawn = weak.pieceList[Pawn][0];
    const int centre = centreRookSteps(weakKing);
    const int freeWay = popcount(fileAhead(pawn, false) & ~occupied);

    int v = 1000 + 21 * (centreKingSteps(weakKing) - 2 * rookDistance(weakKing, strongKing)) -
            16 * kingDistance(weakKing, strongKing) + CentreTable[centre] + WayTable[freeWay];
    if (!strongToMove) {
        // The weak king, to move, can't come nearer the centre.
        bool outward = true;
        for (Bitboard b = KingMask[weakKing] & ~weak.enemyAttacks; b; b &= b - 1)
            if (centreRookSteps(firstSquare(b)) < centre) outward = false;
        if (outward) v += 10;
    }
    const int front = pawn + 8;
    if (front < 64 && (strong.pieces[Knight] & squareBit(front))) {
        v += 70;
        if (kingDistance(front, weakKing) > 1) v += 15;
        if (kingDistance(front, weakKing) <= kingDistance(strongKing, weakKing)) v += 15;
    }
    return v;
}

bool TwoKnightsVsPawnRecogniser::quickScore(const Position& position, int& score) const {
    const StrongView v(position, position.sides[0].pieceCount[Knight] == 2);
    score = v.toWhite(pawnKnightsDrive(v.strong(), v.weak(), v.occupied, v.strongToMove));
    return true;
}
