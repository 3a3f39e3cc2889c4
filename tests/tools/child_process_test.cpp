// The child process under the match driver and the protocol tests, at the edges the engine
// never shows: a program that cannot run, a silent child, standard error kept apart.
#include "tools/support/child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace {

ChildProcess::Deadline after(int milliseconds) {
    return ChildProcess::Clock::now() + std::chrono::milliseconds(milliseconds);
}

TEST(ChildProcess, ProgramThatCannotRunEndsWithStatus127) {
    ChildProcess child;
    std::string error;
    ASSERT_TRUE(child.spawn({"/nonexistent/program"}, true, error)) << error;
    std::string line;
    EXPECT_EQ(child.readLine(line, after(5000)), ChildProcess::ReadStatus::Closed);
    EXPECT_FALSE(child.running());
    EXPECT_TRUE(child.drain(after(5000)));
    EXPECT_EQ(child.errorText(), "cannot run /nonexistent/program\n");
    int status = 0;
    ASSERT_TRUE(child.waitForExit(after(5000), status));
    EXPECT_EQ(status, 127);
}

TEST(ChildProcess, LinesErrorsAndTheUnterminatedTailStayApart) {
    ChildProcess child;
    std::string error;
    ASSERT_TRUE(child.spawn({"sh", "-c", "read x; echo \"got $x\"; echo oops >&2; printf tail"},
                            true, error));
    ASSERT_TRUE(child.sendLine("ping"));
    std::string line;
    ASSERT_EQ(child.readLine(line, after(5000)), ChildProcess::ReadStatus::Line);
    EXPECT_EQ(line, "got ping");
    EXPECT_TRUE(child.drain(after(5000)));
    EXPECT_EQ(child.takeBufferedOutput(), "tail");
    EXPECT_EQ(child.errorText(), "oops\n");
    int status = -1;
    ASSERT_TRUE(child.waitForExit(after(5000), status));
    EXPECT_EQ(status, 0);
}

TEST(ChildProcess, SilentChildTimesOutAndIsKilled) {
    ChildProcess child;
    std::string error;
    ASSERT_TRUE(child.spawn({"sleep", "30"}, false, error));
    const auto start = ChildProcess::Clock::now();
    std::string line;
    EXPECT_EQ(child.readLine(line, after(100)), ChildProcess::ReadStatus::Timeout);
    EXPECT_FALSE(child.outputBefore(after(50)));
    int status = 0;
    EXPECT_FALSE(child.waitForExit(after(50), status));
    EXPECT_LT(ChildProcess::Clock::now() - start, std::chrono::seconds(5));
    child.kill();
    EXPECT_FALSE(child.spawned());
    EXPECT_FALSE(child.sendLine("anything"));
}

}  // namespace
