// The book editor's tree: the moves of each position, found by the position's hashKey. A game
// file of ten thousand games makes some hundred thousand positions, each looked up once a ply,
// so the keys sit in one open-addressing table of their own and the moves in a list that never
// moves them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "board/move.h"

// One move of a book position with the points of the games that played it.
struct BookMove {
    uint32_t whitePoints;
    uint32_t blackPoints;
    Move move;
    float value;     // rating of the move for the mover; UnratedValue until valued
    int16_t weight;  // weight for the book file; UnsetWeight until valued
    uint8_t done;    // under the threshold, or already handled by a writer
};

constexpr float UnratedValue = -9999.9f;
constexpr int16_t UnsetWeight = -9999;

class BookTree {
  public:
    using Moves = std::vector<BookMove>;

    // The moves of the position, or null if it is not in the tree.
    Moves* find(uint64_t key) {
        const Slot& slot = slots.empty() ? NoSlot : slots[slotOf(key)];
        return slot.entry ? &entries[slot.entry - 1] : nullptr;
    }
    const Moves* find(uint64_t key) const { return const_cast<BookTree*>(this)->find(key); }
    bool contains(uint64_t key) const { return find(key) != nullptr; }
    // The moves of the position, an empty list made for it if it was not in the tree. The
    // list stays where it is while others are added.
    Moves& operator[](uint64_t key) {
        if (Moves* moves = find(key)) return *moves;
        if ((entries.size() + 1) * 2 > slots.size()) grow();
        entries.emplace_back();
        slots[slotOf(key)] = {key, static_cast<uint32_t>(entries.size())};
        return entries.back();
    }
    size_t size() const { return entries.size(); }
    bool empty() const { return entries.empty(); }

  private:
    struct Slot {
        uint64_t key;
        uint32_t entry;  // index in `entries` plus one; 0 for a free slot
    };
    static constexpr Slot NoSlot = {0, 0};

    // The slot of `key`, or the free slot where it would go. The table is at most half full.
    size_t slotOf(uint64_t key) const {
        const size_t mask = slots.size() - 1;
        // The keys are random already; the multiplication keeps positions whose keys share
        // their low bits apart.
        size_t index = static_cast<size_t>((key * 0x9e3779b97f4a7c15ULL) >> shift);
        while (slots[index].entry && slots[index].key != key) index = (index + 1) & mask;
        return index;
    }
    void grow() {
        std::vector<Slot> old;
        old.swap(slots);
        slots.assign(old.empty() ? 1024 : old.size() * 2, NoSlot);
        shift = 64;
        for (size_t size = slots.size(); size > 1; size >>= 1) --shift;
        for (const Slot& slot : old)
            if (slot.entry) slots[slotOf(slot.key)] = slot;
    }

    std::vector<Slot> slots;
    int shift = 64;
    std::deque<Moves> entries;
};
