// Scalers of the common endings with pawns: the ordinary evaluation runs, and the recogniser
// corrects it at the end with what the terms can't see.
#include "eval/evaluator.h"
#include "eval/rec_support.h"

using namespace rec;

namespace {

constexpr int NoPromotion = 1000;

// A kpkProbe answer that is a win: plies to promotion, not a draw (-1) or an illegal
// placement (127).
bool isWin(int probe) {
    return probe > 0 && probe < 127;
}

// Moves a pawn of the strong side (view) needs to promote, the double step counted.
int movesToPromote(int square) {
    const int row = rowOf(square);
    return row == 6 ? 5 : row;
}

// Moves the weak side's fastest passer (view: advancing towards 63) needs to promote.
int enemyPromotionMoves(Bitboard passers) {
    int best = NoPromotion;
    for (; passers; passers &= passers - 1) {
        const int row = rowOf(firstSquare(passers));
        best = std::min(best, row == 1 ? 5 : 7 - row);
    }
    return best;
}

// A passer's run against the defending king, in the view of the pawn's side. The king walks
// one step a move round the squares the own king guards and the other pawns; it catches the
// pawn by reaching the pawn or its way. Returns the value of an arrival, or -1.
int raceValue(const StrongView& v, int pawn, int enemyMoves) {
    const SideState& us = v.strong();
    const SideState& them = v.weak();
    const Bitboard pawns = us.pieces[Pawn] | them.pieces[Pawn];
    const Bitboard blocked =
        KingMask[us.kingSquare()] | us.pieces[King] | (pawns & ~squareBit(pawn));
    Bitboard king = them.pieces[King];
    int value = v.strongToMove ? 2500 : 2344;
    int theirMoves = 0;
    bool enemyFirst = false;
    auto caught = [&] { return (king & (squareBit(pawn) | fileAhead(pawn, true))) != 0; };
    auto kingMoves = [&] {
        king |= kingSpread(king) & ~blocked;
        ++theirMoves;
    };

    if (caught()) return -1;
    if (!v.strongToMove) {
        kingMoves();
        if (caught()) return -1;
    }
    for (;;) {
        const int next = pawn - 8;
        if (v.occupied & squareBit(next)) return -1;
        pawn = (rowOf(pawn) == 6 && !(v.occupied & squareBit(pawn - 16))) ? pawn - 16 : next;
        value -= value >> 3;
        if (!enemyFirst && theirMoves >= enemyMoves) {
            enemyFirst = true;
            value -= 625;
        }
        if (rowOf(pawn) == 0) return value;
        kingMoves();
        if (caught()) return -1;
    }
}

// Two or more passers that the lone king may not hold even when each alone is caught.
int unstoppablePawnBonus(const StrongView& v, Bitboard passers) {
    const SideState& us = v.strong();
    const SideState& them = v.weak();
    const Bitboard promotion = fileFill(passers) & RankEight;
    if (popcount(promotion) < 2) return 0;

    const int theirKing = them.kingSquare();
    for (Bitboard b = passers; b; b &= b - 1) {
        const int pawn = firstSquare(b);
        const int kingMoves = kingDistance(theirKing, fileOf(pawn)) - (v.strongToMove ? 0 : 1);
        if (kingMoves > movesToPromote(pawn)) return 1200;
    }
    const bool enemyPawns = them.pieces[Pawn] != 0;
    if (promotion & ((promotion & ~FileA) >> 1)) return enemyPawns ? 190 : 1200;
    const int spread = lastSquare(promotion) - firstSquare(promotion);
    if (enemyPawns) return 50 * spread;
    for (Bitboard b = passers; b; b &= b - 1)
        if (isWin(kpkProbe(v.strongToMove, us.kingSquare(), theirKing, firstSquare(b))))
            return 1200;
    return -400;
}

// The squares from which the own king escorts a passer home (view of the pawn's side).
Bitboard keySquares(Bitboard passers) {
    Bitboard keys = 0;
    for (; passers; passers &= passers - 1) {
        const int pawn = firstSquare(passers);
        const int row = rowOf(pawn);
        const int file = fileOf(pawn);
        const Bitboard files = kingSpread(FileMask[file]) & RankEight;
        Bitboard rows;
        if (file == 0 || file == 7) {
            keys |= FileMask[file == 0 ? 1 : 6] & (RankEight | RankEight << 8);
            continue;
        }
        if (row >= 4) {
            rows = RankEight << (8 * (row - 2));  // ranks 2 to 4: two ranks ahead
        } else if (row >= 2) {
            rows = (RankEight << (8 * (row - 2))) | (RankEight << (8 * (row - 1)));
        } else {
            rows = RankEight | (RankEight << 8);
        }
        keys |= fileFill(files) & rows & ~squareBit(pawn);
    }
    return keys;
}

// The pawn side's gains of a pawn ending in its view: the race of its passers and its king
// on their key squares.
int pawnEndingSide(const StrongView& v, Bitboard allPassers) {
    const SideState& us = v.strong();
    const SideState& them = v.weak();
    const Bitboard passers = v.turn(allPassers) & us.pieces[Pawn];
    int score = 0;
    if (passers) {
        const int enemyMoves = enemyPromotionMoves(v.turn(allPassers) & them.pieces[Pawn]);
        int best = -1;
        for (Bitboard b = passers; b; b &= b - 1)
            best = std::max(best, raceValue(v, firstSquare(b), enemyMoves));
        score += best >= 0 ? best : unstoppablePawnBonus(v, passers);
    }
    const Bitboard keys = keySquares(passers);
    if (keys & us.pieces[King]) {
        score += 160;
    } else if (keys & KingMask[us.kingSquare()]) {
        score += 75;
    }
    return score;
}

// Every pawn of the side (view: advancing towards 0) is blocked or attacked: no spare move.
bool noSpareMove(const StrongView& v) {
    const Bitboard pawns = v.strong().pieces[Pawn];
    return (pawns & ~(v.occupied << 8) & ~v.strong().enemyAttacks) == 0;
}

}  // namespace

