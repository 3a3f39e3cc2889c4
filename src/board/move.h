// The 32-bit move: from (bits 0-5), to (6-11), four zero bits, moved kind (16-23), promotion
// kind (24-31). Castling is the king taking its own rook; en passant and double pushes carry
// no flag of their own.
#pragma once

#include <cstdint>

using Move = uint32_t;

enum PieceKind : int { None = 0, Pawn = 1, Knight = 2, Bishop = 3, Rook = 4, Queen = 5, King = 6 };

constexpr Move NoMove = 0;

constexpr Move makeMoveValue(int from, int to, int kind, int promotion = 0) {
    return static_cast<Move>(from) | (static_cast<Move>(to) << 6) |
           (static_cast<Move>(kind) << 16) | (static_cast<Move>(promotion) << 24);
}
constexpr int moveFrom(Move m) {
    return static_cast<int>(m & 63);
}
constexpr int moveTo(Move m) {
    return static_cast<int>((m >> 6) & 63);
}
constexpr int moveKind(Move m) {
    return static_cast<int>((m >> 16) & 255);
}
constexpr int movePromotion(Move m) {
    return static_cast<int>(m >> 24);
}
// From and to together: the index of tables of 4096 entries.
constexpr int moveFromTo(Move m) {
    return static_cast<int>(m & 0xffff);
}

// One entry of a move list: the move in the low half, its ordering score in the high half.
struct MoveEntry {
    Move move;
    int32_t score;
};
static_assert(sizeof(MoveEntry) == 8, "a move list entry is one 64-bit word");
