#include "frontend/uci_interpreter.h"

#include <sys/resource.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/text.h"
#include "book/book_editor.h"
#include "frontend/book_command.h"
#include "frontend/line_scan.h"
#include "frontend/mat_command.h"
#include "frontend/material_learner.h"
#include "frontend/perft.h"
#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "frontend/test_positions.h"
#include "frontend/uci_options.h"
#include "learn/material_net.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

// Ranks 3 to 6: a position with men there is no game start.
constexpr Bitboard MiddleRanks = 0x0000ffffffff0000ULL;

bool startsWith(const char* text, const char* prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// White space, an optional minus, digits; no digit gives 0. The sum wraps in 64 bits rather
// than failing on absurd input.
int64_t readLongInteger(const char* text) {
    text = skipSpace(text);
    const bool negative = *text == '-';
    if (negative) ++text;
    uint64_t value = 0;
    while (*text >= '0' && *text <= '9') value = value * 10 + static_cast<uint64_t>(*text++ - '0');
    return static_cast<int64_t>(negative ? 0 - value : value);
}

int64_t readLongAfter(const char* line, const char* keyword, size_t offset) {
    const char* found = std::strstr(line, keyword);
    return found ? readLongInteger(skipChars(found, offset)) : 0;
}

// The long tool runs give the machine to everything else first.
void lowerToIdlePriority() {
    setpriority(PRIO_PROCESS, 0, 19);
}

int readIntWithFormat(const char* line, const char* keyword, const char* format) {
    int value = 0;
    if (const char* found = std::strstr(line, keyword)) std::sscanf(found, format, &value);
    return value;
}

}  // namespace

UciInterpreter::UciInterpreter(Searcher* searcherIn, Reporter* reporterIn,
                               SearchController* controllerIn, bool showHidden)
    : searcher(searcherIn),
      reporter(reporterIn),
      controller(controllerIn),
      showHiddenOptions(showHidden) {}

UciInterpreter::~UciInterpreter() = default;

void UciInterpreter::handleCommand(const char* line) {
    char word[16] = {};
    std::sscanf(line, "%15s", word);
    if (std::strcmp(word, "uci") == 0) {
        writeUciAnswer(*reporter, showHiddenOptions);
    } else if (std::strcmp(word, "debug") == 0) {
        reporter->setDebug(std::strstr(line, "off") == nullptr);
    } else if (std::strcmp(word, "isready") == 0) {
        reporter->writeLine("readyok");
    } else if (std::strcmp(word, "setoption") == 0) {
        handleSetOption(line);
    } else if (std::strcmp(word, "ucinewgame") == 0) {
        stopSilently();
        reloadBook();
    } else if (std::strcmp(word, "position") == 0) {
        handlePosition(line);
    } else if (std::strcmp(word, "go") == 0) {
        handleGo(line);
    } else if (std::strcmp(word, "stop") == 0) {
        controller->stop();
    } else if (std::strcmp(word, "ponderhit") == 0) {
        handlePonderHit();
    } else if (std::strcmp(word, "quit") == 0) {
        // Output goes off first, so the move of the interrupted search is not printed.
        reporter->setOutputOff(true);
        controller->quitRequested = true;
        controller->stop();
    } else if (std::strcmp(word, "perft") == 0) {
        handlePerft(line);
    } else if (std::strcmp(word, "book") == 0) {
        handleBook(line);
    } else if (std::strcmp(word, "mat") == 0) {
        handleMat(line);
    } else if (std::strcmp(word, "eval") == 0) {
        handleEval();
    } else if (std::strcmp(word, "testpos") == 0) {
        handleTestPos(skipChars(line, 8));
    }
}

void UciInterpreter::stopSilently() {
    const bool wasOff = reporter->isOutputOff();
    reporter->setOutputOff(true);
    controller->stop();
    reporter->setOutputOff(wasOff);
}

void UciInterpreter::reloadBook() {
    if (!searcher->prepareBook()) reporter->reportError("Opening book read error", nullptr);
}

