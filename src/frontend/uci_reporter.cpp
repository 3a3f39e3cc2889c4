#include "frontend/uci_reporter.h"

#include <algorithm>
#include <cstdio>

#include "board/makemove.h"
#include "board/text.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

constexpr int MaxReportedLine = 100;
constexpr int ComparedMoves = 20;
// Within this time a line that repeats the last one is held back.
constexpr double ThrottleMs = 900.0;
constexpr double CurrentMoveDelayMs = 1000.0;

}  // namespace

UciReporter::UciReporter(Searcher* searcherIn, const SearchClock* limitsIn) {
    searcher = searcherIn;
    limits = limitsIn;
}

double UciReporter::elapsedMs() const {
    return static_cast<double>(limits->elapsed());
}

double UciReporter::reportedNodes(const Searcher& s) const {
    // Workers do not count into the main searcher; the product stands in for the total.
    return static_cast<double>(s.nodeCount) * static_cast<double>(s.threadCount);
}

void UciReporter::appendLine(std::string& text, const Move* line, int length) {
    Position walk = position;
    char moveText[16];
    for (int i = 0; i < length; ++i) {
        text += ' ';
        text += writeMove(walk, line[i], StyleCoordinates, moveText);
        UndoRecord undo;
        beginUndo(undo, walk);
        // A move that leaves the king in check is taken back and the walk goes on, so the
        // line is printed as it was extracted.
        makeLegal(walk, line[i], undo);
    }
}

void UciReporter::reportIteration(Searcher& s, int score, int alpha, int beta) {
    const double elapsed = elapsedMs();
    const double nodes = reportedNodes(s);
    char buffer[200];
    std::snprintf(buffer, sizeof buffer, "info depth %d seldepth %d time %16.0f nodes %16.0f pv",
                  s.iterationDepth + 1, std::max(s.selDepth, s.iterationDepth) + 1, elapsed, nodes);
    std::string text = buffer;

    Move line[MaxReportedLine];
    const int length = extractPv(s, line, MaxReportedLine, nullptr);
    const int compared = std::min(length, ComparedMoves);

    const bool quietScore = (score > -ScoreMateZone && score < ScoreMateZone) || score == lastScore;
    const bool sameLine = length == lastPvLength && std::equal(line, line + compared, lastPv);
    if (!debug && !outputOff && !s.firstIteration && elapsed < ThrottleMs && sameLine &&
        quietScore && lastScore >= score - 15 && lastScore <= score + 15) {
        return;
    }
    std::copy(line, line + compared, lastPv);
    lastPvLength = length;
    lastScore = score;

    appendLine(text, line, length);
    formatScore(text, score, alpha, beta);
    std::snprintf(buffer, sizeof buffer, " hashfull %d nps %16.0f", tableFillPermill(s),
                  nodes * 1000.0 / std::max(elapsed, 1.0));
    text += buffer;
    compressBlanks(text);
    writeLine(text.c_str());
}

void UciReporter::reportCurrentMove(Move move, int number) {
    if (!debug && elapsedMs() < CurrentMoveDelayMs) return;
    char moveText[16];
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "info currmove %s currmovenumber %d",
                  writeMove(position, move, StyleCoordinates, moveText), number);
    writeLine(buffer);
}

void UciReporter::reportMultiPvLine(Searcher& s, int index, Move firstMove, int score, int alpha,
                                    int beta) {
    char buffer[120];
    // The search counts the lines from 1.
    std::snprintf(buffer, sizeof buffer, "info multipv %d depth %d seldepth %d ", index,
                  s.iterationDepth + 1, s.selDepth + 1);
    std::string text = buffer;
    formatScore(text, score, alpha, beta);
    Move line[MaxReportedLine];
    const int length = extractPv(s, line, MaxReportedLine, &firstMove);
    text += " pv ";
    appendLine(text, line, length);
    compressBlanks(text);
    writeLine(text.c_str());
}

void UciReporter::reportError(const char* message, const char* detail) {
    if (!debug) return;
    std::string text = message;
    text += ' ';
    if (detail) text += detail;
    reportInfo(text.c_str());
}

void UciReporter::reportInfo(const char* text) {
    std::string line = "info string ";
    line += text;
    writeLine(line.c_str());
}

void UciReporter::reportBestMove(const Move* best, const Move* ponder, bool) {
    char bestText[16];
    char ponderText[16];
    char buffer[64];
    if (best && ponder) {
        Position walk = position;
        writeMove(walk, *best, StyleCoordinates, bestText);
        UndoRecord undo;
        beginUndo(undo, walk);
        makeLegal(walk, *best, undo);
        writeMove(walk, *ponder, StyleCoordinates, ponderText);
        std::snprintf(buffer, sizeof buffer, "bestmove %s ponder %s", bestText, ponderText);
        writeLine(buffer);
    } else if (best) {
        Position walk = position;
        std::snprintf(buffer, sizeof buffer, "bestmove %s",
                      writeMove(walk, *best, StyleCoordinates, bestText));
        writeLine(buffer);
    } else {
        reportError("Kein Zug berechnet", nullptr);
    }
}

void UciReporter::reportFinalStatistics() {
    const Searcher& s = *searcher;
    const double elapsed = elapsedMs();
    const double nodes = reportedNodes(s);
    char buffer[240];
    std::snprintf(buffer, sizeof buffer,
                  "info depth %d seldepth %d time %16.0f nodes %16.0f hashfull %d nps %16.0f ",
                  s.iterationDepth, std::max(s.selDepth, s.iterationDepth) + 1, elapsed, nodes,
                  tableFillPermill(s), nodes * 1000.0 / std::max(elapsed, 1.0));
    std::string text = buffer;
    formatScore(text, s.rootScore, s.rootAlpha, s.rootBeta);
    compressBlanks(text);
    writeLine(text.c_str());
}

void UciReporter::syncPosition() {
    position = searcher->position;
}
