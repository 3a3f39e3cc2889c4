// Zobrist keys and material signature keys. Constants of the program, identical on every run.
#pragma once

#include <cstdint>

// [kind][square]; row 0 of the White table also holds the castling keys (entries 0-15) and the
// en passant keys (by target square).
extern const uint64_t WhiteZobrist[7][64];
extern const uint64_t BlackZobrist[7][64];
// [kind][index of the man of that kind], row 0 all zero.
extern const uint32_t WhiteMaterialKeys[6][16];
extern const uint32_t BlackMaterialKeys[6][16];

// XORed into the hash key when White is to move; touches only the low 32 bits.
constexpr uint64_t SideKey = 0x4afc4afc;
