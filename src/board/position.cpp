#include "board/position.h"

#include <cstring>

#include "board/keys.h"
#include "board/makemove.h"
#include "board/tables.h"

namespace {

void constructSide(SideState& side, bool white) {
    side.zobristTable = white ? WhiteZobrist : BlackZobrist;
    side.materialKeyTable = white ? WhiteMaterialKeys : BlackMaterialKeys;
    side.homeRank = white ? RankOne : RankEight;
    side.pawnStep = white ? -8 : 8;
    side.shortRookTo = white ? 61 : 5;
    side.shortKingTo = white ? 62 : 6;
    side.longKingTo = white ? 58 : 2;
    side.longRookTo = white ? 59 : 3;
    side.castleRightsMask = white ? 3 : 12;
}

void castlingGeometryForSide(SideState& side, Bitboard shortFiles, Bitboard longFiles) {
    side.castleEmptyShort = 0;
    side.castleSafeShort = ~Bitboard{0};
    side.castleEmptyLong = ~Bitboard{0};
    side.castleSafeLong = ~Bitboard{0};
    side.shortRookFrom = -1;
    side.longRookFrom = -1;
    if (side.pieces[King] == 0) return;
    const int king = firstSquare(side.pieces[King]);
    const int rowStart = king & ~7;
    const Bitboard rooks = side.pieces[Rook];

    Bitboard passed = 0, remembered = 0;
    int rook = -1;
    for (int s = king; s < rowStart + 8; ++s) {
        if ((rooks & shortFiles & squareBit(s)) != 0) {
            rook = s;
            remembered = passed;
        }
        passed |= squareBit(s);
    }
    if (rook >= 0) {
        Bitboard path = 0;
        for (int s = king; s <= rowStart + 6; ++s) path |= squareBit(s);
        side.castleSafeShort = path;
        side.castleEmptyShort =
            (path | squareBit(rowStart + 5) | remembered) & ~squareBit(king) & ~squareBit(rook);
        side.shortRookFrom = static_cast<int8_t>(rook);
    }

    side.castleEmptyLong = 0;
    passed = 0;
    remembered = 0;
    rook = -1;
    for (int s = king; s >= rowStart; --s) {
        if ((rooks & longFiles & squareBit(s)) != 0) {
            rook = s;
            remembered = passed;
        }
        passed |= squareBit(s);
    }
    if (rook >= 0) {
        Bitboard path = 0;
        if (king <= rowStart + 2) {
            for (int s = king; s <= rowStart + 2; ++s) path |= squareBit(s);
        } else {
            for (int s = king; s >= rowStart + 2; --s) path |= squareBit(s);
        }
        side.castleSafeLong = path;
        side.castleEmptyLong =
            (path | squareBit(rowStart + 3) | remembered) & ~squareBit(king) & ~squareBit(rook);
        side.longRookFrom = static_cast<int8_t>(rook);
    }
}

}  // namespace

void constructPosition(Position& p) {
    std::memset(static_cast<void*>(&p), 0, sizeof(Position));
    constructSide(p.sides[0], true);
    constructSide(p.sides[1], false);
    setStartPosition(p);
}

void setStartPosition(Position& p) {
    static const Bitboard WhiteStart[7] = {0,
                                           0x00ff000000000000ULL,
                                           0x4200000000000000ULL,
                                           0x2400000000000000ULL,
                                           0x8100000000000000ULL,
                                           0x0800000000000000ULL,
                                           0x1000000000000000ULL};
    static const Bitboard BlackStart[7] = {0, 0xff00, 66, 36, 129, 8, 16};
    static const int8_t StartCounts[7] = {16, 8, 2, 2, 2, 1, 1};
    Bitboard whiteMen = 0, blackMen = 0;
    for (int kind = Pawn; kind <= King; ++kind) {
        p.sides[0].pieces[kind] = WhiteStart[kind];
        p.sides[1].pieces[kind] = BlackStart[kind];
        whiteMen |= WhiteStart[kind];
        blackMen |= BlackStart[kind];
    }
    p.sides[0].pieces[AllMen] = whiteMen;
    p.sides[1].pieces[AllMen] = blackMen;
    std::memcpy(p.sides[0].pieceCount, StartCounts, sizeof StartCounts);
    std::memcpy(p.sides[1].pieceCount, StartCounts, sizeof StartCounts);
    p.castling = 15;
    p.epSquare = -1;
    p.whiteToMove = 1;
    p.chess960 = 0;
    p.fenFileLetters = 0;
    p.lastMoveMask = 0;
    p.pinnedAttacked = 0;
    rebuildLists(p.sides[0]);
    rebuildLists(p.sides[1]);
    p.occupied = whiteMen | blackMen;
    setCastlingGeometry(p, FileH, FileA);
    recomputeMaterial(p);
    updateBothSummaries(p);
    recomputeKeys(p);
}

