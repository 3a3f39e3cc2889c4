#include "frontend/test_reporter.h"

#include <cmath>
#include <cstdio>

#include "search/limits.h"

TestReporter::TestReporter(Searcher* searcherIn, const SearchClock* limitsIn)
    : UciReporter(searcherIn, limitsIn) {}

void TestReporter::writeLine(const char* text) {
    if (printing) Reporter::writeLine(text);
}

void TestReporter::reportFinalStatistics() {
    ++searchCount;
    const double seconds = static_cast<double>(limits->elapsed()) * 0.001;
    totalSeconds += seconds;
    productSeconds *= seconds;
    char text[96];
    std::snprintf(text, sizeof text, "%4d %12.8f %16.10f %12.8f", searchCount, seconds,
                  totalSeconds, std::pow(productSeconds, 1.0 / searchCount));
    // Past the gate directly: a flag switched here would let a line of the command thread
    // through at the same moment.
    Reporter::writeLine(text);
}
