#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "board/tables.h"

namespace {

int sq(const char* name) {
    return squareFromLetters(name[0], name[1]);
}

constexpr int DrawResult = -1;
constexpr int IllegalResult = 127;

TEST(Kpk, ClassicEndings) {
    // Attacker a6 and a7 against the king in the corner: stalemate or Kb7, never a win.
    EXPECT_EQ(kpkProbe(false, sq("a6"), sq("a8"), sq("a7")), DrawResult);

    // Rook pawn, defender in the corner: a draw whoever moves and wherever the attacker's
    // king stands.
    EXPECT_EQ(kpkProbe(false, sq("b6"), sq("a8"), sq("a5")), DrawResult);
    EXPECT_EQ(kpkProbe(true, sq("b6"), sq("a8"), sq("a5")), DrawResult);
    EXPECT_EQ(kpkProbe(true, sq("g6"), sq("h8"), sq("h5")), DrawResult);
    EXPECT_EQ(kpkProbe(true, sq("b1"), sq("h8"), sq("h2")), DrawResult);

    // King on the sixth in front of its pawn wins with either side to move.
    EXPECT_GT(kpkProbe(false, sq("e6"), sq("e8"), sq("e5")), 0);
    EXPECT_GT(kpkProbe(true, sq("e6"), sq("e8"), sq("e5")), 0);
    EXPECT_GT(kpkProbe(true, sq("d6"), sq("d8"), sq("d5")), 0);

    // King directly in front on the fifth: the opposition decides.
    EXPECT_GT(kpkProbe(false, sq("e5"), sq("e7"), sq("e4")), 0);
    EXPECT_EQ(kpkProbe(true, sq("e5"), sq("e7"), sq("e4")), DrawResult);
    EXPECT_GT(kpkProbe(false, sq("c5"), sq("c7"), sq("c4")), 0);
    EXPECT_EQ(kpkProbe(true, sq("c5"), sq("c7"), sq("c4")), DrawResult);

    // Two squares ahead of its pawn the king wins whoever moves: the pawn has a spare tempo.
    EXPECT_GT(kpkProbe(false, sq("e5"), sq("e7"), sq("e3")), 0);
    EXPECT_GT(kpkProbe(true, sq("e5"), sq("e7"), sq("e3")), 0);
}

TEST(Kpk, PawnOutrunsTheKing) {
    // The rule of the square: a5-a6-a7-a8 takes three pushes and two defender moves.
    EXPECT_EQ(kpkProbe(true, sq("h1"), sq("e5"), sq("a5")), 5);
    // With the defender to move, Kd6 enters the square and catches the pawn.
    EXPECT_EQ(kpkProbe(false, sq("h1"), sq("e5"), sq("a5")), DrawResult);
    // From the second rank the double step counts: five pushes, four defender moves.
    EXPECT_EQ(kpkProbe(true, sq("h1"), sq("g5"), sq("a2")), 9);
    // The same race on the h-file goes through the mirrored block.
    EXPECT_EQ(kpkProbe(true, sq("a1"), sq("d5"), sq("h5")), 5);
    // Promotion at once on a square the defender cannot take.
    EXPECT_EQ(kpkProbe(true, sq("h1"), sq("h3"), sq("b7")), 1);
    EXPECT_EQ(kpkProbe(true, sq("a7"), sq("c7"), sq("b7")), 1);
    // b8 is next to the defender's king and not covered: the pawn would be lost.
    EXPECT_NE(kpkProbe(true, sq("h1"), sq("c7"), sq("b7")), 1);
}

TEST(Kpk, IllegalPlacements) {
    EXPECT_EQ(kpkProbe(true, sq("e4"), sq("e5"), sq("a3")), IllegalResult);   // kings touch
    EXPECT_EQ(kpkProbe(false, sq("a3"), sq("h8"), sq("a3")), IllegalResult);  // king on pawn
    // The pawn gives check, so the attacker cannot be the side to move.
    EXPECT_EQ(kpkProbe(true, sq("h1"), sq("b6"), sq("c5")), IllegalResult);
    EXPECT_NE(kpkProbe(false, sq("h1"), sq("b6"), sq("c5")), IllegalResult);
    // A pawn on the first or last rank has no block; the probe must not read outside.
    EXPECT_EQ(kpkProbe(true, sq("h1"), sq("h8"), sq("a1")), IllegalResult);
    EXPECT_EQ(kpkProbe(false, sq("a1"), sq("a3"), sq("g8")), IllegalResult);
}

TEST(Kpk, MirroredFilesMatch) {
    for (int pawn = 8; pawn < 56; ++pawn) {
        if ((pawn & 7) < 4) continue;
        for (int d = 0; d < 64; ++d) {
            for (int a = 0; a < 64; ++a) {
                for (bool attackerToMove : {false, true}) {
                    ASSERT_EQ(kpkProbe(attackerToMove, a, d, pawn),
                              kpkProbe(attackerToMove, a ^ 7, d ^ 7, pawn ^ 7))
                        << "pawn " << pawn << " defender " << d << " attacker " << a;
                }
            }
        }
    }
}

// An independent solver written from the rules of chess, by plain forward move generation and
// breadth-first layers: layer n holds the positions in which the pawn promotes safely in
// exactly n plies. It shares one convention with the engine's table: a double step from the
// second rank is not stopped by a king on the square in between.
class ReferenceKpk {
  public:
    static constexpr int Illegal = -2;
    static constexpr int NotWon = 0;

