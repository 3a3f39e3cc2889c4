// The time controls of xboard's `level`: up to three, each a number of moves, a base time and an
// increment, the last one repeating. The adapter keeps its own clock by them, since UCI's `go`
// knows only the time left and the moves to go.
#pragma once

#include <cstdint>

constexpr int TimeControlCount = 3;

struct TimeControl {
    int32_t moves = -1;      // -1: no such control; 0: the whole game
    double baseTime = 0.0;   // ms
    double increment = 0.0;  // ms
};

struct TimeControls {
    TimeControl control[TimeControlCount];
};

// Five minutes for the whole game, no increment: what the adapter assumes until told.
TimeControls defaultTimeControls();

// The text behind the word `level`: "MPS BASE INC" once, twice or three times, BASE in minutes
// or as minutes:seconds. False, with `controls` untouched, if the text is not of that form.
bool parseLevel(const char* text, TimeControls& controls);

struct ControlInForce {
    int index;
    int movesToGo;  // 0: no number of moves is due
};

// The control that applies after `fullMovesPlayed` moves of the game.
ControlInForce controlInForce(const TimeControls& controls, int fullMovesPlayed);

// What the clock gains for the own move made after `fullMovesPlayed` full moves: the increment,
// and at the last move of a control the base time of the next one (or of itself when it
// repeats).
double timeGainedByMove(const TimeControls& controls, int fullMovesPlayed);
