// The reporter behind the `ucitest` start word: a script runs a series of searches and sees
// nothing but one timing line for each, with the running sum and the geometric mean of the
// times.
#pragma once

#include <atomic>
#include <cstdint>

#include "frontend/uci_reporter.h"

class TestReporter : public UciReporter {
  public:
    TestReporter(Searcher* searcher, const SearchClock* limits);

    // "count seconds sum geometric-mean" for the search just ended.
    void reportFinalStatistics() override;
    // Writes only while `printing` is set, so that no other line of the protocol is seen.
    void writeLine(const char* text) override;

    // Lets every line through when set; nothing in the engine sets it. Read by both threads.
    std::atomic<bool> printing{false};
    double totalSeconds = 0.0;
    double productSeconds = 1.0;
    int32_t searchCount = 0;
};
