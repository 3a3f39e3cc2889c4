// Where a position lives in a bitbase file: the file's name by material, and the position's
// bit index in it. The engine's store and the file generator share these, so both read and
// write the same bit for the same position.
//
// A key lists the men of two colours, the colour listed first and the one listed second, each
// with its king first and then pawns, knights, bishops, rooks, queens. A file's bit says
// whether the colour listed first wins. Pawns of the colour listed first move towards square
// 0 (the a8 end), those of the second colour away from it, whichever real colour they are.
#pragma once

#include <cstdint>

constexpr int BitbaseMaxMen = 5;
constexpr int BitbaseBlockBytes = 512;
constexpr int BitbaseBlockBits = BitbaseBlockBytes * 8;
constexpr int BitbaseDirectoryEntryBytes = 5;
constexpr const char* BitbaseFileExtension = ".zbb";

struct BitbaseKey {
    int sideBit;  // 0 if the colour listed first is to move, otherwise 1
    int firstCount;
    int secondCount;
    int total;
    int pawnIndex;  // place of the first pawn in the lists below, -1 without pawns
    // The men, first colour's first.
    int8_t kinds[BitbaseMaxMen];
    int8_t squares[BitbaseMaxMen];
    char name[BitbaseMaxMen + 1];  // such as "KBTKS", zero-terminated
};

// Fills `key` from two zero-terminated kind lists with their squares in parallel arrays. False
// if a list doesn't start with its one king, the other kinds aren't in ascending order, a
// square is off the board, or there are more than five men.
bool makeBitbaseKey(BitbaseKey& key, const int8_t* firstKinds, const int8_t* firstSquares,
                    const int8_t* secondKinds, const int8_t* secondSquares, int sideBit);

// The same position with the colours' roles exchanged: the second colour listed first, every
// square flipped top to bottom (XOR 56), the other sideBit. Its name is another file's.
void mirroredBitbaseKey(const BitbaseKey& key, BitbaseKey& mirrored);

// The material of a file name such as "KTK": kinds and counts of `key`, squares 0, sideBit 0.
// False for a text that makeBitbaseKey wouldn't produce.
bool bitbaseKeyFromName(BitbaseKey& key, const char* name);

// The bit index of the key's position. Without pawns the first colour's king is folded into
// the triangle a8-d8-d5 and the other men follow it; with pawns the first pawn is folded into
// files a to d. Positions that differ only by those symmetries share their index. Men of one
// kind and colour keep their list order, so two rooks of a colour give one position two
// indices: a generator fills both.
// NoBitbaseIndex if the leading pawn stands where no file has it: a pawn of the first colour
// off rows 1 to 5 (square >> 3), one of the second colour off rows 2 to 6.
constexpr uint64_t NoBitbaseIndex = ~uint64_t{0};
uint64_t bitbaseIndex(const BitbaseKey& key);

// One more than the largest index of a position of the key's material.
uint64_t bitbaseIndexCount(const BitbaseKey& key);

// Sets sideBit and squares of `key` (whose material is set) to a position with this index. False
// if the index is at or above the count or the index's leading field names no square.
// The squares may collide or stand in check: the generator decides which positions exist. An
// index whose position indexes elsewhere (bitbaseIndex differs) is one no probe ever reads.
bool bitbasePositionFromIndex(BitbaseKey& key, uint64_t index);
