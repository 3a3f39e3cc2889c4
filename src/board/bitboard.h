// Bitboard primitives. Square 0 is a8, square 63 is h1: a left shift by 8 moves one rank
// towards White's side, and White's pawns advance towards lower square numbers.
#pragma once

#include <cstdint>

using Bitboard = uint64_t;

constexpr Bitboard FileA = 0x0101010101010101ULL;
constexpr Bitboard FileH = 0x8080808080808080ULL;
constexpr Bitboard RankOne = 0xff00000000000000ULL;
constexpr Bitboard RankEight = 0x00000000000000ffULL;
constexpr Bitboard LightSquares = 0xaa55aa55aa55aa55ULL;  // a8 and h1 are light
constexpr Bitboard DarkSquares = 0x55aa55aa55aa55aaULL;
constexpr Bitboard InnerSquares = 0x007e7e7e7e7e7e00ULL;

constexpr Bitboard squareBit(int square) {
    return Bitboard{1} << square;
}
constexpr int fileOf(int square) {
    return square & 7;
}
constexpr int rowOf(int square) {
    return square >> 3;
}

constexpr int kingDistance(int a, int b) {
    const int files = fileOf(a) > fileOf(b) ? fileOf(a) - fileOf(b) : fileOf(b) - fileOf(a);
    const int rows = rowOf(a) > rowOf(b) ? rowOf(a) - rowOf(b) : rowOf(b) - rowOf(a);
    return files > rows ? files : rows;
}

// Each square of `b` with its eight neighbours.
constexpr Bitboard kingSpread(Bitboard b) {
    b |= ((b & ~FileA) >> 1) | ((b & ~FileH) << 1);
    return b | (b >> 8) | (b << 8);
}

// Every square of the files that hold a member of `b`.
constexpr Bitboard fileFill(Bitboard b) {
    b |= (b >> 8) | (b << 8);
    b |= (b >> 16) | (b << 16);
    return b | (b >> 32) | (b << 32);
}

// Squares attacked by pawns moving towards square 0 (White's), and by pawns moving away from it.
constexpr Bitboard upPawnAttacks(Bitboard pawns) {
    return ((pawns & ~FileA) >> 9) | ((pawns & ~FileH) >> 7);
}
constexpr Bitboard downPawnAttacks(Bitboard pawns) {
    return ((pawns & ~FileA) << 7) | ((pawns & ~FileH) << 9);
}

// Bit count by the hardware instruction where the build may use it (a native build), else by
// arithmetic rather than a call into the compiler's library; both count alike.
constexpr int popcount(Bitboard x) {
#ifdef __POPCNT__
    return __builtin_popcountll(x);
#endif
    x = x - ((x >> 1) & 0x5555555555555555ULL);
    x = ((x >> 2) & 0x3333333333333333ULL) + (x & 0x3333333333333333ULL);
    return static_cast<int>((((x + (x >> 4)) & 0x0f0f0f0f0f0f0f0fULL) * 0x0101010101010101ULL) >>
                            56);
}

// The short form for sets of at most 15 members.
constexpr int popcountSmall(Bitboard x) {
#ifdef __POPCNT__
    return __builtin_popcountll(x);
#endif
    x = x - ((x >> 1) & 0x5555555555555555ULL);
    x = ((x >> 2) & 0x3333333333333333ULL) + (x & 0x3333333333333333ULL);
    return static_cast<int>((x * 0x1111111111111111ULL) >> 60);
}

// `bits` must hold exactly one bit; callers isolate the lowest one with `bits & -bits`.
// Every x86-64 has a bit scan instruction; an empty set gives square 0, as the table does.
inline int lowestBitSquare(Bitboard bits) {
    return bits ? __builtin_ctzll(bits) : 0;
}

inline int firstSquare(Bitboard bits) {
    return bits ? __builtin_ctzll(bits) : 0;
}
