#include "frontend/perft.h"

#include <cstddef>

#include "board/makemove.h"
#include "board/movegen.h"

PerftTable::PerftTable(int megabytes) {
    history.reset();
    if (megabytes <= 0) return;
    const size_t bytes = static_cast<size_t>(megabytes) * 1048576;
    size_t records = 1;
    while (records * 2 <= bytes / sizeof(PerftEntry)) records *= 2;
    entries.assign(records, PerftEntry{0, 0, 0});
}

uint64_t perftCount(PerftTable& table, Position& p, int depth) {
    if (depth < 1) return 0;
    PerftEntry* entry = nullptr;
    if (!table.entries.empty()) {
        entry = &table.entries[p.hashKey & (table.entries.size() - 1)];
        if (entry->key == p.hashKey && entry->depth == depth) return entry->nodes;
    }
    MoveEntry list[MaxMovesPerPosition];
    MoveEntry* end = generateMoves(p, GenAll, list);
    UndoRecord undo;
    uint64_t count = 0;
    if (depth == 1) {
        // Bulk counting: every leaf move is made, tested by the direct king test, undone.
        SideState& us = p.toMove();
        SideState& them = p.notToMove();
        const bool white = p.whiteToMove != 0;
        for (MoveEntry* e = list; e < end; ++e) {
            beginUndo(undo, p);
            makeMove(p, us, them, e->move, undo);
            count += white ? !whiteKingAttacked(p) : !blackKingAttacked(p);
            undoMove(undo);
        }
    } else {
        for (MoveEntry* e = list; e < end; ++e) {
            beginUndo(undo, p);
            if (!makeLegal(p, e->move, undo)) continue;
            count += perftCount(table, p, depth - 1);
            undoMove(undo);
        }
    }
    if (entry && !(entry->depth >= depth && 2 * count < entry->nodes)) {
        entry->key = p.hashKey;
        entry->depth = depth;
        entry->nodes = count;
    }
    return count;
}
