#include "eval/pawn_entry.h"

namespace {

// Placement tables for White, a8 first. Black reads them through flipRanks, which gives the
// same values as 63 - square because every row is symmetric.
constexpr int16_t PawnMid[64] = {
    0,    0,    0,    0,   0,   0,    0,    0,     //
    28,   18,   228,  402, 402, 228,  18,   28,    //
    -70,  -32,  136,  250, 250, 136,  -32,  -70,   //
    -134, -66,  60,   130, 130, 60,   -66,  -134,  //
    -164, -84,  -1,   42,  42,  -1,   -84,  -164,  //
    -160, -86,  -48,  -14, -14, -48,  -86,  -160,  //
    -161, -111, -118, -77, -77, -118, -111, -161,  //
    0,    0,    0,    0,   0,   0,    0,    0,
};

constexpr int16_t PawnEnd[64] = {
    0,    0,    0,    0,    0,    0,    0,    0,     //
    1,    -38,  1,    -66,  -66,  1,    -38,  1,     //
    -118, -97,  -75,  -125, -125, -75,  -97,  -118,  //
    -205, -142, -127, -156, -156, -127, -142, -205,  //
    -258, -173, -153, -159, -159, -153, -173, -258,  //
    -279, -190, -155, -134, -134, -155, -190, -279,  //
    -272, -199, -137, -87,  -87,  -137, -199, -272,  //
    0,    0,    0,    0,    0,    0,    0,    0,
};

constexpr int16_t PasserMid[64] = {
    0,   0,   0,   0,   0,   0,   0,   0,    //
    540, 570, 563, 271, 271, 563, 570, 540,  //
    314, 337, 289, 164, 164, 289, 337, 314,  //
    142, 162, 97,  87,  87,  97,  162, 142,  //
    22,  45,  -14, 38,  38,  -14, 45,  22,   //
    -44, -14, -45, 19,  19,  -45, -14, -44,  //
    -35, 7,   27,  50,  50,  27,  7,   -35,  //
    0,   0,   0,   0,   0,   0,   0,   0,
};

constexpr int16_t PasserEnd[64] = {
    0,   0,   0,   0,   0,   0,   0,   0,    //
    892, 966, 789, 700, 700, 789, 966, 892,  //
    584, 593, 460, 407, 407, 460, 593, 584,  //
    332, 304, 211, 190, 190, 211, 304, 332,  //
    134, 97,  40,  47,  47,  40,  97,  134,  //
    -8,  -26, -51, -20, -20, -51, -26, -8,   //
    -75, -46, -43, 7,   7,   -43, -46, -75,  //
    0,   0,   0,   0,   0,   0,   0,   0,
};

constexpr int16_t CandidateEnd[64] = {
    0,   0,   0,   0,   0,   0,   0,   0,    //
    0,   0,   0,   0,   0,   0,   0,   0,    //
    180, 575, 445, 524, 524, 445, 575, 180,  //
    114, 81,  39,  32,  32,  39,  81,  114,  //
    18,  12,  0,   15,  15,  0,   12,  18,   //
    0,   0,   0,   0,   0,   0,   0,   0,    //
    0,   0,   0,   0,   0,   0,   0,   0,    //
    0,   0,   0,   0,   0,   0,   0,   0,
};

// By the number of pawns of one colour that a pawn guards, and that no pawn guards.
constexpr int16_t GuardedTable[9] = {-12, -4, -3, 6, 15, 20, -13, 0, 0};
constexpr int16_t LooseTable[9] = {0, 61, 50, 25, 0, -23, -35, -41, -41};

constexpr Bitboard RankTwo = 0x00ff000000000000ULL;
constexpr Bitboard RookFiles = FileA | FileH;
constexpr Bitboard WhiteCentrePair = 0x0000001800000000ULL;  // d4, e4
constexpr Bitboard BlackCentrePair = 0x0000000018000000ULL;  // d5, e5

// Everything below works in a frame where the own pawns move towards square 0 (White's view);
// Black's pawns are brought into it with flipRanks.
constexpr Bitboard towardsFileA(Bitboard b) {
    return (b & ~FileA) >> 1;
}
constexpr Bitboard towardsFileH(Bitboard b) {
    return (b & ~FileH) << 1;
}
constexpr Bitboard sideways(Bitboard b) {
    return towardsFileA(b) | towardsFileH(b);
}
constexpr Bitboard fillForward(Bitboard b) {
    b |= b >> 8;
    b |= b >> 16;
    return b | (b >> 32);
}
constexpr Bitboard fillBackward(Bitboard b) {
    b |= b << 8;
    b |= b << 16;
    return b | (b << 32);
}
// The file fill of `b` that runs only over `open` squares (an occluded fill in both directions).
constexpr Bitboard fileFillThrough(Bitboard b, Bitboard open) {
    Bitboard up = b, down = b, upOpen = open, downOpen = open;
    up |= upOpen & (up >> 8);
    upOpen &= upOpen >> 8;
    up |= upOpen & (up >> 16);
    upOpen &= upOpen >> 16;
    up |= upOpen & (up >> 32);
    down |= downOpen & (down << 8);
    downOpen &= downOpen << 8;
    down |= downOpen & (down << 16);
    downOpen &= downOpen << 16;
    down |= downOpen & (down << 32);
    return up | down;
}

struct SideTerms {
    int mid = 0;
    int end = 0;
    Bitboard front = 0;
    Bitboard files = 0;
    Bitboard passers = 0;
    Bitboard passerPath = 0;
    Bitboard backward = 0;
    Bitboard region = 0;
    int blockedCount = 0;
};

// Walks a pawn with no enemy pawn on its file towards the seventh row; it stays a candidate
// while at every square our possible defenders are at least as many as the enemy's guards.
// A defender is a pawn on a neighbouring file that guards the square now or after its single
// or double step.
bool reachesSeventh(int square, Bitboard own, Bitboard enemy) {
    for (int s = square - 8; s >= 8; s -= 8) {
        const Bitboard target = squareBit(s);
        const int guards = popcount(enemy & upPawnAttacks(target));
        if (guards == 0) continue;
        const Bitboard guardSquares = downPawnAttacks(target);
        const Bitboard defenderSquares =
            guardSquares | (guardSquares << 8) | ((guardSquares << 16) & RankTwo);
        if (guards > popcount(own & defenderSquares)) return false;
    }
    return true;
}

// The squares that the enemy cannot reach from his side of a closed pawn wall. The wall is
// made of own pawns that are blocked face to face and cannot take, the enemy pawns blocking
// them with the squares those guard, and own backward pawns; widened by a file each way, it
// must hold the enemy's flood from our far rank back from our home rank.
void blockedRegion(SideTerms& t, Bitboard own, Bitboard enemy) {
    const Bitboard blocked =
        own & (enemy << 8) & ~downPawnAttacks(enemy) & ~(upPawnAttacks(own) << 8);
    const Bitboard blockers = blocked >> 8;
    const Bitboard wallPawns = blocked | t.backward;
    const Bitboard wall = wallPawns | blockers | downPawnAttacks(blockers);
    const Bitboard open = ~(wall | sideways(wall));

    Bitboard reached = RankEight & open;
    for (;;) {
        const Bitboard next = fileFillThrough(reached, open);
        const Bitboard grown = next | (sideways(next) & open);
        if (grown == reached) break;
        reached = grown;
    }
    if (reached & RankOne) return;
    const Bitboard spared = ~reached;
    t.region = spared | sideways(spared);
    t.blockedCount = popcount(wallPawns & t.region);
}

SideTerms scoreSide(Bitboard own, Bitboard enemy) {
    SideTerms t;
    for (Bitboard b = own; b; b &= b - 1) {
        const int s = firstSquare(b);
        t.mid += PawnMid[s];
        t.end += PawnEnd[s];
    }
    if ((own & WhiteCentrePair) == WhiteCentrePair && !(enemy & BlackCentrePair)) t.mid += 23;

    t.front = fillForward(own >> 8);
    t.files = fileFill(own);
    const Bitboard enemyFiles = fileFill(enemy);
    const Bitboard guarded = own & upPawnAttacks(own);

    const Bitboard isolated = own & ~sideways(t.files);
    const int isolatedCost =
        86 * popcount(isolated & RookFiles) + 123 * popcount(isolated & ~RookFiles);
    t.mid -= isolatedCost;
    t.end -= isolatedCost;

    // A pawn with a friend behind it on its file.
    const Bitboard doubled = own & t.front;
    const int doubledCount = popcount(doubled);
    t.mid -= 98 * doubledCount;
    t.end -= 93 * doubledCount;

    // A doubled pawn with yet another friend two or three squares ahead of it.
    const int tripled = popcount(doubled & ((own << 16) | (own << 24)));
    t.mid -= 300 * tripled;
    t.end -= 300 * tripled;

    const int doubledIsolated = popcount(doubled & isolated);
    t.mid -= 33 * doubledIsolated;
    t.end -= 22 * doubledIsolated;

    // A doubled pawn a square apart from the friend behind it, and guarded, is hard to win.
    const int split = popcount(doubled & (own >> 16) & guarded);
    t.mid += 36 * split;
    t.end += 30 * split;

    // Squares diagonally behind the front are those level with or ahead of a friend on a
    // neighbouring file, so a pawn outside them has no neighbour that could guard its stop
    // square.
    const Bitboard supported = downPawnAttacks(t.front);
    t.backward = own & ~supported & (downPawnAttacks(enemy) << 8);
    const int backwardCount = popcount(t.backward);
    t.mid -= 38 * backwardCount;
    t.end -= 4 * backwardCount;

    const int guardedCount = popcount(guarded);
    t.mid += GuardedTable[guardedCount];
    t.end += LooseTable[popcount(own) - guardedCount];

    const Bitboard enemyFront = fillBackward(enemy << 8);
    const Bitboard behindOwn = fillBackward(own << 8);
    t.passers = own & ~(enemyFront | sideways(enemyFront)) & ~behindOwn;
    t.passerPath = fillForward(t.passers);
    for (Bitboard b = t.passers; b; b &= b - 1) {
        const int s = firstSquare(b);
        t.mid += PasserMid[s];
        t.end += PasserEnd[s];
    }

    for (Bitboard b = own & ~t.passers & ~enemyFiles; b; b &= b - 1) {
        const int s = firstSquare(b);
        if (reachesSeventh(s, own, enemy)) t.end += CandidateEnd[s];
    }

    const int contested = popcount(doubled & enemyFiles);
    t.mid -= 80 * contested;
    t.end -= 80 * contested;

    blockedRegion(t, own, enemy);
    return t;
}

}  // namespace

void computePawnEntry(PawnEntry& entry, uint64_t key, Bitboard whitePawns, Bitboard blackPawns) {
    const SideTerms w = scoreSide(whitePawns, blackPawns);
    const SideTerms b = scoreSide(flipRanks(blackPawns), flipRanks(whitePawns));

    entry.key = key;
    entry.midScore = w.mid - b.mid;
    entry.endScore = w.end - b.end;
    entry.whiteBlockedCount = static_cast<uint8_t>(w.blockedCount);
    entry.blackBlockedCount = static_cast<uint8_t>(b.blockedCount);
    entry.openFiles = ~(w.files | flipRanks(b.files));
    entry.openFileCount = popcount(entry.openFiles & RankEight);
    entry.whiteFront = w.front;
    entry.blackFront = flipRanks(b.front);
    entry.whitePasserPath = w.passerPath;
    entry.blackPasserPath = flipRanks(b.passerPath);
    entry.passers = w.passers | flipRanks(b.passers);
    entry.backward = w.backward | flipRanks(b.backward);
    entry.whiteRegion = w.region;
    entry.blackRegion = flipRanks(b.region);
}
