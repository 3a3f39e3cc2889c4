// The objects of one run of the engine. The main searcher, the limits and the reader of a game
// file named on the command line live for the whole run; the first protocol word adds, once and for
// good, the reporter, the search controller, the interpreter and, under xboard, the adapter. They
// are torn down in the reverse order, so that no search thread outlives what it uses. The command
// loop feeds it standard input; tests and fuzz targets feed it lines in-process and collect its
// output through a sink.
#pragma once

#include <cstddef>
#include <memory>

class CommandHandler;
class OutputSink;
class PgnReader;
class Reporter;
class SearchController;
class SearchLimits;
class UciInterpreter;
class XboardAdapter;
struct Searcher;

// Three MiB, which is why the Hash option's default is 3.
constexpr size_t InitialTableBytes = 3145728;
// Input lines are read in pieces of at most this many bytes, terminator included.
constexpr size_t LineBufferSize = 40000;

struct SessionSettings {
    // A PGN file of games to follow in the opening; may be null.
    const char* pgnFileName = nullptr;
    // The command line's word that shows the hidden options in the `uci` answer.
    bool showHiddenOptions = false;
    size_t tableBytes = InitialTableBytes;
    // Null: the protocol output goes to standard output.
    OutputSink* output = nullptr;
};

class EngineSession {
  public:
    explicit EngineSession(const SessionSettings& settings = SessionSettings());
    ~EngineSession();
    EngineSession(const EngineSession&) = delete;
    EngineSession& operator=(const EngineSession&) = delete;

    // One line of input; trailing white space is taken off here. A blank line is ignored.
    // Before a protocol is chosen, the first word must choose it: "uci", "ucitest" or
    // "xboard"; anything else gets the protocol error on standard error.
    void handleLine(const char* line);
    // Set by `quit`; the command loop ends then.
    bool quitRequested() const;

    Searcher& searcher() { return *mainSearcher; }
    SearchLimits& limits() { return *searchLimits; }
    // Null until the protocol word has come.
    Reporter* reporter() { return protocolReporter.get(); }
    SearchController* controller() { return searchController.get(); }
    UciInterpreter* interpreter() { return uciInterpreter.get(); }

  private:
    enum class Protocol { Uci, UciTest, Xboard };
    void wireProtocol(Protocol protocol);

    SessionSettings settings;
    std::unique_ptr<Searcher> mainSearcher;
    std::unique_ptr<SearchLimits> searchLimits;
    // The games followed at the root; only when a file was named.
    std::unique_ptr<PgnReader> gameFile;
    std::unique_ptr<Reporter> protocolReporter;
    std::unique_ptr<SearchController> searchController;
    std::unique_ptr<UciInterpreter> uciInterpreter;
    // Under xboard only: the adapter in front of the interpreter, with its command queue.
    std::unique_ptr<XboardAdapter> xboardAdapter;
    // What takes the lines once the protocol is chosen: the interpreter, or under xboard the
    // adapter in front of it.
    CommandHandler* handler = nullptr;
    // The line as handed on: trimmed, and "uci" for "ucitest". Allocated once.
    std::unique_ptr<char[]> lineBuffer;
};
