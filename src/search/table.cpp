#include "search/table.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "board/score.h"

namespace {

constexpr size_t HugePageBytes = size_t{2} << 20;
constexpr size_t PageBytes = 4096;

// The bytes mapped for `count` entries: whole huge pages for a table of one or more.
size_t mappedBytes(size_t count) {
    const size_t bytes = count * sizeof(TtEntry);
    const size_t unit = bytes >= HugePageBytes ? HugePageBytes : PageBytes;
    return (bytes + unit - 1) / unit * unit;
}

// Whether a table of `size` bytes may use huge pages. Each page a probe first touches is
// committed whole, so a table near or beyond the machine's memory (a Hash larger than the
// machine gives, left to the kernel's lazy commitment) keeps small pages.
bool mayUseHugePages(size_t size) {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    if (size < HugePageBytes || pages <= 0 || pageSize <= 0) return false;
    const size_t memory = static_cast<size_t>(pages) * static_cast<size_t>(pageSize);
    return size <= memory / 4;
}

// Zeroed memory, untouched until used. A large table starts on a huge page boundary and asks
// for huge pages: probes land anywhere in it, and with small pages nearly every one would
// also miss the processor's cache of address translations.
TtEntry* mapEntries(size_t count) {
    const size_t size = mappedBytes(count);
    const size_t slack = mayUseHugePages(size) ? HugePageBytes : 0;
    void* raw =
        mmap(nullptr, size + slack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    if (slack == 0) return static_cast<TtEntry*>(raw);
    const uintptr_t start = reinterpret_cast<uintptr_t>(raw);
    const uintptr_t aligned = (start + HugePageBytes - 1) & ~(uintptr_t{HugePageBytes} - 1);
    if (aligned > start) munmap(raw, aligned - start);
    const uintptr_t end = start + size + slack;
    if (end > aligned + size) munmap(reinterpret_cast<void*>(aligned + size), end - aligned - size);
    madvise(reinterpret_cast<void*>(aligned), size, MADV_HUGEPAGE);
    return reinterpret_cast<TtEntry*>(aligned);
}

}  // namespace

TranspositionTable::~TranspositionTable() {
    if (entries) munmap(entries, mappedBytes(ttCount + 2));
}

bool TranspositionTable::allocateTable(size_t bytes) {
    if (entries) munmap(entries, mappedBytes(ttCount + 2));
    entries = nullptr;
    ttCount = 0;
    for (;;) {
        size_t count = bytes / sizeof(TtEntry);
        if (count < 500) count = 500;
        entries = mapEntries(count);
        if (entries) {
            ttCount = count - 2;
            ttGeneration = 1;
            ttFresh = 0;
            return true;
        }
        bytes -= bytes >> 4;
        if (bytes < 12001) return false;
    }
}

void TranspositionTable::clearTable() {
    ttGeneration = 1;
    ttFresh = 0;
    if (entries) std::memset(static_cast<void*>(entries), 0, sizeof(TtEntry) * (ttCount + 2));
}

bool TranspositionTable::probe(uint64_t key, int ply, TtEntry& hit) {
    if (!entries) return false;
    TtEntry* e = entries + indexOf(key);
    for (int i = 0; i < 3; ++i, ++e) {
        if (e->key != key) continue;
        if (e->generation != ttGeneration) {
            ++ttFresh;
            e->generation = ttGeneration;
        }
        hit = *e;
        if (hit.score <= -ScoreMateZone)
            hit.score += ply;
        else if (hit.score >= ScoreMateZone)
            hit.score -= ply;
        return true;
    }
    return false;
}

bool TranspositionTable::probeEntry(uint64_t key, int ply, Move& move, int& score, int& flags) {
    TtEntry hit;
    if (!probe(key, ply, hit)) return false;
    move = hit.move;
    score = hit.score;
    flags = hit.flags;
    return true;
}

void TranspositionTable::storeEntry(uint64_t key, Move move, int score, int flags, int ply) {
    if (!entries) return;
    if (score <= -ScoreMateZone) score -= ply;
    if (score >= ScoreMateZone) score += ply;
    TtEntry* bucket = entries + indexOf(key);
    for (int i = 0; i < 3; ++i) {
        TtEntry& e = bucket[i];
        if (e.key != key) continue;
        if (e.generation != ttGeneration) {
            ++ttFresh;
            e.generation = ttGeneration;
        }
        // A shallower result keeps the deeper entry's move, score and bound.
        if (e.flags <= flags) {
            e.move = move;
            e.score = score;
            e.flags = static_cast<int16_t>(flags);
        }
        return;
    }
    TtEntry* victim;
    if (bucket[0].generation != ttGeneration) {
        victim = &bucket[0];
    } else if (bucket[1].generation != ttGeneration) {
        victim = &bucket[1];
    } else if (bucket[2].generation != ttGeneration) {
        victim = &bucket[2];
    } else {
        victim = &bucket[2];
        if (bucket[1].flags < victim->flags) victim = &bucket[1];
        if (bucket[0].flags < victim->flags) victim = &bucket[0];
    }
    if (victim->generation == ttGeneration && victim->flags > flags) {
        // The key serves as a coin: a gap of d plies lets the new entry in with
        // probability about 2^(-4d).
        const int d = ((victim->flags >> 3) - (flags >> 3)) >> 3;
        if (d > 5 || (uint64_t{1} << (63 - 4 * d)) <= (key >> 1)) return;
    }
    victim->move = move;
    victim->score = score;
    victim->key = key;
    victim->flags = static_cast<int16_t>(flags);
    if (victim->generation != ttGeneration) ++ttFresh;
    victim->generation = ttGeneration;
}
