#include "tools/bitbasegen/solver.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>

#include "board/bitboard.h"
#include "board/tables.h"

namespace {

constexpr const char* KindLetters = "-BSLTDK";
constexpr int Pawn = 1, Knight = 2, Bishop = 3, Rook = 4, Queen = 5, King = 6;

// The men of a key as a small board. Side 0 is the colour listed first, whose pawns move
// towards square 0.
struct Men {
    int count = 0;
    int8_t kind[BitbaseMaxMen];
    int8_t square[BitbaseMaxMen];
    int8_t side[BitbaseMaxMen];
    int toMove = 0;

    Bitboard occupied(int s) const {
        Bitboard b = 0;
        for (int i = 0; i < count; ++i)
            if (side[i] == s) b |= squareBit(square[i]);
        return b;
    }
    int king(int s) const {
        for (int i = 0; i < count; ++i)
            if (side[i] == s && kind[i] == King) return square[i];
        return -1;
    }
};

Men menOf(const BitbaseKey& key) {
    Men m;
    m.count = key.total;
    for (int i = 0; i < key.total; ++i) {
        m.kind[i] = key.kinds[i];
        m.square[i] = key.squares[i];
        m.side[i] = i < key.firstCount ? 0 : 1;
    }
    m.toMove = key.sideBit;
    return m;
}

Bitboard attacksOf(int kind, int side, int square, Bitboard occupied) {
    switch (kind) {
        case Pawn:
            return side == 0 ? upPawnAttacks(squareBit(square))
                             : downPawnAttacks(squareBit(square));
        case Knight:
            return KnightMask[square];
        case Bishop:
            return bishopAttacks(square, occupied);
        case Rook:
            return rookAttacks(square, occupied);
        case Queen:
            return queenAttacks(square, occupied);
        default:
            return KingMask[square];
    }
}

bool attackedBy(const Men& m, int square, int side) {
    const Bitboard occupied = m.occupied(0) | m.occupied(1);
    for (int i = 0; i < m.count; ++i)
        if (m.side[i] == side && (attacksOf(m.kind[i], side, m.square[i], occupied) >> square & 1))
            return true;
    return false;
}

// Pawns stand only where a probe can find them: off the last rank, and off the home rank,
// from which a double step would need an en-passant square the files don't have.
bool pawnRowAllowed(int side, int square) {
    const int row = rowOf(square);
    return side == 0 ? row >= 1 && row <= 5 : row >= 2 && row <= 6;
}

// A position that some probe reads: men on different squares, pawns on allowed rows, the side
// not to move not in check.
bool existing(const Men& m) {
    Bitboard seen = 0;
    for (int i = 0; i < m.count; ++i) {
        if (seen >> m.square[i] & 1) return false;
        seen |= squareBit(m.square[i]);
        if (m.kind[i] == Pawn && !pawnRowAllowed(m.side[i], m.square[i])) return false;
    }
    return !attackedBy(m, m.king(1 - m.toMove), m.toMove);
}

// The key of `m`, which may hold other material than it came from: men sorted by side, king
// first, then kinds ascending, keeping the order of equal men.
BitbaseKey keyOf(const Men& m) {
    int8_t kinds[2][BitbaseMaxMen + 1] = {}, squares[2][BitbaseMaxMen + 1] = {};
    int n[2] = {0, 0};
    for (int s = 0; s < 2; ++s)
        for (int kind : {King, Pawn, Knight, Bishop, Rook, Queen})
            for (int i = 0; i < m.count; ++i)
                if (m.side[i] == s && m.kind[i] == kind) {
                    kinds[s][n[s]] = int8_t(kind);
                    squares[s][n[s]++] = m.square[i];
                }
    BitbaseKey key;
    if (!makeBitbaseKey(key, kinds[0], squares[0], kinds[1], squares[1], m.toMove)) std::abort();
    return key;
}

// Verdicts in the two-bit form SolvedMaterials keeps: 1 win, 2 loss for the side to move.
constexpr int PackedWin = 1, PackedLoss = 2;

int packedAt(const std::vector<uint8_t>& packed, uint64_t index) {
    return packed[index >> 2] >> (2 * (index & 3)) & 3;
}

void setPacked(std::vector<uint8_t>& packed, uint64_t index, int verdict) {
    packed[index >> 2] |= uint8_t(verdict << (2 * (index & 3)));
}

// Distances live in one byte per index, beside the verdict's two bits.
constexpr int LongestDistance = 254;

// A move of the side to move: either into the same material (`index`) or out of it
// (`verdict` for the mover).
struct MoveOutcome {
    bool converts;
    int verdict;
    uint64_t index;
};

// Calls `visit(MoveOutcome)` for every legal move of the side to move; returns their number.
template <class Visit>
int forEachMove(const Men& m, const BitbaseKey& key, const SolvedMaterials& solved, Visit visit) {
    const int us = m.toMove, them = 1 - us;
    const Bitboard own = m.occupied(us), enemy = m.occupied(them);
    int legal = 0;
    for (int i = 0; i < m.count; ++i) {
        if (m.side[i] != us) continue;
        Bitboard targets;
        if (m.kind[i] == Pawn) {
            const int step = us == 0 ? -8 : 8;
            targets = attacksOf(Pawn, us, m.square[i], 0) & enemy;
            if (!((own | enemy) >> (m.square[i] + step) & 1))
                targets |= squareBit(m.square[i] + step);
        } else {
            targets = attacksOf(m.kind[i], us, m.square[i], own | enemy) & ~own;
        }
        for (; targets; targets &= targets - 1) {
            const int to = firstSquare(targets);
            Men next = m;
            next.square[i] = int8_t(to);
            next.toMove = them;
            bool converts = false;
            for (int j = 0; j < next.count; ++j)
                if (j != i && next.square[j] == to) {
                    converts = true;
                    std::memmove(&next.kind[j], &next.kind[j + 1], next.count - j - 1);
                    std::memmove(&next.square[j], &next.square[j + 1], next.count - j - 1);
                    std::memmove(&next.side[j], &next.side[j + 1], next.count - j - 1);
                    --next.count;
                    break;
                }
            const int moved = converts && i > 0 && next.square[i - 1] == to ? i - 1 : i;
            if (attackedBy(next, next.king(us), them)) continue;
            ++legal;
            const bool promotes = m.kind[i] == Pawn && (rowOf(to) == 0 || rowOf(to) == 7);
            if (promotes) {
                for (int piece = Knight; piece <= Queen; ++piece) {
                    next.kind[moved] = int8_t(piece);
                    visit(MoveOutcome{true, -solved.verdict(keyOf(next)), 0});
                }
            } else if (converts) {
                visit(MoveOutcome{true, -solved.verdict(keyOf(next)), 0});
            } else {
                BitbaseKey k = key;
                for (int j = 0; j < next.count; ++j) k.squares[j] = next.square[j];
                k.sideBit = them;
                visit(MoveOutcome{false, 0, bitbaseIndex(k)});
            }
        }
    }
    return legal;
}

// Calls `visit(index)` for each position of the same material, other side to move, from which
// one move leads here, once per index.
template <class Visit>
void forEachPredecessor(const Men& m, const BitbaseKey& key, Visit visit) {
    const int mover = 1 - m.toMove;
    const Bitboard occupied = m.occupied(0) | m.occupied(1);
    uint64_t found[256];
    int n = 0;
    for (int i = 0; i < m.count; ++i) {
        if (m.side[i] != mover) continue;
        Bitboard origins;
        if (m.kind[i] == Pawn) {
            const int from = m.square[i] + (mover == 0 ? 8 : -8);
            origins = pawnRowAllowed(mover, from) ? squareBit(from) & ~occupied : 0;
        } else {
            origins = attacksOf(m.kind[i], mover, m.square[i], occupied) & ~occupied;
        }
        for (; origins; origins &= origins - 1) {
            Men before = m;
            before.square[i] = int8_t(firstSquare(origins));
            before.toMove = mover;
            if (attackedBy(before, before.king(m.toMove), mover)) continue;
            BitbaseKey k = key;
            for (int j = 0; j < m.count; ++j) k.squares[j] = before.square[j];
            k.sideBit = mover;
            found[n++] = bitbaseIndex(k);
        }
    }
    std::sort(found, found + n);
    for (int j = 0; j < n; ++j)
        if (j == 0 || found[j] != found[j - 1]) visit(found[j]);
}

int pawnCount(const std::string& name) {
    return int(std::count(name.begin(), name.end(), 'B'));
}

// The name of a material from its two armies, each without its king.
std::string nameOf(std::string first, std::string second) {
    auto order = [](std::string& army) {
        std::sort(army.begin(), army.end(), [](char a, char b) {
            return std::strchr(KindLetters, a) < std::strchr(KindLetters, b);
        });
    };
    order(first);
    order(second);
    return "K" + first + "K" + second;
}

bool splitName(const std::string& name, std::string& first, std::string& second) {
    BitbaseKey key;
    if (!bitbaseKeyFromName(key, name.c_str()) || key.name != name) return false;
    first = name.substr(1, key.firstCount - 1);
    second = name.substr(key.firstCount + 1);
    return true;
}

// The materials one capture or promotion away.
std::vector<std::string> successorsOf(const std::string& name) {
    std::string armies[2];
    splitName(name, armies[0], armies[1]);
    std::vector<std::string> out;
    auto add = [&](const std::string& a, const std::string& b, int s) {
        out.push_back(s == 0 ? nameOf(a, b) : nameOf(b, a));
    };
    for (int s = 0; s < 2; ++s) {
        const std::string& own = armies[s];
        const std::string& other = armies[1 - s];
        for (size_t i = 0; i < other.size(); ++i) {
            std::string taken = other;
            taken.erase(i, 1);
            add(own, taken, s);  // a capture
            for (size_t p = 0; p < own.size(); ++p)
                for (char piece : std::string(own[p] == 'B' ? "SLTD" : "")) {
                    std::string promoted = own;
                    promoted[p] = piece;
                    add(promoted, taken, s);  // a capture that promotes
                }
        }
        for (size_t p = 0; p < own.size(); ++p)
            for (char piece : std::string(own[p] == 'B' ? "SLTD" : "")) {
                std::string promoted = own;
                promoted[p] = piece;
                add(promoted, other, s);
            }
    }
    return out;
}

std::string unorderedName(const std::string& name) {
    std::string mirror;
    mirrorName(name, mirror);
    return std::min(name, mirror);
}

}  // namespace