void setCastlingGeometry(Position& p, Bitboard shortFiles, Bitboard longFiles) {
    uint8_t rights = p.castling;
    if ((p.sides[0].pieces[King] & RankOne) == 0) rights &= ~(CastleWhiteShort | CastleWhiteLong);
    if ((p.sides[1].pieces[King] & RankEight) == 0) rights &= ~(CastleBlackShort | CastleBlackLong);
    castlingGeometryForSide(p.sides[0], (rights & CastleWhiteShort) ? shortFiles : 0,
                            (rights & CastleWhiteLong) ? longFiles : 0);
    castlingGeometryForSide(p.sides[1], (rights & CastleBlackShort) ? shortFiles : 0,
                            (rights & CastleBlackLong) ? longFiles : 0);
}

void recomputeMaterial(Position& p) {
    for (SideState& side : p.sides) {
        int32_t sum = 0;
        for (int kind = Pawn; kind < King; ++kind)
            sum += side.pieceCount[kind] * MaterialValue[kind];
        side.materialSum = sum;
    }
}

void recomputeKeys(Position& p) {
    p.sides[0].zobristTable = WhiteZobrist;
    p.sides[1].zobristTable = BlackZobrist;
    p.sides[0].materialKeyTable = WhiteMaterialKeys;
    p.sides[1].materialKeyTable = BlackMaterialKeys;
    for (SideState& side : p.sides) {
        side.materialKey = 0;
        for (int kind = Pawn; kind < King; ++kind)
            for (int i = 0; i < side.pieceCount[kind]; ++i)
                side.materialKey ^= side.materialKeyTable[kind][i];
    }
    p.hashKey = 0;
    p.pawnKey = 0;
    for (int square = 0; square < 64; ++square) {
        for (const SideState& side : p.sides) {
            for (int kind = Pawn; kind <= King; ++kind) {
                if ((side.pieces[kind] & squareBit(square)) == 0) continue;
                p.hashKey ^= side.zobristTable[kind][square];
                if (kind == Pawn) p.pawnKey ^= side.zobristTable[Pawn][square];
            }
        }
    }
    p.hashKey ^= WhiteZobrist[0][p.castling];
    if (p.whiteToMove) p.hashKey ^= SideKey;
    if (p.epSquare >= 0) p.hashKey ^= WhiteZobrist[0][p.epSquare];
}

void rebuildLists(SideState& side) {
    for (int kind = Pawn; kind <= King; ++kind) {
        int n = 0;
        for (Bitboard b = side.pieces[kind]; b && n < 10; b &= b - 1)
            side.pieceList[kind][n++] = static_cast<int8_t>(firstSquare(b));
    }
}

