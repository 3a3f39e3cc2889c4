#include "search/searcher.h"

#include <chrono>
#include <cstring>
#include <thread>

#include "board/movegen.h"
#include "board/text.h"
#include "book/opening_book.h"
#include "eval/bitbase_store.h"
#include "search/limits.h"
#include "search/table.h"

Searcher::Searcher(size_t tableBytes)
    : stack(frames + 2), arenaTop(arena), reporter(&nullReporter) {
    constructGame(*this);
    history[0].reset();
    history[1].reset();
    std::memset(static_cast<void*>(frames), 0, sizeof frames);
    ownsTable = true;
    table = new TranspositionTable;
    resizeTable(tableBytes);
    // Without a cache size the store has no table and answers nothing.
    bitbases = new BitbaseStore;
    resetToDefaults();
}

Searcher::Searcher(Searcher& source, unsigned index)
    : stack(frames + 2), arenaTop(arena), reporter(&nullReporter) {
    constructGame(*this);
    history[0].reset();
    history[1].reset();
    std::memset(static_cast<void*>(frames), 0, sizeof frames);
    resetToDefaults();
    table = source.table;
    book = source.book;
    bitbases = source.bitbases;
    gameFollower = source.gameFollower;
    searcherIndex = index;
    copyStateFrom(source);
}

Searcher::~Searcher() {
    if (ownsTable) {
        delete table;
        delete bitbases;
    }
}

void Searcher::resetToDefaults() {
    timeLogName[0] = 0;
    useBook = true;
    restrictedRoot = false;
    resignScore.store(-7000, std::memory_order_relaxed);
    stopRequested.store(false, std::memory_order_relaxed);
    ponderRequested.store(false, std::memory_order_relaxed);
    infiniteRequested.store(false, std::memory_order_relaxed);
    rootCount = 0;
    threadCount = 1;
    multiPv = 1;
    finishedMoves = 0;
    reporter = &nullReporter;
    book = nullptr;
    searchCount = 0;
    gameFollower = nullptr;
}

void Searcher::copyStateFrom(const Searcher& source) {
    position = source.position;
    std::memcpy(static_cast<void*>(Game::history), source.Game::history, sizeof Game::history);
    historyCount = source.historyCount;
    useBook = source.useBook;
    restrictedRoot = source.restrictedRoot;
    rootCount = source.rootCount;
    std::memcpy(static_cast<void*>(rootMoves), source.rootMoves, sizeof(RootMove) * rootCount);
    resignScore.store(source.resignScore.load(std::memory_order_relaxed),
                      std::memory_order_relaxed);
    threadCount = source.threadCount;
    multiPv = source.multiPv;
    finishedMoves = source.finishedMoves;
    {
        std::lock_guard<std::mutex> guard(timeLogLock());
        std::memcpy(timeLogName, source.timeLogName, sizeof timeLogName);
    }
    clearCaches.store(false, std::memory_order_relaxed);
    stopRequested.store(false, std::memory_order_relaxed);
    ponderRequested.store(false, std::memory_order_relaxed);
    infiniteRequested.store(false, std::memory_order_relaxed);
    gameFollower = nullptr;
    reporter = &nullReporter;
    // The setters clear the caches when a value changes.
    evaluator.setNeuroMaterial(source.evaluator.netStrength);
    evaluator.setNeuroWidth(source.evaluator.netBalance);
    setMaterialFile(source.evaluator.materialFileName.c_str());
}

void Searcher::setReporter(Reporter* r) {
    reporter = r ? r : &nullReporter;
}

void Searcher::waitWhilePondering() {
    while (ponderRequested.load(std::memory_order_relaxed) ||
           infiniteRequested.load(std::memory_order_relaxed))
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
}

void Searcher::ponderHit() {
    ponderRequested.store(false, std::memory_order_relaxed);
    if (moveFromTo(rootBestMove) && (!searchRunning.load(std::memory_order_relaxed) ||
                                     (limits && limits->timeUsedUpAfterPonder())))
        stopRequested.store(true, std::memory_order_relaxed);
}

// Option hooks: the table, the evaluation options, the bitbases and the book are wired here
// as those parts arrive.
void Searcher::resizeTable(size_t bytes) {
    if (table) table->allocateTable(bytes);
}

void Searcher::clearTable() {
    if (table) table->clearTable();
}

void Searcher::setNeuroMaterial(int share) {
    evaluator.setNeuroMaterial(share);
}
void Searcher::setNeuroWidth(int width) {
    evaluator.setNeuroWidth(width);
}
void Searcher::setMaterialFile(const char* fileName) {
    // A file that can't be read keeps the net in use; the option has no error to report.
    evaluator.setMaterialFile(fileName);
}
void Searcher::setBitbaseCache(size_t bytes) {
    if (bitbases) bitbases->setCacheSize(bytes);
}
void Searcher::setBitbasePath(const char* path) {
    if (bitbases) bitbases->setDirectory(path);
}

OpeningBook& Searcher::bookMadeIfNeeded() {
    if (!ownedBook) ownedBook = std::make_unique<OpeningBook>();
    book = ownedBook.get();
    return *ownedBook;
}

void Searcher::setBookFile(const char* fileName) {
    bookMadeIfNeeded().setFileName(fileName);
}

bool Searcher::prepareBook() {
    // A new game: its first search is treated as the first after book moves.
    searchCount = 0;
    if (useBook) return bookMadeIfNeeded().readBook();
    if (book) std::vector<BookRecord>().swap(book->records);
    return true;
}

int tableFillPermill(const Searcher& searcher) {
    return searcher.table ? searcher.table->hashfullPermill() : 0;
}
