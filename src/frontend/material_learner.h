// Statistics of how material configurations score in played or random games, gathered per
// position first (so that a position many games pass through can be discounted) and folded
// into per-configuration totals when the table is written. The table trains the material net.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "board/move.h"
#include "board/position.h"

// Random words that identify a game: 300 plies of 64 from-square and 64 to-square words.
constexpr int MaterialGameKeyCount = 300 * 128;
constexpr int MaterialGamePlies = 300;
// Shorter games are mostly openings and tell nothing about material.
constexpr int MaterialLeastPlies = 33;

// One record of the dump, exactly as stored.
struct PositionStats {
    uint64_t materialKey;
    double evalSum;     // value x (positional term + rating term), rating points
    int32_t scoreSum;   // game scores of the stronger side, in units of value
    int32_t weightSum;  // sum of value
    double plySum;      // value x plies left in the game
};
static_assert(sizeof(PositionStats) == 32, "the dump stores the record as it lies in memory");

struct MaterialTotals {
    double evalSum = 0.0;
    double scoreSum = 0.0;
    double weightSum = 0.0;
    double plySum = 0.0;
};

struct Searcher;

class MaterialLearner {
  public:
    // Fills the game keys from the process's random source.
    MaterialLearner();
    ~MaterialLearner();

    // The decided and drawn games of a PGN file whose players both have at least `minElo`
    // (negative: any); with `calcElo` the ratings come from the file's own results. False only
    // if the file does not open.
    bool addGames(const std::string& fileName, int value, bool calcElo, int minElo);
    // `result` +1, -1 or 0 for a White win, a Black win, a draw. False for a game that adds
    // nothing and is not remembered: a FEN that does not read, fewer than 33 plies.
    bool addGame(const std::vector<Move>& moves, const std::string& fen, int whiteElo, int blackElo,
                 int value, int result);

    // Random games from random Chess960 starts, with moves that mate, save a man, take up or
    // promote to a queen favoured. They go straight into the totals. Reseeds the random source.
    void playRandomGames(long count);
    // One random game from Chess960 start `number`: its moves and White's score, 1000, 500, 0.
    // The start position is left in `start`.
    std::vector<Move> playRandomGame(unsigned number, Game& start, int& whiteScore);
    void addRandomGame(const Game& start, const std::vector<Move>& moves, int whiteScore);

    // The dump: game keys, games seen and position records. False if the file does not open.
    bool writeMemory(const std::string& fileName) const;
    // Reads a dump over this learner: whole records only, and never more than the file holds,
    // whatever its counts say. Records with a sum that is not a finite number, or is far
    // beyond what games can give, are passed over. A file too short for the game keys changes
    // nothing. False if it does not open.
    bool readMemory(const std::string& fileName);
    // Folds the positions into the totals, each further game through a position counting 0.8
    // of the one before, and writes one line per configuration. False if the file does not
    // open; the totals are folded all the same.
    bool writeTable(const std::string& fileName);

    std::vector<uint32_t> gameKeys;
    std::set<uint64_t> seenGames;
    std::map<uint64_t, PositionStats> positions;
    std::map<uint64_t, MaterialTotals> totals;

  private:
    // A position of a game, after move `ply`, into the statistics if it is quiet before and
    // after the game's next move.
    void samplePosition(Searcher& searcher, const Position& board, const std::vector<Move>& moves,
                        int ply, int walked, uint64_t key, int gameScore, int64_t ratingDiff,
                        int value, uint64_t& lastRecorded);
};
