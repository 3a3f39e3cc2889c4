// Mobility, space and the piece terms of the positional score. Everything reads the attack
// maps that make and unmake keep and the current pawn entry; nothing is recomputed here that
// either already holds.
#include <array>

#include "board/tables.h"
#include "eval/evaluator.h"
#include "eval/terms_common.h"

namespace {

using namespace terms;

// Mobility by the number of squares counted.
constexpr int16_t KnightMobilityMid[9] = {-73, -26, 0, 19, 36, 51, 64, 77, 88};
constexpr int16_t KnightMobilityEnd[9] = {-381, -261, -202, -157, -119, -86, -56, -28, -2};
constexpr int16_t BishopMobilityMid[14] = {56,  71,  84,  94,  104, 112, 120,
                                           127, 134, 141, 147, 153, 159, 164};
constexpr int16_t BishopMobilityEnd[14] = {-252, -201, -169, -144, -123, -104, -87,
                                           -71,  -57,  -43,  -30,  -17,  -5,   5};
constexpr int16_t RookMobilityMid[15] = {-56, -52, -49, -46, -43, -39, -37, -34,
                                         -31, -28, -26, -23, -20, -18, -16};
constexpr int16_t RookMobilityEnd[15] = {49,  95,  118, 135, 149, 162, 173, 184,
                                         193, 203, 211, 220, 227, 235, 242};
constexpr int16_t QueenMobilityMid[28] = {-41, -23, -10, 0,   8,   16,  23,  30, 37, 43,
                                          48,  54,  59,  64,  69,  74,  78,  82, 87, 91,
                                          95,  99,  103, 106, 110, 114, 117, 121};
constexpr int16_t QueenMobilityEnd[28] = {-106, -103, -100, -98, -96, -94, -92, -90, -88, -87,
                                          -86,  -84,  -83,  -82, -80, -79, -78, -77, -76, -75,
                                          -74,  -72,  -71,  -70, -70, -69, -68, -67};

// Squares whose control counts as space: the far half, and the c to f files of the two ranks
// in front of one's own half.
constexpr Bitboard WhiteSpace = 0x00003c3cffffffffULL;
constexpr Bitboard BlackSpace = 0xffffffff3c3c0000ULL;
static_assert(flipRanks(WhiteSpace) == BlackSpace, "space areas must mirror");

// A rook on an open file is worth most when there are a few open files, not one and not many.
constexpr int16_t OpenFileMid[9] = {0, 83, 130, 146, 149, 146, 140, 131, 120};
constexpr int16_t OpenFileEnd[9] = {0, 47, 38, 24, 9, -6, -22, -37, -52};

// Outpost bonus by the king distance to the enemy king.
constexpr int16_t BishopOutpostDistance[8] = {0, 12, 10, 7, 4, 0, -4, -9};
constexpr int16_t KnightOutpostDistance[8] = {0, 32, 27, 18, 5, -12, -33, -58};

// A square table from its left half of ranks 8 to 3; ranks 2 and 1 hold no outposts.
using SquareTable = std::array<int16_t, 64>;
constexpr SquareTable fromHalves(const int16_t (&half)[6][4]) {
    SquareTable table{};
    for (int row = 0; row < 6; ++row) {
        for (int file = 0; file < 4; ++file) {
            table[row * 8 + file] = half[row][file];
            table[row * 8 + 7 - file] = half[row][file];
        }
    }
    return table;
}

constexpr int16_t BishopOutpostEndHalf[6][4] = {{122, 108, 92, 75}, {81, 74, 66, 55},
                                                {47, 48, 46, 42},   {21, 28, 33, 37},
                                                {21, 28, 33, 37},   {47, 48, 46, 42}};
constexpr int16_t BishopOutpostMidHalf[6][4] = {{-3, 33, 60, 75}, {3, 36, 59, 70},
                                                {6, 35, 54, 61},  {5, 31, 45, 49},
                                                {-3, 22, 36, 40}, {-20, 8, 27, 34}};
constexpr int16_t KnightOutpostEndHalf[6][4] = {{88, 91, 94, 95}, {57, 65, 72, 78},
                                                {31, 43, 55, 66}, {9, 26, 42, 58},
                                                {-8, 8, 24, 40},  {-22, -10, 1, 12}};
constexpr int16_t KnightOutpostMidHalf[6][4] = {{65, 97, 118, 130}, {54, 84, 105, 115},
                                                {42, 71, 89, 98},   {29, 56, 73, 80},
                                                {12, 39, 56, 63},   {-8, 20, 38, 47}};

constexpr SquareTable BishopOutpostEnd = fromHalves(BishopOutpostEndHalf);
constexpr SquareTable BishopOutpostMid = fromHalves(BishopOutpostMidHalf);
constexpr SquareTable KnightOutpostEnd = fromHalves(KnightOutpostEndHalf);
constexpr SquareTable KnightOutpostMid = fromHalves(KnightOutpostMidHalf);

// Squares named for White; the templates turn them to the colour's own.
constexpr Bitboard A1 = squareAt(0, 1), H1 = squareAt(7, 1), G1 = squareAt(6, 1),
                   F1 = squareAt(5, 1);
constexpr Bitboard B2 = squareAt(1, 2), G2 = squareAt(6, 2);
constexpr Bitboard B3 = squareAt(1, 3), C3 = squareAt(2, 3), F3 = squareAt(5, 3),
                   G3 = squareAt(6, 3), D3 = squareAt(3, 3), E3 = squareAt(4, 3);
constexpr Bitboard B6 = squareAt(1, 6), G6 = squareAt(6, 6);
constexpr Bitboard A7 = squareAt(0, 7), H7 = squareAt(7, 7);

// Mid, end, and the part that goes to both.
struct Sums {
    int mid = 0;
    int end = 0;
    int both = 0;
};

template <bool White>
void sideMobility(const Position& p, int& mid, int& end) {
    const SideState& us = p.sides[sideIndex(White)];
    const SideState& them = p.sides[sideIndex(!White)];
    const Bitboard occupied = p.occupied;
    // A square counts if a man can stand there without being taken for nothing: not attacked
    // by a pawn, and not attacked at all unless we hold it twice. Enemy pieces count as well.
    const Bitboard safe =
        ~us.men() & ~us.enemyPawnAttacks & ~(us.enemyAttacks & ~them.enemyDoubleAttacks);
    const Bitboard targets = safe | (them.men() & ~them.pieces[Pawn]);

    for (int i = 0; i < us.pieceCount[Knight]; ++i) {
        const int n = popcountSmall(KnightMask[us.pieceList[Knight][i]] & targets);
        mid += KnightMobilityMid[n];
        end += KnightMobilityEnd[n];
    }
    for (int i = 0; i < us.pieceCount[Bishop]; ++i) {
        const int n = popcountSmall(bishopAttacks(us.pieceList[Bishop][i], occupied) & targets);
        mid += BishopMobilityMid[n];
        end += BishopMobilityEnd[n];
    }
    for (int i = 0; i < us.pieceCount[Rook]; ++i) {
        const int n = popcountSmall(rookAttacks(us.pieceList[Rook][i], occupied) & targets);
        mid += RookMobilityMid[n];
        end += RookMobilityEnd[n];
    }
    if (us.pieceCount[Queen] != 0) {
        const Bitboard queenTargets = (~us.men() & ~us.enemyAttacks) | them.pieces[Queen];
        for (int i = 0; i < us.pieceCount[Queen]; ++i) {
            const int n = popcount(queenAttacks(us.pieceList[Queen][i], occupied) & queenTargets);
            mid += QueenMobilityMid[n];
            end += QueenMobilityEnd[n];
        }
    }
}

// Adds the outpost value of every man in `men` that stands on `outposts`.
template <bool White>
void addOutposts(Sums& t, Bitboard men, Bitboard outposts, int enemyKing, const SquareTable& end,
                 const SquareTable& mid, const int16_t (&distance)[8]) {
    for (Bitboard b = men & outposts; b; b &= b - 1) {
        const int square = firstSquare(b);
        const int own = relativeSquare<White>(square);
        t.end += end[own];
        t.mid += mid[own] + distance[kingDistance(square, enemyKing)];
    }
}

template <bool White>
void bishopTerms(Sums& t, const Position& p, const PawnEntry& pe, Bitboard outposts,
                 bool hasEndgame) {
    const SideState& us = p.sides[sideIndex(White)];
    const SideState& them = p.sides[sideIndex(!White)];
    const Bitboard bishops = us.pieces[Bishop];
    const Bitboard ourPawns = us.pieces[Pawn];

    addOutposts<White>(t, bishops, outposts, them.kingSquare(), BishopOutpostEnd, BishopOutpostMid,
                       BishopOutpostDistance);

    // Shut in behind a defended pawn chain on the edge, as after Bxa7 b6.
    const Bitboard defendedEnemyPawns = them.pieces[Pawn] & us.enemyAttacks;
    if ((bishops & relative<White>(A7)) && (defendedEnemyPawns & relative<White>(B6)))
        t.both -= 980;
    if ((bishops & relative<White>(H7)) && (defendedEnemyPawns & relative<White>(G6)))
        t.both -= 980;
    // In the home corner behind its own pawn; much worse when that pawn cannot move or is
    // held by a chain.
    if ((bishops & relative<White>(A1)) && (ourPawns & relative<White>(B2))) {
        t.both -= 77;
        if ((p.occupied & relative<White>(B3)) || (ourPawns & relative<White>(C3))) t.both -= 575;
    }
    if ((bishops & relative<White>(H1)) && (ourPawns & relative<White>(G2))) {
        t.both -= 77;
        if ((p.occupied & relative<White>(G3)) || (ourPawns & relative<White>(F3))) t.both -= 575;
    }

    if (!hasEndgame) return;
    if (us.pieceCount[Bishop] == 1 && ourPawns) {
        // Fixed pawns on the bishop's colour hem it in; rook pawns hardly do.
        const Bitboard allPawns = ourPawns | them.pieces[Pawn];
        const Bitboard fixed = forward<!White>(allPawns) | pe.backward;
        const Bitboard colour = (bishops & LightSquares) ? LightSquares : DarkSquares;
        t.end -= 44 * popcountSmall(ourPawns & fixed & colour & ~(FileA | FileH));
    }
    const Bitboard theirPath = White ? pe.blackPasserPath : pe.whitePasserPath;
    if (theirPath) {
        // A bishop holds up a passer from one diagonal only.
        for (int i = 0; i < us.pieceCount[Bishop]; ++i) {
            const int square = us.pieceList[Bishop][i];
            const int rising = popcountSmall(risingAttacks(square, p.occupied) & theirPath);
            const int falling = popcountSmall(fallingAttacks(square, p.occupied) & theirPath);
            t.end -= 25 * (rising > falling ? rising : falling);
        }
    }
}

template <bool White>
void rookTerms(Sums& t, const Position& p, const PawnEntry& pe, Bitboard ourFront) {
    const SideState& us = p.sides[sideIndex(White)];
    const SideState& them = p.sides[sideIndex(!White)];
    const Bitboard rooks = us.pieces[Rook];

    if (const Bitboard open = rooks & pe.openFiles) {
        const int count = popcountSmall(open);
        t.mid += OpenFileMid[pe.openFileCount] * count;
        t.end += OpenFileEnd[pe.openFileCount] * count;
    }

    // Behind our own passer: on its file and behind every own pawn there.
    const Bitboard ourPath = White ? pe.whitePasserPath : pe.blackPasserPath;
    if (ourPath) t.both += 123 * popcountSmall(rooks & fileFill(ourPath) & ~ourFront);

    const Bitboard seventh = relative<White>(rankMask(7));
    if (rooks & seventh) {
        t.both += 91;
        const Bitboard hit = them.pieces[Pawn] & seventh & them.enemyAttacks;
        if (hit & (hit - 1)) {
            t.mid += 30;
            t.end += 100;
        }
    }

    // A king that stepped aside without castling shuts in its short-side rook.
    const uint8_t shortRight = White ? CastleWhiteShort : CastleBlackShort;
    if ((rooks & relative<White>(G1 | H1 | G2)) && !(p.castling & shortRight) &&
        (us.pieces[King] & relative<White>(F1 | G1))) {
        t.mid -= 74;
        t.end -= 74;
    }
}

template <bool White>
Sums sidePieceTerms(const Position& p, const PawnEntry& pe, bool hasMiddlegame, bool hasEndgame) {
    Sums t;
    const SideState& us = p.sides[sideIndex(White)];
    const SideState& them = p.sides[sideIndex(!White)];
    const Bitboard theirAttacks = us.enemyAttacks;
    const Bitboard ourAttacks = them.enemyAttacks;
    const Bitboard ourPawnAttacks = them.enemyPawnAttacks;
    const Bitboard ourPawns = us.pieces[Pawn];
    const Bitboard ourFront = White ? pe.whiteFront : pe.blackFront;
    const Bitboard theirFront = White ? pe.blackFront : pe.whiteFront;

    // Most sets counted below are empty at most nodes, so each count waits for a test.
    if (const Bitboard pinned = p.pinnedAttacked & us.men() & ~ourPawns) {
        t.mid -= 114 * popcountSmall(pinned);
        t.end -= 123 * popcountSmall(pinned);
    }

    // Enemy pressure on the rank in front of our pawns.
    const Bitboard pressed = relative<White>(rankMask(3)) & us.enemyDoubleAttacks & ~ourPawnAttacks;
    if (pressed) t.both += 29 - 45 * popcountSmall(pressed);

    if (const Bitboard loose = us.men() & theirAttacks & ~ourAttacks)
        t.both -= 68 * popcount(loose);

    const Bitboard hitPawns = ourPawns & theirAttacks & ~ourPawnAttacks;
    if (hitPawns & (hitPawns - 1)) {
        t.mid -= 36;
        t.end -= 77;
    }

    const Bitboard ourPassers = pe.passers & ourPawns;
    if (ourPassers) {
        const Bitboard stops = forward<White>(ourPassers);
        const Bitboard seventh = relative<White>(rankMask(7));
        const Bitboard eighth = relative<White>(rankMask(8));
        const Bitboard blocked = stops & (us.pieces[Rook] | them.men());
        t.both -= 69 * popcountSmall(blocked) + 45 * popcountSmall(blocked & seventh);
        const Bitboard late = stops & (seventh | eighth);
        if (late) {
            const Bitboard free = late & ~them.men() & ~theirAttacks;
            t.both += 254 * popcountSmall(free & eighth) + 134 * popcountSmall(free & seventh);
            const Bitboard held = late & ourAttacks;
            t.both += 500 * popcountSmall(held & eighth) + 146 * popcountSmall(held & seventh);
        }
    }

    if (hasMiddlegame) {
        // A man in front of the d or e pawn on its third rank keeps the centre closed.
        if (const Bitboard blockers = us.men() & relative<White>(D3 | E3) & ourFront)
            t.mid -= 35 * popcountSmall(blockers);

        const Bitboard home = relative<White>(RankOne);
        const Bitboard allPawns = ourPawns | them.pieces[Pawn];
        const Bitboard bishops = us.pieces[Bishop];
        int idle = popcountSmall((us.pieces[Knight] & home) |
                                 (bishops & home & ~relative<White>(A1 | H1)));
        if ((bishops & relative<White>(A1)) && (allPawns & relative<White>(B2))) ++idle;
        if ((bishops & relative<White>(H1)) && (allPawns & relative<White>(G2))) ++idle;
        if (idle) {
            t.mid -= 72 * idle;
            // Heavy pieces out before the minors are worse still.
            if (us.pieces[Queen] & ~relative<White>(rankMask(1) | rankMask(2))) t.mid -= 14 * idle;
            if (us.pieces[Rook] & ~relative<White>(rankMask(1) | rankMask(2) | rankMask(3)))
                t.mid -= 8 * idle;
        }
    }

    // Squares guarded by our pawn that no enemy pawn can ever attack.
    const Bitboard outposts = ourPawnAttacks & ~(westOf(theirFront) | eastOf(theirFront));
    if (us.pieces[Bishop]) bishopTerms<White>(t, p, pe, outposts, hasEndgame);
    if (us.pieces[Knight])
        addOutposts<White>(t, us.pieces[Knight], outposts, them.kingSquare(), KnightOutpostEnd,
                           KnightOutpostMid, KnightOutpostDistance);

    if (const Bitboard backward = pe.backward & ourPawns & theirAttacks) {
        t.mid -= 30 * popcountSmall(backward);
        t.end -= 50 * popcountSmall(backward);
    }

    if (us.pieces[Rook]) rookTerms<White>(t, p, pe, ourFront);
    return t;
}

}  // namespace

void Evaluator::mobilityTerms(int& mid, int& end) {
    const Position& p = *position;
    int whiteMid = 0, whiteEnd = 0, blackMid = 0, blackEnd = 0;
    sideMobility<true>(p, whiteMid, whiteEnd);
    sideMobility<false>(p, blackMid, blackEnd);
    const int space = popcount(p.sides[1].enemyAttacks & WhiteSpace) -
                      popcount(p.sides[0].enemyAttacks & BlackSpace);
    mid += whiteMid - blackMid + 4 * space;
    end += whiteEnd - blackEnd + 10 * space;
}

void Evaluator::pieceTerms(int& mid, int& end, bool hasMiddlegame, bool hasEndgame) {
    const Position& p = *position;
    const PawnEntry& pe = *currentPawnEntry;
    const Sums white = sidePieceTerms<true>(p, pe, hasMiddlegame, hasEndgame);
    const Sums black = sidePieceTerms<false>(p, pe, hasMiddlegame, hasEndgame);
    mid += white.mid + white.both - black.mid - black.both;
    end += white.end + white.both - black.end - black.both;
}
