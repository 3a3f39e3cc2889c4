// Pieces of the node search that other parts of the search (and the tests) call directly.
#pragma once

#include <cstdint>

#include "board/move.h"
#include "board/position.h"
#include "search/history.h"

struct Searcher;
struct SearchFrame;

// One ply down for the lifetime of a node: the ply steps back on every way out.
class PlyStep {
  public:
    explicit PlyStep(int16_t& searcherPly) : ply(searcherPly) { ++ply; }
    ~PlyStep() { --ply; }
    PlyStep(const PlyStep&) = delete;
    PlyStep& operator=(const PlyStep&) = delete;

  private:
    int16_t& ply;
};

// The child depth of the frame's move, in eighths of a ply: captures and extensions keep
// fractions, quiet stretches drop them, recaptures into pawn endings go deeper.
int nextDepth(const Searcher& s, int depth, SearchFrame& frame);
void pawnPushExtension(SearchFrame& frame, const SideState& us, const SideState& them);
void updateKiller(KillerSlot* slots, Move m, const KillerSlot* grand, int depth, bool afterNull,
                  bool isMate);
void updateHistory(HistoryTable& table, Move m, int n);
bool repeatsInTree(const Searcher& s, uint64_t key, int ply);
// A repetition of a game position (or a dead draw) at a node with the root's material.
bool repeatsInGame(const Searcher& s);
// Whether a late quiet move may be searched one ply shallower, by the attack maps before and
// after it. The move has been made.
bool lateQuietMayReduce(const SearchFrame& frame, const SideState& us, const SideState& them,
                        int threatTo, Bitboard threatPath, Bitboard passers,
                        const KillerSlot* killers, int moveTotal);

// The bitbase verdict on the searcher's position from White's point of view: 1 White wins, -1
// White loses, 0 draw. Refused (false) with a pawn on its home row, with a castling right, with
// more than five men, or when the store has no cache. `cacheOnly` keeps it off the disk.
bool probeFromSearch(const Searcher& s, bool cacheOnly, int& result);

inline void clearSearchingBit(uint32_t* words, Move m, uint64_t keyBits) {
    const uint32_t bit = (m & 0xffff) ^ static_cast<uint32_t>(keyBits);
    words[(bit >> 5) & 63] &= ~(uint32_t{1} << (bit & 31));
}
