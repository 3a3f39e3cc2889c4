// Helpers for the recogniser tests: the hooks called as the search calls them, and random
// placements of a given material.
#pragma once

#include <algorithm>
#include <random>
#include <string>

#include "board/tables.h"
#include "board/test_positions.h"
#include "eval/evaluator.h"
#include "eval/recogniser.h"
#include "eval_support.h"

struct NodeAnswer {
    bool ends;
    int score;
    int depthChange;
};

inline NodeAnswer askNode(const Position& p, int alpha, int beta, int depth) {
    NodeAnswer a{false, 0, 0};
    a.ends = selectRecogniser(p)->nodeCheck(p, a.score, alpha, beta, depth, a.depthChange);
    return a;
}

struct QuickAnswer {
    bool final;
    int score;
};

// quickScore with `material` as the incoming score.
inline QuickAnswer askQuick(const Position& p, int material = 0) {
    QuickAnswer a{false, material};
    a.final = selectRecogniser(p)->quickScore(p, a.score);
    return a;
}

inline QuickAnswer askQsearch(const Position& p) {
    QuickAnswer a{false, 0};
    a.final = selectRecogniser(p)->qsearchScore(p, a.score);
    return a;
}

// finalScale with the evaluator's pawn entry pointing at the position's own pawns.
inline int askFinal(Evaluator& e, const Position& p, int score) {
    e.materialValue(p, false);
    e.currentPawnEntry = &e.pawnEntry();
    return selectRecogniser(p)->finalScale(p, e, score);
}

// A random legal placement of the men given as piece letters ("KRP", "kn"): kings apart,
// pawns only on `pawnSquares` (and never on the first or last rank), the side not to move
// not in check. Returns the FEN.
inline std::string randomPlacement(std::mt19937& random, const std::string& white,
                                   const std::string& black, Bitboard pawnSquares = ~0ULL) {
    for (;;) {
        char board[64];
        std::fill(std::begin(board), std::end(board), '.');
        bool ok = true;
        auto place = [&](char piece) {
            const bool pawn = piece == 'P' || piece == 'p';
            for (int tries = 0; tries < 200; ++tries) {
                const int sq = static_cast<int>(random() % 64);
                if (board[sq] != '.') continue;
                if (pawn && (!(pawnSquares & squareBit(sq)) || sq < 8 || sq >= 56)) continue;
                board[sq] = piece;
                return;
            }
            ok = false;
        };
        for (char c : white) place(c);
        for (char c : black) place(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        if (!ok) continue;
        std::string fen = boardFen(board) + (random() % 2 ? " w - -" : " b - -");
        Position p;
        constructPosition(p);
        if (!parseFen(p, fen.c_str())) continue;
        const SideState& waiting = p.notToMove();
        if (waiting.enemyAttacks & waiting.pieces[King]) continue;
        if (KingMask[p.sides[0].kingSquare()] & p.sides[1].pieces[King]) continue;
        return fen;
    }
}

inline int squareAt(const char* name) {
    return squareFromLetters(name[0], name[1]);
}
