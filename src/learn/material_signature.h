// Material configurations as the material statistics key them: one hexadecimal digit per kind
// for each side, the stronger side first, with the bishop colour form in the low four bits.
#pragma once

#include <cstdint>

#include "board/bishop_colours.h"
#include "board/position.h"

// Queens, rooks, bishops, knights, pawns, one hexadecimal digit each, queens highest: so one
// queen outweighs any number of rooks.
inline uint32_t materialSignature(const SideState& side) {
    return (static_cast<uint32_t>(side.pieceCount[Queen] & 15) << 16) |
           (static_cast<uint32_t>(side.pieceCount[Rook] & 15) << 12) |
           (static_cast<uint32_t>(side.pieceCount[Bishop] & 15) << 8) |
           (static_cast<uint32_t>(side.pieceCount[Knight] & 15) << 4) |
           static_cast<uint32_t>(side.pieceCount[Pawn] & 15);
}

// 0 with equal signatures; otherwise the stronger and the weaker signature and the bishop form.
inline uint64_t materialConfigurationKey(const Position& position) {
    const uint64_t white = materialSignature(position.white());
    const uint64_t black = materialSignature(position.black());
    if (white == black) return 0;
    const uint64_t stronger = white > black ? white : black;
    const uint64_t weaker = white > black ? black : white;
    return (((stronger << 20) | weaker) << 4) | static_cast<uint64_t>(bishopColourForm(position));
}

inline bool whiteIsStronger(const Position& position) {
    return materialSignature(position.white()) > materialSignature(position.black());
}

inline uint32_t strongerSignature(uint64_t key) {
    return static_cast<uint32_t>(key >> 24) & 0xfffff;
}
inline uint32_t weakerSignature(uint64_t key) {
    return static_cast<uint32_t>(key >> 4) & 0xfffff;
}
// -1 opposite-coloured bishops, +1 same-coloured, else 0.
inline int bishopCodeOfKey(uint64_t key) {
    const int form = static_cast<int>(key & 3);
    return (form >> 1) - (form & 1);
}

// The stronger side's lead in the usual pawn units: queen 9, rook 5, minor 3, pawn 1.
inline int materialBalanceOfKey(uint64_t key) {
    const uint32_t a = strongerSignature(key);
    const uint32_t b = weakerSignature(key);
    auto digit = [](uint32_t signature, int shift) {
        return static_cast<int>(signature >> shift) & 15;
    };
    const int queens = digit(a, 16) - digit(b, 16);
    const int rooks = digit(a, 12) - digit(b, 12);
    const int minors = digit(a, 8) + digit(a, 4) - digit(b, 8) - digit(b, 4);
    const int pawns = digit(a, 0) - digit(b, 0);
    return (queens * 3 + minors) * 3 + rooks * 5 + pawns;
}
