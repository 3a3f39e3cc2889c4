// Inputs found by the fuzz targets in fuzz/, each fed through the code path that failed.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/tables.h"
#include "board/text.h"
#include "test_positions.h"

namespace {

int square(const char* name) {
    return squareFromLetters(name[0], name[1]);
}

TEST(FuzzRegression, EnPassantFieldNeedsTheDoubleSteppedPawn) {
    // A rook stands where the pawn that just moved two squares should be. Refusing the field or
    // the FEN are both fine; taking "en passant" must not remove the rook as a pawn.
    const char* fen = "8/8/8/2k5/2pR4/8/B7/4K3 b - d3 0 1";
    Position p;
    constructPosition(p);
    if (!parseFen(p, fen)) return;
    for (Move move : legalMoves(p)) {
        UndoRecord undo;
        beginUndo(undo, p);
        ASSERT_TRUE(makeLegal(p, move, undo));
        EXPECT_EQ(invariantProblem(p), "") << fen << " move " << move;
        undoMove(undo);
    }
}

TEST(FuzzRegression, AlgebraicTextNamesTheSquareWhenFileAndRankAreShared) {
    // Queens on a1, a4 and h4 all reach d4: the a4 queen shares its file with one and its rank
    // with the other, so only "Qa4d4" tells it apart.
    Position p;
    constructPosition(p);
    ASSERT_NE(parseFen(p, "1k6/8/8/8/Q6Q/8/8/Q2K3Q w - - 0 1"), nullptr);
    const Move move = makeMoveValue(square("a4"), square("d4"), Queen);
    for (int style : {StyleEnglish, StyleGerman}) {
        char text[16];
        writeMove(p, move, style, text);
        Move back = NoMove;
        EXPECT_TRUE(parseMove(p, text, back, 0) && back == move) << text;
    }
}

TEST(FuzzRegression, PawnMoveTextAgreesWithPromotion) {
    // A pawn reaching the last rank without a promotion letter, or a promotion letter on any
    // other pawn move: either the text is refused or it reads as a move the generator makes.
    struct Case {
        const char* fen;
        const char* text;
        int format;
    } cases[] = {
        {"n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - - 0 1", "g2h1", 1},
        {"n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - - 0 1", "gxh1", 0},
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1", "e2e4q", 1},
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1", "e4=Q", 0},
    };
    for (const Case& c : cases) {
        Position p;
        constructPosition(p);
        ASSERT_NE(parseFen(p, c.fen), nullptr);
        const std::vector<Move> legal = legalMoves(p);
        Move move = NoMove;
        if (!parseMove(p, c.text, move, c.format)) continue;
        EXPECT_NE(std::find(legal.begin(), legal.end(), move), legal.end()) << c.text;
    }
}

}  // namespace