void UciInterpreter::handlePosition(const char* line) {
    stopSilently();
    Searcher& s = *searcher;
    const char* text = skipSpace(skipChars(line, 9));
    bool gameStart = false;
    if (startsWith(text, "startpos")) {
        constructGame(s);
        gameStart = true;
    } else if (startsWith(text, "Chess960")) {
        unsigned number = 0;
        if (std::sscanf(text, "Chess960 %u", &number) != 1) {
            reporter->reportError("'position Chess960' without number", nullptr);
            return;
        }
        setGameChess960(s, number);
        gameStart = true;
    } else if (const char* fen = std::strstr(text, "fen")) {
        fen = skipSpace(skipChars(fen, 4));
        if (!setGameFromFen(s, fen)) {
            constructGame(s);
            reporter->syncPosition();
            reporter->reportError("position: Illegal FEN string: ", fen);
            return;
        }
        const Bitboard men = s.position.occupied;
        gameStart = popcount(men) == 32 && (men & MiddleRanks) == 0;
    } else {
        reporter->reportError("'position' without 'startpos' and without 'fen'", nullptr);
        return;
    }
    if (uciChess960) s.position.chess960 = 1;

    const char* moves = std::strstr(text, "moves");
    if (!moves) {
        reporter->syncPosition();
        if (gameStart) reloadBook();
        return;
    }
    int played = 0;
    for (const char* cursor = skipChars(moves, 6);;) {
        cursor = skipSpace(cursor);
        if (!*cursor) {
            reporter->syncPosition();
            // The book is read again only at the start of a game, not in its middle.
            if (gameStart && played <= 1) reloadBook();
            return;
        }
        char token[6] = {};
        std::strncpy(token, cursor, 5);
        if (!std::isalpha(static_cast<unsigned char>(token[4]))) token[4] = 0;
        // Castling may come as "O-O" or "O-O-O" as well as by the king's move.
        if (startsWith(token, "O-O") && std::strcmp(token, "O-O-O") != 0) token[3] = 0;
        Move move;
        if (!parseMove(s.position, token, move, 1)) {
            reporter->reportError("position: illegal move: ", token);
            reporter->syncPosition();
            return;
        }
        ++played;
        gameMakeMove(s, move);
        while (*cursor && !std::isspace(static_cast<unsigned char>(*cursor))) ++cursor;
    }
}

void UciInterpreter::handleGo(const char* line) {
    // A search still running would otherwise share the searcher with the new one.
    stopSilently();
    Searcher& s = *searcher;

    // The restriction text runs to the end of the line; moves are found in it by substring,
    // so the other words of the line do no harm.
    const char* filter = nullptr;
    bool exclude = false;
    if (const char* keep = std::strstr(line, "searchmoves")) {
        filter = skipChars(keep, 12);
    } else if (const char* drop = std::strstr(line, "excludemoves")) {
        filter = skipChars(drop, 13);
        exclude = true;
    }
    s.buildRootList(filter, exclude);

    const bool white = s.position.whiteToMove != 0;
    GoRequest request;
    request.ponder = std::strstr(line, "ponder") != nullptr;
    request.time = readLongAfter(line, white ? "wtime" : "btime", 6);
    request.increment = readLongAfter(line, white ? "winc" : "binc", 5);
    request.movesToGo = static_cast<int16_t>(readIntWithFormat(line, "movestogo", "movestogo %d"));
    request.depth = static_cast<int16_t>(readIntWithFormat(line, "depth", "depth %d"));
    request.nodes = readLongAfter(line, "nodes", 6);
    request.mate = static_cast<int16_t>(readIntWithFormat(line, "mate", "mate %d"));
    request.moveTime = readLongAfter(line, "movetime", 9);
    request.infinite = std::strstr(line, "infinite") != nullptr;
    controller->launch(request);
}

void UciInterpreter::handlePonderHit() {
    // Without a best move the search goes on until it has one; with the time used up while
    // pondering, the move is played at once.
    searcher->ponderHit();
}

void UciInterpreter::handlePerft(const char* line) {
    stopSilently();
    int depth = 0;
    const char* depthText = std::strstr(line, "depth");
    if (!depthText || std::sscanf(depthText, "depth %d", &depth) != 1) {
        reporter->reportError("perft without depth", nullptr);
        return;
    }
    const int megabytes = std::max(readIntWithFormat(line, "Hash", "Hash %d"), 0);
    Position& root = searcher->position;
    SearchClock clock;
    clock.maxDepth = 32767;
    char buffer[160];
    std::string text;

    if (!std::strstr(line, "divide")) {
        PerftTable table(megabytes);
        clock.startClock();
        const uint64_t count = perftCount(table, root, depth);
        std::snprintf(buffer, sizeof buffer, "info depth %d time %16.0f nodes %16.0f", depth,
                      static_cast<double>(clock.elapsed()), static_cast<double>(count));
        text = buffer;
        compressBlanks(text);
        reporter->writeLine(text.c_str());
        return;
    }

    MoveEntry moves[MaxMovesPerPosition];
    const MoveEntry* end = generateMoves(root, GenAll, moves);
    for (const MoveEntry* entry = moves; entry != end; ++entry) {
        char moveText[16];
        writeMove(root, entry->move, StyleCoordinates, moveText);
        UndoRecord undo;
        beginUndo(undo, root);
        if (!makeLegal(root, entry->move, undo)) continue;
        PerftTable table(megabytes);
        clock.startClock();
        const uint64_t count = perftCount(table, root, depth - 1);
        std::snprintf(buffer, sizeof buffer, "info move %s depth %d time %16.0f nodes %16.0f",
                      moveText, depth - 1, static_cast<double>(clock.elapsed()),
                      static_cast<double>(count));
        text = buffer;
        compressBlanks(text);
        reporter->writeLine(text.c_str());
        undoMove(undo);
    }
}

