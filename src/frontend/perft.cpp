#include "frontend/perft.h"

#include <cstddef>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/tables.h"

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
        // Bulk counting: every leaf move is made and undone. Out of check, a move of a man off
        // the king's lines cannot expose the king, and a king move never enters an attacked
        // square, so only the others need the direct king test.
        SideState& us = p.toMove();
        SideState& them = p.notToMove();
        const bool white = p.whiteToMove != 0;
        const int king = us.kingSquare();
        const bool inCheck = (us.enemyAttacks & us.pieces[King]) != 0;
        const Bitboard kingLines =
            inCheck ? ~Bitboard{0}
                    : RankLine[king] | FileLine[king] | RisingLine[king] | FallingLine[king];
        // Undo restores what beginUndo saved, so one record serves the whole node.
        beginUndo(undo, p);
        for (MoveEntry* e = list; e < end; ++e) {
            const Move m = e->move;
            const int kind = moveKind(m);
            const Bitboard to = squareBit(moveTo(m));
            const bool enPassant =
                kind == Pawn && ((moveTo(m) - moveFrom(m)) & 1) && !(p.occupied & to);
            const bool castling = kind == King && (us.pieces[Rook] & to);
            const bool exposed = (kingLines & squareBit(moveFrom(m))) || enPassant || castling;
            makeMove(p, us, them, m, undo);
            if (exposed)
                count += white ? !whiteKingAttacked(p) : !blackKingAttacked(p);
            else
                ++count;
            undoMove(undo);
        }
    } else {
        beginUndo(undo, p);
        for (MoveEntry* e = list; e < end; ++e) {
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
