#include "eval/bitbase_index.h"

#include "board/move.h"

namespace {

// Letters by kind, 1 pawn to 6 king.
constexpr char KindLetters[] = "-BSLTDK";

// Slots of the triangle a8-d8-d5 (row <= file in the a8 quadrant): (7 - r) * r + 2 * f runs
// through the even numbers 0 to 18, leaving room for the side bit.
constexpr int triangleSlot(int row, int file) {
    return (7 - row) * row + file * 2;
}

bool appendColour(BitbaseKey& key, const int8_t* kinds, const int8_t* squares, int& at) {
    if (kinds[0] != King) return false;
    int previous = None;
    for (int i = 0; kinds[i] != None; ++i) {
        const int kind = kinds[i];
        if (i > 0 && (kind < Pawn || kind > Queen || kind < previous)) return false;
        if (at == BitbaseMaxMen || squares[i] < 0 || squares[i] > 63) return false;
        if (kind == Pawn && key.pawnIndex < 0) key.pawnIndex = at;
        if (i > 0) previous = kind;
        key.kinds[at] = static_cast<int8_t>(kind);
        key.squares[at] = squares[i];
        key.name[at] = KindLetters[kind];
        ++at;
    }
    return true;
}

int shiftOf(const BitbaseKey& key) {
    return 6 * (key.total - 1);
}

bool leadingPawnIsFirst(const BitbaseKey& key) {
    return key.pawnIndex < key.firstCount;
}

}  // namespace

bool makeBitbaseKey(BitbaseKey& key, const int8_t* firstKinds, const int8_t* firstSquares,
                    const int8_t* secondKinds, const int8_t* secondSquares, int sideBit) {
    key = BitbaseKey{};
    key.sideBit = sideBit & 1;
    key.pawnIndex = -1;
    int at = 0;
    if (!appendColour(key, firstKinds, firstSquares, at)) return false;
    key.firstCount = at;
    if (!appendColour(key, secondKinds, secondSquares, at)) return false;
    key.secondCount = at - key.firstCount;
    key.total = at;
    key.name[at] = 0;
    return true;
}

void mirroredBitbaseKey(const BitbaseKey& key, BitbaseKey& mirrored) {
    mirrored = BitbaseKey{};
    mirrored.sideBit = key.sideBit ^ 1;
    mirrored.firstCount = key.secondCount;
    mirrored.secondCount = key.firstCount;
    mirrored.total = key.total;
    mirrored.pawnIndex = -1;
    for (int i = 0; i < key.total; ++i) {
        // The second colour's men come first now.
        const int from = (i + key.firstCount) % key.total;
        mirrored.kinds[i] = key.kinds[from];
        mirrored.squares[i] = static_cast<int8_t>(key.squares[from] ^ 56);
        mirrored.name[i] = key.name[from];
        if (mirrored.kinds[i] == Pawn && mirrored.pawnIndex < 0) mirrored.pawnIndex = i;
    }
}

bool bitbaseKeyFromName(BitbaseKey& key, const char* name) {
    int8_t kinds[2][BitbaseMaxMen + 1] = {};
    const int8_t squares[BitbaseMaxMen + 1] = {};
    int colour = -1, count = 0, total = 0;
    for (const char* c = name; *c; ++c) {
        int kind = None;
        for (int k = Pawn; k <= King; ++k)
            if (*c == KindLetters[k]) kind = k;
        if (kind == None || ++total > BitbaseMaxMen) return false;
        if (kind == King) {
            if (++colour > 1) return false;
            count = 0;
        } else if (colour < 0) {
            return false;
        }
        kinds[colour][count++] = static_cast<int8_t>(kind);
    }
    return colour == 1 && makeBitbaseKey(key, kinds[0], squares, kinds[1], squares, 0);
}

uint64_t bitbaseIndex(const BitbaseKey& key) {
    if (key.pawnIndex >= 0) {
        const int pawn = key.squares[key.pawnIndex];
        int file = pawn & 7, mirror = 0;
        if (file >= 4) {
            mirror = 7;
            file = 7 - file;
        }
        int row = pawn & 56;
        if (leadingPawnIsFirst(key) ? row < 8 || row > 40 : row < 16 || row > 48)
            return NoBitbaseIndex;
        if (!leadingPawnIsFirst(key)) row -= 16;
        uint64_t index = static_cast<uint64_t>(key.sideBit | ((file * 2 | row) + 2));
        for (int i = 0; i < key.total; ++i)
            if (i != key.pawnIndex) index = index << 6 | (key.squares[i] ^ mirror);
        return index;
    }
    // Without pawns: the first king goes into the a8 quadrant, and into the triangle below the
    // a8-h1 diagonal by a swap of rows and files if it (or, from a king on the diagonal, the
    // first man off it) stands above.
    const int king = key.squares[0];
    const int fold = ((king & 4) ? 7 : 0) + ((king & 32) ? 56 : 0);
    const int folded = king ^ fold;
    const int row = folded >> 3, file = folded & 7;
    bool above = row > file, onDiagonal = row == file;
    uint64_t rest = 0;
    for (int i = 1; i < key.total; ++i) {
        const int q = key.squares[i] ^ fold;
        if (onDiagonal) {
            above = (q >> 3) > (q & 7);
            onDiagonal = (q >> 3) == (q & 7);
        }
        rest = rest << 6 | q;
    }
    const int shift = shiftOf(key);
    if (!above) return static_cast<uint64_t>(triangleSlot(row, file) + key.sideBit) << shift | rest;
    const uint64_t swapped = ((rest >> 3) & 0x71c71c7) | ((rest & 0x71c71c7) * 8);
    return static_cast<uint64_t>(triangleSlot(file, row) + key.sideBit) << shift | swapped;
}

uint64_t bitbaseIndexCount(const BitbaseKey& key) {
    uint64_t leading = 20;
    if (key.pawnIndex >= 0) {
        // Leading field 2 + 2 * file + row * 8 (row less 2 for the second colour), with the side
        // bit: the largest is a pawn on file d, row 5 or 6.
        leading = leadingPawnIsFirst(key) ? 2 + 6 + 40 + 2 : 2 + 6 + 32 + 2;
    }
    return leading << shiftOf(key);
}

bool bitbasePositionFromIndex(BitbaseKey& key, uint64_t index) {
    if (index >= bitbaseIndexCount(key)) return false;
    const int shift = shiftOf(key);
    const int leading = static_cast<int>(index >> shift);
    key.sideBit = leading & 1;
    int others = 0;  // the index of the first man read from the six-bit groups
    if (key.pawnIndex >= 0) {
        const int field = (leading & ~1) - 2;
        if (field < 0) return false;
        int row = field & ~7;
        if (!leadingPawnIsFirst(key)) row += 16;
        key.squares[key.pawnIndex] = static_cast<int8_t>(row | (field & 7) >> 1);
    } else {
        const int slot = leading & ~1;
        for (int row = 0; row < 4; ++row)
            for (int file = row; file < 4; ++file)
                if (triangleSlot(row, file) == slot)
                    key.squares[0] = static_cast<int8_t>(row * 8 + file);
        others = 1;
    }
    int groupShift = shift;
    for (int i = others; i < key.total; ++i) {
        if (i == key.pawnIndex) continue;
        groupShift -= 6;
        key.squares[i] = static_cast<int8_t>((index >> groupShift) & 63);
    }
    return true;
}
