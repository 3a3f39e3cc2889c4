#include "book/book_editor.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/text.h"
#include "book/book_test_support.h"
#include "book/opening_book.h"
#include "support/fen_text.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// The default threshold of the writers, as valueNode sees it.
constexpr int64_t MinPoints = 3000 + 1000;

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

// A position of a hand-made tree: its moves with their points, or with a value as if valued
// before (then the writer's weights follow from the values alone).
struct HandMove {
    const char* text;
    uint32_t whitePoints, blackPoints;
    float value = UnratedValue;
};

void addPosition(BookEditor& editor, const std::vector<std::string>& before,
                 const std::vector<HandMove>& moves) {
    std::vector<BookMove>& entry = editor.tree[afterTexts(before).hashKey];
    for (const HandMove& m : moves)
        entry.push_back({m.whitePoints, m.blackPoints, coordinateMove(before, m.text), m.value,
                         UnsetWeight, 0});
}

double eloOfShare(double p) {
    return std::log10(1.0 / p - 1.0) * -400.0;
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

TEST(BookValues, MinimaxTurnsPointsIntoWeights) {
    BookEditor editor;
    // e2e4 and d2d4 pass the threshold; g1f3 and c7c5 don't. d2d4 is rare beside e2e4 (5 x
    // 4900 < 25000), so it pays 25000 / 4900 + 35 = 40; g1f3 pays 25000 / 3000 + 35 = 43.
    addPosition(editor, {}, {{"e2e4", 15000, 10000}, {"d2d4", 2842, 2058}, {"g1f3", 2500, 500}});
    addPosition(editor, {"e2e4"}, {{"e7e5", 3000, 3000}, {"c7c5", 1000, 3000}});
    Position start;
    constructPosition(start);
    const float rating = editor.valueNode(start, MinPoints, 100.0);

    // After e2e4, Black's best is e7e5, even at 0; it counts twice in the position's rating:
    // Black has 9000 of 16000 points there.
    const double afterE4 = eloOfShare(9000.0 / 16000.0);
    const BookMove& e5 = editor.tree[afterTexts({"e2e4"}).hashKey][0];
    const BookMove& c5 = editor.tree[afterTexts({"e2e4"}).hashKey][1];
    EXPECT_EQ(e5.move, coordinateMove({"e2e4"}, "e7e5"));
    EXPECT_NEAR(e5.value, 0.0, 1e-3);
    EXPECT_EQ(e5.weight, 99);
    EXPECT_NEAR(c5.value, eloOfShare(0.25), 1e-2);
    EXPECT_EQ(c5.weight, 0);
    EXPECT_EQ(c5.done, 1);

    const std::vector<BookMove>& root = editor.tree[start.hashKey];
    const BookMove* e4 = treeMove(editor, {}, "e2e4");
    const BookMove* d4 = treeMove(editor, {}, "d2d4");
    const BookMove* nf3 = treeMove(editor, {}, "g1f3");
    EXPECT_EQ(root[0].move, e4->move);
    EXPECT_EQ(root[1].move, d4->move);
    EXPECT_EQ(root[2].move, nf3->move);
    EXPECT_NEAR(e4->value, -afterE4, 1e-2);
    EXPECT_EQ(e4->weight, 99);
    // Black's share after d2d4 is 0.42: its value for the side to move there, less the toll.
    const double d4Value = eloOfShare(0.42) - 40;
    EXPECT_NEAR(d4->value, d4Value, 1e-2);
    EXPECT_EQ(d4->weight, static_cast<int>((d4Value + 100 + afterE4) * 99 / 100));
    EXPECT_EQ(d4->weight, 47);
    EXPECT_NEAR(nf3->value, eloOfShare(500.0 / 3000) - 43, 1e-2);
    EXPECT_EQ(nf3->weight, 0);
    // White's points, with e2e4 counted twice: 35342 of 57900.
    EXPECT_NEAR(rating, eloOfShare(35342.0 / 57900), 1e-2);
}

// Root: d2d4 best; e2e4 gives 20 away (weight 79); c2c4 and b2b3 weight 0. Behind e2e4 Black's
// single move, then White's g1f3 (99) and f2f4 (30), which loses the 20 given away before.
// Behind c2c4 a playable reply, behind b2b3 none.
void addLossTree(BookEditor& editor) {
    addPosition(editor, {},
                {{"d2d4", 5000, 5000, 0.0f},
                 {"e2e4", 5000, 5000, -5.0f},
                 {"c2c4", 5000, 5000, -30.0f},
                 {"b2b3", 5000, 5000, -30.0f}});
    addPosition(editor, {"e2e4"}, {{"e7e5", 500, 5000, 0.0f}});
    addPosition(editor, {"e2e4", "e7e5"},
                {{"g1f3", 5000, 5000, 0.0f}, {"f2f4", 5000, 5000, -17.4f}});
    addPosition(editor, {"c2c4"}, {{"c7c5", 5000, 5000, 0.0f}});
    // The values above were given as computed, so valueNode does not walk on: each position is
    // valued on its own, as it would be from below.
    for (const std::vector<std::string>& line :
         std::vector<std::vector<std::string>>{{"e2e4", "e7e5"}, {"e2e4"}, {"c2c4"}}) {
        Position p = afterTexts(line);
        editor.valueNode(p, MinPoints, 25.0);
    }
}

TEST(BookWriter, WritesTheTreeWithWhatEachSideGaveAway) {
    BookEditor editor;
    addLossTree(editor);
    const std::string path = tempPath("loss.opn");
    ASSERT_TRUE(editor.writeBook(path, 3000, 25));
    const std::string text = readFile(path);
    EXPECT_EQ(text,
              "  d2d4 99 * \n"
              "  e2e4 79   e7e5 99   g1f3 99 * \n"
              "                      f2f4 10 * * * \n"
              "  c2c4  0   c7c5 99 * * * -1\n");
    EXPECT_EQ(editor.whiteMoves, 5u);
    EXPECT_EQ(editor.blackMoves, 2u);

    const BookFileReplay replay = replayBookText(text);
    EXPECT_EQ(replay.problem, "");
    EXPECT_EQ(replay.records.size(), 6u);
    EXPECT_EQ(replay.zeroWeightMoves, 1);
    EXPECT_EQ(replay.deepestLine, 3);
}

TEST(BookWriter, Write960HasASectionForEachStartInTheTree) {
    BookEditor editor;
    Position start7;
    constructPosition(start7);
    setChess960Position(start7, 7);
    Move move = NoMove;
    ASSERT_TRUE(parseMove(start7, "b1c3", move, 1));
    editor.tree[start7.hashKey].push_back({5000, 5000, move, UnratedValue, UnsetWeight, 0});
    addPosition(editor, {}, {{"e2e4", 5000, 5000}});

    const std::string path = tempPath("960.opn");
    ASSERT_TRUE(editor.write960(path, 3000, 25));
    const std::string text = readFile(path);
    EXPECT_EQ(text, "\nstartpos 7\n  b1c3 99 * \n\nstartpos 518\n  e2e4 99 * \n* -1\n");
    const BookFileReplay replay = replayBookText(text);
    EXPECT_EQ(replay.problem, "");
    ASSERT_EQ(replay.records.size(), 2u);
    EXPECT_EQ(replay.records[0].key, start7.hashKey);
}

TEST(BookWriter, EpdTakesTheDeepestPositionWithThreeEvenMovesOnEachLine) {
    BookEditor editor;
    auto evenMoves = [](std::vector<const char*> texts) {
        std::vector<HandMove> moves;
        for (const char* text : texts) moves.push_back({text, 3000, 3000});
        return moves;
    };
    // The start has three even moves, and so have the positions after e2e4 and after d2d4:
    // those two are taken, the start not.
    addPosition(editor, {}, evenMoves({"e2e4", "d2d4", "g1f3"}));
    addPosition(editor, {"e2e4"}, evenMoves({"e7e5", "c7c5", "e7e6"}));
    addPosition(editor, {"d2d4"}, evenMoves({"d7d5", "g8f6", "e7e6"}));
    addPosition(editor, {"g1f3"}, evenMoves({"d7d5", "g8f6"}));
    const std::string path = tempPath("positions.epd");
    ASSERT_TRUE(editor.writeEPD(path, 3000, 25));

    std::vector<std::string> lines;
    std::istringstream text(readFile(path));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), 2u);
    std::vector<std::string> bodies;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string number = "\"JT-Teststellung " + std::to_string(i + 1) + "\"";
        ASSERT_GE(lines[i].size(), number.size());
        EXPECT_EQ(lines[i].substr(lines[i].size() - number.size()), number);
        bodies.push_back(lines[i].substr(0, lines[i].size() - number.size()));
    }
    std::sort(bodies.begin(), bodies.end());
    EXPECT_EQ(bodies[0], fenOf(afterTexts({"d2d4"})) + " 0 1; \" d4\"; ");
    EXPECT_EQ(bodies[1], fenOf(afterTexts({"e2e4"})) + " 0 1; \" e4\"; ");
}

