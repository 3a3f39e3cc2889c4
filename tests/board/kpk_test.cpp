#include <gtest/gtest.h>

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

    // King directly in front on the fifth: the opposition decides.
    EXPECT_GT(kpkProbe(false, sq("e5"), sq("e7"), sq("e4")), 0);
    EXPECT_EQ(kpkProbe(true, sq("e5"), sq("e7"), sq("e4")), DrawResult);

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

}  // namespace
