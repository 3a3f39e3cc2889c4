// Make and unmake without board copies: make logs the bytes and words it overwrites with
// their addresses, and unmake replays the log backwards.
#pragma once

#include <cstdint>

#include "board/position.h"

struct UndoRecord {
    Position* position;
    uint32_t savedMaterial[4];  // White key, White sum, Black key, Black sum
    Bitboard savedOccupied;
    Bitboard savedLastMoveMask;
    uint64_t savedHashKey;
    uint64_t savedPawnKey;
    Bitboard savedPinnedAttacked;
    int8_t savedEpSquare;
    uint8_t savedCastling;
    uint8_t savedWhiteToMove;
    uint32_t capturedKind;
    Bitboard savedBlackSummary[4];
    Bitboard savedWhiteSummary[4];
    int32_t byteLogCount;
    int8_t* byteLogAddress[10];
    int8_t byteLogValue[10];
    int32_t wordLogCount;
    Bitboard* wordLogAddress[5];
    Bitboard wordLogValue[5];
};

// beginUndo(undo, position) fills the saved fields and must precede makeMove.
// makeMove(position, us, them, move, undo) makes no legality test and no attack summaries;
// pinnedAttacked is stale afterwards. undoMove(undo) restores the position exactly.
// Their bodies are in makemove_inline.h, included at the end of this header.

bool whiteKingAttacked(const Position& p);
bool blackKingAttacked(const Position& p);
// Makes the move and keeps it only if the mover's king is safe by the direct test. The attack
// summaries are stale afterwards, so callers undo at once.
bool makeIfKingSafe(Position& p, Move move, UndoRecord& undo);
// Makes the move with both attack summaries; false (and undone) if the mover's king hangs.
bool makeLegal(Position& p, Move move, UndoRecord& undo);
// The part of makeLegal after makeMove: both summaries, or the move undone when the mover's
// king hangs.
bool completeLegal(Position& p, UndoRecord& undo);
// makeLegal calling `afterMenMoved(key)` with the new hash key as soon as the men have moved
// and before the summaries are built: the search starts loading its table entry there. A
// template rather than a function pointer, so that the call inlines.
template <class AfterMenMoved>
bool makeLegalThen(Position& p, Move move, UndoRecord& undo, AfterMenMoved&& afterMenMoved);

void updateAttackSummary(SideState& victim, const SideState& attacker, Bitboard occupied,
                         bool attackerIsWhite);
void updateBothSummaries(Position& p);
Bitboard pinnedAndAttacked(const SideState& victim, const SideState& attacker, Bitboard occupied);

// The test for a move from outside (text, book, stored line): from and to only.
bool isLegalFromTo(Position& p, Move move);
// result: 0 stalemate, -1 White is mated, +1 Black is mated.
bool hasNoLegalMove(Position& p, int* result);

void gameMakeMove(Game& g, Move move);
bool isIrreversibleStep(const PositionFingerprint& f, const Position& p);
int materialDrawKind(const Position& p);
int gameDrawState(const Game& g);
int searchDrawState(const Game& g);

inline bool sideToMoveInCheck(const Position& p) {
    const SideState& us = p.toMove();
    return (us.enemyAttacks & us.pieces[King]) != 0;
}

#include "board/makemove_inline.h"

template <class AfterMenMoved>
bool makeLegalThen(Position& p, Move move, UndoRecord& undo, AfterMenMoved&& afterMenMoved) {
    makeMove(p, p.toMove(), p.notToMove(), move, undo);
    afterMenMoved(p.hashKey);
    return completeLegal(p, undo);
}
