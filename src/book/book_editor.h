// Builds an opening book from PGN games: a tree of positions and moves with points for both
// colours, turned into weights by a minimax over the tree when a book file, a Chess960 book
// file or a list of test positions is written. The editor never reads a book file; a book is
// always built anew from games.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_set>
#include <vector>

#include "board/move.h"
#include "board/position.h"
#include "book/book_tree.h"

// Random words that identify a game: 300 plies of 64 from-square and 64 to-square words.
constexpr int GameKeyCount = 300 * 128;
// Plies of a game that go into the identity, and plies that go into the book.
constexpr int IdentityPlies = 99;
constexpr int BookPlies = 45;
// Without `all`, shorter games are passed over.
constexpr int LeastGamePlies = 37;

// A side's points against the other side's as a rating: its share, held inside 0.001 to
// 0.999, in rating points.
float pointsRating(uint64_t own, uint64_t other);
// The rating of the move for one side from its points.
float moveElo(const BookMove& move, bool forWhite);

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

    // The rating of the position for the side to move. Sets the value, weight and done fields
    // of the tree below it: moves of at most `minPoints` points are done, the best get 99 and a
    // move `width` rating points below the best gets 0.
    float valueNode(Position& position, int64_t minPoints, double width);

    // The three writers value the tree from its start positions with `threshold` + 1000 as the
    // least points of a move, and write it. False if the file does not open. The tree is used
    // up: each can run once on an editor.
    bool writeBook(const std::string& fileName, int threshold, int width);
    bool write960(const std::string& fileName, int threshold, int width);
    bool writeEPD(const std::string& fileName, int threshold, int width);

    std::vector<uint32_t> gameKeys;
    // Identities of the games taken in: the two 32-bit sums, the first in the high half.
    std::unordered_set<uint64_t> seenGames;
    // The moves of each position by its hashKey. The writers walk it from the start positions,
    // so the order of the keys never shows.
    BookTree tree;
    // Positions on the line the running walk stands on; a line that comes back to one of them
    // ends there.
    std::unordered_set<uint64_t> onPath;
    uint32_t whiteMoves = 0;
    uint32_t blackMoves = 0;
    // Set: games only strengthen positions already in the tree.
    bool locked = false;
    // The test positions found by writeEPD, one line each.
    std::vector<std::string> epdLines;

  private:
    // A move enters a written book with more points than the threshold plus one game's 1000.
    static int64_t minimumPoints(int threshold) { return static_cast<int64_t>(threshold) + 1000; }
    // Every writer counts its moves anew from the classical start position.
    Position startWriting();
    void writeNode(Position& position, std::FILE* out);
    void collectEpd(Position& position);
    // Whether the position behind a move of weight 0 still leads to a playable move.
    bool keepsLineOpen(uint64_t key) const;
};