bool validatePosition(Position& p) {
    for (SideState& side : p.sides) {
        side.pieceCount[AllMen] = 0;
        for (int kind = Pawn; kind <= King; ++kind) {
            side.pieceCount[kind] = static_cast<int8_t>(popcount(side.pieces[kind]));
            side.pieceCount[AllMen] =
                static_cast<int8_t>(side.pieceCount[AllMen] + side.pieceCount[kind]);
        }
        const int8_t* c = side.pieceCount;
        if (c[King] != 1 || c[Pawn] > 8 || c[Pawn] + c[Queen] > 9 || c[Pawn] + c[Rook] > 10 ||
            c[Pawn] + c[Bishop] > 10 || c[Pawn] + c[Knight] > 10 || c[AllMen] > 16)
            return false;
    }
    rebuildLists(p.sides[0]);
    rebuildLists(p.sides[1]);
    if ((p.sides[0].pieces[Pawn] | p.sides[1].pieces[Pawn]) & (RankOne | RankEight)) return false;
    for (SideState& side : p.sides) {
        Bitboard men = 0;
        for (int kind = Pawn; kind <= King; ++kind) men |= side.pieces[kind];
        side.pieces[AllMen] = men;
        if (popcount(men) != side.pieceCount[AllMen]) return false;
    }
    if (p.sides[0].men() & p.sides[1].men()) return false;
    p.occupied = p.sides[0].men() | p.sides[1].men();

    const SideState& mover = p.notToMove();
    switch (popcount(p.lastMoveMask)) {
        case 0:
            break;
        case 1:
            if ((p.lastMoveMask & mover.pieces[King]) == 0) return false;
            break;
        case 2:
            if (popcount(p.lastMoveMask & mover.men()) != 1) return false;
            break;
        default:
            return false;
    }

    if ((p.sides[0].pieces[King] & p.sides[0].homeRank) == 0)
        p.castling &= ~(CastleWhiteShort | CastleWhiteLong);
    if ((p.sides[1].pieces[King] & p.sides[1].homeRank) == 0)
        p.castling &= ~(CastleBlackShort | CastleBlackLong);
    auto dropDeadRight = [&p](const SideState& side, int8_t rookFrom, uint8_t right) {
        if (rookFrom < 0 || (side.pieces[Rook] & squareBit(rookFrom)) == 0) p.castling &= ~right;
    };
    dropDeadRight(p.sides[0], p.sides[0].shortRookFrom, CastleWhiteShort);
    dropDeadRight(p.sides[0], p.sides[0].longRookFrom, CastleWhiteLong);
    dropDeadRight(p.sides[1], p.sides[1].shortRookFrom, CastleBlackShort);
    dropDeadRight(p.sides[1], p.sides[1].longRookFrom, CastleBlackLong);

    recomputeMaterial(p);
    updateBothSummaries(p);
    const SideState& waiting = p.notToMove();
    if (waiting.enemyAttacks & waiting.pieces[King]) return false;
    p.pinnedAttacked = pinnedAndAttacked(p.sides[1], p.sides[0], p.occupied) |
                       pinnedAndAttacked(p.sides[0], p.sides[1], p.occupied);
    recomputeKeys(p);
    return true;
}

PositionFingerprint fingerprint(const Position& p) {
    const SideState& w = p.sides[0];
    const SideState& b = p.sides[1];
    PositionFingerprint f;
    f.pawns = w.pieces[Pawn] | b.pieces[Pawn];
    f.whiteMen = w.men();
    f.rookKingPlane = w.pieces[Rook] | b.pieces[Rook] | w.pieces[King] | b.pieces[King];
    f.diagonalPlane = w.pieces[Bishop] | b.pieces[Bishop] | w.pieces[Queen] | b.pieces[Queen] |
                      w.pieces[King] | b.pieces[King];
    f.knightQueenPlane = w.pieces[Knight] | b.pieces[Knight] | w.pieces[Queen] | b.pieces[Queen];
    f.flags = p.castling | (p.epSquare > 0 ? static_cast<uint32_t>(p.epSquare) : 0) |
              (p.whiteToMove ? 0x80u : 0u);
    return f;
}

void constructGame(Game& g) {
    constructPosition(g.position);
    std::memset(static_cast<void*>(g.history), 0, sizeof g.history);
    g.historyCount = 1;
    g.history[0] = fingerprint(g.position);
}

void setGamePosition(Game& g, const Position* source) {
    if (source) {
        g.position = *source;
        validatePosition(g.position);
    } else {
        setStartPosition(g.position);
    }
    g.historyCount = 1;
    g.history[0] = fingerprint(g.position);
}
