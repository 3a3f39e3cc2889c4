// Turns one line of the UCI protocol (with the engine's own extensions) into an act on the
// main searcher.
#pragma once

#include <memory>

#include "frontend/command_handler.h"

class BookEditor;
class MaterialLearner;
struct Searcher;
class Reporter;
class SearchController;

class UciInterpreter : public CommandHandler {
  public:
    UciInterpreter(Searcher* searcher, Reporter* reporter, SearchController* controller,
                   bool showHiddenOptions);
    ~UciInterpreter() override;
    void handleCommand(const char* line) override;
    // Defined with the option list, in uci_options.cpp.
    void handleSetOption(const char* line);

    Searcher* searcher;
    Reporter* reporter;
    SearchController* controller;
    bool showHiddenOptions;
    bool uciChess960 = false;
    // Made by `book add`, freed by `book delete` and by each book write.
    std::unique_ptr<BookEditor> bookEditor;
    // Made by `mat rnd`, `mat add` and `mat readmem`, freed by `mat delete` and `mat write`.
    std::unique_ptr<MaterialLearner> materialLearner;

  private:
    // Every command that touches search data begins with this: the search that is cut off
    // prints no bestmove.
    void stopSilently();
    void reloadBook();
    void handlePosition(const char* line);
    void handleGo(const char* line);
    void handlePonderHit();
    void handlePerft(const char* line);
    // The diagnostic and tool commands; each gets its subsystem here.
    void handleEval();
    void handleBook(const char* line);
    void handleMat(const char* line);
    void handleTestPos(const char* text);
};
