// The option list and the setoption handler, seen through a reporter that records.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "frontend/uci_interpreter.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

class RecordingReporter : public Reporter {
  public:
    void reportIteration(Searcher&, int, int, int) override {}
    void reportCurrentMove(Move, int) override {}
    void reportBestMove(const Move*, const Move*, bool) override {}
    void reportFinalStatistics() override {}
    void syncPosition() override {}
    void reportError(const char* message, const char* detail) override {
        errors.push_back(std::string(message) + "|" + (detail ? detail : "(none)"));
    }
    void writeLine(const char* text) override { lines.emplace_back(text); }

    std::vector<std::string> errors;
    std::vector<std::string> lines;
};

class SetOptionTest : public ::testing::Test {
  protected:
    void SetUp() override {
        searcher = std::make_unique<Searcher>(1 << 20);
        controller = std::make_unique<SearchController>(searcher.get(), &reporter, &limits);
        interpreter =
            std::make_unique<UciInterpreter>(searcher.get(), &reporter, controller.get(), false);
    }

    // The messages of one command; a command without a message gives an empty list.
    std::vector<std::string> run(const std::string& line) {
        reporter.errors.clear();
        interpreter->handleCommand(line.c_str());
        return reporter.errors;
    }
    std::string onlyError(const std::string& line) {
        const std::vector<std::string> errors = run(line);
        EXPECT_EQ(errors.size(), 1u) << line;
        return errors.empty() ? "" : errors[0];
    }
    int workerCount() const {
        int count = 0;
        for (const auto& worker : controller->workers) count += worker != nullptr;
        return count;
    }

    RecordingReporter reporter;
    SearchLimits limits;
    std::unique_ptr<Searcher> searcher;
    std::unique_ptr<SearchController> controller;
    std::unique_ptr<UciInterpreter> interpreter;
};

using Errors = std::vector<std::string>;

}  // namespace

TEST_F(SetOptionTest, UciAnswerListsHiddenOptionsOnlyWhenAsked) {
    run("uci");
    ASSERT_EQ(reporter.lines.size(), 16u);
    EXPECT_EQ(reporter.lines.front(), "id name Zelmark 2.8");
    EXPECT_EQ(reporter.lines[2], "option name Hash type spin default 3 min 1 max 32767");
    EXPECT_EQ(reporter.lines[14], "option name TimeLogfile type string default nul:");
    EXPECT_EQ(reporter.lines.back(), "uciok");

    // The defaults are constants of the text, not the current settings.
    run("setoption name MultiPV value 4");
    reporter.lines.clear();
    interpreter->showHiddenOptions = true;
    run("uci");
    ASSERT_EQ(reporter.lines.size(), 22u);
    EXPECT_EQ(reporter.lines[6], "option name MultiPV type spin default 1 min 1 max 255");
    EXPECT_EQ(reporter.lines[15], "option name BitbaseCache type spin default 0 min 0 max 100");
    EXPECT_EQ(reporter.lines[20], "option name AlwaysClearHash type check default false");
    EXPECT_EQ(reporter.lines.back(), "uciok");
}

TEST_F(SetOptionTest, NameIsTakenExactlyUpToOneBlankBeforeValue) {
    EXPECT_EQ(onlyError("setoption value 3"), "'setoption' without 'name'|setoption value 3");
    EXPECT_EQ(onlyError("setoption name"), "Syntax error in 'setoption'|setoption name");
    EXPECT_EQ(onlyError("setoption name value 3"),
              "Syntax error in 'setoption'|setoption name value 3");
    EXPECT_EQ(onlyError("setoption name multipv value 3"),
              "'setoption': unknown option|setoption name multipv value 3");
    EXPECT_EQ(onlyError("setoption name MultiPV  value 3"),
              "'setoption': unknown option|setoption name MultiPV  value 3");
    EXPECT_EQ(searcher->multiPv, 1);
    EXPECT_EQ(run("setoption   name    MultiPV value 3"), Errors{});
    EXPECT_EQ(searcher->multiPv, 3);

    // A button needs no value, and a value does no harm.
    EXPECT_EQ(run("setoption name Clear Hash"), Errors{});
    EXPECT_EQ(run("setoption name Clear Hash value now"), Errors{});
}

TEST_F(SetOptionTest, MissingValuesNameTheOption) {
    for (const char* name : {"Hash", "BitbaseCache", "BitbasePath", "Ponder", "OwnBook", "BookFile",
                             "MultiPV", "NumberOfProcessors", "Opponent", "UCI_Chess960",
                             "blocking", "NoOutput", "AlwaysClearHash", "NeuroMaterial",
                             "NeuroWidth", "MaterialFile", "Resign", "TimeLogfile"}) {
        const std::string line = std::string("setoption name ") + name;
        EXPECT_EQ(onlyError(line),
                  "'setoption name " + std::string(name) + "' without 'value'|" + line);
    }
    // Missing is not bad: the counts keep their values.
    EXPECT_EQ(searcher->multiPv, 1);
    EXPECT_EQ(controller->threadCount, 1);
}

TEST_F(SetOptionTest, SizesRejectZeroAndShareOneMessage) {
    EXPECT_EQ(onlyError("setoption name Hash value 0"),
              "Illegal value for 'Hash'|setoption name Hash value 0");
    EXPECT_EQ(onlyError("setoption name Hash value lots"),
              "Illegal value for 'Hash'|setoption name Hash value lots");
    EXPECT_EQ(onlyError("setoption name BitbaseCache value 0"),
              "Illegal value for 'Hash'|setoption name BitbaseCache value 0");
    EXPECT_EQ(run("setoption name Hash value 2"), Errors{});
    EXPECT_EQ(run("setoption name BitbaseCache value 1000"), Errors{});
}

