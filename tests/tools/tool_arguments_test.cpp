// The command lines of the programs in tools/: --help answers with the usage, anything not
// understood is refused on standard error before any work starts.
#include <gtest/gtest.h>

#include <chrono>
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
    for (const std::string tool : {"bench", "match", "perftbench", "pgnscan"}) {
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

}  // namespace