bool PawnEndingRecogniser::nodeCheck(const Position& position, int&, int, int, int,
                                     int& depthChange) const {
    const SideState& us = position.toMove();
    // A king without a square: zugzwang and stalemate are near, look deeper.
    if ((KingMask[us.kingSquare()] & ~us.enemyAttacks) == 0) depthChange += 7;
    return false;
}

int PawnEndingRecogniser::finalScale(const Position& position, const Evaluator& evaluator,
                                     int score) const {
    const SideState& white = position.sides[0];
    const SideState& black = position.sides[1];
    const StrongView whiteView(position, true);
    const StrongView blackView(position, false);

    const int whiteKing = white.kingSquare();
    const int blackKing = black.kingSquare();
    const int files = std::abs(fileOf(whiteKing) - fileOf(blackKing));
    const int rows = std::abs(rowOf(whiteKing) - rowOf(blackKing));
    if (files % 2 == 0 && rows % 2 == 0 && std::max(files, rows) <= 4) {
        if (position.whiteToMove) {
            if (noSpareMove(blackView)) score -= 60;
        } else if (noSpareMove(whiteView)) {
            score += 60;
        }
    }
    score += 256 * (white.pieceCount[Pawn] - black.pieceCount[Pawn]);
    const Bitboard passers = evaluator.currentPawnEntry->passers;
    score += pawnEndingSide(whiteView, passers);
    score -= pawnEndingSide(blackView, passers);
    return score;
}

bool BishopEndingRecogniser::quickScore(const Position& position, int& score) const {
    const SideState& white = position.sides[0];
    const SideState& black = position.sides[1];
    if (white.pieceCount[Pawn] + black.pieceCount[Pawn] != 1) return false;
    if (colourOf(white.pieceList[Bishop][0]) == colourOf(black.pieceList[Bishop][0])) return false;
    const StrongView v(position, white.pieceCount[Pawn] == 1);
    const int pawn = v.strong().pieceList[Pawn][0];
    const int bishop = v.weak().pieceList[Bishop][0];
    // A bishop that may be lost, or skewered to the king, holds nothing for sure.
    if (v.weak().pieces[Bishop] & v.weak().enemyAttacks) return false;
    if ((RisingLine[bishop] | FallingLine[bishop]) & v.strong().pieces[King]) return false;
    const Bitboard way = fileAhead(pawn, true);
    const Bitboard rising = risingAttacks(bishop, v.occupied);
    const Bitboard falling = fallingAttacks(bishop, v.occupied);
    if ((popcount(rising) > 1 && (rising & way)) || (popcount(falling) > 1 && (falling & way))) {
        score = v.toWhite(1);
        return true;
    }
    return false;
}

