// The move picker: the move list of one node, taken from the searcher's arena and given back
// when the node is left, handed out in stages: the hash move, recaptures, then the rest by
// score.
#pragma once

#include <cstdint>

#include "board/move.h"
#include "board/movegen.h"
#include "board/position.h"
#include "search/history.h"

class MoveGenerator;

using MoveScoreFunction = void (*)(MoveGenerator&);

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
    // Sorts the working range by score; the picks take from its top.
    void sortRest();
    // Whether the shared filter marks the entry's move as taken at this node.
    bool takenByOthers(const MoveEntry& e) const;

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
    // Most nodes end after a few moves, so the first picks select the best of the rest instead
    // of sorting it all; the rest is sorted once these run out.
    bool restSorted;
    int8_t selectionsLeft;
};
