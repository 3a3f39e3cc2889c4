// Games from a PGN file, one at a time, read strictly in the export form: a move that can't be
// played, a missing mandatory tag or a termination marker against the Result tag ends the game
// with a message on standard error. The reader serves the game the engine follows at the root,
// the book and material tools, and the rating estimate below.
#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "board/move.h"

// Tag name to tag value, sorted by name.
using PgnTags = std::map<std::string, std::string>;
// Player name to rating.
using PlayerRatings = std::map<std::string, int>;

enum PgnTokenKind : int {
    TokenString = 0,
    TokenInteger = 1,
    TokenPeriod = 2,
    TokenAsterisk = 3,
    TokenOpenParenthesis = 4,
    TokenCloseParenthesis = 5,
    TokenOpenBracket = 6,
    TokenCloseBracket = 7,
    TokenNag = 8,
    TokenSymbol = 9,
    TokenEndOfFile = 10,
};

// Result codes of readGame, from the Result tag.
enum PgnResultCode : int {
    ResultWhiteWins = 0,  // "1-0"
    ResultBlackWins = 1,  // "0-1"
    ResultDraw = 2,       // "1/2-1/2"
    ResultOther = 3,      // anything else, or nothing read
};

// One position of the followed game and the move the game plays there.
struct FollowedMove {
    uint64_t positionKey;
    Move move;
};

class PgnReader : public std::ifstream {
  public:
    // Opens the file and reads its first character; a file that does not open is reported.
    explicit PgnReader(const std::string& name);

    // Takes the next character into `current` and counts lines and columns. False at the end
    // of the stream, with `current` left as it was.
    bool readChar();
    // The kind of the next token, comments and escaped lines skipped; its text in `tokenText`.
    int nextToken();
    // True if a whole valid game was read. Both outputs are cleared first. On failure the
    // stream stands just past the point of failure, and the next call reads on from there.
    bool parseGame(std::vector<Move>& moves, PgnTags& tags);
    // parseGame, passing over games with an Elo below -1. All outputs but `moves` may be
    // null; `resultCode` is ResultOther unless a game was read, and `fen` is empty without
    // a FEN tag.
    bool readGame(std::vector<Move>& moves, PgnTags* tags = nullptr, int* resultCode = nullptr,
                  std::string* fen = nullptr, int* whiteElo = nullptr, int* blackElo = nullptr);
    // Reads the next game into `followedMoves`: each position's key with the move played.
    bool loadNextGame();
    // The game's move for the root with `positionKey`, if the root is where the game stands.
    // The engine plays one side, so each hit steps two entries on; the first miss ends the
    // following for good, and a finished game gives way to the next one.
    bool nextFollowedMove(uint64_t positionKey, Move& move);
    // "info string PGN-Parser: file <name> line <l> char <c>: <message><detail>" on standard
    // error, flushed. Clears `ok`.
    void error(const char* message, const std::string& detail = std::string());

    int32_t line = 1;    // line of `current`, from 1
    int32_t column = 1;  // characters taken on the line, `current` included; 0 after a line end
    std::string fileName;
    std::string tokenText;  // text of the last string, symbol, integer or NAG token
    char current = 0;       // the character no token has taken yet
    bool ok = true;         // false from the first error message on
    std::vector<FollowedMove> followedMoves;
    int32_t followIndex = 0;
    bool followExhausted = false;
};

// Ratings of the file's players from the results of its games, the mean held at 2,400. Reads
// up to the first game that fails. A file that does not open leaves `ratings` as it was.
void computeRatings(const std::string& fileName, PlayerRatings& ratings);

// A decided or drawn game as the statistics take it: `result` is +1, -1 or 0 for a White win,
// a Black win or a draw, and the ratings are 0 where unknown.
using DecidedGameVisitor =
    std::function<void(const std::vector<Move>& moves, const std::string& fen, int whiteElo,
                       int blackElo, int result)>;
// Hands every decided or drawn game of a file whose players both have at least `minElo`
// (negative: any) to `visit`; with `calcElo` the ratings come from the file's own results. A
// broken game is passed over. False only if the file does not open.
bool forEachDecidedGame(const std::string& fileName, bool calcElo, int minElo,
                        const DecidedGameVisitor& visit);
