// The `mat` command line read into one request. The subcommand is the start of the text behind
// the line's first four characters and its white space, tested in the order learn, delete,
// rnd, add, writemem, readmem, write; anything else is no request.
#pragma once

#include <cstddef>
#include <string>

enum class MatAction { None, Learn, Delete, Random, Add, WriteMemory, ReadMemory, Write };

// Longest file name taken; the rest of a longer one is dropped.
constexpr size_t MaxMatFileName = 1023;

struct MatRequest {
    MatAction action = MatAction::None;
    std::string fileName;
    // Where the name stands in the line and how long it is there, before the cut: so a harness
    // can point the command at another file.
    size_t fileNameOffset = 0;
    size_t fileNameLength = 0;
    // `rnd`: the number of games.
    long games = 0;
    // `add`: the weight of each game, the least rating of both players (negative: any),
    // ratings from the file's own results.
    int value = 1000;
    int minElo = -1;
    bool calcElo = false;
};

MatRequest parseMatCommand(const char* line);
