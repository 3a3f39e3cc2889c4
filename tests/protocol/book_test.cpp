// The book through the real binary: named by BookFile (the tests run in the build tree, where
// no book of the default name lies), read at the game start, played at once.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "protocol/engine_process.h"

TEST(Book, BookMovesComeAtOnceWithTheirPonderMoveAlsoFromAPonderSearch) {
    const std::string book =
        ::testing::TempDir() + "protocol_book_" + std::to_string(getpid()) + ".opn";
    std::ofstream(book) << "  e2e4  5   e7e5  3 * * * -1\n";
    EngineProcess engine;
    startUci(engine);
    engine.send("setoption name BookFile value " + book);
    engine.send("position startpos");
    engine.send("go wtime 60000 btime 60000");
    EXPECT_EQ(engine.readUntil("bestmove"), std::vector<std::string>{"bestmove e2e4 ponder e7e5"});

    // Pondering on a book move holds it back until the ponderhit.
    engine.send("go ponder wtime 60000 btime 60000");
    EXPECT_TRUE(engine.silentFor(200));
    engine.send("ponderhit");
    EXPECT_EQ(engine.readUntil("bestmove"), std::vector<std::string>{"bestmove e2e4 ponder e7e5"});
    std::remove(book.c_str());
}
