#include "frontend/xboard_clock.h"

#include <cstdio>
#include <cstring>

TimeControls defaultTimeControls() {
    TimeControls controls;
    controls.control[0].moves = 0;
    controls.control[0].baseTime = 300000.0;
    return controls;
}

bool parseLevel(const char* text, TimeControls& controls) {
    int moves[TimeControlCount] = {-1, -1, -1};
    char base[TimeControlCount][21] = {};
    double increment[TimeControlCount] = {};
    const int fields =
        std::sscanf(text, "%d %20s %lf %d %20s %lf %d %20s %lf", &moves[0], base[0], &increment[0],
                    &moves[1], base[1], &increment[1], &moves[2], base[2], &increment[2]);
    if (fields != 3 && fields != 6 && fields != 9) return false;
    TimeControls parsed;
    for (int i = 0; i < fields / 3; ++i) {
        long minutes = 0;
        long seconds = 0;
        if (std::strchr(base[i], ':')) {
            std::sscanf(base[i], "%ld:%ld", &minutes, &seconds);
        } else {
            std::sscanf(base[i], "%ld", &minutes);
        }
        // In floating point: absurd numbers must not overflow on the way.
        parsed.control[i].moves = moves[i];
        parsed.control[i].baseTime =
            (static_cast<double>(minutes) * 60.0 + static_cast<double>(seconds)) * 1000.0;
        parsed.control[i].increment = increment[i] * 1000.0;
    }
    controls = parsed;
    return true;
}

ControlInForce controlInForce(const TimeControls& controls, int fullMovesPlayed) {
    int played = fullMovesPlayed;
    for (int i = 0; i < TimeControlCount; ++i) {
        const int moves = controls.control[i].moves;
        const bool last = i == TimeControlCount - 1 || controls.control[i + 1].moves < 0;
        if (moves == 0) return {i, 0};
        if (moves > 0 && last) return {i, moves - played % moves};
        if (played < moves) return {i, moves - played};
        if (moves < 1) return {i, 0};
        played -= moves;
    }
    return {TimeControlCount - 1, 0};
}

double timeGainedByMove(const TimeControls& controls, int fullMovesPlayed) {
    const ControlInForce inForce = controlInForce(controls, fullMovesPlayed);
    const TimeControl& control = controls.control[inForce.index];
    double gained = control.increment;
    if (control.moves == 0 || inForce.movesToGo != 1) return gained;
    const bool repeats =
        inForce.index == TimeControlCount - 1 || controls.control[inForce.index + 1].moves < 0;
    gained += repeats ? control.baseTime : controls.control[inForce.index + 1].baseTime;
    return gained;
}
