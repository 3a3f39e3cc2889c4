// Moves from outside the board code (a game file, a tree keyed by hash alone) made only when
// they are exactly a move of the position: make and unmake trust the moved kind and the
// promotion, which a test of the squares alone does not check.
#pragma once

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/position.h"

// True if the generator gives `move` here, all 32 bits alike. The king may still hang.
inline bool isGeneratedMove(const Position& p, Move move) {
    MoveEntry list[MaxMovesPerPosition];
    const MoveEntry* end = generateMoves(p, GenAll, list);
    for (const MoveEntry* entry = list; entry != end; ++entry)
        if (entry->move == move) return true;
    return false;
}

// Makes `move` with both attack summaries if it is a legal move of the position.
inline bool makeExactMove(Position& p, Move move, UndoRecord& undo) {
    if (!isGeneratedMove(p, move)) return false;
    beginUndo(undo, p);
    return makeLegal(p, move, undo);
}
