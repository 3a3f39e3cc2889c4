// Helpers for the evaluation tests: positions from FEN, colour-mirrored FEN, random games.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/position.h"
#include "board/text.h"

inline Position positionFromFen(const std::string& fen) {
    Position p;
    constructPosition(p);
    EXPECT_NE(parseFen(p, fen.c_str()), nullptr) << fen;
    return p;
}

inline std::string fenOf(const Position& p) {
    char buffer[96];
    writeFen(p, buffer);
    return buffer;
}

inline char swapCase(char c) {
    const unsigned char u = static_cast<unsigned char>(c);
    return static_cast<char>(std::isupper(u) ? std::tolower(u) : std::toupper(u));
}

// The same position with the board turned upside down and the colours exchanged.
inline std::string mirrorFen(const std::string& fen) {
    std::istringstream in(fen);
    std::string placement, side, castling, ep;
    in >> placement >> side >> castling >> ep;

    std::vector<std::string> ranks;
    std::string rank;
    for (char c : placement) {
        if (c == '/') {
            ranks.push_back(rank);
            rank.clear();
        } else {
            rank += swapCase(c);
        }
    }
    ranks.push_back(rank);
    std::string mirrored;
    for (auto it = ranks.rbegin(); it != ranks.rend(); ++it) {
        if (!mirrored.empty()) mirrored += '/';
        mirrored += *it;
    }

    std::string rights;
    if (castling == "-") {
        rights = "-";
    } else {
        std::string upper, lower;
        for (char c : castling)
            (std::isupper(static_cast<unsigned char>(c)) ? lower : upper) += swapCase(c);
        rights = upper + lower;
    }
    if (ep.size() == 2) ep[1] = static_cast<char>('9' - (ep[1] - '0'));
    return mirrored + (side == "w" ? " b " : " w ") + rights + " " + (ep.empty() ? "-" : ep);
}

// Positions met in random games from each start, the starts included.
inline std::vector<Position> randomGamePositions(const std::vector<std::string>& starts, int games,
                                                 int plies, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<Position> positions;
    for (const std::string& fen : starts) {
        const Position start = positionFromFen(fen);
        positions.push_back(start);
        for (int game = 0; game < games; ++game) {
            Position p = start;
            for (int ply = 0; ply < plies; ++ply) {
                MoveEntry list[MaxMovesPerPosition];
                MoveEntry* end = generateMoves(p, GenAll, list);
                if (end == list) break;
                bool made = false;
                for (int tries = 0; tries < 40 && !made; ++tries) {
                    UndoRecord undo;
                    beginUndo(undo, p);
                    made = makeLegal(p, list[random() % (end - list)].move, undo);
                }
                if (!made) break;
                positions.push_back(p);
            }
        }
    }
    return positions;
}
