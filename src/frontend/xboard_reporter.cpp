#include "frontend/xboard_reporter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "board/makemove.h"
#include "board/text.h"
#include "frontend/xboard_adapter.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

constexpr int MaxReportedLine = 100;
constexpr int ComparedMoves = 20;
constexpr double ThrottleMs = 900.0;
// Brings a mate score near xboard's convention of 32767 less the distance in plies.
constexpr int MateShift = 467233;

void copyText(char (&target)[16], const char* text) {
    std::snprintf(target, sizeof target, "%s", text);
    // A ponder move comes padded to six characters; the prefix needs only the move.
    if (char* blank = std::strchr(target, ' ')) *blank = 0;
}

}  // namespace

int xboardScore(int score) {
    if (score > ScoreMateZone) return score - MateShift;
    if (score < -ScoreMateZone) return score + MateShift;
    if (score >= 2) return (score + 9) / 10;
    if (score < -1) return (score - 9) / 10;
    return 0;
}

XboardReporter::XboardReporter(Searcher* searcherIn, const SearchClock* limitsIn) {
    searcher = searcherIn;
    limits = limitsIn;
}

void XboardReporter::reportIteration(Searcher& s, int score, int, int) {
    Move line[MaxReportedLine];
    const int length = extractPv(s, line, MaxReportedLine, nullptr);
    if (!postThinking) return;
    const double elapsed = static_cast<double>(limits->elapsed());
    const double nodes = static_cast<double>(s.nodeCount) * static_cast<double>(s.threadCount);

    const int compared = std::min(length, ComparedMoves);
    const bool quietScore = (score > -ScoreMateZone && score < ScoreMateZone) || score == lastScore;
    const bool sameLine = length == lastPvLength && std::equal(line, line + compared, lastPv);
    if (!s.firstIteration && elapsed < ThrottleMs && sameLine && quietScore &&
        lastScore >= score - 15 && lastScore <= score + 15) {
        return;
    }
    std::copy(line, line + compared, lastPv);
    lastPvLength = length;
    lastScore = score;

    char prefix[16];
    {
        std::lock_guard<std::mutex> guard(textLock);
        std::memcpy(prefix, ponderPrefix, sizeof prefix);
    }
    char buffer[160];
    std::snprintf(buffer, sizeof buffer, "%d %d %.0f %.0f %s", s.iterationDepth + 1,
                  xboardScore(score), elapsed / 10.0, nodes, prefix);
    std::string text = buffer;
    Position walk = position;
    char moveText[16];
    for (int i = 0; i < length; ++i) {
        text += ' ';
        text += writeMove(walk, line[i], StyleCoordinates, moveText);
        if (i == 0 && analyzing) {
            std::lock_guard<std::mutex> guard(textLock);
            copyText(bestMoveText, moveText);
        }
        UndoRecord undo;
        beginUndo(undo, walk);
        makeLegal(walk, line[i], undo);
    }
    compressBlanks(text);
    writeLine(text.c_str());
}

void XboardReporter::reportCurrentMove(Move move, int number) {
    char moveText[16];
    writeMove(position, move, StyleCoordinates, moveText);
    std::lock_guard<std::mutex> guard(textLock);
    currentMoveNumber = number;
    copyText(currentMoveText, moveText);
}

void XboardReporter::reportError(const char* message, const char* detail) {
    std::string text = "Error (";
    text += message;
    text += "): ";
    text += detail ? detail : "internal error";
    writeLine(text.c_str());
}

void XboardReporter::reportInfo(const char* text) {
    std::string line = "Info: ";
    line += text;
    writeLine(line.c_str());
}

void XboardReporter::reportBestMove(const Move* best, const Move* ponder, bool) {
    // A search silenced by the adapter, or an analysis, leaves no trace.
    if (analyzing || outputOff || !adapter) return;
    adapter->searchEnded(best, ponder);
}

void XboardReporter::syncPosition() {
    position = searcher->position;
}

void XboardReporter::startAnalysis(int64_t now) {
    analyzing = true;
    std::lock_guard<std::mutex> guard(textLock);
    bestMoveText[0] = 0;
    currentMoveText[0] = 0;
    currentMoveNumber = 0;
    analysisStart = now;
}

std::string XboardReporter::bestMoveOfAnalysis() {
    std::lock_guard<std::mutex> guard(textLock);
    return bestMoveText;
}

void XboardReporter::setPonderPrefix(const char* text) {
    std::lock_guard<std::mutex> guard(textLock);
    copyText(ponderPrefix, text);
}

std::string XboardReporter::statusLine(int64_t now) {
    const Searcher& s = *searcher;
    std::lock_guard<std::mutex> guard(textLock);
    char buffer[200];
    std::snprintf(buffer, sizeof buffer, "stat01:%13.0f %16.0f %6d %3d %3d %s",
                  static_cast<double>(now - analysisStart) / 10.0,
                  static_cast<double>(s.nodeCount) * static_cast<double>(s.threadCount),
                  s.iterationDepth + 1, s.rootCount - currentMoveNumber + 1, s.rootCount,
                  currentMoveText);
    return buffer;
}
