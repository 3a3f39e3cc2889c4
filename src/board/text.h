// Text forms of positions and moves: FEN (with file letters for Chess960 castling), Chess960
// start numbers, coordinate and algebraic moves in English and German letters.
#pragma once

#include <cstddef>

#include "board/move.h"
#include "board/position.h"

enum MoveTextStyle : int {
    StyleCoordinates = 2,  // e2e4, e7e8q
    StyleEnglish = 3,      // Nf3, exd5
    StyleGerman = 4,       // Sf3+, exd6 e.p.
};

// Returns the text just behind the en passant field, or nullptr if the text is no position.
const char* parseFen(Position& p, const char* text);
bool setGameFromFen(Game& g, const char* text);
// Placement, side, castling, en passant; no counters. The buffer needs 90 bytes.
void writeFen(const Position& p, char* buffer);
void writeFullFen(const Game& g, char* buffer);
void setChess960Position(Position& p, unsigned number);
void setGameChess960(Game& g, unsigned number);
// The position is the one before the move. The buffer needs 16 bytes.
char* writeMove(Position& p, Move move, int style, char* buffer);
// format 0: algebraic; any other value: coordinates. Castling literals are read in both.
bool parseMove(Position& p, const char* text, Move& move, int format);
