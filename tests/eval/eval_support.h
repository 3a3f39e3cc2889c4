// Helpers for the evaluation tests: positions from FEN, colour-mirrored FEN, random games.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "board/position.h"
#include "board/test_positions.h"
#include "board/text.h"
#include "support/fen_text.h"

inline Position positionFromFen(const std::string& fen) {
    Position p;
    constructPosition(p);
    EXPECT_NE(parseFen(p, fen.c_str()), nullptr) << fen;
    return p;
}

// The same position with the board turned upside down and the colours exchanged.
inline std::string mirrorFen(const std::string& fen) {
    auto swapCase = [](char c) {
        const unsigned char u = static_cast<unsigned char>(c);
        return static_cast<char>(std::isupper(u) ? std::tolower(u) : std::toupper(u));
    };
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

// Starts for random games that reach every phase and every term of the evaluation.
inline const std::vector<std::string> RandomGameStarts = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "r1bqk2r/pppp1ppp/2n2n2/2b1p3/2B1P3/2NP1N2/PPP2PPP/R1BQK2R b KQkq -",
    "r2q1rk1/pp2bppp/2n1bn2/3p4/3P4/2NBBN2/PP3PPP/R2Q1RK1 w - -",
    // Closed and pawn-heavy.
    "r1bqkbnr/pp3ppp/2n1p3/2ppP3/3P4/2P2N2/PP3PPP/RNBQKB1R b KQkq -",
    "4k3/pppppppp/8/8/8/8/PPPPPPPP/4K3 w - -",
    // Pieces against an exposed king, and rooks with passers.
    "2kr3r/ppp2ppp/2n5/2b1q3/4P3/2N2N2/PPP2PPP/R2QKB1R w KQ -",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
    "2r3k1/1P3ppp/8/p7/8/6P1/5P1P/2R3K1 w - -",
    "6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - -",
    // Pawn and minor endings for the king races and weak pawns.
    "8/5k2/8/2p5/2P5/8/3K4/8 w - -",
    "8/pp3k2/8/3PP3/8/8/5Kpp/8 w - -",
    "4k3/8/3b4/1p3p2/1P3P2/3N4/8/4K3 b - -",
    "3q2k1/5ppp/8/8/8/8/5PPP/3Q2K1 w - -",
    // Without pawns: a full set of pieces, and small endings that take the mating drive.
    "rnbqkbnr/8/8/8/8/8/8/RNBQKBNR w KQkq -",
    "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -",
    "8/8/3k4/8/8/3K4/8/R7 w - -",
    "8/2n5/3k4/8/8/3K4/5B2/8 b - -",
};

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
                const std::vector<Move> moves = legalMoves(p);
                if (moves.empty()) break;
                UndoRecord undo;
                beginUndo(undo, p);
                makeLegal(p, moves[random() % moves.size()], undo);
                positions.push_back(p);
            }
        }
    }
    return positions;
}