TEST(BookWriter, WrittenBookReplaysOnTheBoard) {
    const RoundTripBook book = writeRoundTripBook("replay");
    ASSERT_EQ(book.replay.problem, "");
    // Each move of weight 99 as (the line before it, the move).
    std::vector<std::pair<std::vector<std::string>, const char*>> played;
    for (size_t i = 0; i < book.opening.size(); ++i)
        played.push_back(
            {{book.opening.begin(), book.opening.begin() + i}, book.opening[i].c_str()});
    const std::vector<std::string>& o = book.opening;
    auto then = [&o](std::vector<std::string> more) {
        std::vector<std::string> line = o;
        line.insert(line.end(), more.begin(), more.end());
        return line;
    };
    played.push_back({o, "b8c6"});
    played.push_back({then({"b8c6"}), "b1c3"});
    played.push_back({then({"c7c5"}), "c2c4"});
    std::vector<BookFileRecord> expected;
    for (const auto& [before, text] : played)
        expected.push_back({afterTexts(before).hashKey, coordinateMove(before, text), 99});
    EXPECT_EQ(book.replay.records, expected);
    EXPECT_EQ(book.replay.zeroWeightMoves, 1);
}

// What the editor writes, the engine's book reader reads back record for record, and a probe
// after the shared opening plays one of the two heavy replies.
TEST(BookWriter, WrittenBookReadsBackThroughTheBookReader) {
    const RoundTripBook written = writeRoundTripBook("round_trip");
    ASSERT_EQ(written.replay.problem, "");
    OpeningBook book;
    book.setFileName(written.path.c_str());
    ASSERT_TRUE(book.readBook());
    std::vector<BookFileRecord> read;
    for (const BookRecord& r : book.records) read.push_back({r.key, r.move, r.weight});
    std::vector<BookFileRecord> expected = written.replay.records;
    std::sort(read.begin(), read.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(read, expected);

    Position p = afterTexts(written.opening);
    Move best = NoMove, ponder = NoMove;
    ASSERT_TRUE(book.probeBook(p, best, &ponder));
    EXPECT_TRUE(best == coordinateMove(written.opening, "b8c6")) << best;
}

// A long line without repetition in the tree, written on a thread with the stack of the xboard
// queue: lines of play are never as deep as the call stack would be.
TEST(BookWriter, LinesDeeperThanAGameFitASmallStack) {
    struct Run {
        BookEditor editor;
        std::string path = tempPath("deep.opn");
        bool written = false;
    } run;
    const TestGame line = distinctGame({}, 3000, 1);
    ASSERT_GT(line.moves.size(), 2000u);
    Position p;
    constructPosition(p);
    for (Move move : line.moves) {
        run.editor.tree[p.hashKey].push_back({5000, 5000, move, UnratedValue, UnsetWeight, 0});
        UndoRecord undo;
        beginUndo(undo, p);
        makeLegal(p, move, undo);
    }
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 100000);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* data) -> void* {
                      Run& r = *static_cast<Run*>(data);
                      r.written = r.editor.writeBook(r.path, 3000, 25);
                      return nullptr;
                  },
                  &run),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    ASSERT_TRUE(run.written);
    const BookFileReplay replay = replayBookText(readFile(run.path));
    EXPECT_EQ(replay.problem, "");
    EXPECT_EQ(replay.deepestLine, static_cast<int>(line.moves.size()));
}

