// Threat tests of the node search, all plain bitboard work on the attack maps kept by make.
#pragma once

#include "board/makemove.h"
#include "board/position.h"

// A mate in one found from the attack maps alone (queen contact mate, back rank mate), checked
// by making it. NoMove when none is found.
Move staticMateInOne(Position& p);

// An estimate of what `us` may lose at once.
int hangingThreat(const Position& p, const SideState& us, const SideState& them);

// Whether the move just made (saved maps in `undo`) put an enemy man in danger that was not
// in danger before. `us` moved; `them` is to move now.
bool newThreats(const UndoRecord& undo, const SideState& us, const SideState& them);

// The four attack maps of a side as they were before the move of `undo`.
inline const Bitboard* savedMaps(const UndoRecord& undo, const Position& p, const SideState& side) {
    return &side == &p.sides[0] ? undo.savedWhiteSummary : undo.savedBlackSummary;
}
