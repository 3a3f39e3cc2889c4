// Random games for the material statistics: legal moves drawn with weights that favour what a
// player would hardly miss, so that material changes hands in a plausible way.
#include <algorithm>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/text.h"
#include "frontend/material_learner.h"
#include "learn/material_signature.h"
#include "learn/neural_net.h"

namespace {

constexpr uint32_t BaseWeight = 100;
constexpr uint32_t MateWeight = 10100;
constexpr uint32_t BonusWeight = 100;
constexpr int RandomWhiteWin = 1000;
constexpr int RandomDraw = 500;

bool has(Bitboard board, int square) {
    return (board >> square) & 1;
}

// Bishops count as knights: taking a knight with a bishop is no gain.
int tradeRank(int kind) {
    return kind == Bishop ? Knight : kind;
}

uint32_t moveWeight(Position& p, Move move) {
    const int from = moveFrom(move), to = moveTo(move);
    const SideState& usBefore = p.toMove();
    const SideState& themBefore = p.notToMove();
    // A man of the mover on a square the enemy hits and no own man guards.
    auto hanging = [&](int square) {
        return has(usBefore.men(), square) && has(usBefore.enemyAttacks, square) &&
               !has(themBefore.enemyAttacks, square);
    };
    const bool rescues = hanging(from) || hanging(to);
    const int moverKind = moveKind(move);
    const Bitboard theirMen = themBefore.men();
    int takenKind = None;
    if (has(theirMen, to)) {
        for (int kind = Pawn; kind <= King; ++kind)
            if (has(themBefore.pieces[kind], to)) takenKind = kind;
    }

    UndoRecord undo;
    beginUndo(undo, p);
    if (!makeLegal(p, move, undo)) return 0;
    uint32_t weight = BaseWeight;
    int result = 0;
    if (hasNoLegalMove(p, &result) && result != 0) weight = MateWeight;
    if (rescues) weight += BonusWeight;
    // After the move the mover's record is the side not to move.
    const SideState& mover = p.notToMove();
    auto safe = [&](int square) {
        return has(mover.men(), square) && !has(mover.enemyAttacks, square);
    };
    if (safe(from) || safe(to)) {
        weight += BonusWeight;
    } else if (takenKind != None && tradeRank(takenKind) > tradeRank(moverKind)) {
        weight += BonusWeight;
    }
    if (movePromotion(move) == Queen) weight += BonusWeight;
    undoMove(undo);
    return weight;
}

}  // namespace

std::vector<Move> MaterialLearner::playRandomGame(unsigned number, Game& start, int& whiteScore) {
    RandomSource& random = RandomSource::instance();
    constructGame(start);
    setGameChess960(start, number);
    Game game = start;
    std::vector<Move> played;
    MoveEntry list[MaxMovesPerPosition];
    uint32_t weights[MaxMovesPerPosition];
    whiteScore = RandomDraw;
    for (;;) {
        MoveEntry* end = generateMoves(game.position, GenAll, list);
        uint32_t sum = 0;
        int count = 0;
        for (MoveEntry* entry = list; entry != end; ++entry) {
            const uint32_t weight = moveWeight(game.position, entry->move);
            if (weight == 0) continue;
            list[count].move = entry->move;
            weights[count++] = weight;
            sum += weight;
        }
        // Every game ends by the checks below before a position without moves comes up;
        // this only guards against a start that has none.
        if (count == 0 || sum == 0) break;
        uint32_t r = random.next() % sum;
        int chosen = 0;
        while (weights[chosen] <= r) r -= weights[chosen++];
        const Move move = list[chosen].move;
        gameMakeMove(game, move);
        played.push_back(move);

        int result = 0;
        if (hasNoLegalMove(game.position, &result)) {
            whiteScore = result > 0 ? RandomWhiteWin : result < 0 ? 0 : RandomDraw;
            break;
        }
        const int drawState = gameDrawState(game);
        // The fifty-move rule, a third occurrence, or material that cannot win.
        if (game.historyCount > 100 || (drawState != 0 && drawState != 1)) break;
    }
    return played;
}

void MaterialLearner::addRandomGame(const Game& start, const std::vector<Move>& moves,
                                    int whiteScore) {
    Position board = start.position;
    uint64_t previous = 0, lastRecorded = 0;
    for (const Move move : moves) {
        UndoRecord undo;
        beginUndo(undo, board);
        makeLegal(board, move, undo);
        const uint64_t key = materialConfigurationKey(board);
        // A material that has stood for one ply already, once per stretch.
        if (key != 0 && key == previous && key != lastRecorded) {
            MaterialTotals& entry = totals[key];
            entry.evalSum = 0.0;
            entry.weightSum += 1000.0;
            entry.scoreSum += whiteIsStronger(board) ? whiteScore : 1000 - whiteScore;
            lastRecorded = key;
        }
        previous = key;
    }
}

void MaterialLearner::playRandomGames(long count) {
    RandomSource& random = RandomSource::instance();
    random.seedFromClock();
    random.warm();
    Game start;
    for (long i = 0; i < count; ++i) {
        const unsigned number = random.next() % 960 + 1;
        int whiteScore = RandomDraw;
        const std::vector<Move> moves = playRandomGame(number, start, whiteScore);
        addRandomGame(start, moves, whiteScore);
    }
}