bool BishopEndingRecogniser::qsearchScore(const Position& position, int& score) const {
    if (!quickScore(position, score)) return false;
    if (!position.whiteToMove) score = -score;
    return true;
}

bool BishopEndingRecogniser::nodeCheck(const Position& position, int& score, int, int, int,
                                       int&) const {
    return qsearchScore(position, score);
}

int BishopEndingRecogniser::finalScale(const Position& position, const Evaluator&,
                                       int score) const {
    const SideState& white = position.sides[0];
    const SideState& black = position.sides[1];
    const Bitboard whiteColour = colourOf(white.pieceList[Bishop][0]);
    const Bitboard blackColour = colourOf(black.pieceList[Bishop][0]);
    if (whiteColour == blackColour) return score;
    // Opposite bishops: half the advantage goes, and more of a big one.
    int h = score / 2;
    if (h > 500) {
        h -= (h - 500) / 2;
    } else if (h < -500) {
        h -= (h + 500) / 2;
    }
    if (white.pieceCount[Pawn] > black.pieceCount[Pawn])
        return score - h - 30 * popcount(black.pieces[Pawn] & ~blackColour);
    if (black.pieceCount[Pawn] > white.pieceCount[Pawn])
        return score - h + 30 * popcount(white.pieces[Pawn] & ~whiteColour);
    return score - h;
}

int KnightEndingRecogniser::finalScale(const Position& position, const Evaluator&,
                                       int score) const {
    const SideState& white = position.sides[0];
    const SideState& black = position.sides[1];
    // Knights are weakest against rook pawns.
    score += 63 * (popcount(white.pieces[Pawn] & FileH) - popcount(black.pieces[Pawn] & FileH) -
                   popcount(black.pieces[Pawn] & FileA) + popcount(white.pieces[Pawn] & FileA));
    // A king two files and two rows (or straight two) from the enemy knight can't be
    // checked by it for two moves.
    auto awkward = [](int king, int knight) {
        const int files = std::abs(fileOf(king) - fileOf(knight));
        const int rows = std::abs(rowOf(king) - rowOf(knight));
        return (files == 0 || files == 2) && (rows == 0 || rows == 2);
    };
    if (black.pieceCount[Knight] && awkward(white.kingSquare(), black.pieceList[Knight][0]))
        score += 27;
    if (white.pieceCount[Knight] && awkward(black.kingSquare(), white.pieceList[Knight][0]))
        score -= 27;
    return score;
}

namespace {

// Pawns of the side (view) that an enemy pawn blocks on a square no own pawn covers, and its
// weak pawns: isolated or backward.
Bitboard pawnTargets(const StrongView& v, Bitboard backward) {
    const Bitboard own = v.strong().pieces[Pawn];
    const Bitboard enemy = v.weak().pieces[Pawn];
    const Bitboard blocked = own & ((enemy & ~upPawnAttacks(own)) << 8);
    const Bitboard files = fileFill(own);
    const Bitboard isolated = own & ~(((files & ~FileA) >> 1) | ((files & ~FileH) << 1));
    return blocked | isolated | (v.turn(backward) & own);
}

// Squares the side's minor (view) attacks now or after one more bishop move or two more
// knight moves, never through or onto squares the enemy covers or own men.
Bitboard minorReach(const StrongView& v) {
    const SideState& us = v.strong();
    const Bitboard barred = us.men() | us.enemyAttacks;
    if (us.pieces[Bishop]) {
        const Bitboard now = bishopAttacks(us.pieceList[Bishop][0], v.occupied);
        Bitboard later = 0;
        for (Bitboard b = now & ~barred; b; b &= b - 1)
            later |= bishopAttacks(firstSquare(b), v.occupied);
        return (now | later) & ~barred;
    }
    Bitboard reach = knightTargets(us.pieces[Knight]);
    for (int step = 0; step < 2; ++step) reach |= knightTargets(reach & ~barred);
    return reach & ~barred;
}

// The bishop side's passers on the outer files (view of the bishop side).
int outsidePasserBonus(const StrongView& v, Bitboard passers) {
    const SideState& us = v.strong();
    const Bitboard mine = v.turn(passers) & us.pieces[Pawn];
    const Bitboard colour = colourOf(us.pieceList[Bishop][0]);
    int bonus = 0;
    for (Bitboard b = mine & (FileA | FileH); b; b &= b - 1) {
        const int pawn = firstSquare(b);
        bonus += (colour & squareBit(fileOf(pawn))) ? 252 : 220;
    }
    bonus += 125 * popcount(mine & (FileA << 1 | FileH >> 1));
    return bonus;
}

}  // namespace

