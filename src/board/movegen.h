// Move generation by mode. Moves are pseudo-legal in a controlled way: king moves and
// castling respect the enemy attack map, pinned men may still move, and makeLegal decides.
// The selective modes read the attack summaries to leave out captures that cannot pay and
// checks on unsafe squares, so quiescence gets short lists without per-move tests.
#pragma once

#include <cstdint>

#include "board/move.h"
#include "board/position.h"

enum MoveGenMode : int {
    GenAll = 0,
    GenEvasions = 1,
    GenChecksAndSeventh = 2,
    GenChecks = 3,
    GenCaptures = 4,
};

// Room for the largest pseudo-legal list of one position.
constexpr int MaxMovesPerPosition = 320;

// Writes the moves of `mode` (evasions whenever the side to move is in check) at `out` and
// returns the end. Both attack summaries and pinnedAttacked must be current.
MoveEntry* generateMoves(const Position& p, int mode, MoveEntry* out);
