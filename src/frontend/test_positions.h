// Test positions from played games: quiet positions in which a search moves the score the way
// the game's result went, appended to a middlegame and an endgame file. A control file of four
// lines (middlegame file, endgame file, last game done, PGN file) lets a run be broken off
// and continued; it is rewritten after each position kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class Reporter;

struct TestPositionSettings {
    size_t tableBytes = 524288000;
    int64_t maxNodes = 15000000;
    int64_t maxNodesHard = 150000000;
};

// Output lines: the static value, the clamped search score, and the FEN with its counters
// from this column on.
constexpr size_t TestPositionFenColumn = 17;
constexpr int TestPositionScoreLimit = 400000;

// Whether a search score `clamped` agrees with the game's result (0 White won, 1 Black won,
// 2 draw) against the static value: it went the result's way, or for a draw no further out.
bool keepsTestPosition(int resultCode, long staticValue, long clamped);

// The walk over the games. A control file that does not open is reported as an input file
// that does not open; one of fewer than four lines, or naming no output file that opens,
// does nothing and touches no file. Progress lines go to the reporter.
void runTestPositions(const std::string& controlFileName, Reporter& reporter,
                      const TestPositionSettings& settings = TestPositionSettings());
