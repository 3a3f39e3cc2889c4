// Checks shared by the fuzz targets. A failed check prints what it saw and aborts, which
// libFuzzer records as a crash with the input that caused it.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/position.h"
#include "board/test_positions.h"
#include "board/text.h"
#include "support/fen_text.h"

[[noreturn]] inline void fuzzFailure(const char* what, const std::string& detail) {
    std::fprintf(stderr, "fuzz check failed: %s\n  %s\n", what, detail.c_str());
    std::abort();
}

#define FUZZ_CHECK(condition, detail)                        \
    do {                                                     \
        if (!(condition)) fuzzFailure(#condition, (detail)); \
    } while (0)

// The input as a C string: NUL bytes inside end it, as they would in a line of text.
inline std::string inputText(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size).c_str();
}

// A line's command word, leading blanks skipped.
inline std::string firstWord(const std::string& line) {
    size_t begin = 0;
    while (begin < line.size() && std::isspace(static_cast<unsigned char>(line[begin]))) ++begin;
    size_t end = begin;
    while (end < line.size() && !std::isspace(static_cast<unsigned char>(line[end]))) ++end;
    return line.substr(begin, end - begin);
}

// The input as the command loop reads its lines: each up to a NUL, trailing white space
// trimmed.
inline std::vector<std::string> inputLines(const uint8_t* data, size_t size) {
    std::vector<std::string> lines;
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (size_t begin = 0; begin <= text.size();) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(begin, end - begin).c_str();
        while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back())))
            line.pop_back();
        lines.push_back(line);
        begin = end + 1;
    }
    return lines;
}

// The recomputed keys, counts and lists, plus the attack summaries that movegen relies on.
inline void checkInvariants(const Position& p, const std::string& context) {
    const std::string problem = invariantProblem(p);
    FUZZ_CHECK(problem.empty(), problem + " after " + context + " in " + fenOf(p));
    Position fresh = p;
    updateBothSummaries(fresh);
    for (int c = 0; c < 2; ++c) {
        FUZZ_CHECK(fresh.sides[c].enemyAttacks == p.sides[c].enemyAttacks &&
                       fresh.sides[c].enemyDoubleAttacks == p.sides[c].enemyDoubleAttacks &&
                       fresh.sides[c].enemyPawnAttacks == p.sides[c].enemyPawnAttacks,
                   "attack summary after " + context + " in " + fenOf(p));
    }
    const Bitboard pinned = pinnedAndAttacked(fresh.sides[1], fresh.sides[0], fresh.occupied) |
                            pinnedAndAttacked(fresh.sides[0], fresh.sides[1], fresh.occupied);
    FUZZ_CHECK(pinned == p.pinnedAttacked, "pinned men after " + context + " in " + fenOf(p));
    FUZZ_CHECK(p.sides[0].pieceCount[King] == 1 && p.sides[1].pieceCount[King] == 1,
               "king count after " + context + " in " + fenOf(p));
    constexpr Bitboard BackRanks = 0xff000000000000ffULL;
    FUZZ_CHECK(((p.sides[0].pieces[Pawn] | p.sides[1].pieces[Pawn]) & BackRanks) == 0,
               "pawn on a back rank after " + context + " in " + fenOf(p));
    const SideState& waiting = p.notToMove();
    FUZZ_CHECK((waiting.enemyAttacks & waiting.pieces[King]) == 0,
               "side not to move in check after " + context + " in " + fenOf(p));
}

// Makes the move, checks the position after it, takes it back and checks that the board is
// restored byte for byte.
inline void checkMakeUndo(Position& p, Move move, const std::string& context) {
    // Copied with memcpy so that padding compares too.
    Position before;
    std::memcpy(static_cast<void*>(&before), &p, sizeof p);
    UndoRecord undo;
    beginUndo(undo, p);
    FUZZ_CHECK(makeLegal(p, move, undo), "legal move refused: " + context + " in " + fenOf(before));
    checkInvariants(p, context);
    undoMove(undo);
    FUZZ_CHECK(std::memcmp(&before, &p, sizeof p) == 0,
               "undo did not restore " + fenOf(before) + " after " + context);
}

// Each style of move text must read back as the same move, and neither writing nor reading
// may leave a trace on the board.
inline void checkMoveTexts(Position& p, Move move) {
    static const struct {
        int style;
        int format;
    } Forms[] = {{StyleCoordinates, 1}, {StyleEnglish, 0}, {StyleGerman, 0}};
    Position before;
    std::memcpy(static_cast<void*>(&before), &p, sizeof p);
    for (const auto& form : Forms) {
        char text[16];
        writeMove(p, move, form.style, text);
        FUZZ_CHECK(std::memcmp(&before, &p, sizeof p) == 0,
                   std::string("writeMove changed ") + fenOf(before) + " for " + text);
        Move back = NoMove;
        const bool read = parseMove(p, text, back, form.format);
        FUZZ_CHECK(std::memcmp(&before, &p, sizeof p) == 0,
                   std::string("parseMove changed ") + fenOf(before) + " for " + text);
        FUZZ_CHECK(read && back == move,
                   std::string("move text '") + text + "' (style " + std::to_string(form.style) +
                       ") of " + std::to_string(move) + " reads as " +
                       (read ? std::to_string(back) : "nothing") + " in " + fenOf(before));
    }
}
