#include "book/opening_book.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/position.h"
#include "board/text.h"
#include "learn/neural_net.h"

namespace {

constexpr int Classical = -1;

std::string bookPath(const std::string& name) {
    return ::testing::TempDir() + "book_" + std::to_string(getpid()) + "_" + name + ".opn";
}

std::string writeBookFile(const std::string& name, const std::string& text) {
    const std::string path = bookPath(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

bool readText(OpeningBook& book, const std::string& text, const std::string& name = "book") {
    book.setFileName(writeBookFile(name, text).c_str());
    const bool read = book.readBook();
    std::remove(book.fileName);
    return read;
}

// The board after `line` (coordinate moves separated by blanks) from the classical start or a
// Chess960 start position.
Position boardAfter(const std::string& line, int startNumber = Classical) {
    Position p;
    constructPosition(p);
    if (startNumber != Classical) setChess960Position(p, static_cast<unsigned>(startNumber));
    for (size_t at = 0; at < line.size();) {
        const size_t end = std::min(line.find(' ', at), line.size());
        const std::string word = line.substr(at, end - at);
        Move move = NoMove;
        EXPECT_TRUE(parseMove(p, word.c_str(), move, 1)) << word << " in " << line;
        UndoRecord undo;
        beginUndo(undo, p);
        makeLegal(p, move, undo);
        at = end + 1;
    }
    return p;
}

Move moveAfter(const std::string& line, const char* text) {
    Position p = boardAfter(line);
    Move m = NoMove;
    EXPECT_TRUE(parseMove(p, text, m, 1)) << text;
    return m;
}

// The records of a position in book order, as "move:weight" separated by blanks.
std::string recordsAt(const OpeningBook& book, Position p) {
    std::string text;
    for (const BookRecord& r : book.records) {
        if (r.key != p.hashKey) continue;
        char move[16];
        writeMove(p, r.move, StyleCoordinates, move);
        text += (text.empty() ? "" : " ") + std::string(move) + ":" + std::to_string(r.weight);
    }
    return text;
}

TEST(BookReading, EachMoveOfPositiveWeightIsARecordOfThePositionBeforeIt) {
    const struct {
        const char* name;
        std::string text;
        size_t recordCount;
        std::vector<std::pair<std::string, std::string>> positions;  // line, records there
    } cases[] = {
        {"the example of the format",
         "e2e4 50 e7e5 30 * c7c5 20 * * *",
         3,
         {{"", "e2e4:50"}, {"e2e4", "e7e5:30 c7c5:20"}}},
        {"weight 0 and below keep the line without a record",
         "d2d4 0 d7d5 5 * * g1f3 -7 g8f6 2 * * *",
         2,
         {{"", ""}, {"d2d4", "d7d5:5"}, {"g1f3", "g8f6:2"}}},
        {"the heaviest move first",
         "a2a3 2 * b2b3 9 * c2c3 5 * *",
         3,
         {{"", "b2b3:9 c2c3:5 a2a3:2"}}},
        {"layout carries no meaning and the rest of the file is ignored",
         "\te2e4\r\n   7\f*\v*  * -1\nsomething else e2e5 -1 \x01\x02",
         1,
         {{"", "e2e4:7"}}},
        {"castling by the king's move and by its literal",
         "e2e4 1 e7e5 1 g1f3 1 b8c6 1 f1c4 1 f8c5 1 e1g1 4 * O-O 3 * * * * * * * *",
         8,
         {{"e2e4 e7e5 g1f3 b8c6 f1c4 f8c5", "e1g1:4 e1g1:3"}}},
        {"two move orders meet in one position",
         "g1f3 1 g8f6 1 d2d4 1 e7e6 3 * * * * d2d4 1 g8f6 1 g1f3 1 e7e6 2 * c7c5 4 * * * * *",
         9,
         {{"g1f3 g8f6 d2d4", "c7c5:4 e7e6:3 e7e6:2"}, {"d2d4 g8f6 g1f3", "c7c5:4 e7e6:3 e7e6:2"}}},
        {"the largest weights and a plus sign",
         "e2e4 2147483647 * d2d4 -2147483648 d7d5 1 * * c2c4 +5 * *",
         3,
         {{"", "e2e4:2147483647 c2c4:5"}, {"d2d4", "d7d5:1"}}},
        {"a lone star is an empty book", "*", 0, {}},
        {"the writer's closing line alone", "* -1\n", 0, {}},
    };
    for (const auto& c : cases) {
        OpeningBook book;
        EXPECT_TRUE(readText(book, c.text)) << c.name;
        EXPECT_EQ(book.records.size(), c.recordCount) << c.name;
        for (const auto& [line, records] : c.positions)
            EXPECT_EQ(recordsAt(book, boardAfter(line)), records) << c.name << ", after " << line;
    }
}

TEST(BookReading, StartposSectionsAreChess960StartsNumberedModulo960) {
    const struct {
        const char* number;
        int start;
    } cases[] = {
        {"1", 1},
        {"960", 0},
        {"0", 0},
        {"518", Classical},
        {"1478", Classical},
        {"-442", Classical},
        {"+17", 17},
        {"-1", 959},
        {"000000000000000000000000000000017", 17},
        {"99999999999999999999", 639},  // 10^20 - 1 modulo 960
    };
    for (const auto& c : cases) {
        OpeningBook book;
        // The classical part before the section stays where it was read.
        ASSERT_TRUE(readText(book, std::string("h2h3 1 * startpos ") + c.number + " a2a3 2 * *"))
            << c.number;
        ASSERT_EQ(book.records.size(), 2u) << c.number;
        if (c.start == Classical) {
            EXPECT_EQ(recordsAt(book, boardAfter("")), "a2a3:2 h2h3:1") << c.number;
        } else {
            EXPECT_EQ(recordsAt(book, boardAfter("", c.start)), "a2a3:2") << c.number;
            EXPECT_EQ(recordsAt(book, boardAfter("")), "h2h3:1") << c.number;
        }
    }

    OpeningBook book;
    ASSERT_TRUE(readText(book,
                         "startpos 1\n  e2e4 5 e7e5 3 * *\nstartpos 2\n  e2e4 6 * f2f3 0 e7e5 1 "
                         "* *\n* -1\n"));
    EXPECT_EQ(recordsAt(book, boardAfter("", 1)), "e2e4:5");
    EXPECT_EQ(recordsAt(book, boardAfter("e2e4", 1)), "e7e5:3");
    EXPECT_EQ(recordsAt(book, boardAfter("", 2)), "e2e4:6");
    EXPECT_EQ(recordsAt(book, boardAfter("f2f3", 2)), "e7e5:1");
    EXPECT_EQ(recordsAt(book, boardAfter("")), "");
}

TEST(BookReading, ABrokenFileLeavesTheBookEmpty) {
    std::string junk(4096, 0);
    std::mt19937 random(20240611);
    for (char& c : junk) c = static_cast<char>(random());
    const struct {
        const char* name;
        std::string text;
    } cases[] = {
        {"empty file", ""},
        {"outermost node not closed", "e2e4 50 e7e5 30 * c7c5 20 * *"},
        {"weight -1 after good lines", "e2e4 5 e7e5 3 * * d2d4 -1 * *"},
        {"weight missing at the end", "e2e4"},
        {"weight with a tail", "e2e4 5x * *"},
        {"weight in words", "e2e4 five * *"},
        {"sign alone", "e2e4 - * *"},
        {"weight beyond 32 bits", "e2e4 2147483648 * *"},
        {"weight below 32 bits", "e2e4 -2147483649 * *"},
        {"weight of twenty digits", "e2e4 99999999999999999999 * *"},
        {"no such square", "e2e9 1 * *"},
        {"illegal move", "e1e2 1 * *"},
        {"illegal move deep in the tree", "e2e4 1 e7e5 1 g1f3 1 b8c6 1 e4e5 1 * * * * * *"},
        {"algebraic text", "Nf3 1 * *"},
        {"byte 0 inside a move", std::string("e2e4\0xx 1 * *", 12)},
        {"a token of 100,000 characters", std::string(100000, 'e') + " 1 * *"},
        {"startpos without a number", "startpos"},
        {"startpos with a word", "startpos one e2e4 1 * *"},
        {"startpos number with a tail", "startpos 5x e2e4 1 * *"},
        {"startpos inside a node", "e2e4 1 startpos 5 * *"},
        {"binary junk", junk},
        {"image header", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16)},
    };
    for (const auto& c : cases) {
        OpeningBook book;
        ASSERT_TRUE(readText(book, "e2e4 1 * *"));
        EXPECT_FALSE(readText(book, c.text)) << c.name;
        EXPECT_TRUE(book.records.empty()) << c.name;
        Move best = NoMove;
        EXPECT_FALSE(book.probeBook(boardAfter(""), best, nullptr)) << c.name;
    }
}

TEST(BookReading, EveryCutBeforeTheLastStarFails) {
    const std::string text = "e2e4 50 e7e5 30 * c7c5 20 * * d2d4 0 d7d5 5 * * *";
    for (size_t length = 0; length < text.size(); ++length) {
        OpeningBook book;
        EXPECT_FALSE(readText(book, text.substr(0, length))) << length;
        EXPECT_TRUE(book.records.empty()) << length;
    }
    OpeningBook book;
    EXPECT_TRUE(readText(book, text));
}

TEST(BookReading, FilesThatCannotBeReadGiveNoBook) {
    OpeningBook book;
    EXPECT_STREQ(book.fileName, "Zelmark.opn");
    ASSERT_TRUE(readText(book, "e2e4 1 * *"));
    book.setFileName(bookPath("never_written").c_str());
    EXPECT_FALSE(book.readBook());
    EXPECT_TRUE(book.records.empty());

    ASSERT_TRUE(readText(book, "e2e4 1 * *"));
    book.setFileName(::testing::TempDir().c_str());  // a directory opens but doesn't read
    EXPECT_FALSE(book.readBook());
    EXPECT_TRUE(book.records.empty());

    // Bytes without end: one endless token.
    book.setFileName("/dev/zero");
    EXPECT_FALSE(book.readBook());
}

TEST(BookReading, LongFileNamesAreIgnored) {
    OpeningBook book;
    const std::string longest(MaxBookFileName, 'n');
    book.setFileName(longest.c_str());
    EXPECT_EQ(book.fileName, longest);
    book.setFileName((longest + "x").c_str());
    EXPECT_EQ(book.fileName, longest);
}

// A line of knight moves, back and forth, each move's node holding the next: far deeper than
// any game, on a single line of text.
std::string knightDance(int plies) {
    static const char* const Moves[] = {"g1f3", "g8f6", "f3g1", "f6g8"};
    std::string text;
    for (int i = 0; i < plies; ++i) text += std::string(Moves[i % 4]) + " 1 ";
    for (int i = 0; i <= plies; ++i) text += "* ";
    return text;
}

struct ThreadRead {
    OpeningBook* book;
    bool read;
};

TEST(BookReading, ATreeFarDeeperThanAnyGameReadsOnTheSmallestThreadStack) {
    constexpr int Plies = 100000;
    const std::string text = knightDance(Plies);
    ASSERT_EQ(text.find('\n'), std::string::npos);
    OpeningBook book;
    book.setFileName(writeBookFile("deep", text).c_str());

    // The stack of the thread that reads the book under xboard.
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 100000), 0);
    ThreadRead work{&book, false};
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* arg) -> void* {
                      auto* w = static_cast<ThreadRead*>(arg);
                      w->read = w->book->readBook();
                      return nullptr;
                  },
                  &work),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    std::remove(book.fileName);

    EXPECT_TRUE(work.read);
    EXPECT_EQ(book.records.size(), static_cast<size_t>(Plies));
    Move best = NoMove, ponder = NoMove;
    ASSERT_TRUE(book.probeBook(boardAfter(""), best, &ponder));
    EXPECT_EQ(best, moveAfter("", "g1f3"));
    EXPECT_EQ(ponder, moveAfter("g1f3", "g8f6"));
}

