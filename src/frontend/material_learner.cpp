// Played games into the position statistics.
#include "frontend/material_learner.h"

#include <algorithm>

#include "board/makemove.h"
#include "board/text.h"
#include "book/exact_move.h"
#include "book/pgn_reader.h"
#include "learn/material_signature.h"
#include "learn/neural_net.h"
#include "search/searcher.h"

namespace {

// The game's private searcher needs only the quiet test and the evaluation.
constexpr size_t LearnerTableBytes = 10000;
// The evaluation's terms in thousandths of a pawn into rating points: 110 to the pawn.
constexpr double PawnUnitsToRating = 110.0 * 0.001;

int menOnBoard(const Position& p) {
    return p.white().pieceCount[AllMen] + p.black().pieceCount[AllMen];
}

// Sums that may meet absurd weights from the command line wrap instead of overflowing.
int32_t wrappingAdd(int32_t a, int64_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

}  // namespace

MaterialLearner::MaterialLearner() : gameKeys(MaterialGameKeyCount) {
    RandomSource& random = RandomSource::instance();
    for (uint32_t& word : gameKeys) {
        random.warm();
        word = random.next();
    }
}

MaterialLearner::~MaterialLearner() = default;

bool MaterialLearner::addGames(const std::string& fileName, int value, bool calcElo, int minElo) {
    return forEachDecidedGame(
        fileName, calcElo, minElo,
        [&](const std::vector<Move>& moves, const std::string& fen, int whiteElo, int blackElo,
            int result) { addGame(moves, fen, whiteElo, blackElo, value, result); });
}

bool MaterialLearner::addGame(const std::vector<Move>& moves, const std::string& fen, int whiteElo,
                              int blackElo, int value, int result) {
    const int64_t ratingDiff =
        whiteElo >= 1 && blackElo >= 1 ? static_cast<int64_t>(whiteElo) - blackElo : 0;
    const int whiteScore = result > 0 ? value : result < 0 ? 0 : value / 2;

    Position start;
    constructPosition(start);
    if (!fen.empty() && !parseFen(start, fen.c_str())) return false;
    if (moves.empty()) return false;
    const int walked = static_cast<int>(std::min<size_t>(moves.size(), MaterialGamePlies));
    if (walked < MaterialLeastPlies) return false;

    // The identity is of the moves as written, so a move that can't be played counts too.
    uint32_t fromSum = 0, toSum = 0;
    for (int p = 0; p < walked; ++p) {
        const Move move = moves[static_cast<size_t>(p)];
        fromSum ^= gameKeys[static_cast<size_t>(p * 128 + moveFrom(move))];
        toSum ^= gameKeys[static_cast<size_t>(p * 128 + 64 + moveTo(move))];
    }
    if (!seenGames.insert(static_cast<uint64_t>(fromSum) << 32 | toSum).second) return true;

    // Far too large for the stack of the command thread.
    const auto searcher = std::make_unique<Searcher>(LearnerTableBytes);
    searcher->setNeuroMaterial(40);
    searcher->setNeuroWidth(800);
    searcher->useBook = false;

    Position board = start;
    uint64_t current = 0, lastRecorded = 0;
    int stable = 0, needed = 2, nextNeeded = 2;
    for (int k = 0; k <= walked - 2; ++k) {
        if (menOnBoard(board) < 4) break;
        UndoRecord undo;
        // A move that can't be played leaves the board as it is, and the walk goes on.
        makeExactMove(board, moves[static_cast<size_t>(k)], undo);
        const bool inCheck = sideToMoveInCheck(board);
        // A check delays the sample: the material may be about to change.
        if (inCheck) needed = nextNeeded + 1;
        const uint64_t key = materialConfigurationKey(board);
        const bool equal = key == 0;
        const int gameScore = equal ? 0 : whiteIsStronger(board) ? whiteScore : value - whiteScore;
        if (key != current) {
            if (menOnBoard(board) < 4) break;
            stable = 0;
            needed = 2;
            nextNeeded = 2;
            current = key;
            continue;
        }
        ++stable;
        if (stable >= needed && key != 0 && key != lastRecorded && !inCheck)
            samplePosition(*searcher, board, moves, k, walked, key, gameScore, ratingDiff, value,
                           lastRecorded);
        nextNeeded = needed;
    }
    return true;
}

void MaterialLearner::samplePosition(Searcher& searcher, const Position& board,
                                     const std::vector<Move>& moves, int ply, int walked,
                                     uint64_t key, int gameScore, int64_t ratingDiff, int value,
                                     uint64_t& lastRecorded) {
    setGamePosition(searcher, &board);
    if (!searcher.quietPosition(nullptr)) return;
    const Position& root = searcher.position;
    int e = searcher.evaluator.evaluate(root);
    e = e > 0 ? e - 1 : e < 0 ? e + 1 : 0;
    const int m = searcher.evaluator.materialValue(false);
    double positional = root.whiteToMove ? e - m : e + m;
    double ratingTerm = static_cast<double>(ratingDiff);
    // The positional term is turned to the stronger side; the rating term is turned with it,
    // which makes it right only with White to move. The collected data has always been so.
    const bool strongerToMove = whiteIsStronger(root) == (root.whiteToMove != 0);
    if (!strongerToMove) {
        positional = -positional;
        ratingTerm = -ratingTerm;
    }
    // The position must stay quiet after the move the game played next, or the material is
    // about to change. The walk may have left a move unplayable: then there is no sample.
    UndoRecord undo;
    const Move next = moves[static_cast<size_t>(ply + 1)];
    if (!isGeneratedMove(searcher.position, next)) return;
    Position probe = searcher.position;
    beginUndo(undo, probe);
    if (!makeLegal(probe, next, undo)) return;
    gameMakeMove(searcher, next);
    if (!searcher.quietPosition(nullptr)) return;

    lastRecorded = key;
    PositionStats& stats = positions[board.hashKey];
    stats.materialKey = key;
    stats.evalSum += (positional * PawnUnitsToRating + ratingTerm) * value;
    stats.scoreSum = wrappingAdd(stats.scoreSum, gameScore);
    stats.weightSum = wrappingAdd(stats.weightSum, value);
    stats.plySum += static_cast<double>(walked - ply) * value;
}
