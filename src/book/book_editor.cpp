// Games into the tree: the game's identity, the time-weighted points of each move.
#include "book/book_editor.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "board/text.h"
#include "book/exact_move.h"
#include "book/pgn_reader.h"
#include "learn/neural_net.h"

namespace {

// Points are 32-bit counts; a gain beyond them (a huge game value) is held at the top rather
// than converted out of range.
uint32_t toPoints(double gain) {
    if (!(gain > 0.0)) return 0;
    if (gain >= 4294967295.0) return UINT32_MAX;
    return static_cast<uint32_t>(gain);
}

}  // namespace

float pointsRating(uint64_t own, uint64_t other) {
    const uint64_t total = own + other;
    double p = total ? static_cast<double>(own) / static_cast<double>(total) : 0.5;
    p = std::min(std::max(p, 0.001), 0.999);
    return static_cast<float>(std::log10(1.0 / p - 1.0) * -400.0);
}

float moveElo(const BookMove& move, bool forWhite) {
    return forWhite ? pointsRating(move.whitePoints, move.blackPoints)
                    : pointsRating(move.blackPoints, move.whitePoints);
}

BookEditor::BookEditor() : gameKeys(GameKeyCount) {
    RandomSource& random = RandomSource::instance();
    for (uint32_t& word : gameKeys) {
        random.warm();
        word = random.next();
    }
}

bool BookEditor::addGames(const std::string& fileName, uint32_t value, bool all, bool calcElo,
                          int minElo) {
    return forEachDecidedGame(fileName, calcElo, minElo,
                              [&](const std::vector<Move>& moves, const std::string& fen,
                                  int whiteElo, int blackElo, int result) {
                                  addGame(moves, fen, value,
                                          static_cast<int64_t>(whiteElo) - blackElo, all, result);
                              });
}

bool BookEditor::addGame(const std::vector<Move>& moves, const std::string& fen, uint32_t value,
                         int64_t ratingDiff, bool all, int result) {
    Position board;
    constructPosition(board);
    if (!fen.empty() && !parseFen(board, fen.c_str())) return false;
    // The walk goes over at most 300 plies. A move that can't be played stays unmade and the
    // walk goes on, so every walked ply counts, and the identity is of the moves as written.
    const int played = static_cast<int>(std::min<size_t>(moves.size(), 300));
    if (played < LeastGamePlies && !all) return false;
    const int plies = std::min(played, BookPlies);

    if (!all) {
        uint32_t fromSum = 0, toSum = 0;
        for (int p = 0; p < std::min(played, IdentityPlies); ++p) {
            const Move move = moves[static_cast<size_t>(p)];
            fromSum ^= gameKeys[static_cast<size_t>(p * 128 + moveFrom(move))];
            toSum ^= gameKeys[static_cast<size_t>(p * 128 + 64 + moveTo(move))];
        }
        if (!seenGames.insert(static_cast<uint64_t>(fromSum) << 32 | toSum).second) return true;
    }

    const double whiteShare = result > 0 ? value : result < 0 ? 0.0 : value * 0.5;
    const double blackShare = result < 0 ? value : result > 0 ? 0.0 : value * 0.5;
    // A win against the odds is worth more.
    const double expected = 1.0 / (1.0 + std::pow(10.0, static_cast<double>(ratingDiff) * -0.0025));
    const int gameLength = static_cast<int>(std::min<size_t>(moves.size(), INT32_MAX / 2));

    for (int k = 0; k < plies; ++k) {
        double w = whiteShare, b = blackShare;
        if (!all) {
            // The result of a long game counts a little less at its first moves: up to a
            // quarter of it goes to the other side.
            const double r = gameLength - k - 40;
            const double f = std::min(std::max(1.0 - r * 0.5 * 0.0038461538461538464, 0.75), 1.0);
            w = (1.0 - f) * blackShare + f * whiteShare;
            b = (1.0 - f) * whiteShare + f * blackShare;
        }
        const uint32_t whiteGain = toPoints(w * 2.0 * (1.0 - expected));
        const uint32_t blackGain = toPoints(b * 2.0 * expected);

        const uint64_t key = board.hashKey;
        // A locked tree takes no new positions; the board then stands still, so the rest of
        // the game is left out too.
        if (locked && !tree.contains(key)) break;
        const Move move = moves[static_cast<size_t>(k)];
        UndoRecord undo;
        if (!makeExactMove(board, move, undo)) continue;
        std::vector<BookMove>& bookMoves = tree[key];
        const auto known = std::find_if(bookMoves.begin(), bookMoves.end(),
                                        [move](const BookMove& m) { return m.move == move; });
        if (known != bookMoves.end()) {
            known->whitePoints += whiteGain;
            known->blackPoints += blackGain;
        } else {
            bookMoves.push_back(
                {whiteGain + 1000, blackGain + 1000, move, UnratedValue, UnsetWeight, 0});
        }
    }
    return true;
}
