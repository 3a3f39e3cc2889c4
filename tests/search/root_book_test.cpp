// The book at the root, through an in-process UCI session: the options, the read at a game
// start with its message, the probe before the search, the followed game before the book.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "book/pgn_reader.h"
#include "frontend/engine_session.h"
#include "search/searcher.h"
#include "support/line_collector.h"

namespace {

using Lines = std::vector<std::string>;

const char* const ReadError = "info string Opening book read error ";

std::string scratchFile(const std::string& name, const std::string& text) {
    const std::string path =
        ::testing::TempDir() + "root_book_" + std::to_string(getpid()) + "_" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

// A session in debug mode whose searches run on the calling thread, so that each command's
// output is complete when it returns. Its book file holds `bookText`.
class RootBookTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* line : {"uci", "debug on", "setoption name blocking value true"})
            session.handleLine(line);
        useBook("e2e4 5 e7e5 3 * c7c5 0 g1f3 1 * * * d2d4 1 * *");
    }
    void TearDown() override { std::remove(bookFile.c_str()); }

    void useBook(const std::string& text) {
        bookFile = scratchFile("book.opn", text);
        run("setoption name BookFile value " + bookFile);
    }
    Lines run(const std::string& line) {
        session.handleLine(line.c_str());
        return output.take();
    }
    static bool searched(const Lines& lines) {
        for (const std::string& l : lines)
            if (l.rfind("info depth ", 0) == 0) return true;
        return false;
    }

    LineCollector output;
    EngineSession session{[this] {
        SessionSettings settings;
        settings.tableBytes = 1 << 20;
        settings.output = &output;
        return settings;
    }()};
    std::string bookFile;
};

}  // namespace

TEST_F(RootBookTest, ABookMoveIsPlayedAtOnceWithTheHeaviestReplyToPonder) {
    run("position startpos");
    // Only e2e4 and d2d4 have records here; a book move means no search at all.
    for (int n = 0; n < 20; ++n) {
        const Lines lines = run("go wtime 60000 btime 60000");
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(lines[0] == "bestmove e2e4 ponder e7e5" || lines[0] == "bestmove d2d4")
            << lines[0];
    }
    run("position startpos moves e2e4");
    EXPECT_EQ(run("go depth 5"), Lines{"bestmove e7e5"});
    // Out of the book: the search answers.
    run("position startpos moves e2e4 e7e5");
    EXPECT_TRUE(searched(run("go depth 2")));
}

TEST_F(RootBookTest, TheBookStaysOutOfRestrictedSearchesAndWithOwnBookOff) {
    const struct {
        const char* command;
        bool fromBook;  // of the next "go depth 2"
    } steps[] = {
        {"position startpos", true},
        {"go depth 2 searchmoves d2d4 g1f3", false},
        {"go depth 2 excludemoves a2a3", false},
        // Off: the book is emptied at the next game start and never asked.
        {"setoption name OwnBook value false", false},
        {"ucinewgame", false},
        // On again: the book comes back with the next game start.
        {"setoption name OwnBook value true", false},
        {"position startpos", true},
    };
    for (const auto& step : steps) {
        Lines lines = run(step.command);
        if (std::string(step.command).rfind("go", 0) != 0) lines = run("go depth 2");
        EXPECT_EQ(searched(lines), !step.fromBook) << step.command;
    }
}

TEST_F(RootBookTest, ABookThatCannotBeReadIsReportedAtEachGameStart) {
    const std::string start = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";
    const struct {
        const char* book;  // null: no such file
        const char* command;
        bool reported;
    } cases[] = {
        {nullptr, "ucinewgame", true},
        {nullptr, "position startpos", true},
        {nullptr, "position startpos moves e2e4", true},
        {nullptr, "position startpos moves e2e4 e7e5", false},
        {nullptr, "position Chess960 77", true},
        {nullptr, "position fen 8/8/4k3/8/8/4K3/8/8 w - - 0 1", false},
        {nullptr, "setoption name OwnBook value false", false},
        {nullptr, "ucinewgame", false},
        {nullptr, "setoption name OwnBook value true", false},
        {"e2e4 -1 * *", "ucinewgame", true},
        {"e2e4 1 e7e5 1 * *", "ucinewgame", true},
        {"e2e4 1 * * -1", "ucinewgame", false},
    };
    for (const auto& c : cases) {
        std::remove(bookFile.c_str());
        if (c.book) useBook(c.book);
        const Lines expected = c.reported ? Lines{ReadError} : Lines{};
        EXPECT_EQ(run(c.command), expected) << c.command << " with " << (c.book ? c.book : "none");
    }
    std::remove(bookFile.c_str());
    EXPECT_EQ(run("position fen " + start), Lines{ReadError});
    // A broken book plays nothing, not even the part that was good.
    useBook("e2e4 1 * d2d4 -1 * *");
    run("position startpos");
    EXPECT_TRUE(searched(run("go depth 2")));
}

TEST_F(RootBookTest, TheFollowedGameComesBeforeTheBook) {
    const std::string game = scratchFile(
        "game.pgn", "[White \"A\"]\n[Black \"B\"]\n[Result \"*\"]\n\n1. d4 d5 2. c4 *\n");
    PgnReader reader(game);
    Searcher& searcher = session.searcher();
    searcher.gameFollower = &reader;
    run("position startpos");
    EXPECT_EQ(run("go depth 5"), Lines{"bestmove d2d4"});
    // The game has left the root's line: the book answers from here on.
    run("position startpos moves e2e4");
    EXPECT_EQ(run("go depth 5"), Lines{"bestmove e7e5"});
    searcher.gameFollower = nullptr;
    std::remove(game.c_str());
}
