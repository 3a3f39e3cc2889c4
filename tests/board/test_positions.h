// Shared helpers for the board tests: suite reading and invariant checks.
#pragma once

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/position.h"

struct SuiteLine {
    std::string fen;
    std::vector<std::pair<int, uint64_t>> counts;  // depth, leaf count
};

// A perft suite of tests/data: one EPD position a line with ";D<depth> <count>" fields.
inline std::vector<SuiteLine> readSuite(const std::string& name) {
    std::vector<SuiteLine> lines;
    std::ifstream in(std::string(ZELMARK_TEST_DATA) + "/" + name);
    std::string text;
    while (std::getline(in, text)) {
        if (text.empty() || text[0] == '#') continue;
        SuiteLine line;
        const size_t semicolon = text.find(';');
        line.fen = text.substr(0, semicolon);
        while (!line.fen.empty() && line.fen.back() == ' ') line.fen.pop_back();
        for (size_t at = text.find(";D"); at != std::string::npos; at = text.find(";D", at + 1)) {
            int depth = 0;
            unsigned long long count = 0;
            std::istringstream(text.substr(at + 2)) >> depth >> count;
            line.counts.emplace_back(depth, count);
        }
        lines.push_back(line);
    }
    return lines;
}

// Everything a position derives from its bitboards, recomputed from scratch and compared.
inline std::string invariantProblem(const Position& p) {
    Position fresh = p;
    recomputeKeys(fresh);
    recomputeMaterial(fresh);
    if (fresh.hashKey != p.hashKey) return "hash key";
    if (fresh.pawnKey != p.pawnKey) return "pawn key";
    for (int c = 0; c < 2; ++c) {
        const SideState& s = p.sides[c];
        if (fresh.sides[c].materialKey != s.materialKey) return "material key";
        if (fresh.sides[c].materialSum != s.materialSum) return "material sum";
        Bitboard men = 0;
        int total = 0;
        for (int kind = 1; kind <= 6; ++kind) {
            men |= s.pieces[kind];
            if (__builtin_popcountll(s.pieces[kind]) != s.pieceCount[kind]) return "count";
            total += s.pieceCount[kind];
            Bitboard listed = 0;
            for (int i = 0; i < s.pieceCount[kind]; ++i)
                listed |= Bitboard{1} << s.pieceList[kind][i];
            if (listed != s.pieces[kind]) return "piece list";
        }
        if (men != s.men()) return "men";
        if (total != s.pieceCount[0]) return "total count";
    }
    if ((p.sides[0].men() | p.sides[1].men()) != p.occupied) return "occupied";
    return "";
}

// The placement field of a FEN from 64 letters, a8 first, '.' for an empty square.
inline std::string boardFen(const char* board) {
    std::string fen;
    for (int row = 0; row < 8; ++row) {
        int empty = 0;
        for (int file = 0; file < 8; ++file) {
            const char c = board[row * 8 + file];
            if (c == '.') {
                ++empty;
                continue;
            }
            if (empty) fen += static_cast<char>('0' + empty);
            empty = 0;
            fen += c;
        }
        if (empty) fen += static_cast<char>('0' + empty);
        if (row < 7) fen += '/';
    }
    return fen;
}

// The moves of the position that makeLegal accepts. The list is sized exactly, so that the
// address sanitizer catches a generator that writes past it.
inline std::vector<Move> legalMoves(Position& p) {
    std::vector<MoveEntry> list(MaxMovesPerPosition);
    const MoveEntry* end = generateMoves(p, GenAll, list.data());
    std::vector<Move> legal;
    for (const MoveEntry* e = list.data(); e != end; ++e) {
        UndoRecord undo;
        beginUndo(undo, p);
        if (!makeLegal(p, e->move, undo)) continue;
        legal.push_back(e->move);
        undoMove(undo);
    }
    return legal;
}
