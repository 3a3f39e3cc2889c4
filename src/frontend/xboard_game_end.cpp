#include "frontend/xboard_game_end.h"

#include "board/makemove.h"

const char* gameEndResult(Game& game) {
    int mated = 0;
    if (hasNoLegalMove(game.position, &mated)) {
        if (mated < 0) return "0-1 {Black mates}";
        if (mated > 0) return "1-0 {White mates}";
        return "1/2-1/2 {Stalemate}";
    }
    // The history holds the positions since the last capture or pawn move: 101 of them are
    // 100 half-moves.
    if (game.historyCount >= GameHistorySize) return "1/2-1/2 {Draw by 50 move rule}";
    switch (gameDrawState(game)) {
        case 3:
            return "1/2-1/2 {Draw by repetition}";
        case 10:
            return "1/2-1/2 {Insufficient material}";
        case 40:
            return "1/2-1/2 {Dead position}";
        default:
            return nullptr;
    }
}
