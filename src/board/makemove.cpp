#include "board/makemove.h"

#include <cstring>

#include "board/keys.h"
#include "board/movegen.h"
#include "board/tables.h"

namespace {

inline void logWord(UndoRecord& u, Bitboard* address) {
    u.wordLogAddress[u.wordLogCount] = address;
    u.wordLogValue[u.wordLogCount++] = *address;
}

inline void logByte(UndoRecord& u, int8_t* address) {
    u.byteLogAddress[u.byteLogCount] = address;
    u.byteLogValue[u.byteLogCount++] = *address;
}

// Takes one man of `kind` off the list; the caller has logged the counts.
inline void removeMan(SideState& side, int kind, int square, UndoRecord& u) {
    --side.pieceCount[AllMen];
    const int last = side.pieceCount[kind] - 1;
    int8_t* list = side.pieceList[kind];
    int found = 0;
    while (list[found] != square) ++found;
    logByte(u, &list[last]);
    logByte(u, &list[found]);
    list[found] = list[last];
    side.materialKey ^= side.materialKeyTable[kind][last];
    side.pieceCount[kind] = static_cast<int8_t>(last);
    side.materialSum -= MaterialValue[kind];
}

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
    return ((pawnCapturesTowardsA(pawns, enemyIsWhite) | pawnCapturesTowardsH(pawns, enemyIsWhite)) &
            victim.pieces[King]) != 0;
}

// King steps from every square of a set at once.
inline Bitboard kingSpread(Bitboard b) {
    Bitboard sideways = ((b << 1) & ~FileA) | ((b >> 1) & ~FileH);
    Bitboard row = b | sideways;
    return sideways | (row << 8) | (row >> 8);
}

}  // namespace

void beginUndo(UndoRecord& u, Position& p) {
    u.position = &p;
    u.savedMaterial[0] = p.sides[0].materialKey;
    u.savedMaterial[1] = static_cast<uint32_t>(p.sides[0].materialSum);
    u.savedMaterial[2] = p.sides[1].materialKey;
    u.savedMaterial[3] = static_cast<uint32_t>(p.sides[1].materialSum);
    u.savedOccupied = p.occupied;
    u.savedLastMoveMask = p.lastMoveMask;
    u.savedHashKey = p.hashKey;
    u.savedPawnKey = p.pawnKey;
    u.savedPinnedAttacked = p.pinnedAttacked;
    u.savedEpSquare = p.epSquare;
    u.savedCastling = p.castling;
    u.savedWhiteToMove = p.whiteToMove;
    u.capturedKind = 0;
    std::memcpy(u.savedBlackSummary, &p.sides[1].enemyAttacks, sizeof u.savedBlackSummary);
    std::memcpy(u.savedWhiteSummary, &p.sides[0].enemyAttacks, sizeof u.savedWhiteSummary);
    u.byteLogCount = 0;
    u.wordLogCount = 0;
}

