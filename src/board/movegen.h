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

struct HistoryTable;
struct KillerSlot;
class MoveGenerator;

using MoveScoreFunction = void (*)(MoveGenerator&);

// The move list of one node, taken from the searcher's arena and given back when the node is
// left. The staged reading of the list belongs to the picker.
class MoveGenerator {
  public:
    MoveGenerator(MoveEntry** listTopAddress, const Position& position, const HistoryTable* history,
                  int mode, Move hashMove, const KillerSlot* killers, uint32_t* searchedMoves);
    ~MoveGenerator() { *listTopAddress = listStart; }
    MoveGenerator(const MoveGenerator&) = delete;
    MoveGenerator& operator=(const MoveGenerator&) = delete;

    // Staged picking: the hash move, recaptures, then the rest by score. Null at the end.
    MoveEntry* next();
    // Starts over with another hash move; scores already given stay.
    void restart(Move newHashMove);
    int count() const { return static_cast<int>(listEnd - listStart); }

    const Position* position;
    const SideState* us;
    const SideState* them;
    MoveEntry* listStart;
    MoveEntry* listEnd;
    MoveEntry** listTopAddress;
    int mode;
    int8_t epTarget;
    int8_t recaptureSquare;
    Move hashMove;
    Move killer1;
    Move killer2;
    const HistoryTable* history;
    MoveScoreFunction scoreFunction;
    bool scored;
    uint32_t* searchedMoves;  // the shared filter of moves taken, or null
    uint64_t keyBits;
    // Picking state: the working range is [cursor, workEnd); entries handed out move behind it.
    int stage;
    MoveEntry* cursor;
    MoveEntry* workEnd;
    bool gaveMove;
};
