#include "frontend/engine_session.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "book/pgn_reader.h"
#include "frontend/command_handler.h"
#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "frontend/test_reporter.h"
#include "frontend/uci_interpreter.h"
#include "frontend/uci_reporter.h"
#include "frontend/xboard_adapter.h"
#include "frontend/xboard_reporter.h"
#include "search/limits.h"
#include "search/searcher.h"

EngineSession::EngineSession(const SessionSettings& sessionSettings)
    : settings(sessionSettings),
      mainSearcher(std::make_unique<Searcher>(sessionSettings.tableBytes)),
      searchLimits(std::make_unique<SearchLimits>()),
      lineBuffer(new char[LineBufferSize]) {
    if (!settings.pgnFileName) return;
    // A file that does not open costs the reader's message and nothing else.
    gameFile = std::make_unique<PgnReader>(settings.pgnFileName);
    gameFile->followedMoves.clear();
    gameFile->followIndex = 0;
    gameFile->followExhausted = !gameFile->is_open();
    if (gameFile->is_open()) mainSearcher->gameFollower = gameFile.get();
}

EngineSession::~EngineSession() {
    // The adapter goes first: its queue thread works on the interpreter.
    xboardAdapter.reset();
    uciInterpreter.reset();
    // Stops a search that still runs and joins its thread.
    searchController.reset();
    // The searcher must not keep a pointer to a dead reporter.
    mainSearcher->setReporter(nullptr);
    protocolReporter.reset();
    mainSearcher->gameFollower = nullptr;
    gameFile.reset();
    searchLimits.reset();
    mainSearcher.reset();
}

bool EngineSession::quitRequested() const {
    return searchController && searchController->quitRequested;
}

void EngineSession::wireProtocol(Protocol protocol) {
    // The test driver and xboard bring reporters of their own; each plugs in here.
    XboardReporter* xboardReporter = nullptr;
    if (protocol == Protocol::UciTest) {
        protocolReporter = std::make_unique<TestReporter>(mainSearcher.get(), searchLimits.get());
    } else if (protocol == Protocol::Xboard) {
        auto reporter = std::make_unique<XboardReporter>(mainSearcher.get(), searchLimits.get());
        xboardReporter = reporter.get();
        protocolReporter = std::move(reporter);
    } else {
        protocolReporter = std::make_unique<UciReporter>(mainSearcher.get(), searchLimits.get());
    }
    protocolReporter->output = settings.output;
    searchController = std::make_unique<SearchController>(
        mainSearcher.get(), protocolReporter.get(), searchLimits.get());
    // Under xboard the options come from the ini file, hidden ones included.
    const bool hidden = settings.showHiddenOptions || protocol == Protocol::Xboard;
    uciInterpreter = std::make_unique<UciInterpreter>(mainSearcher.get(), protocolReporter.get(),
                                                      searchController.get(), hidden);
    handler = uciInterpreter.get();
    if (xboardReporter) {
        xboardAdapter = std::make_unique<XboardAdapter>(uciInterpreter.get(), xboardReporter);
        xboardReporter->adapter = xboardAdapter.get();
        handler = xboardAdapter.get();
    }
    mainSearcher->setReporter(protocolReporter.get());
}

void EngineSession::handleLine(const char* line) {
    char* text = lineBuffer.get();
    std::snprintf(text, LineBufferSize, "%s", line);
    size_t length = std::strlen(text);
    while (length > 0 && std::isspace(static_cast<unsigned char>(text[length - 1]))) --length;
    text[length] = 0;

    char word[17] = {};
    std::sscanf(text, "%16s", word);
    if (!word[0]) return;
    if (!handler) {
        Protocol protocol;
        if (std::strcmp(word, "uci") == 0) {
            protocol = Protocol::Uci;
        } else if (std::strcmp(word, "ucitest") == 0) {
            protocol = Protocol::UciTest;
        } else if (std::strcmp(word, "xboard") == 0) {
            protocol = Protocol::Xboard;
        } else {
            std::fputs("'uci' or 'xboard' expected\n", stderr);
            std::fflush(stderr);
            return;
        }
        wireProtocol(protocol);
        if (protocol == Protocol::UciTest) std::strcpy(text, "uci");
    }
    handler->handleCommand(text);
}