TEST_F(SetOptionTest, CountsFallBackToOneAndAreClamped) {
    EXPECT_EQ(onlyError("setoption name MultiPV value 0"),
              "Illegal value for 'MultiPV'|setoption name MultiPV value 0");
    EXPECT_EQ(searcher->multiPv, 1);
    EXPECT_EQ(run("setoption name MultiPV value 300"), Errors{});
    EXPECT_EQ(searcher->multiPv, 255);
    EXPECT_EQ(onlyError("setoption name MultiPV value x"),
              "Illegal value for 'MultiPV'|setoption name MultiPV value x");
    EXPECT_EQ(searcher->multiPv, 1);

    EXPECT_EQ(run("setoption name NumberOfProcessors value 99"), Errors{});
    EXPECT_EQ(controller->threadCount, 8);
    EXPECT_EQ(searcher->threadCount, 8);
    EXPECT_EQ(workerCount(), 7);
    EXPECT_EQ(controller->workers[6]->searcherIndex, 7u);

    EXPECT_EQ(run("setoption name NumberOfProcessors value 3"), Errors{});
    EXPECT_EQ(workerCount(), 2);
    EXPECT_EQ(controller->workers[0]->threadCount, 3);
    EXPECT_EQ(controller->workers[1]->threadCount, 3);
    EXPECT_EQ(controller->workers[2], nullptr);

    EXPECT_EQ(onlyError("setoption name NumberOfProcessors value -2"),
              "Illegal value for 'NumberOfProcessors'|setoption name NumberOfProcessors value -2");
    EXPECT_EQ(controller->threadCount, 1);
    EXPECT_EQ(workerCount(), 0);
}

TEST_F(SetOptionTest, BooleansAcceptOnlyTrueAndFalse) {
    EXPECT_EQ(run("setoption name Ponder value false"), Errors{});
    EXPECT_FALSE(limits.ponderPlan);
    EXPECT_EQ(onlyError("setoption name Ponder value TRUE"),
              "Illegal value for 'Ponder'|setoption name Ponder value TRUE");
    // Cut to eight characters, a longer word fails even when it starts right.
    EXPECT_EQ(onlyError("setoption name Ponder value truetruetrue"),
              "Illegal value for 'Ponder'|setoption name Ponder value truetruetrue");
    EXPECT_FALSE(limits.ponderPlan);
    EXPECT_EQ(run("setoption name Ponder value true"), Errors{});
    EXPECT_TRUE(limits.ponderPlan);

    EXPECT_EQ(run("setoption name OwnBook value false"), Errors{});
    EXPECT_FALSE(searcher->useBook);
    EXPECT_EQ(run("setoption name UCI_Chess960 value true"), Errors{});
    EXPECT_TRUE(interpreter->uciChess960);
    EXPECT_EQ(run("setoption name blocking value true"), Errors{});
    EXPECT_TRUE(controller->blocking);
    EXPECT_EQ(run("setoption name AlwaysClearHash value true"), Errors{});
    EXPECT_TRUE(searcher->clearCaches);
    EXPECT_EQ(run("setoption name NoOutput value true"), Errors{});
    EXPECT_TRUE(reporter.isOutputOff());

    for (const char* name :
         {"OwnBook", "UCI_Chess960", "blocking", "NoOutput", "AlwaysClearHash"}) {
        const std::string line = std::string("setoption name ") + name + " value yes";
        EXPECT_EQ(onlyError(line), "Illegal value for '" + std::string(name) + "'|" + line);
    }
    EXPECT_FALSE(searcher->useBook);
    EXPECT_TRUE(reporter.isOutputOff());
}

TEST_F(SetOptionTest, ResignMapsCentipawnsToTheThreshold) {
    const struct {
        const char* value;
        int expected;
    } cases[] = {{"1", -4000},     {"400", -4000},    {"401", -4010},
                 {"1999", -19990}, {"2000", -500000}, {"100000", -500000}};
    for (const auto& c : cases) {
        EXPECT_EQ(run(std::string("setoption name Resign value ") + c.value), Errors{});
        EXPECT_EQ(searcher->resignScore, c.expected) << c.value;
    }
    EXPECT_EQ(onlyError("setoption name Resign value 0"),
              "Illegal value for 'Resign'|setoption name Resign value 0");
    EXPECT_EQ(searcher->resignScore, -500000);
}

TEST_F(SetOptionTest, NeuroOptionsCheckTheirRanges) {
    EXPECT_EQ(run("setoption name NeuroMaterial value 0"), Errors{});
    EXPECT_EQ(run("setoption name NeuroMaterial value 100"), Errors{});
    EXPECT_EQ(onlyError("setoption name NeuroMaterial value 101"),
              "Illegal value for 'NeuroMaterial'|setoption name NeuroMaterial value 101");
    EXPECT_EQ(run("setoption name NeuroWidth value 10000"), Errors{});
    EXPECT_EQ(onlyError("setoption name NeuroWidth value 0"),
              "Illegal value for 'NeuroWidth'|setoption name NeuroWidth value 0");
}

TEST_F(SetOptionTest, TimeLogNameLooksAtTheStoredName) {
    EXPECT_STREQ(searcher->timeLogName, "");
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

TEST_F(SetOptionTest, OpponentNameIsReadButNotStored) {
    EXPECT_EQ(run("setoption name Opponent value Somebody"), Errors{});
    EXPECT_EQ(onlyError("setoption name Opponent value Lepliod"),
              "Nicht jetzt, nicht schon wieder Du!|(none)");
    EXPECT_EQ(onlyError("setoption name Opponent value"),
              "Read error 'Opponent value'|setoption name Opponent value");
}
