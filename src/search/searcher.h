// One self-contained search engine: its board and game history, its ordering memory, its
// per-ply frames, its root list and move arena. The main searcher owns the shared table.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "board/makemove.h"
#include "board/move.h"
#include "board/position.h"
#include "board/score.h"
#include "eval/evaluator.h"
#include "frontend/reporter.h"
#include "learn/change_net.h"
#include "search/history.h"

class SearchClock;
class MoveGenerator;
class TranspositionTable;
class OpeningBook;
class BitbaseStore;
class PgnReader;

constexpr int TableMissRootScore = -999999;

// Depth is counted in eighths of a ply; a negative depth means quiescence.
constexpr int DepthUnitsPerPly = 8;
constexpr int MaxPly = 100;
constexpr int FrameCount = 103;  // plies -2 to 100
constexpr int MaxRootMoves = 230;
constexpr int ArenaSize = 18000;
constexpr int MaxMultiPv = 255;

struct SearchFrame {
    Move move;
    Move bestMove;
    uint64_t key;
    int32_t staticEval;
    int32_t moveCount;  // -1 during a null move
    int16_t extension;
    bool reducedQuiet;
    KillerSlot killers[4];  // 0-1 out of check, 2-3 in check
    UndoRecord undo;
};

struct RootMove {
    Move move;
    int32_t score;
    double nodeShare;
    bool raisedAlpha;
};

// A move that the command thread reads while the search thread writes it: a relaxed atomic
// that reads and assigns like a plain Move.
struct SharedMove {
    std::atomic<Move> value{NoMove};
    operator Move() const { return value.load(std::memory_order_relaxed); }
    SharedMove& operator=(Move m) {
        value.store(m, std::memory_order_relaxed);
        return *this;
    }
};

struct MultiPvEntry {
    Move move;
    int32_t score;
};

struct Searcher : Game {
    // The main searcher, with a transposition table of `tableBytes`.
    explicit Searcher(size_t tableBytes);
    // A worker: shares table, book, bitbases and game follower with `source`.
    Searcher(Searcher& source, unsigned index);
    ~Searcher();
    Searcher(const Searcher&) = delete;
    Searcher& operator=(const Searcher&) = delete;

    // Flags polled by the search; written by other threads, so relaxed atomics.
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> ponderRequested{false};
    // `go infinite`: a search that has nothing left to do waits for stop, as a ponder search
    // waits for ponderhit; UCI forbids a bestmove before stop.
    std::atomic<bool> infiniteRequested{false};
    std::atomic<bool> searchRunning{false};
    bool useBook = true;
    // AlwaysClearHash: set without stopping a search, so atomic as well.
    std::atomic<bool> clearCaches{false};

    // Set by the option without stopping a search.
    std::atomic<int32_t> resignScore{-7000};

    uint64_t nodeCount = 0;
    int16_t iterationDepth = 0;
    int16_t selDepth = 0;
    int16_t ply = -1;
    int16_t lastNullPly = -1;
    int16_t previousNullPly = -10;

    int32_t rootAlpha = -ScoreInfinite;
    int32_t rootBeta = ScoreInfinite;
    int32_t rootScore = 0;

    bool firstIteration = true;
    bool failedLow = false;
    SharedMove rootBestMove;
    Move ponderMove = NoMove;

    HistoryTable history[2];  // 0 Black, 1 White

    SearchFrame* stack;  // frame of ply 0
    SearchFrame frames[FrameCount];

    bool restrictedRoot = false;
    int32_t rootCount = 0;
    RootMove rootMoves[MaxRootMoves];

    // Estimates after each iteration whether the best move will change (predictChange).
    ChangeNet changeNet;

    MoveEntry* arenaTop;
    MoveEntry arena[ArenaSize];

    Evaluator evaluator;

    TranspositionTable* table = nullptr;
    OpeningBook* book = nullptr;
    BitbaseStore* bitbases = nullptr;

    int32_t searchCount = 0;
    int32_t threadCount = 1;
    uint32_t searcherIndex = 0;

    NullReporter nullReporter;
    Reporter* reporter;

    MultiPvEntry multiPvList[MaxMultiPv];
    int32_t multiPv = 1;
    int32_t finishedMoves = 0;

    char timeLogName[512] = {};

    SearchClock* limits = nullptr;
    PgnReader* gameFollower = nullptr;

    void resetToDefaults();
    void copyStateFrom(const Searcher& source);
    // Null restores the embedded NullReporter.
    void setReporter(Reporter* r);
    // Holds a finished search while it ponders or runs without limits.
    void waitWhilePondering();
    void ponderHit();
    // Builds the root list of legal moves; with a filter text, a move stays when finding its
    // coordinate text in the filter differs from `exclude`.
    void buildRootList(const char* filterText, bool exclude);

    // The search proper. `us` and `them` are the side to move and the other side.
    int nodeSearch(SideState& us, SideState& them, int alpha, int beta, int depth);
    int quiescence(SideState& us, SideState& them, int alpha, int beta, int depth);
    int rootSearch(int depth);
    void sortRootMoves();
    void lookUpPonderMove();
    // A shallow quiet test for the material tools: true when quiescence stays inside
    // (eval - 1, eval + 1).
    bool quietPosition(int* score);
    // Clears the ordering memory and the frames, as at the start of every search.
    void resetSearchState();
    // Looks into the table before the first move of a node; restarts the picker with the most
    // promising move. True if one was found.
    bool prescanChildren(MoveGenerator& gen, int beta, int depth);
    // A mate in one seen from the attack maps becomes the frame's best move.
    bool staticMateFound(SearchFrame& frame);

    // Option hooks. Callers stop any search first where the option touches search data.
    void resizeTable(size_t bytes);
    void clearTable();
    void setNeuroMaterial(int share);
    void setNeuroWidth(int width);
    void setMaterialFile(const char* fileName);
    void setBitbaseCache(size_t bytes);
    void setBitbasePath(const char* path);
    // Makes the book if needed and keeps the name for the next read.
    void setBookFile(const char* fileName);
    // At a game start: reads the book anew with OwnBook on, empties it with OwnBook off.
    // False if the book file can't be read; the book is empty then.
    bool prepareBook();

  private:
    bool ownsTable = false;
    // The main searcher's book, made on first need; workers only share the pointer.
    std::unique_ptr<OpeningBook> ownedBook;
    OpeningBook& bookMadeIfNeeded();
};

// Runs one search to its end; true unless it was stopped.
bool runSearch(Searcher& searcher, SearchClock* limits);

// The principal variation from the table, starting with `firstMove` or the best root move.
int extractPv(Searcher& searcher, Move* movesOut, int maxLength, const Move* firstMove);

// Table fill in permill for the reports.
int tableFillPermill(const Searcher& searcher);
