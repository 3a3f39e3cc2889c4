#include "learn/change_net.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <sstream>

#include "board/makemove.h"
#include "board/position.h"

namespace {

constexpr int LineMoves = 5;  // moves of each line that the inputs look at

double flag(bool b) {
    return b ? 1.0 : 0.0;
}

bool inCheck(const Position& p) {
    const SideState& us = p.toMove();
    return (us.enemyAttacks & us.pieces[King]) != 0;
}

// Make would walk off its piece lists with a move that has no man of its kind on its square,
// so such a move is refused before it gets there, as makeLegal refuses an illegal one.
bool fitsBoard(const Position& p, Move move) {
    const int kind = moveKind(move);
    const int promotion = movePromotion(move);
    if (kind < Pawn || kind > King) return false;
    if (promotion != 0 && (kind != Pawn || promotion < Knight || promotion > Queen)) return false;
    const SideState& us = p.toMove();
    if (!(us.pieces[kind] & squareBit(moveFrom(move)))) return false;
    const Bitboard to = squareBit(moveTo(move));
    // Only castling, the king taking its own rook, lands on an own man.
    return !(us.men() & to) || (kind == King && (us.pieces[Rook] & to));
}

void firstMoves(const Move* line, int length, Move moves[LineMoves]) {
    for (int k = 0; k < LineMoves; ++k) moves[k] = line != nullptr && k < length ? line[k] : NoMove;
}

}  // namespace

ChangeNet::ChangeNet() {
    std::istringstream in(ChangeNetText);
    read(in);
}

void changeInputs(const Position& root, const Move* previousPv, int previousLength,
                  int previousScore, const Move* pv, int length, int score, bool failedLow,
                  bool failedLowBefore, bool changedNow, bool changedBefore, int rootCount,
                  double in[ChangeInputCount]) {
    Move prev[LineMoves], cur[LineMoves];
    firstMoves(previousPv, previousLength, prev);
    firstMoves(pv, length, cur);

    in[0] = flag(prev[0] != cur[0]);
    in[1] = flag(changedNow);
    in[2] = flag(changedBefore);
    in[3] = flag(failedLow);
    in[4] = flag(failedLowBefore);
    // A move of one line that comes back two plies later in the other. Missing moves compare
    // equal too.
    in[5] = flag(prev[0] == cur[2]);
    in[6] = flag(cur[0] == prev[2]);
    in[7] = flag(prev[1] == cur[3]);
    in[8] = flag(cur[1] == prev[3]);

    Position board = root;
    in[11] = flag(inCheck(board));
    for (int j = 0; j < 2; ++j) {
        if (j >= length || pv == nullptr) {
            in[9 + j] = 0.0;
            in[12 + j] = 0.0;
            continue;
        }
        // A refused move leaves the board as it was, and the next move is tried on that.
        UndoRecord undo;
        beginUndo(undo, board);
        if (fitsBoard(board, cur[j])) makeLegal(board, cur[j], undo);
        in[9 + j] = flag(undo.capturedKind != 0);
        in[12 + j] = flag(inCheck(board));
    }

    // A fight over one square.
    const int to0 = moveTo(cur[0]);
    in[14] = flag((root.lastMoveMask & squareBit(to0)) != 0);
    in[15] = flag(cur[1] != NoMove && moveTo(cur[1]) == to0);
    in[16] = flag(cur[1] != NoMove && cur[2] != NoMove && moveTo(cur[1]) == moveTo(cur[2]));
    in[17] = flag(cur[2] != NoMove && cur[3] != NoMove && moveTo(cur[2]) == moveTo(cur[3]));
    in[18] = flag(cur[3] != NoMove && moveTo(cur[3]) == to0);

    const int now = std::clamp(score, -15000, 15000);
    const int before = std::clamp(previousScore, -15000, 15000);
    in[19] = std::tanh((now - before) * 0.5 * 0.001);

    // After a capture: the opponent's men under attack by lesser men, and the victim, each
    // counted again when attacked twice.
    in[20] = 0.0;
    if (in[9] > 0.0) {
        const SideState& them = root.notToMove();
        Bitboard threatened = them.lesserThreats;
        if (them.men() & squareBit(to0)) threatened |= squareBit(to0);
        in[20] = popcount(threatened) + popcount(threatened & them.enemyDoubleAttacks);
    }
    in[21] = rootCount * 0.025;
}

double predictChange(ChangeNet& net, const Position& root, const Move* previousPv,
                     int previousLength, int previousScore, const Move* pv, int length, int score,
                     bool failedLow, bool failedLowBefore, bool changedNow, bool changedBefore,
                     int rootCount, char* featureText) {
    double in[ChangeInputCount];
    changeInputs(root, previousPv, previousLength, previousScore, pv, length, score, failedLow,
                 failedLowBefore, changedNow, changedBefore, rootCount, in);
    net.clearActivations();
    for (int i = 0; i < ChangeInputCount; ++i) net.setInput(static_cast<size_t>(i), in[i]);
    net.forward();
    const double result = net.output();

    if (featureText != nullptr) {
        int used = 0;
        for (int i = 0; i < 19; ++i)
            used += std::snprintf(featureText + used, FeatureTextSize - used, "%d ",
                                  in[i] > 0.5 ? 1 : 0);
        std::snprintf(featureText + used, FeatureTextSize - used, "%16.14f %2.0f %6.3f %13.10f ",
                      in[19], in[20], in[21], result);
    }
    return result;
}

std::mutex& timeLogLock() {
    static std::mutex lock;
    return lock;
}

void appendTimeLog(const char* fileName, const char* featureText, int changed) {
    // "nul:" is the null device: the features are computed, nothing is kept.
    if (std::strcmp(fileName, "nul:") == 0) return;
    std::lock_guard<std::mutex> guard(timeLogLock());
    std::FILE* file = std::fopen(fileName, "a");
    if (file == nullptr) return;
    std::fprintf(file, "%s %d\n", featureText, changed);
    std::fclose(file);
}
