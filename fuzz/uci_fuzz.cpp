// A whole UCI session in one process: the input, split into lines, goes to the interpreter as
// standard input would, with a "stop" after each line so that no search outlives its line
// (a search started by `go ... ponder` may live on into one `ponderhit` line). The harness
// lowers only what the engine rightly spends because it was asked to: table sizes, threads,
// perft and search depths, clock times, random games; it points file options and the files of
// the book and material tools at harmless paths, so that fuzzing never writes a file; and it
// leaves out `mat learn`, which never returns, and `testpos`, whose searches are huge. After
// each line the root must be a sound position, and every bestmove a legal move of the
// position it was searched from.
#include <cctype>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frontend/book_command.h"
#include "frontend/engine_session.h"
#include "frontend/mat_command.h"
#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "fuzz_support.h"
#include "search/searcher.h"
#include "support/line_collector.h"

namespace {

constexpr size_t TableBytes = 1 << 20;
constexpr long MaxTableMiB = 2;
constexpr long MaxThreads = 2;
constexpr long MaxDepth = 3;
// `mate N` searches 2N + 1 iterations.
constexpr long MaxMate = 1;
constexpr long MaxNodes = 20000;
constexpr long MaxMoveTimeMs = 100;
constexpr long MaxClockMs = 1000;
constexpr long MaxIncrementMs = 100;
// How long a bounded search may run on before its line's stop cuts it off.
constexpr auto SearchGrace = std::chrono::milliseconds(300);
// Past this much time in one session, perft and searches go to depth 1 and nothing waits, so
// that a long input of slow lines stays far below the fuzzer's time limit.
constexpr auto SessionBudget = std::chrono::seconds(5);
const char* const HarmlessLog = "/dev/null";
const char* const MissingFile = "/nonexistent/zelmark-fuzz";
// What `book add` reads; the writers write to the harmless path.
const char* const BookGames = ZELMARK_TEST_DATA "/pgn/book_games.pgn";
constexpr long MaxRandomGames = 3;

// Checks every output line, prints nothing, and keeps the bestmove lines.
class CheckingSink : public LineCollector {
  public:
    void writeLine(const char* text) override {
        const size_t length = std::strlen(text);
        FUZZ_CHECK(length > 0 && !std::strchr(text, '\n'), std::string("output line: ") + text);
        if (std::strncmp(text, "bestmove", 8) == 0) LineCollector::writeLine(text);
    }
};

// The engine reads numbers as white space, a sign and digits, from a fixed distance behind
// the first occurrence of a keyword. A number there above `cap`, or too long to know its value
// after the engine's wrapping arithmetic, becomes `cap`.
void capNumber(std::string& line, const char* keyword, size_t distance, long cap) {
    const size_t found = line.find(keyword);
    if (found == std::string::npos) return;
    size_t at = std::min(found + distance, line.size());
    while (at < line.size() && std::isspace(static_cast<unsigned char>(line[at]))) ++at;
    const size_t numberStart = at;
    const bool negative = at < line.size() && line[at] == '-';
    if (at < line.size() && (line[at] == '-' || line[at] == '+')) ++at;
    const size_t digitStart = at;
    long value = 0;
    while (at < line.size() && std::isdigit(static_cast<unsigned char>(line[at]))) {
        if (at - digitStart < 12) value = value * 10 + (line[at] - '0');
        ++at;
    }
    if (at == digitStart) return;
    if (at - digitStart >= 12 || (!negative && value > cap))
        line.replace(numberStart, at - numberStart, std::to_string(cap));
}

void boundGo(std::string& line, long maxDepth) {
    capNumber(line, "depth", 5, maxDepth);
    capNumber(line, "mate", 4, MaxMate);
    capNumber(line, "nodes", 6, MaxNodes);
    capNumber(line, "movetime", 9, MaxMoveTimeMs);
    capNumber(line, "wtime", 6, MaxClockMs);
    capNumber(line, "btime", 6, MaxClockMs);
    capNumber(line, "winc", 5, MaxIncrementMs);
    capNumber(line, "binc", 5, MaxIncrementMs);
}

void boundSetOption(std::string& line) {
    const size_t value = line.find("value");
    if (value == std::string::npos) return;
    if (line.find("Hash") != std::string::npos || line.find("BitbaseCache") != std::string::npos)
        capNumber(line, "value", 5, MaxTableMiB);
    if (line.find("NumberOfProcessors") != std::string::npos)
        capNumber(line, "value", 5, MaxThreads);
    const bool log = line.find("TimeLogfile") != std::string::npos;
    if (!log && line.find("MaterialFile") == std::string::npos &&
        line.find("BookFile") == std::string::npos && line.find("BitbasePath") == std::string::npos)
        return;
    // The file name is the rest of the line, one character behind "value" and its blanks.
    size_t at = std::min(value + 6, line.size());
    while (at < line.size() && std::isspace(static_cast<unsigned char>(line[at]))) ++at;
    const std::string name = line.substr(at);
    if (name.empty() || name == "(internal)" || name == "nul:") return;
    line.replace(value, std::string::npos,
                 std::string("value ") + (log ? HarmlessLog : MissingFile));
}

// The book command's file, read as the engine reads it, is put in place of the name; a line
// whose reading that would change does nothing instead.
void boundBook(std::string& line) {
    const BookRequest request = parseBookCommand(line.c_str());
    if (request.action != BookAction::Add && request.action != BookAction::WriteBook &&
        request.action != BookAction::Write960 && request.action != BookAction::WriteEpd)
        return;
    const std::string harmless = request.action == BookAction::Add ? BookGames : HarmlessLog;
    line.replace(request.fileNameOffset, request.fileNameLength, harmless);
    const BookRequest bounded = parseBookCommand(line.c_str());
    if (bounded.action != request.action || bounded.fileName != harmless) line = "book delete";
}

// `mat learn` never returns, so it does nothing here; `rnd` plays a few games; the files of
// the other subcommands become harmless ones, as for the book tools.
void boundMat(std::string& line) {
    const MatRequest request = parseMatCommand(line.c_str());
    switch (request.action) {
        case MatAction::None:
        case MatAction::Delete:
            return;
        case MatAction::Learn:
            line = "mat delete";
            return;
        case MatAction::Random:
            if (request.games > MaxRandomGames) line = "mat rnd " + std::to_string(MaxRandomGames);
            return;
        case MatAction::Add:
        case MatAction::WriteMemory:
        case MatAction::ReadMemory:
        case MatAction::Write:
            break;
    }
    const std::string harmless = request.action == MatAction::Add          ? BookGames
                                 : request.action == MatAction::ReadMemory ? MissingFile
                                                                           : HarmlessLog;
    line.replace(request.fileNameOffset, request.fileNameLength, harmless);
    const MatRequest bounded = parseMatCommand(line.c_str());
    if (bounded.action != request.action || bounded.fileName != harmless) line = "mat delete";
}

bool searchThreadRunning(SearchController& controller) {
    std::lock_guard<std::mutex> guard(controller.lock);
    return controller.searchThread.valid;
}

void waitForSearchEnd(SearchController& controller) {
    const auto deadline = std::chrono::steady_clock::now() + SearchGrace;
    while (searchThreadRunning(controller) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// "bestmove X" or "bestmove X ponder Y": X legal at the root, Y legal after X.
void checkBestMove(const std::string& line, const Position& root) {
    char best[16] = {}, ponderWord[16] = {}, ponder[16] = {};
    const int fields =
        std::sscanf(line.c_str(), "bestmove %15s %15s %15s", best, ponderWord, ponder);
    FUZZ_CHECK(fields == 1 || (fields == 3 && std::strcmp(ponderWord, "ponder") == 0),
               "bestmove line: " + line);
    Position p;
    std::memcpy(static_cast<void*>(&p), &root, sizeof p);
    Move move = NoMove;
    FUZZ_CHECK(parseMove(p, best, move, 1), line + " is illegal in " + fenOf(root));
    if (fields != 3) return;
    UndoRecord undo;
    beginUndo(undo, p);
    FUZZ_CHECK(makeLegal(p, move, undo), line + " is illegal in " + fenOf(root));
    Move reply = NoMove;
    FUZZ_CHECK(parseMove(p, ponder, reply, 1), line + ": ponder move illegal in " + fenOf(root));
}

SessionSettings fuzzSettings(CheckingSink& output) {
    SessionSettings settings;
    settings.tableBytes = TableBytes;
    settings.showHiddenOptions = true;
    settings.output = &output;
    return settings;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CheckingSink output;
    EngineSession session(fuzzSettings(output));
    session.handleLine("uci");
    Searcher& searcher = session.searcher();
    SearchController& controller = *session.controller();
    // The position the last search started from.
    Position root;
    std::memcpy(static_cast<void*>(&root), &searcher.position, sizeof root);
    bool pondering = false;
    const auto budgetEnd = std::chrono::steady_clock::now() + SessionBudget;

    auto stopSearch = [&]() {
        session.handleLine("stop");
        for (const std::string& best : output.take()) checkBestMove(best, root);
    };

    for (std::string& line : inputLines(data, size)) {
        const std::string word = firstWord(line);
        if (word.empty()) continue;
        const bool ponderHit = pondering && word == "ponderhit";
        if (pondering && !ponderHit) stopSearch();
        const bool inBudget = std::chrono::steady_clock::now() < budgetEnd;
        const long maxDepth = inBudget ? MaxDepth : 1;
        if (word == "go") {
            boundGo(line, maxDepth);
            std::memcpy(static_cast<void*>(&root), &searcher.position, sizeof root);
        } else if (word == "perft") {
            capNumber(line, "depth", 5, maxDepth);
            capNumber(line, "Hash", 4, MaxTableMiB);
        } else if (word == "setoption") {
            boundSetOption(line);
        } else if (word == "book") {
            boundBook(line);
        } else if (word == "mat") {
            boundMat(line);
        } else if (word == "testpos") {
            // Its searches take minutes each, with a table of 500 MiB.
            continue;
        }
        session.handleLine(line.c_str());

        const bool searched = word == "go" || ponderHit;
        pondering = word == "go" && line.find("ponder") != std::string::npos;
        if (pondering) continue;
        if (inBudget && (ponderHit || (word == "go" && line.find("infinite") == std::string::npos)))
            waitForSearchEnd(controller);
        stopSearch();

        checkInvariants(searcher.position, "line '" + line + "'");
        if (searched) {
            FUZZ_CHECK(std::memcmp(&root, &searcher.position, sizeof root) == 0 ||
                           (fenOf(root) == fenOf(searcher.position) &&
                            root.hashKey == searcher.position.hashKey),
                       "search changed the root " + fenOf(root) + " after '" + line + "'");
        }
        if (controller.quitRequested) break;
    }
    if (pondering) stopSearch();
    return 0;
}
