// The `book` command in a UCI session: how its line reads, what it prints, and that any order
// of subcommands is safe.
#include "frontend/book_command.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "book/book_test_support.h"
#include "frontend/engine_session.h"
#include "search/searcher.h"
#include "support/fen_text.h"
#include "support/line_collector.h"

namespace {

TEST(BookCommand, ReadsSubcommandFileAndOptions) {
    const std::string longName(1100, 'n');
    const struct {
        std::string line;
        BookAction action;
        std::string fileName;
        uint32_t value;
        int minElo;
        bool calcElo, all;
        int threshold, width;
    } cases[] = {
        {"book add games.pgn", BookAction::Add, "games.pgn", 1000, -1, false, false, 3000, 25},
        {"book add  games.pgn value 500 ELO 2200 CalcELO all", BookAction::Add, "games.pgn", 500,
         2200, true, true, 3000, 25},
        {"book add games.pgn CalcELOs allgames", BookAction::Add, "games.pgn", 1000, -1, false,
         false, 3000, 25},
        {"book write my book.opn threshold 10 width 40", BookAction::WriteBook, "my book.opn", 1000,
         -1, false, false, 10, 40},
        {"book write960 960.opn width 5", BookAction::Write960, "960.opn", 1000, -1, false, false,
         3000, 5},
        {"book writeEPD   test.epd", BookAction::WriteEpd, "test.epd", 1000, -1, false, false, 3000,
         25},
        // Without the blank behind it, "960" is the file name of a plain write.
        {"book write960", BookAction::WriteBook, "960", 1000, -1, false, false, 3000, 25},
        // The name ends one character before "width", wherever that stands.
        {"book write mywidth.opn", BookAction::WriteBook, "m", 1000, -1, false, false, 3000, 25},
        {"book write threshold 7", BookAction::WriteBook, "", 1000, -1, false, false, 7, 25},
        {"book write " + longName, BookAction::WriteBook, longName.substr(0, 1023), 1000, -1, false,
         false, 3000, 25},
        // The first word found decides, in the order delete, lock, unlock, add, write.
        {"book add lock.pgn", BookAction::Lock, "", 1000, -1, false, false, 3000, 25},
        {"book add delete.pgn", BookAction::Add, "delete.pgn", 1000, -1, false, false, 3000, 25},
        {"book write x delete", BookAction::Delete, "", 1000, -1, false, false, 3000, 25},
        {"book unlock", BookAction::Unlock, "", 1000, -1, false, false, 3000, 25},
        {"book add", BookAction::None, "", 1000, -1, false, false, 3000, 25},
        {"book", BookAction::None, "", 1000, -1, false, false, 3000, 25},
    };
    for (const auto& c : cases) {
        const BookRequest r = parseBookCommand(c.line.c_str());
        const std::string line = c.line.substr(0, 60);
        EXPECT_EQ(r.action, c.action) << line;
        EXPECT_EQ(r.fileName, c.fileName) << line;
        EXPECT_EQ(r.value, c.value) << line;
        EXPECT_EQ(r.minElo, c.minElo) << line;
        EXPECT_EQ(r.calcElo, c.calcElo) << line;
        EXPECT_EQ(r.all, c.all) << line;
        EXPECT_EQ(r.threshold, c.threshold) << line;
        EXPECT_EQ(r.width, c.width) << line;
        if (!r.fileName.empty()) {
            EXPECT_EQ(c.line.compare(r.fileNameOffset, r.fileName.size(), r.fileName), 0) << line;
        }
    }
}

class BookSession : public ::testing::Test {
  protected:
    BookSession() : session(settings()) {
        session.handleLine("uci");
        session.handleLine("position startpos moves e2e4");
        rootFen = fenOf(session.searcher().position);
        output.take();
    }
    SessionSettings settings() {
        SessionSettings s;
        s.tableBytes = 1 << 20;
        s.output = &output;
        return s;
    }
    std::vector<std::string> run(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) session.handleLine(line.c_str());
        return output.take();
    }

    LineCollector output;
    EngineSession session;
    std::string rootFen;
};

using Lines = std::vector<std::string>;

// Three drawn games that share 1. e4 e5 and part after it: e2e4 and e7e5 have 5000 points, the
// moves after them 3000, which is not above the threshold.
std::string threeGames() {
    std::string text;
    for (const char* parting : {"g1f3", "b1c3", "f1c4"})
        text += pgnGame(distinctGame({"e2e4", "e7e5", parting}, 40, 9), "1/2-1/2");
    return text;
}

const Lines NoMoves = {"white moves:         0", "black moves:         0",
                       "moves:               0"};
const Lines OneMoveEach = {"white moves:         1", "black moves:         1",
                           "moves:               2"};

TEST_F(BookSession, TwoGamesThroughAMoveAreTooFewThreeAreEnough) {
    const std::string out = tempPath("counts.opn");
    std::string two = threeGames();
    two = two.substr(0, two.rfind("[White"));
    EXPECT_EQ(run({"book add " + writeTempFile("two.pgn", two), "book write " + out}), NoMoves);
    EXPECT_EQ(readFile(out), "* -1\n");
    EXPECT_EQ(run({"book add " + writeTempFile("three.pgn", threeGames()), "book write " + out}),
              OneMoveEach);
    EXPECT_EQ(readFile(out), "  e2e4 99   e7e5 99 * * * -1\n");
}

TEST_F(BookSession, CommandsInAnyOrderDoWhatTheySayAndNoMore) {
    const std::string games = writeTempFile("order.pgn", threeGames());
    const std::string missing = tempPath("missing.pgn");
    const std::string out = tempPath("order.opn");
    const std::string unwritable = tempPath("no-such-directory") + "/book.opn";
    const struct {
        const char* name;
        Lines lines;
        Lines printed;
        const char* written;  // the output file's text; null: no file
    } cases[] = {
        {"write without add", {"book write " + out}, {}, nullptr},
        {"lock, unlock and delete without an editor",
         {"book lock", "book unlock", "book delete", "book write " + out},
         {},
         nullptr},
        {"a missing game file", {"book add " + missing, "book write " + out}, NoMoves, "* -1\n"},
        {"delete drops the games",
         {"book add " + games, "book delete", "book write " + out},
         {},
         nullptr},
        {"an output that does not open uses the editor up",
         {"book add " + games, "book write " + unwritable, "book write " + out},
         {"info string error opening the output file " + unwritable},
         nullptr},
        {"lock keeps new positions out",
         {"book add " + missing, "book lock", "book add " + games, "book write " + out},
         NoMoves,
         "* -1\n"},
        {"unlock lets them in",
         {"book add " + missing, "book lock", "book unlock", "book add " + games,
          "book write " + out},
         OneMoveEach,
         "  e2e4 99   e7e5 99 * * * -1\n"},
        {"test positions print nothing", {"book add " + games, "book writeEPD " + out}, {}, ""},
    };
    for (const auto& c : cases) {
        std::remove(out.c_str());
        testing::internal::CaptureStderr();
        EXPECT_EQ(run(c.lines), c.printed) << c.name;
        testing::internal::GetCapturedStderr();
        if (c.written) {
            EXPECT_EQ(readFile(out), c.written) << c.name;
        } else {
            EXPECT_FALSE(std::ifstream(out).good()) << c.name;
        }
        // The book tools have a board of their own.
        EXPECT_EQ(fenOf(session.searcher().position), rootFen) << c.name;
    }
}

}  // namespace
