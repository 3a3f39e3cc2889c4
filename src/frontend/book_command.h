// The `book` command line read into one request: which subcommand, the file, the options.
// The words are found by substring anywhere behind the line's first four characters, tested in
// the order delete, lock, unlock, add, write; the first found decides.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

enum class BookAction { None, Delete, Lock, Unlock, Add, WriteBook, Write960, WriteEpd };

// Longest file name taken; the rest of a longer one is dropped.
constexpr size_t MaxBookFileName = 1023;

struct BookRequest {
    BookAction action = BookAction::None;
    std::string fileName;
    // Where the name stands in the line and how long it is there, before the cut to
    // MaxBookFileName: so a harness can point the command at another file.
    size_t fileNameOffset = 0;
    size_t fileNameLength = 0;
    // `add`: the weight of each game, the least rating of both players (negative: any),
    // ratings from the file's own results, and taking games without the length and duplicate
    // filters.
    uint32_t value = 1000;
    int minElo = -1;
    bool calcElo = false;
    bool all = false;
    // The writers: the least points of a move above the 1000 each side starts with, and the
    // rating width of the weights.
    int threshold = 3000;
    int width = 25;
};

BookRequest parseBookCommand(const char* line);