void UciInterpreter::handleEval() {
    // The search thread owns the evaluator's caches while it runs.
    stopSilently();
    Searcher& s = *searcher;
    const long e = s.evaluator.evaluate(s.position);
    const long r = e > 0 ? e - 1 : (e < 0 ? e + 1 : 0);
    const long m = s.evaluator.materialValue(false);
    const long p = s.position.whiteToMove ? r - m : r + m;
    long d = e - p;
    if (d == 1 || d == -1) d = 0;
    const long v = e > 0 ? e + 9 : (e < 0 ? e - 9 : 0);
    char text[96];
    std::snprintf(text, sizeof text, "info score cp %ld", v / 10);
    reporter->writeLine(text);
    std::snprintf(text, sizeof text, "info string value %ld mat %ld", v, d);
    reporter->writeLine(text);
}

// The book tools work on a board and a tree of their own and run on the command thread without
// stopping a search: they are meant for an idle engine, as the `mat` tools are.
void UciInterpreter::handleBook(const char* line) {
    const BookRequest request = parseBookCommand(line);
    switch (request.action) {
        case BookAction::None:
            return;
        case BookAction::Delete:
            bookEditor.reset();
            return;
        case BookAction::Lock:
        case BookAction::Unlock:
            if (bookEditor) bookEditor->locked = request.action == BookAction::Lock;
            return;
        case BookAction::Add:
            if (!bookEditor) bookEditor = std::make_unique<BookEditor>();
            // A file that does not open adds nothing, without a word.
            bookEditor->addGames(request.fileName, request.value, request.all, request.calcElo,
                                 request.minElo);
            return;
        case BookAction::WriteBook:
        case BookAction::Write960:
        case BookAction::WriteEpd:
            break;
    }
    if (!bookEditor) return;
    // The editor is used up by any write, whether the file opened or not.
    const std::unique_ptr<BookEditor> editor = std::move(bookEditor);
    const bool written = request.action == BookAction::WriteBook
                             ? editor->writeBook(request.fileName, request.threshold, request.width)
                         : request.action == BookAction::Write960
                             ? editor->write960(request.fileName, request.threshold, request.width)
                             : editor->writeEPD(request.fileName, request.threshold, request.width);
    if (!written) {
        const std::string text = "info string error opening the output file " + request.fileName;
        reporter->writeLine(text.c_str());
        return;
    }
    if (request.action == BookAction::WriteEpd) return;
    char text[64];
    std::snprintf(text, sizeof text, "white moves:%10ld", static_cast<long>(editor->whiteMoves));
    reporter->writeLine(text);
    std::snprintf(text, sizeof text, "black moves:%10ld", static_cast<long>(editor->blackMoves));
    reporter->writeLine(text);
    std::snprintf(text, sizeof text, "moves:      %10ld",
                  static_cast<long>(editor->whiteMoves) + static_cast<long>(editor->blackMoves));
    reporter->writeLine(text);
}

// The material tools run on the command thread. A search still running would share the
// random source and the processor with them, so it is stopped first, silently, as by any
// command that touches search data.
void UciInterpreter::handleMat(const char* line) {
    const MatRequest request = parseMatCommand(line);
    if (request.action == MatAction::None) return;
    stopSilently();
    auto reportFile = [this](const char* what, const std::string& name) {
        const std::string text =
            std::string("info string error opening the ") + what + " file " + name;
        reporter->writeLine(text.c_str());
    };
    switch (request.action) {
        case MatAction::None:
            return;
        case MatAction::Learn:
            lowerToIdlePriority();
            learnMaterial(request.fileName.c_str());
        case MatAction::Delete:
            materialLearner.reset();
            return;
        case MatAction::Random:
            if (!materialLearner) materialLearner = std::make_unique<MaterialLearner>();
            materialLearner->playRandomGames(request.games);
            return;
        case MatAction::Add:
            if (!materialLearner) materialLearner = std::make_unique<MaterialLearner>();
            // A file that does not open adds nothing, without a word.
            materialLearner->addGames(request.fileName, request.value, request.calcElo,
                                      request.minElo);
            return;
        case MatAction::WriteMemory:
            if (materialLearner && !materialLearner->writeMemory(request.fileName))
                reportFile("output", request.fileName);
            return;
        case MatAction::ReadMemory:
            if (!materialLearner) materialLearner = std::make_unique<MaterialLearner>();
            if (!materialLearner->readMemory(request.fileName))
                reportFile("input", request.fileName);
            return;
        case MatAction::Write: {
            if (!materialLearner) return;
            // The statistics are used up by the write, whether the file opened or not.
            const std::unique_ptr<MaterialLearner> learner = std::move(materialLearner);
            if (!learner->writeTable(request.fileName)) reportFile("output", request.fileName);
            return;
        }
    }
}

// Its searches are long and its table large: the main search is stopped silently first.
void UciInterpreter::handleTestPos(const char* text) {
    stopSilently();
    lowerToIdlePriority();
    runTestPositions(skipSpace(text), *reporter);
}
