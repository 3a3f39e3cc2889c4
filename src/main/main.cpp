// The entry point: the command line, the objects of the whole run, the choice of protocol by
// the first word, and the loop over standard input.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "frontend/command_handler.h"
#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "frontend/uci_interpreter.h"
#include "frontend/uci_reporter.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

// Three MiB, which is why the Hash option's default is 3.
constexpr size_t InitialTableBytes = 3145728;
constexpr size_t LineBufferSize = 40000;
constexpr size_t FileNameSize = 512;
const char* const HiddenOptionsWord = "VersteckteOptionen";

enum class Protocol { Uci, UciTest, Xboard };

// What the protocol word adds for the rest of the run. Members are declared in the order of
// construction, so they go in the reverse order.
struct ProtocolWiring {
    Searcher* searcher = nullptr;
    std::unique_ptr<Reporter> reporter;
    std::unique_ptr<SearchController> controller;
    std::unique_ptr<UciInterpreter> interpreter;
    // The xboard adapter, in front of the interpreter, takes this slot.
    std::unique_ptr<CommandHandler> adapter;
    CommandHandler* handler = nullptr;

    ~ProtocolWiring() {
        adapter.reset();
        interpreter.reset();
        controller.reset();
        // No search runs any more; the searcher must not keep a pointer to a dead reporter.
        if (searcher) searcher->setReporter(nullptr);
        reporter.reset();
    }
};

bool protocolOf(const char* word, Protocol& protocol) {
    if (std::strcmp(word, "uci") == 0) {
        protocol = Protocol::Uci;
    } else if (std::strcmp(word, "ucitest") == 0) {
        protocol = Protocol::UciTest;
    } else if (std::strcmp(word, "xboard") == 0) {
        protocol = Protocol::Xboard;
    } else {
        return false;
    }
    return true;
}

// The test game driver and xboard bring reporters of their own; each plugs in here.
std::unique_ptr<Reporter> makeReporter(Protocol, Searcher& searcher, SearchLimits& limits) {
    return std::make_unique<UciReporter>(&searcher, &limits);
}

void wireProtocol(ProtocolWiring& wiring, Protocol protocol, Searcher& searcher,
                  SearchLimits& limits, bool showHiddenOptions) {
    wiring.searcher = &searcher;
    wiring.reporter = makeReporter(protocol, searcher, limits);
    wiring.controller =
        std::make_unique<SearchController>(&searcher, wiring.reporter.get(), &limits);
    // Under xboard the options come from the ini file, hidden ones included.
    const bool hidden = showHiddenOptions || protocol == Protocol::Xboard;
    wiring.interpreter = std::make_unique<UciInterpreter>(&searcher, wiring.reporter.get(),
                                                          wiring.controller.get(), hidden);
    // Under xboard the adapter, built over the interpreter and the reporter, becomes the handler.
    wiring.handler = wiring.interpreter.get();
    searcher.setReporter(wiring.reporter.get());
}

void trimTrailingSpace(char* line) {
    size_t length = std::strlen(line);
    while (length > 0 && std::isspace(static_cast<unsigned char>(line[length - 1]))) --length;
    line[length] = 0;
}

void runCommandLoop(const char* pgnFileName, bool showHiddenOptions) {
    auto searcher = std::make_unique<Searcher>(InitialTableBytes);
    auto limits = std::make_unique<SearchLimits>();
    // Following the games of a PGN file starts here once the reader exists; until then the
    // name is accepted and not used.
    static_cast<void>(pgnFileName);

    std::setvbuf(stdin, nullptr, _IONBF, 0);
    std::vector<char> line(LineBufferSize);
    {
        ProtocolWiring wiring;
        while (!std::feof(stdin)) {
            if (wiring.controller && wiring.controller->quitRequested) break;
            if (std::fgets(line.data(), static_cast<int>(line.size()), stdin)) {
                line.back() = 0;
                trimTrailingSpace(line.data());
                char word[17] = {};
                std::sscanf(line.data(), "%16s", word);
                if (!word[0]) continue;
                if (!wiring.reporter) {
                    Protocol protocol;
                    if (!protocolOf(word, protocol)) {
                        std::fputs("'uci' or 'xboard' expected\n", stderr);
                        std::fflush(stderr);
                        continue;
                    }
                    wireProtocol(wiring, protocol, *searcher, *limits, showHiddenOptions);
                    if (protocol == Protocol::UciTest) std::strcpy(line.data(), "uci");
                }
                wiring.handler->handleCommand(line.data());
            } else if (std::ferror(stdin)) {
                break;  // a broken input stream would not reach its end
            }
        }
    }
    limits.reset();
    searcher.reset();
}

}  // namespace

int main(int argc, char** argv) {
    bool showHiddenOptions = false;
    const char* pgnFileName = nullptr;
    static char quotedName[FileNameSize];
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        if (std::strcmp(argument, HiddenOptionsWord) == 0) {
            showHiddenOptions = true;
        } else if (argument[0] == '"') {
            // Quotes that reach the program are taken off; an unclosed one is accepted.
            std::snprintf(quotedName, sizeof quotedName, "%s", argument + 1);
            const size_t length = std::strlen(quotedName);
            if (length > 0 && quotedName[length - 1] == '"') quotedName[length - 1] = 0;
            pgnFileName = quotedName;
        } else {
            pgnFileName = argument;
        }
    }
    runCommandLoop(pgnFileName, showHiddenOptions);
    return 0;
}