    ReferenceKpk() : value_(2 * 64 * 64 * 64, Illegal) {
        for (int s = 0; s < 64; ++s) {
            for (int t = 0; t < 64; ++t) {
                if (touching(s, t)) neighbours_[s].push_back(t);
            }
        }
        for (int side = 0; side < 2; ++side) {
            for (int pawn = 8; pawn < 56; ++pawn) {
                for (int d = 0; d < 64; ++d) {
                    for (int a = 0; a < 64; ++a) {
                        if (legal(side == 1, pawn, d, a)) at(side == 1, pawn, d, a) = NotWon;
                    }
                }
            }
        }
        solve();
    }

    int operator()(bool attackerToMove, int pawn, int d, int a) const {
        return value_[index(attackerToMove, pawn, d, a)];
    }

  private:
    static bool touching(int s, int t) {
        return s != t && std::abs((s & 7) - (t & 7)) <= 1 && std::abs((s >> 3) - (t >> 3)) <= 1;
    }
    static bool pawnTakes(int pawn, int s) {
        return (s >> 3) == (pawn >> 3) - 1 && std::abs((s & 7) - (pawn & 7)) == 1;
    }
    static bool legal(bool attackerToMove, int pawn, int d, int a) {
        if (pawn == d || pawn == a || touching(a, d) || a == d) return false;
        return !(attackerToMove && pawnTakes(pawn, d));
    }
    static int index(bool attackerToMove, int pawn, int d, int a) {
        return ((attackerToMove ? 64 : 0) + pawn) * 4096 + d * 64 + a;
    }
    int& at(bool attackerToMove, int pawn, int d, int a) {
        return value_[index(attackerToMove, pawn, d, a)];
    }

    bool promotesSafely(int pawn, int d, int a) const {
        int queen = pawn - 8;
        if (pawn >= 16 || queen == d || queen == a) return false;
        return !touching(queen, d) || touching(queen, a);
    }

    // Attacker wins in n if some move reaches a defender-to-move position won in n - 1.
    bool attackerWinsIn(int n, int pawn, int d, int a) const {
        if (n == 1) return promotesSafely(pawn, d, a);
        for (int to : neighbours_[a]) {
            if (to != pawn && !touching(to, d) && (*this)(false, pawn, d, to) == n - 1) {
                return true;
            }
        }
        if (pawn < 16) return false;
        int one = pawn - 8;
        if (one == a || one == d) return pawn >= 48 && doubleStepWins(n, pawn, d, a);
        if ((*this)(false, one, d, a) == n - 1) return true;
        return pawn >= 48 && doubleStepWins(n, pawn, d, a);
    }
    bool doubleStepWins(int n, int pawn, int d, int a) const {
        int two = pawn - 16;
        return two != a && two != d && (*this)(false, two, d, a) == n - 1;
    }

    // Defender loses in n if it has a move, every move loses, and the longest takes n - 1.
    bool defenderLosesIn(int n, int pawn, int d, int a) const {
        int longest = 0;
        bool anyMove = false;
        for (int to : neighbours_[d]) {
            if (to == a || touching(to, a) || pawnTakes(pawn, to)) continue;
            anyMove = true;
            if (to == pawn) return false;  // takes the pawn
            int v = (*this)(true, pawn, to, a);
            if (v <= 0) return false;
            if (v > longest) longest = v;
        }
        return anyMove && longest == n - 1;
    }

    void solve() {
        for (int n = 1;; ++n) {
            std::vector<int> found;
            for (int pawn = 8; pawn < 56; ++pawn) {
                for (int d = 0; d < 64; ++d) {
                    for (int a = 0; a < 64; ++a) {
                        if ((*this)(true, pawn, d, a) == NotWon && attackerWinsIn(n, pawn, d, a)) {
                            found.push_back(index(true, pawn, d, a));
                        }
                        if (n > 1 && (*this)(false, pawn, d, a) == NotWon &&
                            defenderLosesIn(n, pawn, d, a)) {
                            found.push_back(index(false, pawn, d, a));
                        }
                    }
                }
            }
            if (found.empty() && n > 2) return;
            for (int i : found) value_[i] = n;
        }
    }

    std::vector<int> value_;
    std::vector<int> neighbours_[64];
};

TEST(Kpk, AgreesWithIndependentSolver) {
    ReferenceKpk reference;
    int mismatches = 0;
    for (int pawn = 8; pawn < 56; ++pawn) {
        for (int d = 0; d < 64; ++d) {
            for (int a = 0; a < 64; ++a) {
                for (bool attackerToMove : {false, true}) {
                    int expected;
                    if (d == pawn) {
                        // The defender has just taken the pawn.
                        bool sane = a != d && !(std::abs((a & 7) - (d & 7)) <= 1 &&
                                                std::abs((a >> 3) - (d >> 3)) <= 1);
                        expected = attackerToMove && sane ? DrawResult : IllegalResult;
                    } else {
                        int v = reference(attackerToMove, pawn, d, a);
                        expected = v == ReferenceKpk::Illegal  ? IllegalResult
                                   : v == ReferenceKpk::NotWon ? DrawResult
                                                               : v;
                    }
                    int actual = kpkProbe(attackerToMove, a, d, pawn);
                    if (actual != expected && ++mismatches <= 10) {
                        ADD_FAILURE() << "pawn " << pawn << " defender " << d << " attacker " << a
                                      << (attackerToMove ? " attacker" : " defender")
                                      << " to move: table " << actual << ", solver " << expected;
                    }
                }
            }
        }
    }
    EXPECT_EQ(mismatches, 0);
}

}  // namespace
