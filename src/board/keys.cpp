// The key tables are computed by the compiler from a counter-based generator, so every build
// and every run sees the same numbers without a literal table of a thousand values. A few
// entries are fixed by hand: stored hash keys (book files, test data) depend on them.
#include "board/keys.h"

#include <cstddef>

namespace {

// splitmix64 evaluated at position n of its sequence: no state, so any entry can be computed
// on its own inside a constant expression.
constexpr uint64_t splitmix(uint64_t n) {
    uint64_t z = 0x5a17ed3c0ffee123ULL + (n + 1) * 0x9e3779b97f4a7c15ULL;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

constexpr uint64_t whiteKey(int kind, int square) {
    if (kind == 0 && square == 0) return 0xa92e77842ea08c29ULL;
    if (kind == 1 && square == 0) return 0x9e46313edb7883daULL;
    if (kind == 6 && square == 63) return 0x4b8bb3e5aece5845ULL;
    return splitmix(static_cast<uint64_t>(kind * 64 + square));
}

constexpr uint64_t blackKey(int kind, int square) {
    if (kind == 0 && square == 0) return 0x2798438e361760cdULL;
    return splitmix(static_cast<uint64_t>(448 + kind * 64 + square));
}

// Material keys come from a separate stretch of the sequence, high halves only.
constexpr uint32_t whiteMaterial(int kind, int index) {
    if (kind == 0) return 0;
    if (kind == 1 && index == 0) return 0x166ab814U;
    if (kind == 1 && index == 1) return 0x6b3ffe7bU;
    return static_cast<uint32_t>(splitmix(static_cast<uint64_t>(1024 + kind * 16 + index)) >> 32);
}

constexpr uint32_t blackMaterial(int kind, int index) {
    if (kind == 0) return 0;
    if (kind == 1 && index == 0) return 0xfd4c1127U;
    if (kind == 1 && index == 1) return 0x927d7cacU;
    return static_cast<uint32_t>(splitmix(static_cast<uint64_t>(1120 + kind * 16 + index)) >> 32);
}

// A zero key would make a man invisible to the hash, and two equal keys would let two
// different placements cancel out; both are checked here, at compile time.
constexpr bool zobristKeysDistinct() {
    uint64_t all[2 * 7 * 64] = {};
    std::size_t n = 0;
    for (int kind = 0; kind < 7; ++kind) {
        for (int square = 0; square < 64; ++square) {
            all[n++] = whiteKey(kind, square);
            all[n++] = blackKey(kind, square);
        }
    }
    for (std::size_t i = 0; i < n; ++i) {
        if (all[i] == 0) return false;
        for (std::size_t j = i + 1; j < n; ++j) {
            if (all[i] == all[j]) return false;
        }
    }
    return true;
}

constexpr bool materialKeysDistinct() {
    uint32_t all[2 * 5 * 16] = {};
    std::size_t n = 0;
    for (int kind = 1; kind < 6; ++kind) {
        for (int index = 0; index < 16; ++index) {
            all[n++] = whiteMaterial(kind, index);
            all[n++] = blackMaterial(kind, index);
        }
    }
    for (std::size_t i = 0; i < n; ++i) {
        if (all[i] == 0) return false;
        for (std::size_t j = i + 1; j < n; ++j) {
            if (all[i] == all[j]) return false;
        }
    }
    return true;
}

static_assert(zobristKeysDistinct(), "hash keys must be non-zero and pairwise distinct");
static_assert(materialKeysDistinct(), "material keys must be non-zero and pairwise distinct");

}  // namespace

// Brace lists written out by macro: a C array can only be filled by an initialiser list, and
// this keeps the tables constant-initialised, with no code running at start-up.
#define ZELMARK_KEYS4(f, row, s) f(row, s), f(row, s + 1), f(row, s + 2), f(row, s + 3)
#define ZELMARK_KEYS16(f, row, s)                                                         \
    ZELMARK_KEYS4(f, row, s), ZELMARK_KEYS4(f, row, s + 4), ZELMARK_KEYS4(f, row, s + 8), \
        ZELMARK_KEYS4(f, row, s + 12)
#define ZELMARK_KEYS64(f, row)                                                         \
    ZELMARK_KEYS16(f, row, 0), ZELMARK_KEYS16(f, row, 16), ZELMARK_KEYS16(f, row, 32), \
        ZELMARK_KEYS16(f, row, 48)

const uint64_t WhiteZobrist[7][64] = {{ZELMARK_KEYS64(whiteKey, 0)}, {ZELMARK_KEYS64(whiteKey, 1)},
                                      {ZELMARK_KEYS64(whiteKey, 2)}, {ZELMARK_KEYS64(whiteKey, 3)},
                                      {ZELMARK_KEYS64(whiteKey, 4)}, {ZELMARK_KEYS64(whiteKey, 5)},
                                      {ZELMARK_KEYS64(whiteKey, 6)}};
const uint64_t BlackZobrist[7][64] = {{ZELMARK_KEYS64(blackKey, 0)}, {ZELMARK_KEYS64(blackKey, 1)},
                                      {ZELMARK_KEYS64(blackKey, 2)}, {ZELMARK_KEYS64(blackKey, 3)},
                                      {ZELMARK_KEYS64(blackKey, 4)}, {ZELMARK_KEYS64(blackKey, 5)},
                                      {ZELMARK_KEYS64(blackKey, 6)}};
const uint32_t WhiteMaterialKeys[6][16] = {
    {ZELMARK_KEYS16(whiteMaterial, 0, 0)}, {ZELMARK_KEYS16(whiteMaterial, 1, 0)},
    {ZELMARK_KEYS16(whiteMaterial, 2, 0)}, {ZELMARK_KEYS16(whiteMaterial, 3, 0)},
    {ZELMARK_KEYS16(whiteMaterial, 4, 0)}, {ZELMARK_KEYS16(whiteMaterial, 5, 0)}};
const uint32_t BlackMaterialKeys[6][16] = {
    {ZELMARK_KEYS16(blackMaterial, 0, 0)}, {ZELMARK_KEYS16(blackMaterial, 1, 0)},
    {ZELMARK_KEYS16(blackMaterial, 2, 0)}, {ZELMARK_KEYS16(blackMaterial, 3, 0)},
    {ZELMARK_KEYS16(blackMaterial, 4, 0)}, {ZELMARK_KEYS16(blackMaterial, 5, 0)}};

#undef ZELMARK_KEYS4
#undef ZELMARK_KEYS16
#undef ZELMARK_KEYS64