int SolvedMaterials::verdict(const BitbaseKey& key) const {
    auto table = tables.find(key.name);
    BitbaseKey k = key;
    if (table == tables.end()) {
        mirroredBitbaseKey(key, k);
        table = tables.find(k.name);
        if (table == tables.end()) std::abort();  // solvingOrder puts every successor first
    }
    const uint64_t index = bitbaseIndex(k);
    const int v = table->second[index >> 2] >> (2 * (index & 3)) & 3;
    return v == 1 ? 1 : v == 2 ? -1 : 0;
}

bool SolvedMaterials::has(const std::string& name) const {
    return tables.count(name) != 0;
}

void SolvedMaterials::add(const std::string& name, std::vector<uint8_t> packed) {
    tables[name] = std::move(packed);
}

bool mirrorName(const std::string& name, std::string& mirror) {
    std::string first, second;
    if (!splitName(name, first, second)) return false;
    mirror = "K" + second + "K" + first;
    return true;
}

std::vector<std::string> solvingOrder(const std::vector<std::string>& names) {
    std::set<std::string> needed;
    std::vector<std::string> work;
    for (const std::string& n : names) work.push_back(unorderedName(n));
    while (!work.empty()) {
        const std::string n = work.back();
        work.pop_back();
        if (!needed.insert(n).second) continue;
        for (const std::string& s : successorsOf(n)) work.push_back(unorderedName(s));
    }
    std::vector<std::string> order(needed.begin(), needed.end());
    // A capture lowers the men, a promotion the pawns.
    std::stable_sort(order.begin(), order.end(), [](const std::string& a, const std::string& b) {
        if (a.size() != b.size()) return a.size() < b.size();
        return pawnCount(a) < pawnCount(b);
    });
    return order;
}

