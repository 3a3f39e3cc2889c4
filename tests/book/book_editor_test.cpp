#include "book/book_editor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/text.h"
#include "book/book_test_support.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

Position afterMoves(const std::vector<Move>& moves, size_t count) {
    Position p;
    constructPosition(p);
    for (size_t i = 0; i < count; ++i) {
        UndoRecord undo;
        beginUndo(undo, p);
        EXPECT_TRUE(makeLegal(p, moves[i], undo));
    }
    return p;
}

Position afterTexts(const std::vector<std::string>& texts) {
    Position p;
    constructPosition(p);
    for (const std::string& text : texts) {
        Move move = NoMove;
        EXPECT_TRUE(parseMove(p, text.c_str(), move, 1)) << text;
        UndoRecord undo;
        beginUndo(undo, p);
        makeLegal(p, move, undo);
    }
    return p;
}

Move coordinateMove(const std::vector<std::string>& before, const char* text) {
    Position p = afterTexts(before);
    Move move = NoMove;
    EXPECT_TRUE(parseMove(p, text, move, 1)) << text;
    return move;
}

// The entry of the tree for `move` in the position after `before`; null if there is none.
BookMove* treeMove(BookEditor& editor, const std::vector<std::string>& before, const char* text) {
    std::vector<BookMove>* moves = editor.tree.find(afterTexts(before).hashKey);
    if (!moves) return nullptr;
    const Move move = coordinateMove(before, text);
    for (BookMove& m : *moves)
        if (m.move == move) return &m;
    return nullptr;
}

TEST(BookGames, LengthDecidesWhetherAndHowFarAGameGoesIn) {
    const struct {
        int plies;
        bool all;
        size_t positions;  // the game's positions in the tree, one per ply taken
    } cases[] = {{36, false, 0}, {37, false, 37}, {60, false, 45}, {36, true, 36}};
    for (const auto& c : cases) {
        BookEditor editor;
        const TestGame game = distinctGame({}, c.plies, 7);
        ASSERT_EQ(game.moves.size(), static_cast<size_t>(c.plies));
        editor.addGame(game.moves, "", 1000, 0, c.all, 0);
        EXPECT_EQ(editor.tree.size(), c.positions) << c.plies << " plies, all " << c.all;
    }
}

TEST(BookGames, SameGameByItsFirst99PliesCountsOnceUnlessAll) {
    const TestGame first = distinctGame({"e2e4"}, 105, 11);
    const struct {
        const char* name;
        int sharedPlies;  // the second game follows the first this far
        bool all;
        uint32_t rootPoints;  // both colours' points of the first move
    } cases[] = {
        {"the same game", 105, false, 3000},
        {"the same game, all", 105, true, 4000},
        {"another 100th ply", 99, false, 3000},
        {"another 99th ply", 98, false, 4000},
    };
    for (const auto& c : cases) {
        const std::vector<std::string> shared(first.coordinates.begin(),
                                              first.coordinates.begin() + c.sharedPlies);
        TestGame second = distinctGame(shared, 105, 99);
        for (uint32_t seed = 100;
             c.sharedPlies < 105 && second.moves[c.sharedPlies] == first.moves[c.sharedPlies];
             ++seed)
            second = distinctGame(shared, 105, seed);
        BookEditor editor;
        editor.addGame(first.moves, "", 1000, 0, c.all, 0);
        editor.addGame(second.moves, "", 1000, 0, c.all, 0);
        const BookMove* root = treeMove(editor, {}, "e2e4");
        ASSERT_NE(root, nullptr) << c.name;
        EXPECT_EQ(root->whitePoints + root->blackPoints, c.rootPoints) << c.name;
    }
}

