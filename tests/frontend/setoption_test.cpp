// The setoption handler, seen through a reporter that records its messages.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "eval/bitbase_store.h"
#include "frontend/engine_session.h"
#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "search/limits.h"
#include "search/searcher.h"
#include "support/line_collector.h"

namespace {

// A UCI session in debug mode, whose errors arrive as "info string" lines.
class SetOptionTest : public ::testing::Test {
  protected:
    SetOptionTest() : session(settings()) {}
    bool start() {
        session.handleLine("uci");
        session.handleLine("debug on");
        output.take();
        return true;
    }
    SessionSettings settings() {
        SessionSettings s;
        s.tableBytes = 1 << 20;
        s.output = &output;
        return s;
    }

    // The messages of one command; a command without a message gives an empty list.
    std::vector<std::string> run(const std::string& line) {
        session.handleLine(line.c_str());
        std::vector<std::string> errors;
        for (const std::string& text : output.take())
            errors.push_back(text.rfind("info string ", 0) == 0 ? text.substr(12) : text);
        return errors;
    }
    std::string onlyError(const std::string& line) {
        const std::vector<std::string> errors = run(line);
        EXPECT_EQ(errors.size(), 1u) << line;
        return errors.empty() ? "" : errors[0];
    }
    int workerCount() {
        int count = 0;
        for (const auto& worker : session.controller()->workers) count += worker != nullptr;
        return count;
    }

    LineCollector output;
    EngineSession session;
    bool started = start();
    Searcher* searcher = &session.searcher();
    SearchLimits& limits = session.limits();
    Reporter& reporter = *session.reporter();
    SearchController* controller = session.controller();
};

using Errors = std::vector<std::string>;

}  // namespace

TEST_F(SetOptionTest, NameIsTakenExactlyUpToOneBlankBeforeValue) {
    EXPECT_EQ(onlyError("setoption value 3"), "'setoption' without 'name' setoption value 3");
    EXPECT_EQ(onlyError("setoption name value 3"),
              "Syntax error in 'setoption' setoption name value 3");
    EXPECT_EQ(onlyError("setoption name multipv value 3"),
              "'setoption': unknown option setoption name multipv value 3");
    EXPECT_EQ(onlyError("setoption name MultiPV  value 3"),
              "'setoption': unknown option setoption name MultiPV  value 3");
    EXPECT_EQ(onlyError("setoption name MultiPV"),
              "'setoption name MultiPV' without 'value' setoption name MultiPV");
    EXPECT_EQ(onlyError("setoption name Opponent value"),
              "Read error 'Opponent value' setoption name Opponent value");
    EXPECT_EQ(searcher->multiPv, 1);
    EXPECT_EQ(run("setoption   name    MultiPV value 3"), Errors{});
    EXPECT_EQ(searcher->multiPv, 3);

    // A button needs no value, and a value does no harm.
    EXPECT_EQ(run("setoption name Clear Hash"), Errors{});
    EXPECT_EQ(run("setoption name Clear Hash value now"), Errors{});
}

TEST_F(SetOptionTest, IllegalValuesAreReportedAndKeepTheOldSetting) {
    ASSERT_EQ(run("setoption name Ponder value false"), Errors{});
    ASSERT_EQ(run("setoption name Resign value 401"), Errors{});
    const struct {
        const char* line;
        const char* shownName;
    } cases[] = {
        {"setoption name Hash value 0", "Hash"},
        {"setoption name Hash value lots", "Hash"},
        {"setoption name BitbaseCache value 0", "Hash"},  // the sizes share one message
        {"setoption name Ponder value TRUE", "Ponder"},
        // Cut to eight characters, a longer word fails even when it starts right.
        {"setoption name Ponder value truetruetrue", "Ponder"},
        {"setoption name NoOutput value yes", "NoOutput"},
        {"setoption name Resign value 0", "Resign"},
        {"setoption name NeuroMaterial value 101", "NeuroMaterial"},
        {"setoption name NeuroWidth value 0", "NeuroWidth"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(onlyError(c.line),
                  std::string("Illegal value for '") + c.shownName + "' " + c.line);
    EXPECT_FALSE(limits.ponderPlan);
    EXPECT_FALSE(reporter.isOutputOff());
    EXPECT_EQ(searcher->resignScore, -4010);

    EXPECT_EQ(run("setoption name NeuroMaterial value 100"), Errors{});
    EXPECT_EQ(run("setoption name Ponder value true"), Errors{});
    EXPECT_TRUE(limits.ponderPlan);
}

TEST_F(SetOptionTest, CountsFallBackToOneAndAreClamped) {
    EXPECT_EQ(run("setoption name MultiPV value 300"), Errors{});
    EXPECT_EQ(searcher->multiPv, 255);
    EXPECT_EQ(onlyError("setoption name MultiPV value x"),
              "Illegal value for 'MultiPV' setoption name MultiPV value x");
    EXPECT_EQ(searcher->multiPv, 1);

    EXPECT_EQ(run("setoption name NumberOfProcessors value 99"), Errors{});
    EXPECT_EQ(searcher->threadCount, 8);
    EXPECT_EQ(workerCount(), 7);

    EXPECT_EQ(run("setoption name NumberOfProcessors value 3"), Errors{});
    EXPECT_EQ(workerCount(), 2);

    EXPECT_EQ(onlyError("setoption name NumberOfProcessors value -2"),
              "Illegal value for 'NumberOfProcessors' setoption name NumberOfProcessors value -2");
    EXPECT_EQ(controller->threadCount, 1);
    EXPECT_EQ(workerCount(), 0);
}

TEST_F(SetOptionTest, TimeLogNameLooksAtTheStoredName) {
    EXPECT_EQ(run("setoption name TimeLogfile value nul:"), Errors{});
    EXPECT_STREQ(searcher->timeLogName, "nul:");
    // Whatever comes next only empties the stored "nul:".
    EXPECT_EQ(run("setoption name TimeLogfile value times.log"), Errors{});
    EXPECT_STREQ(searcher->timeLogName, "");
    EXPECT_EQ(run("setoption name TimeLogfile value my times.log"), Errors{});
    EXPECT_STREQ(searcher->timeLogName, "my times.log");

    const std::string longName(600, 'x');
    EXPECT_EQ(run("setoption name TimeLogfile value " + longName), Errors{});
    EXPECT_EQ(std::strlen(searcher->timeLogName), 511u);
}

TEST_F(SetOptionTest, BitbaseCacheTakesOneToAHundredMebibytesAndPathAnyText) {
    const BitbaseStore& store = *searcher->bitbases;
    EXPECT_FALSE(store.hasTable());
    EXPECT_STREQ(store.directoryText(), ".");
    // 0 is refused: the cache can be sized but not switched off again.
    EXPECT_EQ(run("setoption name BitbaseCache value 0").size(), 1u);
    EXPECT_FALSE(store.hasTable());
    EXPECT_EQ(run("setoption name BitbaseCache value 1"), Errors{});
    EXPECT_EQ(store.blockLimit(), 1048576u / 568);
    EXPECT_EQ(run("setoption name BitbaseCache value 250"), Errors{});
    EXPECT_EQ(store.blockLimit(), 100u * 1048576 / 568);
    EXPECT_EQ(run("setoption name BitbaseCache value 0").size(), 1u);
    EXPECT_EQ(store.blockLimit(), 100u * 1048576 / 568);
    EXPECT_EQ(run("setoption name BitbasePath value /data/end games"), Errors{});
    EXPECT_STREQ(store.directoryText(), "/data/end games");
}
