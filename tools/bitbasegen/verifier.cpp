#include "tools/bitbasegen/verifier.h"

#include <algorithm>
#include <cstring>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/text.h"
#include "eval/bitbase_index.h"
#include "eval/bitbase_store.h"

namespace {

constexpr const char* FenLetters = " PNBRQK";

// The colour listed first plays White, whose pawns move towards square 0 as the first
// colour's do.
bool toPosition(const BitbaseKey& key, Position& p, char* fen) {
    char board[64];
    std::memset(board, 0, sizeof board);
    for (int i = 0; i < key.total; ++i) {
        const int s = key.squares[i];
        if (board[s]) return false;
        const int row = s >> 3;
        if (key.kinds[i] == Pawn && (i < key.firstCount ? row < 1 || row > 5 : row < 2 || row > 6))
            return false;
        const char letter = FenLetters[key.kinds[i]];
        board[s] = char(i < key.firstCount ? letter : letter + 32);
    }
    char* out = fen;
    for (int row = 0; row < 8; ++row) {
        int empty = 0;
        for (int file = 0; file < 8; ++file) {
            const char c = board[row * 8 + file];
            if (!c) {
                ++empty;
                continue;
            }
            if (empty) *out++ = char('0' + empty);
            empty = 0;
            *out++ = c;
        }
        if (empty) *out++ = char('0' + empty);
        if (row < 7) *out++ = '/';
    }
    std::strcpy(out, key.sideBit == 0 ? " w - - 0 1" : " b - - 0 1");
    constructPosition(p);
    if (!parseFen(p, fen)) return false;
    return !(key.sideBit == 0 ? blackKingAttacked(p) : whiteKingAttacked(p));
}

// The store's verdict for White, or 2 without an answer.
int probeWhite(BitbaseStore& store, const Position& p) {
    int8_t kinds[2][BitbaseMaxMen + 1] = {}, squares[2][BitbaseMaxMen + 1] = {};
    for (int side = 0; side < 2; ++side) {
        const SideState& s = p.sides[side];
        int n = 0;
        for (int kind : {King, Pawn, Knight, Bishop, Rook, Queen})
            for (int i = 0; i < s.pieceCount[kind]; ++i) {
                if (n == BitbaseMaxMen) return 2;
                kinds[side][n] = int8_t(kind);
                squares[side][n++] = s.pieceList[kind][i];
            }
    }
    int result = 0;
    if (!store.probe(kinds[0], kinds[1], squares[0], squares[1], p.whiteToMove, false, result))
        return 2;
    return result;
}

}  // namespace

VerifyResult verifyBitbaseFile(const std::string& directory, const std::string& name) {
    VerifyResult r;
    BitbaseKey material;
    if (!bitbaseKeyFromName(material, name.c_str())) {
        r.firstProblem = "no such material";
        ++r.unanswered;
        return r;
    }
    BitbaseStore store;
    store.setDirectory(directory.c_str());
    store.setCacheSize(size_t(64) << 20);
    const uint64_t count = bitbaseIndexCount(material);
    for (uint64_t index = 0; index < count; ++index) {
        BitbaseKey key = material;
        if (!bitbasePositionFromIndex(key, index) || bitbaseIndex(key) != index) continue;
        Position p;
        char fen[100];
        if (!toPosition(key, p, fen)) continue;
        ++r.legal;
        const int sign = p.whiteToMove ? 1 : -1;  // White's verdicts to the mover's
        const int stored = probeWhite(store, p);
        int best = -2, moves = 0;
        MoveEntry list[MaxMovesPerPosition];
        MoveEntry* end = generateMoves(p, GenAll, list);
        for (MoveEntry* e = list; e != end && best < 2; ++e) {
            UndoRecord undo;
            beginUndo(undo, p);
            if (!makeLegal(p, e->move, undo)) continue;
            ++moves;
            const int v = probeWhite(store, p);
            undoMove(undo);
            best = v == 2 ? 2 : std::max(best, v * sign);
        }
        if (moves == 0) best = sideToMoveInCheck(p) ? -1 : 0;
        if (stored == 2 || best == 2) {
            if (!r.unanswered++ && r.firstProblem.empty()) r.firstProblem = fen;
            continue;
        }
        if (stored * sign != best) {
            if (!r.wrong++ && r.firstProblem.empty()) r.firstProblem = fen;
        }
        if (stored == 1) ++r.firstWins[key.sideBit];
    }
    return r;
}
