// The transposition table, shared by all searchers without locks. Torn entries are harmless:
// every table move is checked against the node's move list before use.
#pragma once

#include <cstddef>
#include <cstdint>

#include "board/move.h"

struct TtEntry {
    uint64_t key;
    Move move;      // low 16 bits 0 for none
    int32_t score;  // mate scores relative to the node
    int16_t flags;  // depth x 8 + bound type (0 upper, 2 lower, 4 exact) + bit 0 mate threat
    uint16_t generation;
};
static_assert(sizeof(TtEntry) == 24, "the table is sized at 24 bytes an entry");

constexpr int BoundUpper = 0;
constexpr int BoundLower = 2;
constexpr int BoundExact = 4;
constexpr int BoundMask = 6;
constexpr int FlagMateThreat = 1;

class TranspositionTable {
  public:
    TranspositionTable() = default;
    ~TranspositionTable();
    TranspositionTable(const TranspositionTable&) = delete;
    TranspositionTable& operator=(const TranspositionTable&) = delete;

    // Sizes the table to about `bytes`, retrying smaller when memory is short; false (and no
    // table) when even 12,000 bytes cannot be had.
    bool allocateTable(size_t bytes);
    void clearTable();

    // The index of the first of three adjacent entries; windows overlap at any position.
    size_t indexOf(uint64_t key) const {
        return static_cast<size_t>(((key & 0x3fffffff) * ttCount) >> 30);
    }
    // Finds the entry of `key`, refreshes its generation and copies it to `hit`, with the
    // score relative to a node at `ply`. The copy is taken here, in one place, since other
    // threads may write the entry at any time.
    bool probe(uint64_t key, int ply, TtEntry& hit);
    bool probeEntry(uint64_t key, int ply, Move& move, int& score, int& flags);
    // Starts loading the entries of `key`, so that a probe soon after finds them in the cache.
    // The three entries start anywhere, so they usually end on the next cache line.
    void prefetch(uint64_t key) const {
        if (!entries) return;
        const char* first = reinterpret_cast<const char*>(entries + indexOf(key));
        __builtin_prefetch(first);
        __builtin_prefetch(first + 3 * sizeof(TtEntry) - 1);
    }
    void storeEntry(uint64_t key, Move move, int score, int flags, int ply);
    void newGeneration() {
        ++ttGeneration;
        if (ttGeneration == 0) ttGeneration = 1;
        ttFresh = 0;
    }
    int hashfullPermill() const {
        return entries ? static_cast<int>(1000.0 * static_cast<double>(ttFresh) /
                                          static_cast<double>(ttCount + 2))
                       : 0;
    }

    // Read by every probe of every thread; the counters below, written by all threads, sit
    // on cache lines of their own so that those writes do not evict these.
    TtEntry* entries = nullptr;
    uint64_t ttCount = 0;
    uint16_t ttGeneration = 1;
    alignas(64) uint64_t ttFresh = 0;
    // Moves taken by some thread at nodes of depth 8 and more, by (move16 ^ key) bits.
    alignas(64) uint32_t searchingMoves[64] = {};
};

// For makeLegalThen: starts loading a child's entries as soon as its key is known.
struct PrefetchEntries {
    const TranspositionTable* table;
    void operator()(uint64_t key) const { table->prefetch(key); }
};
