// The command lines of the programs in tools/: --help answers with the usage, anything not
// understood is refused on standard error before any work starts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "tools/support/child_process.h"

namespace {

struct ToolRun {
    std::string output;
    std::string errors;
    int status = -1;
};

ToolRun runTool(const std::string& tool, const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {std::string(ZELMARK_TOOLS_DIR) + "/" + tool};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    ChildProcess child;
    std::string error;
    ToolRun run;
    if (!child.spawn(argv, true, error)) {
        ADD_FAILURE() << error;
        return run;
    }
    child.closeInput();
    // A refusal is immediate; a tool that starts working instead is killed by the deadline.
    const auto deadline = ChildProcess::Clock::now() + std::chrono::seconds(10);
    child.drain(deadline);
    if (!child.waitForExit(deadline, run.status)) ADD_FAILURE() << tool << " did not end";
    run.output = child.takeBufferedOutput();
    run.errors = child.errorText();
    return run;
}

std::string shown(const std::string& tool, const std::vector<std::string>& arguments) {
    std::string text = tool;
    for (const std::string& a : arguments) text += " '" + a + "'";
    return text;
}

TEST(ToolArguments, HelpPrintsTheUsage) {
    for (const std::string tool :
         {"bench", "bitbasebench", "bitbasegen", "bookbench", "match", "perftbench", "pgnscan"}) {
        const ToolRun run = runTool(tool, {"--help"});
        EXPECT_EQ(run.status, 0) << tool;
        EXPECT_EQ(run.output.rfind("Usage: " + tool + " ", 0), 0u) << tool << ": " << run.output;
        EXPECT_EQ(run.errors, "") << tool;
    }
}

TEST(ToolArguments, WhatIsNotUnderstoodIsRefused) {
    const struct {
        const char* tool;
        std::vector<std::string> arguments;
    } Cases[] = {
        {"bench", {"--depth"}},
        {"bench", {"nine"}},
        {"bench", {"0"}},
        {"bench", {"100"}},
        {"bench", {"9x"}},
        {"bench", {"9", "0"}},
        {"bench", {"9", "32768"}},
        {"bench", {"9", "16", "1"}},
        {"perftbench", {"--fast"}},
        {"perftbench", {"5"}},
        {"perftbench", {"-5"}},
        {"perftbench", {"0", "0"}},
        {"perftbench", {""}},
        {"match", {"--bogus"}},
        {"match", {"stray"}},
        {"pgnscan", {}},
        {"pgnscan", {"-x", "a.pgn"}},
        {"bitbasegen", {}},
        {"bitbasegen", {"/tmp"}},
        {"bitbasegen", {"/tmp", "KTKTSS"}},
        {"bitbasegen", {"/tmp", "TKK"}},
        {"bitbasegen", {"/tmp", "KXK"}},
        {"bitbasegen", {"/tmp", "KTLK"}},
        {"bitbasegen", {"/tmp", "--upto", "6"}},
        {"bitbasegen", {"/tmp", "--upto", "3", "KTK"}},
        {"bitbasegen", {"/nonexistent/dir", "KTK"}},
        {"bitbasebench", {"/tmp"}},
        {"bitbasebench", {"/tmp", "KXK"}},
        {"bitbasebench", {"/tmp", "KTK", "0"}},
    };
    for (const auto& c : Cases) {
        const ToolRun run = runTool(c.tool, c.arguments);
        const std::string what = shown(c.tool, c.arguments);
        EXPECT_EQ(run.status, 2) << what;
        EXPECT_EQ(run.output, "") << what;
        EXPECT_EQ(run.errors.rfind(std::string(c.tool) + ": ", 0), 0u)
            << what << ": " << run.errors;
    }
}

// The ECO file of another program: opening lines without the tags every game must have.
TEST(PgnScan, CountsWhatTheReaderTakesAndRefuses) {
    const std::string file = std::string(ZELMARK_TEST_DATA) + "/pgn/eco_excerpt.pgn";
    const ToolRun run = runTool("pgnscan", {file});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, file + ": 0 games taken, 11 refused, 0 from a FEN, 0 moves\n");
    size_t messages = 0;
    for (size_t at = run.errors.find("'White' missing"); at != std::string::npos;
         at = run.errors.find("'White' missing", at + 1))
        ++messages;
    EXPECT_EQ(messages, 11u) << run.errors;
}