void makeMove(Position& p, SideState& us, SideState& them, Move move, UndoRecord& u) {
    const int from = moveFrom(move);
    const int to = moveTo(move);
    const int kind = moveKind(move);
    const int promotion = movePromotion(move);

    logWord(u, &us.pieces[kind]);
    logWord(u, &us.pieces[AllMen]);
    const Bitboard mask = FromToMask[moveFromTo(move)];
    // Every held right has its rook at home after each make, so only a move that touches a
    // rook can take a right away.
    const bool touchesRook = (mask & (us.pieces[Rook] | them.pieces[Rook])) != 0;
    p.lastMoveMask = mask;
    us.pieces[kind] ^= mask;
    us.pieces[AllMen] ^= mask;
    p.hashKey ^= us.zobristTable[kind][from] ^ us.zobristTable[kind][to] ^ SideKey;
    p.whiteToMove ^= 1;

    int8_t* list = us.pieceList[kind];
    int slot = 0;
    while (list[slot] != from) ++slot;
    logByte(u, &list[slot]);
    list[slot] = static_cast<int8_t>(to);

    if (them.pieces[AllMen] & mask) {
        const Bitboard bit = squareBit(to);
        const int captured = ((them.pieces[Rook] | them.pieces[Queen]) & bit ? 2 : 0) +
                             ((them.pieces[Bishop] | them.pieces[Queen]) & bit ? 1 : 0) + 2 -
                             ((them.pieces[Pawn] & bit) ? 1 : 0);
        u.capturedKind = static_cast<uint32_t>(captured);
        logWord(u, &them.pieces[captured]);
        logWord(u, &them.pieces[AllMen]);
        logByte(u, &them.pieceCount[captured]);
        logByte(u, &them.pieceCount[AllMen]);
        them.pieces[captured] ^= bit;
        them.pieces[AllMen] ^= bit;
        removeMan(them, captured, to, u);
        p.hashKey ^= them.zobristTable[captured][to];
        if (captured == Pawn) p.pawnKey ^= them.zobristTable[Pawn][to];
    }

    if (p.epSquare >= 0) {
        p.hashKey ^= WhiteZobrist[0][p.epSquare];
        p.epSquare = -1;
    }

    if (kind == Pawn) {
        p.pawnKey ^= us.zobristTable[Pawn][from] ^ us.zobristTable[Pawn][to];
        if (promotion) {
            logWord(u, &us.pieces[promotion]);
            logByte(u, &us.pieceCount[Pawn]);
            logByte(u, &us.pieceCount[promotion]);
            const Bitboard arrived = us.pieces[Pawn] & (RankOne | RankEight);
            us.pieces[Pawn] ^= arrived;
            us.pieces[promotion] |= arrived;
            removeMan(us, Pawn, to, u);
            ++us.pieceCount[AllMen];
            const int c = us.pieceCount[promotion];
            logByte(u, &us.pieceList[promotion][c]);
            us.pieceList[promotion][c] = static_cast<int8_t>(to);
            us.materialKey ^= us.materialKeyTable[promotion][c];
            us.pieceCount[promotion] = static_cast<int8_t>(c + 1);
            us.materialSum += MaterialValue[promotion];
            p.hashKey ^= us.zobristTable[promotion][to] ^ us.zobristTable[Pawn][to];
            p.pawnKey ^= us.zobristTable[Pawn][to];
        } else if (u.capturedKind == 0) {
            const Bitboard passedOver = (mask >> 8) & (mask << 8);
            if (passedOver & us.enemyPawnAttacks) {
                p.epSquare = static_cast<int8_t>((from + to) / 2);
                p.hashKey ^= WhiteZobrist[0][p.epSquare];
            }
            if ((to - from) & 1) {
                // En passant: the taken pawn stands behind the target square.
                const int c = to - us.pawnStep;
                p.hashKey ^= them.zobristTable[Pawn][c];
                p.pawnKey ^= them.zobristTable[Pawn][c];
                logByte(u, &them.pieceCount[AllMen]);
                logByte(u, &them.pieceCount[Pawn]);
                logWord(u, &them.pieces[AllMen]);
                logWord(u, &them.pieces[Pawn]);
                u.capturedKind = Pawn;
                them.pieces[AllMen] &= ~u.savedLastMoveMask;
                them.pieces[Pawn] &= ~u.savedLastMoveMask;
                removeMan(them, Pawn, c, u);
            }
        }
    } else if (kind == King) {
        p.castling &= ~us.castleRightsMask;
        if (mask & us.pieces[Rook]) {
            // Castling is the king taking its own rook. XOR above and OR here make every
            // Chess960 overlap of king and rook squares come out right.
            const bool shortSide = to == us.shortRookFrom;
            const Bitboard rookFile = shortSide ? FileMask[5] : FileMask[3];
            const Bitboard kingFile = shortSide ? FileMask[6] : FileMask[2];
            const int kingTo = shortSide ? us.shortKingTo : us.longKingTo;
            const int rookTo = shortSide ? us.shortRookTo : us.longRookTo;
            logWord(u, &us.pieces[Rook]);
            us.pieces[Rook] &= ~squareBit(to);
            us.pieces[Rook] |= us.homeRank & rookFile;
            us.pieces[AllMen] |= us.homeRank & (rookFile | kingFile);
            us.pieces[King] = us.homeRank & kingFile;
            p.lastMoveMask = us.pieces[King];
            us.pieceList[King][0] = static_cast<int8_t>(kingTo);
            int8_t* rooks = us.pieceList[Rook];
            int r = 0;
            while (rooks[r] != to) ++r;
            logByte(u, &rooks[r]);
            rooks[r] = static_cast<int8_t>(rookTo);
            p.hashKey ^= us.zobristTable[King][kingTo] ^ us.zobristTable[Rook][rookTo] ^
                         us.zobristTable[King][to] ^ us.zobristTable[Rook][to];
        }
    }

    p.occupied = p.sides[0].pieces[AllMen] | p.sides[1].pieces[AllMen];

    if (u.savedCastling && touchesRook) {
        // A right dies when its rook has left or was taken.
        const SideState& w = p.sides[0];
        const SideState& b = p.sides[1];
        if (w.longRookFrom < 0 || !(w.pieces[Rook] & squareBit(w.longRookFrom)))
            p.castling &= ~CastleWhiteLong;
        if (w.shortRookFrom < 0 || !(w.pieces[Rook] & squareBit(w.shortRookFrom)))
            p.castling &= ~CastleWhiteShort;
        if (b.longRookFrom < 0 || !(b.pieces[Rook] & squareBit(b.longRookFrom)))
            p.castling &= ~CastleBlackLong;
        if (b.shortRookFrom < 0 || !(b.pieces[Rook] & squareBit(b.shortRookFrom)))
            p.castling &= ~CastleBlackShort;
    }
    if (p.castling != u.savedCastling)
        p.hashKey ^= WhiteZobrist[0][p.castling] ^ WhiteZobrist[0][u.savedCastling];
}