TEST(BookGames, HostileGamesAreBoundedAndNeverMakeAForeignMove) {
    // Ten thousand plies of knights going to and fro: walked up to 300, 45 in the book.
    std::vector<Move> shuffle;
    const std::vector<std::string> cycle = {"g1f3", "g8f6", "f3g1", "f6g8"};
    for (int i = 0; i < 10000; ++i) {
        const std::vector<std::string> before(cycle.begin(), cycle.begin() + i % 4);
        shuffle.push_back(coordinateMove(before, cycle[i % 4].c_str()));
    }
    BookEditor editor;
    EXPECT_TRUE(editor.addGame(shuffle, "", 1000, 0, false, 0));
    ASSERT_EQ(editor.tree.size(), 4u);
    // 12 passes through the start in 45 plies.
    EXPECT_EQ(treeMove(editor, {}, "g1f3")->whitePoints, 1500u + 11 * 500);

    // A move recorded for a position it does not belong to (as a shared key would do) is never
    // made: the queen's move of the start position is no knight's move.
    Move foreign = coordinateMove({}, "g1f3");
    foreign = makeMoveValue(moveFrom(foreign), moveTo(foreign), Queen);
    editor.tree[afterTexts({}).hashKey].push_back(
        {9000, 9000, foreign, UnratedValue, UnsetWeight, 0});
    const std::string path = tempPath("foreign.opn");
    ASSERT_TRUE(editor.writeBook(path, 3000, 25));
    EXPECT_EQ(replayBookText(readFile(path)).problem, "");
}

}  // namespace
