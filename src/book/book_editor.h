// Builds an opening book from PGN games: a tree of positions and moves with points for both
// colours. The editor never reads a book file; a book is always built anew from games.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "board/move.h"
#include "book/book_tree.h"

// Random words that identify a game: 300 plies of 64 from-square and 64 to-square words.
constexpr int GameKeyCount = 300 * 128;
// Plies of a game that go into the identity, and plies that go into the book.
constexpr int IdentityPlies = 99;
constexpr int BookPlies = 45;
// Without `all`, shorter games are passed over.
constexpr int LeastGamePlies = 37;

class BookEditor {
  public:
    // Fills the game keys from the process's random source.
    BookEditor();

    // Takes the games of a PGN file: those with both ratings at least `minElo` (a negative
    // value takes all) and a decided or drawn result. With `calcElo` the ratings come from the
    // file's own results. False only if the file does not open; broken games are passed over.
    bool addGames(const std::string& fileName, uint32_t value, bool all, bool calcElo, int minElo);
    // One game from `fen` (the start position if empty); `result` is +1, -1 or 0 for a White
    // win, a Black win or a draw. False for a game too short or a FEN that does not read.
    bool addGame(const std::vector<Move>& moves, const std::string& fen, uint32_t value,
                 int64_t ratingDiff, bool all, int result);

    std::vector<uint32_t> gameKeys;
    // Identities of the games taken in: the two 32-bit sums, the first in the high half.
    std::unordered_set<uint64_t> seenGames;
    // The moves of each position by its hashKey. The writers walk it from the start positions,
    // so the order of the keys never shows.
    BookTree tree;
    // Set: games only strengthen positions already in the tree.
    bool locked = false;
};
