// King and pawn against king, solved once at start-up by retrograde analysis.
//
// The side with the pawn ("attacker") is seen as White, pawn moving towards lower square
// numbers; only pawns on the a to d files are stored, the others are mirrored on probing.
// An entry counts the plies until the pawn promotes on a square the defender cannot take.
#include <cstdlib>

#include "board/bitboard.h"
#include "board/tables.h"

uint8_t KpkTable[24 * 8192];
int32_t KpkOffset[64];

namespace {

constexpr uint8_t Unknown = 0;
constexpr uint8_t Draw = 126;
constexpr uint8_t Illegal = 127;

constexpr int BlockSize = 8192;
constexpr int AttackerToMove = 4096;

// Block order of the table.
constexpr const char* PawnSquareText = "A2A3A4A5A6A7B2B3B4B5B6B7C2C3C4C5C6C7D2D3D4D5D6D7";

bool adjacent(int a, int b) {
    int df = std::abs(fileOf(a) - fileOf(b));
    int dr = std::abs(rowOf(a) - rowOf(b));
    return a != b && df <= 1 && dr <= 1;
}

// Squares attacked by a White pawn, which captures towards lower square numbers.
Bitboard pawnAttacks(int pawn) {
    Bitboard attacks = 0;
    if (fileOf(pawn) > 0 && pawn >= 9) attacks |= squareBit(pawn - 9);
    if (fileOf(pawn) < 7 && pawn >= 7) attacks |= squareBit(pawn - 7);
    return attacks;
}

// King steps are computed here rather than taken from the attack tables: those belong to
// another translation unit, whose initialisation may not have run yet.
struct KingSteps {
    int count = 0;
    int to[8] = {};
    Bitboard area = 0;
};

class KpkBuilder {
  public:
    KpkBuilder() {
        for (int s = 0; s < 64; ++s) {
            for (int t = 0; t < 64; ++t) {
                if (!adjacent(s, t)) continue;
                steps_[s].to[steps_[s].count++] = t;
                steps_[s].area |= squareBit(t);
            }
        }
        for (int s = 0; s < 64; ++s) KpkOffset[s] = -1;
        for (int i = 0; i < 24; ++i) {
            pawns_[i] = squareFromLetters(PawnSquareText[2 * i], PawnSquareText[2 * i + 1]);
            KpkOffset[pawns_[i]] = i * BlockSize;
        }
        markTerminal();
        while (retrogradePass()) {
        }
        for (uint8_t& entry : KpkTable) {
            if (entry == Unknown) entry = Draw;
        }
    }

  private:
    void markTerminal() {
        for (int i = 0; i < 24; ++i) {
            int pawn = pawns_[i];
            int front = pawn - 8;
            for (int d = 0; d < 64; ++d) {
                for (int a = 0; a < 64; ++a) {
                    uint8_t& defenderMoves = KpkTable[i * BlockSize + d * 64 + a];
                    uint8_t& attackerMoves = KpkTable[i * BlockSize + AttackerToMove + d * 64 + a];
                    if (a == pawn || a == d || adjacent(a, d)) {
                        defenderMoves = attackerMoves = Illegal;
                        continue;
                    }
                    if (d == pawn) {
                        // The defender has just taken the pawn.
                        defenderMoves = Illegal;
                        attackerMoves = Draw;
                        continue;
                    }
                    if (pawnAttacks(pawn) & squareBit(d)) attackerMoves = Illegal;

                    Bitboard covered = steps_[a].area | pawnAttacks(pawn);
                    if ((steps_[d].area & ~covered) == 0) defenderMoves = Draw;

                    bool frontBlocked = front == a || front == d;
                    Bitboard attackerFree = steps_[a].area & ~squareBit(pawn) & ~steps_[d].area;
                    if (attackerFree == 0 && frontBlocked) {
                        attackerMoves = Draw;
                        continue;
                    }
                    // Promotion now, on a square the defender's king cannot take.
                    bool safeSquare = !adjacent(front, d) || adjacent(front, a);
                    if (rowOf(pawn) == 1 && !frontBlocked && safeSquare &&
                        attackerMoves != Illegal) {
                        attackerMoves = 1;
                    }
                }
            }
        }
    }

    // One scan over all unknown entries in index order; entries found in this scan are
    // already seen by the entries after them. Returns whether anything changed.
    bool retrogradePass() {
        bool changed = false;
        for (int index = 0; index < 24 * BlockSize; ++index) {
            if (KpkTable[index] != Unknown) continue;
            int block = index / BlockSize;
            int d = (index >> 6) & 63;
            int a = index & 63;
            uint8_t result =
                (index & AttackerToMove) ? attackerValue(block, d, a) : defenderValue(block, d, a);
            if (result != Unknown) {
                KpkTable[index] = result;
                changed = true;
            }
        }
        return changed;
    }

    // The defender keeps the draw if one move reaches it, and otherwise delays the promotion
    // as long as possible, which is only known once every move is known.
    uint8_t defenderValue(int block, int d, int a) const {
        const uint8_t* next = KpkTable + block * BlockSize + AttackerToMove;
        int longest = 0;
        bool unknown = false;
        for (int k = 0; k < steps_[d].count; ++k) {
            uint8_t v = next[steps_[d].to[k] * 64 + a];
            if (v == Illegal) continue;
            if (v == Draw) return Draw;
            if (v == Unknown) {
                unknown = true;
            } else if (v > longest) {
                longest = v;
            }
        }
        if (unknown || longest == 0) return Unknown;
        return static_cast<uint8_t>(longest + 1);
    }

    // The attacker takes the quickest known win at once; the entry is a draw only when every
    // move is known to draw.
    uint8_t attackerValue(int block, int d, int a) const {
        int pawn = pawns_[block];
        const uint8_t* same = KpkTable + block * BlockSize;
        int shortest = Draw;
        bool unknown = false;
        auto consider = [&](uint8_t v) {
            if (v == Illegal) return;
            if (v == Unknown) {
                unknown = true;
            } else if (v < shortest) {
                shortest = v;
            }
        };
        for (int k = 0; k < steps_[a].count; ++k) consider(same[d * 64 + steps_[a].to[k]]);
        // A push onto the last rank is the promotion itself, already marked.
        if (rowOf(pawn) > 1) {
            consider(KpkTable[KpkOffset[pawn - 8] + d * 64 + a]);
            // The square in between is not looked at for the double step.
            if (rowOf(pawn) == 6) consider(KpkTable[KpkOffset[pawn - 16] + d * 64 + a]);
        }
        if (shortest < Draw) return static_cast<uint8_t>(shortest + 1);
        return unknown ? Unknown : Draw;
    }

    KingSteps steps_[64];
    int pawns_[24] = {};
};

const KpkBuilder kpkBuilder;

}  // namespace

int kpkProbe(bool attackerToMove, int attackerKing, int defenderKing, int pawn) {
    int offset = KpkOffset[pawn];
    if (offset < 0) {
        attackerKing ^= 7;
        defenderKing ^= 7;
        pawn ^= 7;
        offset = KpkOffset[pawn];
        // A pawn on the first or last rank has no block at all.
        if (offset < 0) return Illegal;
    }
    int value =
        KpkTable[offset + (attackerToMove ? AttackerToMove : 0) + defenderKing * 64 + attackerKing];
    return value == Draw ? -1 : value;
}