TEST(ToolArguments, BookbenchRefusesWhatItDoesNotUnderstand) {
    const std::vector<std::string> cases[] = {
        {},
        {"--reads"},
        {"a.opn", "0"},
        {"a.opn", "2", "3"},
        {"a.opn", "--random"},
        {"--random", "10"},
        {"--random", "0", "a.opn"},
        {"--random", "--random", "1", "a.opn"},
    };
    for (const auto& arguments : cases) {
        const ToolRun run = runTool("bookbench", arguments);
        const std::string what = shown("bookbench", arguments);
        EXPECT_EQ(run.status, 2) << what;
        EXPECT_EQ(run.output, "") << what;
        EXPECT_EQ(run.errors.rfind("bookbench: ", 0), 0u) << what << ": " << run.errors;
    }
}

TEST(ToolArguments, BookbenchReadsTheRandomBookItWrites) {
    const std::string file = ::testing::TempDir() + "bookbench_" + std::to_string(getpid());
    const ToolRun written = runTool("bookbench", {"--random", "30", file});
    EXPECT_EQ(written.status, 0) << written.errors;
    const ToolRun read = runTool("bookbench", {file, "2"});
    std::remove(file.c_str());
    EXPECT_EQ(read.status, 0) << read.errors;
    // Every move of weight 1 or more is a record; the random weights run from 0 to 99.
    EXPECT_TRUE(std::regex_match(read.output, std::regex(".*: [1-9][0-9]* records, 2 reads, "
                                                         "[0-9.]+ ms per read\n")))
        << read.output;
}

// The test set's true results come from --verdicts: a position the files do not describe (a pawn
// on its home row, castling rights, a material without its file) gets '?', never a filler bit.
TEST(ToolArguments, BitbasebenchVerdictsAnswerOnlyWhatTheFilesHold) {
    const std::string dir = ::testing::TempDir() + "verdicts_" + std::to_string(getpid());
    ASSERT_EQ(std::system(("mkdir -p " + dir).c_str()), 0);
    const ToolRun made = runTool("bitbasegen", {dir, "KBK", "KKB", "KTK"});
    ASSERT_EQ(made.status, 0) << made.errors;
    const char* const lines[][2] = {
        {"8/P7/8/8/8/8/k7/4K3 w - - 0 1", "1-0"},
        {"k7/8/8/P7/8/8/8/7K b - - 0 1", "1/2-1/2"},  // rook pawn, king in the corner
        {"8/8/8/8/8/1k6/p6K/8 w - - 0 1", "0-1"},     // a lone pawn of Black's queens
        {"8/8/8/8/8/8/4P3/k3K3 w - - 0 1", "?"},      // pawn on its home row
        {"8/8/8/8/8/8/k7/1R2K3 b - - 0 1", "?"},      // a KTK draw needs KKT as well
        {"k7/8/8/8/8/8/8/4K2R w K - 0 1", "?"},       // castling right
        {"8/8/8/8/8/8/8/K5kr w - - 0 1", "?"},        // no KKT file
    };
    const std::string list = dir + "/positions.txt";
    std::string expected;
    if (FILE* f = std::fopen(list.c_str(), "w")) {
        for (const auto& line : lines) {
            std::fprintf(f, "%s\n", line[0]);
            expected += std::string(line[1]) + " " + line[0] + "\n";
        }
        std::fclose(f);
    }
    const ToolRun run = runTool("bitbasebench", {"--verdicts", dir, list});
    EXPECT_EQ(std::system(("rm -rf " + dir).c_str()), 0);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output, expected);
}

}  // namespace
