// Whole xboard sessions in one process: the input, split into lines, goes to the engine session
// after the word "xboard", as standard input would. The harness bounds only what the engine
// rightly spends because it was asked to: after every line the clock is set to half a second,
// `st` and `sd` are kept small, and an own search that runs on past its time is asked for its
// move with `?`. Every output line must be one line, and every "move" line a move's text; the
// session must end cleanly at any point, by `quit` or by the end of the input.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "frontend/engine_session.h"
#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "fuzz_support.h"
#include "search/searcher.h"

namespace {

constexpr size_t TableBytes = 1 << 20;
// How long an own search may run before the harness asks for its move.
constexpr auto SearchGrace = std::chrono::milliseconds(300);
// Past this much time in one session the rest of the input is dropped.
constexpr auto SessionBudget = std::chrono::seconds(5);

class CheckingSink : public OutputSink {
  public:
    void writeLine(const char* text) override {
        FUZZ_CHECK(!std::strchr(text, '\n'), std::string("output line: ") + text);
        if (std::strncmp(text, "move ", 5) == 0) {
            static const std::regex form("move ([a-h][1-8][a-h][1-8][nbrq]?|O-O|O-O-O)");
            FUZZ_CHECK(std::regex_match(text, form), std::string("move line: ") + text);
        }
        if (std::strncmp(text, "Error (", 7) == 0)
            FUZZ_CHECK(std::strstr(text, "): "), std::string("error line: ") + text);
    }
};

// An own search (not a ponder search or an analysis) is running.
bool ownSearchRunning(EngineSession& session) {
    SearchController& controller = *session.controller();
    {
        std::lock_guard<std::mutex> guard(controller.lock);
        if (!controller.searchThread.valid) return false;
    }
    const Searcher& s = session.searcher();
    return !s.ponderRequested.load(std::memory_order_relaxed) &&
           !s.infiniteRequested.load(std::memory_order_relaxed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CheckingSink output;
    SessionSettings settings;
    settings.tableBytes = TableBytes;
    settings.output = &output;
    EngineSession session(settings);
    session.handleLine("xboard");
    const auto budgetEnd = std::chrono::steady_clock::now() + SessionBudget;
    // Before the handshake the harness's own `time` would end the session.
    bool handshake = false;

    for (std::string& line : inputLines(data, size)) {
        if (std::chrono::steady_clock::now() > budgetEnd) break;
        const std::string word = firstWord(line);
        // The seconds of `st` come out a million times larger as a move time; depths stay small.
        if (word == "st") line = "st 0.0001";
        if (word == "sd" && line.size() > 4) line = "sd 3";
        session.handleLine(line.c_str());
        if (session.quitRequested()) break;
        handshake = handshake || word == "protover";
        if (handshake) session.handleLine("time 50");

        const auto searchEnd = std::chrono::steady_clock::now() + SearchGrace;
        while (ownSearchRunning(session) && std::chrono::steady_clock::now() < searchEnd)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (ownSearchRunning(session)) session.handleLine("?");
    }
    return 0;
}