// The draw the probe is about to make, from a copy of the generator.
uint32_t nextDraw() {
    RandomSource preview = RandomSource::instance();
    return preview.next();
}

TEST(BookProbe, TheWalkKeepsADrawEqualToAWeightWithItsRecord) {
    const struct {
        std::string text;
        std::vector<const char*> moves;  // the records of the start position, in book order
        std::vector<int> chosen;         // the record taken for each draw modulo the total
    } cases[] = {
        // Weight 3 takes the draws 0 to 3: the second move never plays.
        {"e2e4 3 * d2d4 1 * *", {"e2e4", "d2d4"}, {0, 0, 0, 0}},
        {"e2e4 3 * d2d4 2 * *", {"e2e4", "d2d4"}, {0, 0, 0, 0, 1}},
        {"e2e4 1 * *", {"e2e4"}, {0}},
        {"d2d4 2 * e2e4 5 * *", {"e2e4", "d2d4"}, {0, 0, 0, 0, 0, 0, 1}},
        {"e2e4 4 * d2d4 2 * c2c4 1 * *", {"e2e4", "d2d4", "c2c4"}, {0, 0, 0, 0, 0, 1, 1}},
    };
    RandomSource::instance().seed(7);
    const Position start = boardAfter("");
    for (const auto& c : cases) {
        OpeningBook book;
        ASSERT_TRUE(readText(book, c.text));
        std::vector<bool> seen(c.chosen.size(), false);
        for (int n = 0; n < 400; ++n) {
            const uint32_t r = nextDraw() % static_cast<uint32_t>(c.chosen.size());
            seen[r] = true;
            Move best = NoMove;
            ASSERT_TRUE(book.probeBook(start, best, nullptr)) << c.text;
            EXPECT_EQ(best, moveAfter("", c.moves[static_cast<size_t>(c.chosen[r])]))
                << c.text << ", draw " << r;
        }
        for (size_t r = 0; r < seen.size(); ++r) EXPECT_TRUE(seen[r]) << c.text << ", draw " << r;
    }
}

