// The position record. It owns no memory (its pointers lead to constant tables), so a thread,
// the book or the game reader takes a private board by one block copy.
#pragma once

#include <cstdint>

#include "board/bitboard.h"
#include "board/move.h"

// Index 0 of `pieces` and `pieceCount` stands for all men of a colour.
constexpr int AllMen = 0;

constexpr int32_t MaterialValue[7] = {0, 1000, 3400, 3500, 5200, 10550, 0};

// One colour's half of the position. The four attack maps describe what the *opposite* colour
// does to this colour, so "am I in check" is one AND within one's own record.
struct SideState {
    Bitboard enemyAttacks;
    Bitboard enemyDoubleAttacks;
    Bitboard enemyPawnAttacks;
    // Own knights and bishops hit by an enemy pawn, rooks hit by a pawn or minor, queens hit
    // by anything but a queen or king.
    Bitboard lesserThreats;
    const uint64_t (*zobristTable)[64];
    const uint32_t (*materialKeyTable)[16];
    int32_t materialSum;
    uint32_t materialKey;
    Bitboard homeRank;
    Bitboard castleEmptyShort;
    Bitboard castleSafeShort;
    Bitboard castleEmptyLong;
    Bitboard castleSafeLong;
    int8_t pawnStep;
    int8_t shortRookFrom;
    int8_t shortRookTo;
    int8_t shortKingTo;
    int8_t longRookFrom;
    int8_t longKingTo;
    int8_t longRookTo;
    uint8_t castleRightsMask;
    int8_t pieceCount[7];
    // pieces[0] is `men`, all men of this colour; pieces[1..6] one board per kind.
    Bitboard pieces[7];
    // Squares of the men of each kind, the first pieceCount[kind] valid; [6][0] is the king.
    int8_t pieceList[7][10];

    Bitboard men() const { return pieces[AllMen]; }
    int kingSquare() const { return pieceList[King][0]; }
};

struct Position {
    Bitboard occupied;
    // From and to bits of the last move; after castling only the king's destination, after a
    // null move 0. Make uses it to find the pawn to remove en passant.
    Bitboard lastMoveMask;
    uint64_t hashKey;
    uint64_t pawnKey;
    Bitboard pinnedAttacked;
    int8_t epSquare;
    uint8_t castling;
    uint8_t whiteToMove;
    uint8_t chess960;
    uint8_t fenFileLetters;
    SideState sides[2];  // White, then Black

    SideState& white() { return sides[0]; }
    SideState& black() { return sides[1]; }
    const SideState& white() const { return sides[0]; }
    const SideState& black() const { return sides[1]; }
    SideState& toMove() { return sides[whiteToMove ^ 1]; }
    SideState& notToMove() { return sides[whiteToMove]; }
    const SideState& toMove() const { return sides[whiteToMove ^ 1]; }
    const SideState& notToMove() const { return sides[whiteToMove]; }
};

constexpr uint8_t CastleWhiteShort = 1;
constexpr uint8_t CastleWhiteLong = 2;
constexpr uint8_t CastleBlackShort = 4;
constexpr uint8_t CastleBlackLong = 8;

// The compact form of a position used for the repetition test.
struct PositionFingerprint {
    Bitboard pawns;
    Bitboard whiteMen;
    Bitboard rookKingPlane;
    Bitboard diagonalPlane;
    Bitboard knightQueenPlane;
    uint32_t flags;

    bool operator==(const PositionFingerprint& o) const {
        return pawns == o.pawns && whiteMen == o.whiteMen && rookKingPlane == o.rookKingPlane &&
               diagonalPlane == o.diagonalPlane && knightQueenPlane == o.knightQueenPlane &&
               flags == o.flags;
    }
};

constexpr int GameHistorySize = 101;

// A position with the positions since the last irreversible move; historyCount - 1 is the
// half-move clock.
struct Game {
    Position position;
    PositionFingerprint history[GameHistorySize];
    int32_t historyCount;
};

void constructPosition(Position& p);
void setStartPosition(Position& p);
void setCastlingGeometry(Position& p, Bitboard shortFiles, Bitboard longFiles);
void recomputeMaterial(Position& p);
void recomputeKeys(Position& p);
void rebuildLists(SideState& side);
bool validatePosition(Position& p);
PositionFingerprint fingerprint(const Position& p);
void constructGame(Game& g);
// Copies `source` into the game, or sets the start position when it is null.
void setGamePosition(Game& g, const Position* source);