std::vector<std::string> materialsReachedFrom(const std::string& name) {
    std::vector<std::string> out;
    for (const std::string& s : successorsOf(name)) out.push_back(unorderedName(s));
    return out;
}

std::vector<std::string> namesUpTo(int men) {
    std::vector<std::string> armies{""};
    for (size_t at = 0; at < armies.size(); ++at) {
        if (int(armies[at].size()) >= men - 2) continue;
        const char last = armies[at].empty() ? 'B' : armies[at].back();
        for (const char* c = std::strchr(KindLetters, last); *c && *c != 'K'; ++c)
            armies.push_back(armies[at] + *c);
    }
    std::vector<std::string> names;
    for (const std::string& a : armies)
        for (const std::string& b : armies)
            if (int(a.size() + b.size()) + 2 <= men) names.push_back("K" + a + "K" + b);
    return names;
}

bool solveMaterial(const std::string& name, SolvedMaterials& solved, SolveResult& result,
                   std::string& error) {
    BitbaseKey material;
    if (!bitbaseKeyFromName(material, name.c_str())) {
        error = "no such material: " + name;
        return false;
    }
    const uint64_t count = bitbaseIndexCount(material);
    // With pawns the lowest leading fields name no square; the byte array starts above them.
    uint64_t base = 0;
    for (uint64_t step = uint64_t{1} << (6 * (material.total - 1)), probe = 0; probe < count;
         probe += step) {
        BitbaseKey key = material;
        if (bitbasePositionFromIndex(key, probe) && bitbaseIndex(key) == probe) break;
        base = probe + step;
    }
    // One byte per index: while a position is open, its successors not yet known to win for
    // the opponent; once it is decided (its verdict in `packed`), its distance in plies to mate
    // or to a decisive capture or promotion. A position that doesn't exist or is stalemate
    // has 0 and no verdict, so it never counts as open.
    std::vector<uint8_t> bytes(count - base, 0);
    std::vector<uint8_t> packed((count + 3) / 4, 0);
    auto byteAt = [&](uint64_t index) -> uint8_t& { return bytes[index - base]; };

    // Every position: its moves counted, mates and decisive captures found.
    uint64_t nextLevel = 0;
    for (uint64_t index = base; index < count; ++index) {
        BitbaseKey key = material;
        if (!bitbasePositionFromIndex(key, index) || bitbaseIndex(key) != index) continue;
        const Men m = menOf(key);
        if (!existing(m)) continue;
        uint64_t successors[256];
        int n = 0, drawingExits = 0;
        bool winningExit = false;
        const int legal = forEachMove(m, key, solved, [&](const MoveOutcome& o) {
            if (!o.converts)
                successors[n++] = o.index;
            else if (o.verdict > 0)
                winningExit = true;
            else if (o.verdict == 0)
                ++drawingExits;
        });
        std::sort(successors, successors + n);
        const int open = int(std::unique(successors, successors + n) - successors) + drawingExits;
        if (legal == 0) {
            if (attackedBy(m, m.king(m.toMove), 1 - m.toMove)) setPacked(packed, index, PackedLoss);
        } else if (winningExit || open == 0) {
            setPacked(packed, index, winningExit ? PackedWin : PackedLoss);
            byteAt(index) = 1;
            ++nextLevel;
        } else {
            byteAt(index) = uint8_t(open);
        }
    }

    // Un-moves from the positions decided at each distance, nearest first, so a win takes its
    // shortest distance and a loss its longest. A level is found by a scan for its distance,
    // which costs a pass over the bytes but no queue.
    for (int level = 0;; ++level) {
        if (level > 1 && nextLevel == 0) break;
        if (level == LongestDistance) {
            error = name + ": a distance beyond " + std::to_string(LongestDistance) + " plies";
            return false;
        }
        nextLevel = 0;
        const uint8_t* at = bytes.data();
        const uint8_t* const end = at + bytes.size();
        while ((at = static_cast<const uint8_t*>(std::memchr(at, level, size_t(end - at))))) {
            const uint64_t index = uint64_t(at - bytes.data()) + base;
            ++at;
            const int verdict = packedAt(packed, index);
            if (verdict == 0) continue;  // open, with `level` moves left
            BitbaseKey key = material;
            bitbasePositionFromIndex(key, index);
            forEachPredecessor(menOf(key), key, [&](uint64_t before) {
                uint8_t& b = byteAt(before);
                if (b == 0 || packedAt(packed, before) != 0) return;
                if (verdict == PackedLoss) {
                    setPacked(packed, before, PackedWin);
                } else if (--b == 0) {
                    setPacked(packed, before, PackedLoss);
                } else {
                    return;
                }
                b = uint8_t(level + 1);
                ++nextLevel;
            });
        }
    }

    // Every verdict against its moves: a win needs a move to a loss one ply nearer (or a
    // decisive capture at distance 1), a loss needs every move to lose for it and one of them
    // at the full distance, anything else has a move that doesn't lose and none that wins.
    for (uint64_t index = base; index < count; ++index) {
        BitbaseKey key = material;
        if (!bitbasePositionFromIndex(key, index) || bitbaseIndex(key) != index) continue;
        const Men m = menOf(key);
        if (!existing(m)) continue;
        const int state = packedAt(packed, index);
        const int distance = state ? byteAt(index) : 0;
        bool along = false, wins = false, draws = false, slower = false;
        const int legal = forEachMove(m, key, solved, [&](const MoveOutcome& o) {
            int v = -o.verdict, d = 0;  // verdict and distance for the side that replies
            if (!o.converts) {
                const int s = packedAt(packed, o.index);
                v = s == PackedWin ? 1 : s == PackedLoss ? -1 : 0;
                d = s ? byteAt(o.index) : 0;
            }
            wins = wins || v < 0;
            draws = draws || v == 0;
            slower = slower || (v > 0 && d + 1 > distance);
            if (v == (state == PackedWin ? -1 : 1) && d + 1 == distance) along = true;
        });
        const bool inCheck = attackedBy(m, m.king(m.toMove), 1 - m.toMove);
        bool ok;
        if (state == PackedWin)
            ok = along;
        else if (state == PackedLoss && legal == 0)
            ok = inCheck && distance == 0;
        else if (state == PackedLoss)
            ok = along && !wins && !draws && !slower;
        else
            ok = !wins && (draws || (legal == 0 && !inCheck));
        if (!ok) {
            error = name + ": index " + std::to_string(index) + " disagrees with its moves";
            return false;
        }
        const int side = key.sideBit;
        if (state) result.longestWin = std::max(result.longestWin, distance);
        ++result.legal;
        if (state == (side == 0 ? PackedWin : PackedLoss)) ++result.firstWins[side];
        if (state == (side == 0 ? PackedLoss : PackedWin)) ++result.secondWins[side];
    }
    bytes = {};

    // The files' bits. An index that no probe reads repeats the bit before it, which keeps
    // runs long for the block coder.
    auto fileBits = [&](const std::string& fileName, bool mirrored, std::vector<uint8_t>& bits) {
        BitbaseKey fileKey;
        bitbaseKeyFromName(fileKey, fileName.c_str());
        const uint64_t n = bitbaseIndexCount(fileKey);
        bits.assign((n + 7) / 8, 0);
        int previous = 0;
        for (uint64_t index = 0; index < n; ++index) {
            BitbaseKey key = fileKey;
            int bit = previous;
            if (bitbasePositionFromIndex(key, index) && bitbaseIndex(key) == index &&
                existing(menOf(key))) {
                BitbaseKey own = key;
                if (mirrored) mirroredBitbaseKey(key, own);
                const uint64_t i = bitbaseIndex(own);
                const int v = packedAt(packed, i);
                // The file's first colour wins: a win for it to move, a loss for the other.
                bit = key.sideBit == 0 ? v == PackedWin : v == PackedLoss;
            }
            if (bit) bits[index >> 3] |= uint8_t(1 << (index & 7));
            previous = bit;
        }
    };
    result.name = name;
    mirrorName(name, result.mirrorName);
    fileBits(name, false, result.bits);
    if (result.mirrorName != name) fileBits(result.mirrorName, true, result.mirrorBits);
    solved.add(name, std::move(packed));
    return true;
}
