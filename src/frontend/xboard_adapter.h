// The xboard protocol (version 2) in front of the UCI interpreter. The adapter keeps its own
// board and clock, turns each xboard command into UCI lines for the command queue, and decides
// what UCI leaves to the front end: when to think and ponder, when the game is over, when to
// offer a draw and when to resign.
//
// Commands, in the order they are tested:
//   xboard                  an empty line
//   protover N              the feature lines and the options of Zelmark.ini; below 2 quits
//   (any other before protover 2)  "protocol version 2 required", and the engine quits
//   accepted rejected random otim rating computer   ignored
//   new variant quit force go playother   the game and who moves
//   level st sd time        the clock
//   usermove ? ping draw result setboard hint bk undo remove
//   hard easy post nopost   pondering and thinking output
//   analyze name exit .     analysis, the opponent's name, the status line
//   anything else           "unknown command"
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "board/move.h"
#include "board/position.h"
#include "frontend/command_handler.h"
#include "frontend/command_queue.h"
#include "frontend/xboard_clock.h"

class UciInterpreter;
class XboardReporter;

// The ini file of UCI `setoption` lines, read at `protover` from the working directory or the
// program's.
extern const char* const XboardIniFileName;

class XboardAdapter : public CommandHandler {
  public:
    XboardAdapter(UciInterpreter* interpreter, XboardReporter* reporter);
    // Ends the queue thread and any search before the reporter loses its adapter.
    ~XboardAdapter() override;
    XboardAdapter(const XboardAdapter&) = delete;
    XboardAdapter& operator=(const XboardAdapter&) = delete;

    void handleCommand(const char* line) override;
    // The end of a search, from the search thread: the move, the game's end, the next ponder.
    void searchEnded(const Move* best, const Move* ponder);

  private:
    void handshake(const char* line);
    void readIniFile();
    void level(const char* line);
    void userMove(const char* line);
    void ping(const char* line);
    void setBoard(const char* line);
    void hint();
    void undo();
    void remove();
    void stopAll();
    void startThinking(const char* ponderText);
    void startAnalysis();
    void resetGame();
    void rebuild();
    void clearScores();
    int fullMovesPlayed(bool withPonderMove) const;
    // Writes the result line if the game is over on `board`.
    bool gameOver();
    void drawOfferTest();
    void resignTest();
    void afterOwnMove(Move move, Move ponder);
    void post(const std::string& text, int32_t kind = MessageCommand, const char* detail = nullptr);

    std::mutex lock;
    UciInterpreter* interpreter;
    XboardReporter* reporter;
    CommandQueue queue;
    Game board;
    Move ponderMove = NoMove;
    char ponderMoveText[16] = {};
    std::string positionText = "startpos";
    // The game's moves, each padded with blanks to six characters.
    std::string movesText;
    TimeControls controls = defaultTimeControls();
    int64_t engineClock = 300000;
    int64_t thinkStart = 0;
    int64_t moveTimeSetting = -1;
    int32_t depthSetting = -1;
    bool forceMode = false;
    bool analyzeMode = false;
    bool ponderAllowed = false;
    bool pondering = false;
    bool thinking = false;
    std::string pendingPong;
    int32_t protocolVersion = 1;
    int32_t lastScores[4] = {};
    int32_t scoreCount = 0;
    int32_t movesSinceReset = 0;
    bool drawOffered = false;
    bool lastSideToMove = false;
    // The queue's number of the `go` line of the search whose move is awaited, and of the last
    // ponder search: a search that ends before its line was taken up is an older one.
    uint64_t ownSearchNumber = 0;
    uint64_t ponderSearchNumber = 0;
};