void undoMove(UndoRecord& u) {
    Position& p = *u.position;
    p.sides[0].materialKey = u.savedMaterial[0];
    p.sides[0].materialSum = static_cast<int32_t>(u.savedMaterial[1]);
    p.sides[1].materialKey = u.savedMaterial[2];
    p.sides[1].materialSum = static_cast<int32_t>(u.savedMaterial[3]);
    std::memcpy(&p.sides[1].enemyAttacks, u.savedBlackSummary, sizeof u.savedBlackSummary);
    std::memcpy(&p.sides[0].enemyAttacks, u.savedWhiteSummary, sizeof u.savedWhiteSummary);
    p.occupied = u.savedOccupied;
    p.lastMoveMask = u.savedLastMoveMask;
    p.hashKey = u.savedHashKey;
    p.pawnKey = u.savedPawnKey;
    p.pinnedAttacked = u.savedPinnedAttacked;
    p.epSquare = u.savedEpSquare;
    p.castling = u.savedCastling;
    p.whiteToMove = u.savedWhiteToMove;
    // Backwards: the same address may stand twice in a log.
    for (int i = u.wordLogCount - 1; i >= 0; --i) *u.wordLogAddress[i] = u.wordLogValue[i];
    for (int i = u.byteLogCount - 1; i >= 0; --i) *u.byteLogAddress[i] = u.byteLogValue[i];
    u.wordLogCount = 0;
    u.byteLogCount = 0;
}

bool whiteKingAttacked(const Position& p) { return kingAttackedBy(p, p.sides[0], p.sides[1], false); }

bool blackKingAttacked(const Position& p) { return kingAttackedBy(p, p.sides[1], p.sides[0], true); }

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
    SideState& us = p.toMove();
    SideState& them = p.notToMove();
    makeMove(p, us, them, move, u);
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
    for (int i = 0; i < attacker.pieceCount[Knight]; ++i) add(KnightMask[attacker.pieceList[Knight][i]]);

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
        ((victim.enemyAttacks & ~victim.enemyPawnAttacks) | victim.enemyDoubleAttacks) & victim.men();
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
        for (Bitboard c = candidates & bishopAttacks(king, occupied) & InnerSquares; c; c &= c - 1) {
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
    const int minors = w.pieceCount[Knight] + w.pieceCount[Bishop] + b.pieceCount[Knight] +
                       b.pieceCount[Bishop];
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
    const Bitboard whitePawnAttacks = pawnCapturesTowardsA(wp, true) | pawnCapturesTowardsH(wp, true);
    const Bitboard blackPawnAttacks = pawnCapturesTowardsA(bp, false) | pawnCapturesTowardsH(bp, false);
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