int MinorEndingRecogniser::finalScale(const Position& position, const Evaluator& evaluator,
                                      int score) const {
    const bool whiteBishop = position.sides[0].pieceCount[Bishop] == 1;
    const StrongView whiteView(position, true);
    const StrongView blackView(position, false);
    const PawnEntry& entry = *evaluator.currentPawnEntry;

    // The bishop likes pawns on a wide front and outside passers.
    const Bitboard pawns = position.sides[0].pieces[Pawn] | position.sides[1].pieces[Pawn];
    const Bitboard files = fileFill(pawns) & RankEight;
    const int width = files ? lastSquare(files) - firstSquare(files) + 1 : 0;
    const int bishopSide = 25 * (width - 4) - 9 +
                           outsidePasserBonus(whiteBishop ? whiteView : blackView, entry.passers);
    score += whiteBishop ? bishopSide : -bishopSide;

    // Undefended targets within reach of either minor.
    const Bitboard whiteTargets = pawnTargets(whiteView, entry.backward);
    const Bitboard blackTargets = blackView.turn(pawnTargets(blackView, entry.backward));
    const Bitboard whiteReach = minorReach(whiteView);
    const Bitboard blackReach = blackView.turn(minorReach(blackView));
    return score + 35 * (popcount(blackTargets & whiteReach) - popcount(whiteTargets & blackReach));
}

int QueenEndingRecogniser::finalScale(const Position& position, const Evaluator& evaluator,
                                      int score) const {
    const Bitboard passers = evaluator.currentPawnEntry->passers;
    // A passer counts for more while the own king is safe from checks of the enemy queen.
    for (int colour = 0; colour < 2; ++colour) {
        const SideState& us = position.sides[colour];
        const SideState& them = position.sides[colour ^ 1];
        if (inCheck(us) || !(passers & us.pieces[Pawn]) || !them.pieces[Queen]) continue;
        const Bitboard checks =
            queenAttacks(us.kingSquare(), position.occupied) & ~them.enemyAttacks;
        if (!(queenAttacks(them.pieceList[Queen][0], position.occupied) & checks))
            score += colour == 0 ? 127 : -127;
    }
    return score + 6 * (centreRookSteps(position.sides[1].pieceList[Queen][0]) -
                        centreRookSteps(position.sides[0].pieceList[Queen][0]));
}

int OnePawnSideRecogniser::finalScale(const Position& position, const Evaluator&, int score) const {
    const SideState& white = position.sides[0];
    const SideState& black = position.sides[1];
    const int m = white.materialSum - black.materialSum;
    const int pieces = m + 1000 * (black.pieceCount[Pawn] - white.pieceCount[Pawn]);
    const int s = score + (m * -3) / 4;
    // A lead of up to a minor in pieces, against pawns, is hard to turn into a win.
    if (white.pieces[Pawn] && pieces >= -3500 && pieces <= -1 && m < 0 && score < 0)
        return std::min(s, 0);
    if (black.pieces[Pawn] && pieces >= 1 && pieces <= 3500 && m > 0 && score > 0)
        return std::max(s, 0);
    return score;
}
