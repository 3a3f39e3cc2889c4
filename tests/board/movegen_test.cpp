#include "board/movegen.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/tables.h"
#include "board/text.h"

namespace {

Position fromFen(const char* fen) {
    Position p;
    constructPosition(p);
    EXPECT_NE(parseFen(p, fen), nullptr) << fen;
    return p;
}

std::vector<std::string> movesOf(Position& p, int mode) {
    MoveEntry list[MaxMovesPerPosition];
    MoveEntry* end = generateMoves(p, mode, list);
    std::vector<std::string> texts;
    for (MoveEntry* e = list; e < end; ++e) {
        char text[16];
        texts.push_back(writeMove(p, e->move, StyleCoordinates, text));
    }
    return texts;
}

bool contains(const std::vector<std::string>& moves, const char* move) {
    for (const std::string& m : moves)
        if (m == move) return true;
    return false;
}

TEST(MoveGeneration, EnPassantEvasionOnlyAgainstTheCheckingPawn) {
    // The pawn that just double-pushed gives check: taking it en passant is offered.
    Position p = fromFen("8/8/8/2k5/3Pp3/8/8/4K3 b - d3 0 1");
    EXPECT_TRUE(contains(movesOf(p, GenAll), "e4d3"));
    // A bishop gives check: the en passant capture would only block and is not offered.
    Position r = fromFen("2b1k3/8/8/3Pp3/8/7K/8/8 w - e6 0 1");
    EXPECT_TRUE(sideToMoveInCheck(r));
    EXPECT_FALSE(contains(movesOf(r, GenAll), "d5e6"));
}

TEST(MoveGeneration, PromotionsByMode) {
    Position p = fromFen("1r2k3/P7/8/8/8/8/8/4K3 w - - 0 1");
    const std::vector<std::string> all = movesOf(p, GenAll);
    const std::vector<std::string> firstFour(all.begin(), all.begin() + 4);
    EXPECT_EQ(firstFour, (std::vector<std::string>{"a7b8q", "a7b8r", "a7b8b", "a7b8n"}));
    const std::vector<std::string> captures = movesOf(p, GenCaptures);
    EXPECT_TRUE(contains(captures, "a7b8q"));
    EXPECT_FALSE(contains(captures, "a7b8n"));
    EXPECT_TRUE(contains(captures, "a7a8q"));
    EXPECT_FALSE(contains(captures, "a7a8r"));
}

TEST(MoveGeneration, CaptureModeSkipsCapturesThatCannotPay) {
    // Rook takes a pawn guarded by a pawn: absent. Queen takes a pawn-guarded knight: absent;
    // a pawn-guarded queen: present.
    Position p = fromFen("4k3/8/2p5/1p1n4/8/8/1R6/3QK3 w - - 0 1");
    const std::vector<std::string> captures = movesOf(p, GenCaptures);
    EXPECT_FALSE(contains(captures, "b2b5"));
    EXPECT_FALSE(contains(captures, "d1d5"));
    Position q = fromFen("4k3/8/2p5/3q4/8/8/8/3QK3 w - - 0 1");
    EXPECT_TRUE(contains(movesOf(q, GenCaptures), "d1d5"));
}

TEST(MoveGeneration, SelectiveModesGiveSafeChecks) {
    // Knight checks on f6 (safe) and d6 (guarded by a pawn, unsafe).
    Position p = fromFen("4k3/2p5/8/8/4N3/8/8/4K3 w - - 0 1");
    const std::vector<std::string> checks = movesOf(p, GenChecks);
    EXPECT_TRUE(contains(checks, "e4f6"));
    EXPECT_FALSE(contains(checks, "e4d6"));
    EXPECT_FALSE(contains(checks, "e4c5"));  // neither a check nor a capture
    // Mode 2 adds a quiet push to the seventh rank.
    Position q = fromFen("7k/8/5P2/8/8/8/8/4K3 w - - 0 1");
    EXPECT_FALSE(contains(movesOf(q, GenChecks), "f6f7"));
    EXPECT_TRUE(contains(movesOf(q, GenChecksAndSeventh), "f6f7"));
}

TEST(MoveGeneration, ModesAboveFourAreEmptyUnlessInCheck) {
    Position p = fromFen("4k3/8/8/8/8/8/8/R3K3 w - - 0 1");
    EXPECT_TRUE(movesOf(p, 5).empty());
    Position q = fromFen("4k3/8/8/8/8/8/8/r3K3 w - - 0 1");
    EXPECT_FALSE(movesOf(q, 5).empty());
}

TEST(LegalMoves, NoLegalMoveResults) {
    int result = 9;
    Position mate = fromFen("R5k1/5ppp/8/8/8/8/8/6K1 b - - 0 1");
    EXPECT_TRUE(hasNoLegalMove(mate, &result));
    EXPECT_EQ(result, 1);
    Position stalemate = fromFen("7k/5Q2/8/8/8/8/8/6K1 b - - 0 1");
    EXPECT_TRUE(hasNoLegalMove(stalemate, &result));
    EXPECT_EQ(result, 0);
    Position alive = fromFen("7k/8/8/8/8/8/8/6K1 b - - 0 1");
    EXPECT_FALSE(hasNoLegalMove(alive, &result));
}

}  // namespace
