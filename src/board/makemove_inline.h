// Make and unmake bodies, inline because they are the innermost code of perft and search.
// Included by makemove.h after the UndoRecord.
#pragma once

#include <cstring>

#include "board/keys.h"
#include "board/tables.h"

namespace make_detail {

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

}  // namespace make_detail

inline void beginUndo(UndoRecord& u, Position& p) {
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

inline void makeMove(Position& p, SideState& us, SideState& them, Move move, UndoRecord& u) {
    const int from = moveFrom(move);
    const int to = moveTo(move);
    const int kind = moveKind(move);
    const int promotion = movePromotion(move);

    make_detail::logWord(u, &us.pieces[kind]);
    make_detail::logWord(u, &us.pieces[AllMen]);
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
    make_detail::logByte(u, &list[slot]);
    list[slot] = static_cast<int8_t>(to);

    u.capturedKind = 0;  // the record may serve several moves of one node
    if (them.pieces[AllMen] & mask) {
        const Bitboard bit = squareBit(to);
        const int captured = ((them.pieces[Rook] | them.pieces[Queen]) & bit ? 2 : 0) +
                             ((them.pieces[Bishop] | them.pieces[Queen]) & bit ? 1 : 0) + 2 -
                             ((them.pieces[Pawn] & bit) ? 1 : 0);
        u.capturedKind = static_cast<uint32_t>(captured);
        make_detail::logWord(u, &them.pieces[captured]);
        make_detail::logWord(u, &them.pieces[AllMen]);
        make_detail::logByte(u, &them.pieceCount[captured]);
        make_detail::logByte(u, &them.pieceCount[AllMen]);
        them.pieces[captured] ^= bit;
        them.pieces[AllMen] ^= bit;
        make_detail::removeMan(them, captured, to, u);
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
            make_detail::logWord(u, &us.pieces[promotion]);
            make_detail::logByte(u, &us.pieceCount[Pawn]);
            make_detail::logByte(u, &us.pieceCount[promotion]);
            const Bitboard arrived = us.pieces[Pawn] & (RankOne | RankEight);
            us.pieces[Pawn] ^= arrived;
            us.pieces[promotion] |= arrived;
            make_detail::removeMan(us, Pawn, to, u);
            ++us.pieceCount[AllMen];
            const int c = us.pieceCount[promotion];
            make_detail::logByte(u, &us.pieceList[promotion][c]);
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
                make_detail::logByte(u, &them.pieceCount[AllMen]);
                make_detail::logByte(u, &them.pieceCount[Pawn]);
                make_detail::logWord(u, &them.pieces[AllMen]);
                make_detail::logWord(u, &them.pieces[Pawn]);
                u.capturedKind = Pawn;
                them.pieces[AllMen] &= ~u.savedLastMoveMask;
                them.pieces[Pawn] &= ~u.savedLastMoveMask;
                make_detail::removeMan(them, Pawn, c, u);
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
            make_detail::logWord(u, &us.pieces[Rook]);
            us.pieces[Rook] &= ~squareBit(to);
            us.pieces[Rook] |= us.homeRank & rookFile;
            us.pieces[AllMen] |= us.homeRank & (rookFile | kingFile);
            us.pieces[King] = us.homeRank & kingFile;
            p.lastMoveMask = us.pieces[King];
            us.pieceList[King][0] = static_cast<int8_t>(kingTo);
            int8_t* rooks = us.pieceList[Rook];
            int r = 0;
            while (rooks[r] != to) ++r;
            make_detail::logByte(u, &rooks[r]);
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

inline void undoMove(UndoRecord& u) {
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
