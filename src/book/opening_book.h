// The opening book: a text tree of moves with weights, read whole at a game start into one
// sorted array of records and looked up by the position's hash key, so transpositions cost
// nothing at probe time.
//
// The file is a sequence of tokens separated by white space. A node is a list of entries
// closed by "*"; an entry is either "startpos N" (the reading board becomes Chess960 start
// position N, taken modulo 960) or a move in coordinates, its weight and the node behind it.
// A weight of 1 or more stores a record, 0 and below keep the line without a record, and -1
// marks the file as broken. Reading stops at the "*" that closes the outermost node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "board/move.h"
#include "board/position.h"

struct BookRecord {
    uint64_t key;  // hashKey of the position in which the move is played
    int32_t weight;
    Move move;
};

// Longest file name kept; a longer one is ignored and the old name stays.
constexpr int MaxBookFileName = 512;
// No move, weight or number of a book is longer; a longer token makes the file broken.
constexpr size_t MaxBookTokenLength = 4096;

class OpeningBook {
  public:
    OpeningBook();

    // Keeps `name` for the next read unless it is longer than MaxBookFileName.
    void setFileName(const char* name);
    // Reads the whole file. False if it can't be opened or is broken anywhere; the book is
    // empty then, never half-read.
    bool readBook();
    // A weighted random choice among the records of the position. With `ponderMove` given it
    // becomes the heaviest reply after the chosen move, or NoMove when the book has none.
    bool probeBook(const Position& position, Move& bestMove, Move* ponderMove) const;

    // By key ascending, among equal keys by weight descending.
    std::vector<BookRecord> records;
    char fileName[MaxBookFileName + 2];
};