TEST(BookProbe, ThePonderMoveIsTheHeaviestReplyWithARecord) {
    const struct {
        const char* text;
        const char* ponder;  // after e2e4; empty for none
    } cases[] = {
        {"e2e4 5 c7c5 2 * e7e5 8 * e7e6 1 * * *", "e7e5"},
        {"e2e4 5 * *", ""},
        {"e2e4 5 e7e5 0 g1f3 4 * * * *", ""},
        {"e2e4 5 e7e5 0 * c7c5 1 * * *", "c7c5"},
    };
    const Position start = boardAfter("");
    for (const auto& c : cases) {
        OpeningBook book;
        ASSERT_TRUE(readText(book, c.text));
        Position board = start;
        Move best = NoMove, ponder = 12345;
        ASSERT_TRUE(book.probeBook(board, best, &ponder)) << c.text;
        EXPECT_EQ(best, moveAfter("", "e2e4")) << c.text;
        EXPECT_EQ(ponder, *c.ponder ? moveAfter("e2e4", c.ponder) : NoMove) << c.text;
        // The probe works on a copy.
        EXPECT_EQ(std::memcmp(&board, &start, sizeof board), 0) << c.text;
    }
}

TEST(BookProbe, PositionsWithoutRecordsMiss) {
    OpeningBook book;
    Move best = 77, ponder = 88;
    EXPECT_FALSE(book.probeBook(boardAfter(""), best, &ponder));
    ASSERT_TRUE(readText(book, "d2d4 0 d7d5 5 * * e2e4 3 * *"));
    for (const char* line : {"d2d4 d7d5", "e2e4", "e2e4 e7e5", "g1f3"})
        EXPECT_FALSE(book.probeBook(boardAfter(line), best, &ponder)) << line;
    EXPECT_EQ(best, 77u);
    EXPECT_EQ(ponder, 88u);
}

}  // namespace
