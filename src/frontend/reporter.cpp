#include "frontend/reporter.h"

#include <cstdio>

#include "search/searcher.h"

Reporter::Reporter() {
    constructPosition(position);
}

void Reporter::reportMultiPvLine(Searcher&, int, Move, int, int, int) {}

void Reporter::reportError(const char*, const char*) {}

void Reporter::reportInfo(const char*) {}

void Reporter::writeLine(const char* text) {
    if (outputOff) return;
    std::lock_guard<std::mutex> guard(lock);
    if (output) {
        output->writeLine(text);
        return;
    }
    std::fputs(text, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void formatScore(std::string& line, int score, int alpha, int beta) {
    char buffer[40];
    if (score >= ScoreMateZone + 1) {
        std::snprintf(buffer, sizeof buffer, " score mate %d", (ScoreInfinite - score) / 2);
    } else if (score <= -ScoreMateZone - 1) {
        std::snprintf(buffer, sizeof buffer, " score mate %d", (-ScoreInfinite - score) / 2);
    } else if (score >= 2) {
        std::snprintf(buffer, sizeof buffer, " score cp %d", (score + 9) / 10);
    } else if (score >= -1) {
        std::snprintf(buffer, sizeof buffer, " score cp 0");
    } else {
        std::snprintf(buffer, sizeof buffer, " score cp %d", (score - 9) / 10);
    }
    line += buffer;
    if (score >= beta) {
        line += " lowerbound";
    } else if (score <= alpha) {
        line += " upperbound";
    }
}

void compressBlanks(std::string& line) {
    size_t out = 0;
    for (size_t in = 0; in < line.size(); ++in) {
        if (line[in] == ' ' && out > 0 && line[out - 1] == ' ') continue;
        line[out++] = line[in];
    }
    line.resize(out);
}

void NullReporter::reportIteration(Searcher& searcher, int, int, int) {
    // The walk also sets the searcher's ponder move, which is wanted even when nobody listens.
    Move line[100];
    extractPv(searcher, line, 100, nullptr);
}