TEST(BookGames, PointsWeighResultRatingsAndTheMovesStillToCome) {
    const struct {
        int result;
        int64_t ratingDiff;
        uint32_t value;
        int plies;
        bool all;
        size_t ply;
        uint32_t whitePoints, blackPoints;
    } cases[] = {
        {1, 0, 1000, 40, false, 0, 2000, 1000},
        {-1, 0, 1000, 40, false, 0, 1000, 2000},
        {0, 0, 2000, 40, false, 0, 2000, 2000},
        // Expected 0.7597 for White: a White win gains less, a Black win more.
        {1, 200, 1000, 40, false, 0, 1480, 1000},
        {-1, 200, 1000, 40, false, 0, 1000, 2519},
        // 60 plies after the first 40: 11.5 % of the result goes to the loser, 7.7 % at ply 20.
        {1, 0, 1000, 100, false, 0, 1884, 1115},
        {1, 0, 1000, 100, false, 20, 1923, 1076},
        // Never more than a quarter.
        {1, 0, 1000, 200, false, 0, 1750, 1250},
        {1, 0, 1000, 100, true, 0, 2000, 1000},
    };
    for (const auto& c : cases) {
        BookEditor editor;
        const TestGame game = distinctGame({}, c.plies, 5);
        ASSERT_EQ(game.moves.size(), static_cast<size_t>(c.plies));
        editor.addGame(game.moves, "", c.value, c.ratingDiff, c.all, c.result);
        const std::vector<BookMove>& moves = editor.tree[afterMoves(game.moves, c.ply).hashKey];
        ASSERT_EQ(moves.size(), 1u);
        EXPECT_EQ(moves[0].whitePoints, c.whitePoints) << c.result << " " << c.plies;
        EXPECT_EQ(moves[0].blackPoints, c.blackPoints) << c.result << " " << c.plies;
    }
}

TEST(BookGames, FileGamesPassTheRatingTestAndAResultOrAreSkipped) {
    // Every game opens with another move, so each taken game is one identity.
    auto game = [](const char* first, const char* result, const char* white, const char* black) {
        return pgnGame(distinctGame({first}, 40, 3), result, 2500, 2500, white, black);
    };
    const std::string broken =
        "[White \"X\"]\n[Black \"Y\"]\n[Result \"1-0\"]\n\n1. e4 Nf9 1-0\n\n";
    // The ratings from the file's own results stop at the broken game: C and D are not rated.
    const std::string text = game("a2a3", "1-0", "A", "B") + game("b2b3", "1-0", "A", "B") +
                             broken + game("c2c3", "1/2-1/2", "C", "D") +
                             game("d2d3", "*", "A", "B");
    const std::string path = writeTempFile("filters.pgn", text);
    const struct {
        int minElo;
        bool calcElo;
        size_t games;
    } cases[] = {{-1, false, 3}, {2500, false, 3}, {2501, false, 0}, {1, true, 2}, {2450, true, 0}};
    for (const auto& c : cases) {
        BookEditor editor;
        CaptureStderr();
        EXPECT_TRUE(editor.addGames(path, 1000, false, c.calcElo, c.minElo));
        GetCapturedStderr();
        EXPECT_EQ(editor.seenGames.size(), c.games)
            << "ELO " << c.minElo << " CalcELO " << c.calcElo;
    }

    BookEditor editor;
    CaptureStderr();
    EXPECT_FALSE(editor.addGames(tempPath("missing.pgn"), 1000, false, false, -1));
    GetCapturedStderr();
    EXPECT_TRUE(editor.tree.empty());
}

TEST(BookGames, LockedTreeTakesNoNewPositions) {
    const TestGame known = distinctGame({"e2e4", "e7e5"}, 40, 1);
    const TestGame other = distinctGame({"e2e4", "c7c5", "g1f3"}, 40, 2);
    BookEditor editor;
    editor.addGame(known.moves, "", 1000, 0, false, 0);
    const size_t positions = editor.tree.size();
    editor.locked = true;
    editor.addGame(other.moves, "", 1000, 0, false, 0);
    // The known position after e2e4 takes the new reply; the position behind it is new, and the
    // rest of the game stays out.
    EXPECT_EQ(treeMove(editor, {}, "e2e4")->whitePoints, 2000u);
    ASSERT_NE(treeMove(editor, {"e2e4"}, "c7c5"), nullptr);
    EXPECT_EQ(treeMove(editor, {"e2e4", "c7c5"}, "g1f3"), nullptr);
    EXPECT_EQ(editor.tree.size(), positions);
    editor.locked = false;
    editor.addGame(distinctGame({"e2e4", "c7c5", "g1f3"}, 40, 4).moves, "", 1000, 0, false, 0);
    EXPECT_NE(treeMove(editor, {"e2e4", "c7c5"}, "g1f3"), nullptr);
}

}  // namespace
