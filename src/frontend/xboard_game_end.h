// Whether a game is over, in the words of xboard's result lines. The adapter tests its own board
// after every move, since under UCI nobody but the front end judges the game.
#pragma once

#include "board/position.h"

// The result line ("1-0 {White mates}", "1/2-1/2 {Stalemate}", ...) or null while the game
// goes on.
const char* gameEndResult(Game& game);
