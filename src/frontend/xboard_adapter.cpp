#include "frontend/xboard_adapter.h"

#include <unistd.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "board/makemove.h"
#include "board/text.h"
#include "frontend/line_scan.h"
#include "frontend/search_controller.h"
#include "frontend/uci_interpreter.h"
#include "frontend/xboard_game_end.h"
#include "frontend/xboard_reporter.h"
#include "search/limits.h"
#include "search/searcher.h"

const char* const XboardIniFileName = "Zelmark.ini";

namespace {

constexpr size_t MovePieceLength = 6;
constexpr size_t PongLength = 29;
constexpr int64_t MinimumClockMs = 150;
constexpr int32_t KeptScores = 4;

const char* const FeatureLines[] = {
    "feature done=0",      "feature myname=\"Zelmark 2.8\"",
    "feature ping=1",      "feature setboard=1",
    "feature playother=1", "feature usermove=1",
    "feature sigint=0",    "feature variants=\"normal,fischerandom\"",
    "feature colors=0",    "feature ics=0",
    "feature name=1",
};

std::string padded(const char* moveText) {
    std::string text = moveText;
    if (text.size() < MovePieceLength) text.append(MovePieceLength - text.size(), ' ');
    return text;
}

bool sameMove(Move a, Move b) {
    return moveFromTo(a) == moveFromTo(b) && movePromotion(a) == movePromotion(b);
}

// The number at `text`, 0 if there is none; kept to what a 64-bit clock can hold, so that no
// input can make the conversion undefined.
int64_t readMilliseconds(const char* text, double factor) {
    double value = 0.0;
    if (std::sscanf(text, "%lf", &value) != 1 || std::isnan(value)) return 0;
    value *= factor;
    constexpr double Limit = 4.0e15;
    if (value > Limit) return static_cast<int64_t>(Limit);
    if (value < -Limit) return static_cast<int64_t>(-Limit);
    return static_cast<int64_t>(value);
}

int64_t clampedMilliseconds(double value) {
    constexpr double Limit = 4.0e15;
    if (std::isnan(value)) return 0;
    return static_cast<int64_t>(std::max(-Limit, std::min(value, Limit)));
}

bool isWord(const char* word, const char* name) {
    return std::strcmp(word, name) == 0;
}

// The program's own directory, from the link the kernel keeps; empty if it cannot be read.
std::string programDirectory() {
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) return std::string();
    path[length] = 0;
    char* slash = std::strrchr(path, '/');
    if (!slash) return std::string();
    slash[1] = 0;
    return path;
}

}  // namespace

XboardAdapter::XboardAdapter(UciInterpreter* interpreterIn, XboardReporter* reporterIn)
    : interpreter(interpreterIn), reporter(reporterIn), queue(interpreterIn, reporterIn) {
    constructGame(board);
}

XboardAdapter::~XboardAdapter() {
    queue.shutdown();
    // The queue's thread is gone, so the controller is ours now: end a search that still runs
    // without its move, before the reporter can no longer reach this adapter.
    reporter->setOutputOff(true);
    SearchController& controller = *interpreter->controller;
    controller.quitRequested = true;
    controller.stop();
    std::lock_guard<std::mutex> guard(lock);
    reporter->adapter = nullptr;
}

void XboardAdapter::post(const std::string& text, int32_t kind, const char* detail) {
    queue.post(text.c_str(), kind, detail);
}

void XboardAdapter::handleCommand(const char* rawLine) {
    const char* line = skipSpace(rawLine);
    char word[17] = {};
    std::sscanf(line, "%16s", word);
    if (!word[0]) return;
    std::unique_lock<std::mutex> guard(lock);

    if (isWord(word, "xboard")) {
        reporter->writeLine("");
    } else if (isWord(word, "protover")) {
        handshake(line);
        if (protocolVersion >= 2) return;
        guard.unlock();
        queue.waitUntilIdle();
    } else if (protocolVersion < 2) {
        // A front end that skips the handshake does not speak this protocol: the engine ends.
        post("protocol version 2 required", MessageError, line);
        post("quit");
        guard.unlock();
        queue.waitUntilIdle();
    } else if (isWord(word, "accepted") || isWord(word, "rejected") || isWord(word, "random") ||
               isWord(word, "otim") || isWord(word, "rating") || isWord(word, "computer")) {
    } else if (isWord(word, "new")) {
        stopAll();
        post("position startpos");
        post("setoption name UCI_Chess960 value false");
        post("setoption name Clear Hash value true");
        post("ucinewgame");
        resetGame();
        if (analyzeMode) startAnalysis();
    } else if (isWord(word, "variant")) {
        post(std::strstr(line, "fischerandom") ? "setoption name UCI_Chess960 value true"
                                               : "setoption name UCI_Chess960 value false");
    } else if (isWord(word, "quit")) {
        post("setoption name NoOutput value true");
        post("quit");
        // Without the lock: the search that quit stops may be waiting for it to report.
        guard.unlock();
        queue.waitUntilIdle();
    } else if (isWord(word, "force")) {
        stopAll();
        forceMode = true;
    } else if (isWord(word, "go")) {
        // A ponder search has nothing to do with the move now asked for.
        if (pondering) stopAll();
        forceMode = false;
        thinkStart = wallClockMs();
        startThinking(nullptr);
    } else if (isWord(word, "playother")) {
        forceMode = false;
    } else if (isWord(word, "level")) {
        level(line);
    } else if (isWord(word, "st")) {
        depthSetting = -1;
        moveTimeSetting = readMilliseconds(skipChars(line, 2), 1000.0);
    } else if (isWord(word, "sd")) {
        moveTimeSetting = -1;
        depthSetting = 0;
        std::sscanf(skipChars(line, 2), "%d", &depthSetting);
    } else if (isWord(word, "time")) {
        engineClock = readMilliseconds(skipChars(line, 4), 10.0);
    } else if (isWord(word, "usermove")) {
        userMove(line);
    } else if (isWord(word, "?")) {
        if (!(ponderAllowed && pondering)) post("stop");
    } else if (isWord(word, "ping")) {
        ping(line);
    } else if (isWord(word, "draw")) {
        drawOffered = true;
    } else if (isWord(word, "result")) {
        stopAll();
    } else if (isWord(word, "setboard")) {
        setBoard(line);
    } else if (isWord(word, "hint")) {
        hint();
    } else if (isWord(word, "bk")) {
        reporter->writeLine("");
    } else if (isWord(word, "undo")) {
        undo();
    } else if (isWord(word, "remove")) {
        remove();
    } else if (isWord(word, "hard")) {
        // Pondering is managed here: UCI's Ponder option is left as it is.
        ponderAllowed = true;
    } else if (isWord(word, "easy")) {
        if (pondering) stopAll();
        ponderAllowed = false;
    } else if (isWord(word, "post")) {
        reporter->postThinking = true;
    } else if (isWord(word, "nopost")) {
        reporter->postThinking = false;
    } else if (isWord(word, "analyze")) {
        stopAll();
        startAnalysis();
    } else if (isWord(word, "name")) {
        post(std::string("setoption name Opponent value ") + skipChars(line, 5));
    } else if (isWord(word, "exit")) {
        if (analyzeMode) {
            stopAll();
            analyzeMode = false;
            reporter->analyzing = false;
            post("setoption name Clear Hash value true");
        }
    } else if (isWord(word, ".")) {
        if (analyzeMode) reporter->writeLine(reporter->statusLine(wallClockMs()).c_str());
    } else {
        post("unknown command", MessageError, line);
    }
}

void XboardAdapter::handshake(const char* line) {
    int version = 0;
    std::sscanf(skipChars(line, 8), "%d", &version);
    protocolVersion = version;
    if (version < 2) {
        post("protocol version 2 required", MessageError, skipSpace(skipChars(line, 8)));
        post("quit");
        return;
    }
    // UCI errors are written only in debug mode; under xboard every error is shown.
    post("debug on");
    for (const char* feature : FeatureLines) post(feature, MessageLine);
    readIniFile();
}

void XboardAdapter::readIniFile() {
    std::ifstream file(XboardIniFileName);
    if (!file) file.open(programDirectory() + XboardIniFileName);
    if (!file) {
        post(std::string("file '") + XboardIniFileName + "' not found", MessageError, "protover");
        post("feature done=1", MessageLine);
        return;
    }
    std::string text;
    while (std::getline(file, text)) {
        while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
            text.pop_back();
        // A line the engine cannot take as a whole would be taken apart by the interpreter.
        if (text.size() >= 40000 || text.find('\0') != std::string::npos) continue;
        if (text.compare(0, 10, "setoption ") == 0) post(text);
    }
    constructGame(board);
    post("feature done=1", MessageLine);
}

void XboardAdapter::level(const char* line) {
    if (!parseLevel(skipChars(line, 5), controls)) {
        post("bad parameters", MessageError, line);
        return;
    }
    moveTimeSetting = -1;
    depthSetting = -1;
    engineClock = clampedMilliseconds(controls.control[0].baseTime);
}

int XboardAdapter::fullMovesPlayed(bool withPonderMove) const {
    const int plies =
        static_cast<int>(movesText.size() / MovePieceLength) + (withPonderMove ? 1 : 0);
    return plies / 2;
}

void XboardAdapter::startThinking(const char* ponderText) {
    if (!ponderText) thinking = true;
    std::string position = "position " + positionText;
    if (!movesText.empty() || ponderText) position += " moves " + movesText;
    if (ponderText) position += ponderText;
    post(position);

    char buffer[200];
    if (depthSetting >= 1) {
        std::snprintf(buffer, sizeof buffer, "go depth %ld", static_cast<long>(depthSetting));
    } else if (moveTimeSetting >= 0) {
        // The time of `st` is multiplied by 1000 once more here, so `st` asks for a thousand
        // times its seconds in milliseconds; front ends that use `st` rely on that by now.
        std::snprintf(buffer, sizeof buffer, "go movetime %10.0f",
                      static_cast<double>(moveTimeSetting) * 1000.0);
    } else {
        const ControlInForce inForce = controlInForce(controls, fullMovesPlayed(ponderText));
        const double increment = controls.control[inForce.index].increment;
        const double clock = static_cast<double>(engineClock);
        std::snprintf(buffer, sizeof buffer, "go wtime %16.0f btime %16.0f winc %16.0f binc %16.0f",
                      clock, clock, increment, increment);
        std::string go = buffer;
        if (inForce.movesToGo > 0) go += " movestogo " + std::to_string(inForce.movesToGo);
        if (ponderText) go += " ponder";
        std::snprintf(buffer, sizeof buffer, "%s", go.c_str());
    }
    reporter->setPonderPrefix(ponderText ? ponderText : "");
    post(buffer);
    if (ponderText) {
        ponderSearchNumber = queue.postedCount();
    } else {
        ownSearchNumber = queue.postedCount();
    }
}

void XboardAdapter::stopAll() {
    post("setoption name NoOutput value true");
    post("stop");
    post("setoption name NoOutput value false");
    reporter->setPonderPrefix("");
    pondering = false;
    thinking = false;
    // The ping that waited for this search's move is answered now: its move never comes.
    if (!pendingPong.empty()) {
        post(pendingPong, MessageLine);
        pendingPong.clear();
    }
}

void XboardAdapter::userMove(const char* line) {
    thinkStart = wallClockMs();
    char text[7] = {};
    std::sscanf(skipChars(line, 8), "%6s", text);
    Move move = NoMove;
    if (!text[0] || !parseMove(board.position, text, move, 1)) {
        post(std::string("Illegal move: ") + text, MessageLine);
        return;
    }
    movesText += padded(text);
    gameMakeMove(board, move);

    if (gameOver()) {
        if (analyzeMode || (ponderAllowed && pondering)) stopAll();
        return;
    }
    if (analyzeMode) {
        stopAll();
        startAnalysis();
        return;
    }
    if (forceMode) return;
    if (ponderAllowed && pondering) {
        if (sameMove(move, ponderMove)) {
            post("ponderhit");
            // From here the ponder search is the search for the own move.
            pondering = false;
            thinking = true;
            ownSearchNumber = ponderSearchNumber;
            reporter->setPonderPrefix("");
            return;
        }
        stopAll();
    }
    startThinking(nullptr);
}

void XboardAdapter::ping(const char* line) {
    std::string reply(line, std::min(std::strlen(line), PongLength));
    if (reply.size() > 1) reply[1] = 'o';
    if (thinking && !(ponderAllowed && pondering)) {
        pendingPong = reply;
    } else {
        post(reply, MessageLine);
    }
}

void XboardAdapter::setBoard(const char* line) {
    stopAll();
    const char* fen = skipSpace(skipChars(line, 8));
    if (setGameFromFen(board, fen)) {
        // The engine's own writing of the position, so that the interpreter reads exactly the
        // board the adapter keeps.
        char text[128];
        writeFullFen(board, text);
        positionText = std::string("fen ") + text;
    } else {
        post("Illegal position", MessageError, fen);
        positionText = "startpos";
        constructGame(board);
    }
    ponderMove = NoMove;
    ponderMoveText[0] = 0;
    if (analyzeMode) startAnalysis();
}

void XboardAdapter::hint() {
    if (analyzeMode) {
        const std::string best = reporter->bestMoveOfAnalysis();
        if (!best.empty()) reporter->writeLine(("Hint: " + best).c_str());
    } else if (ponderMoveText[0]) {
        post(std::string("Hint: ") + ponderMoveText, MessageLine);
    }
}

void XboardAdapter::clearScores() {
    scoreCount = 0;
    movesSinceReset = 0;
    drawOffered = false;
}

void XboardAdapter::undo() {
    if (!forceMode && !analyzeMode) {
        // Deliberately only the scores: xboard sends `force` before taking back a move.
        clearScores();
        return;
    }
    if (movesText.size() >= MovePieceLength) movesText.resize(movesText.size() - MovePieceLength);
    rebuild();
    if (analyzeMode) {
        stopAll();
        startAnalysis();
    }
    clearScores();
}

void XboardAdapter::remove() {
    if (pondering) {
        stopAll();
        pondering = false;
        ponderMove = NoMove;
        ponderMoveText[0] = 0;
    }
    if (movesText.size() > 2 * MovePieceLength) {
        movesText.resize(movesText.size() - 2 * MovePieceLength);
    } else {
        movesText.clear();
    }
    clearScores();
    rebuild();
}

void XboardAdapter::rebuild() {
    if (positionText.compare(0, 4, "fen ") != 0 || !setGameFromFen(board, positionText.c_str() + 4))
        constructGame(board);
    for (size_t at = 0; at + MovePieceLength <= movesText.size(); at += MovePieceLength) {
        const std::string piece = movesText.substr(at, MovePieceLength);
        Move move = NoMove;
        if (!parseMove(board.position, piece.c_str(), move, 1)) {
            // Keep the moves and the board in step: what no longer fits is dropped.
            movesText.resize(at);
            return;
        }
        gameMakeMove(board, move);
    }
}

void XboardAdapter::resetGame() {
    constructGame(board);
    ponderMove = NoMove;
    ponderMoveText[0] = 0;
    positionText = "startpos";
    movesText.clear();
    controls = defaultTimeControls();
    engineClock = 300000;
    forceMode = false;
    moveTimeSetting = -1;
    depthSetting = -1;
    clearScores();
    lastSideToMove = false;
}

void XboardAdapter::startAnalysis() {
    analyzeMode = true;
    std::string position = "position " + positionText;
    if (!movesText.empty()) position += " moves " + movesText;
    post(position);
    reporter->startAnalysis(wallClockMs());
    post("go infinite");
}

bool XboardAdapter::gameOver() {
    const char* result = gameEndResult(board);
    if (!result) return false;
    reporter->writeLine(result);
    return true;
}

void XboardAdapter::searchEnded(const Move* best, const Move* ponder) {
    std::lock_guard<std::mutex> guard(lock);
    // A move nobody waits for any more: the search was silenced or replaced while this one
    // waited for the lock, or its `go` line was not even taken up yet, so it is an older search.
    if (reporter->outputOff || !thinking || queue.takenCount() < ownSearchNumber) return;
    if (!best) {
        reporter->reportError("no move found", nullptr);
        return;
    }
    char bestText[16];
    Position root = reporter->position;
    writeMove(root, *best, StyleCoordinates, bestText);
    Move played = NoMove;
    if (!parseMove(board.position, bestText, played, 1)) {
        // The search ran on another position than the adapter's board.
        reporter->reportError("no move found", bestText);
        thinking = false;
        return;
    }
    drawOfferTest();
    reporter->writeLine((std::string("move ") + bestText).c_str());
    afterOwnMove(played, ponder ? *ponder : NoMove);
}

void XboardAdapter::drawOfferTest() {
    const Searcher& s = *interpreter->searcher;
    const bool sideToMove = board.position.whiteToMove != 0;
    if (sideToMove != lastSideToMove) {
        lastSideToMove = sideToMove;
        scoreCount = 0;
        movesSinceReset = 0;
    }
    ++movesSinceReset;
    const int plies = static_cast<int>(movesText.size() / MovePieceLength);
    if (drawOffered && plies > movesSinceReset) movesSinceReset = plies;
    if (s.rootCount > 1) {
        for (int i = KeptScores - 1; i > 0; --i) lastScores[i] = lastScores[i - 1];
        lastScores[0] = s.rootScore;
        if (scoreCount < KeptScores) ++scoreCount;
    }
    if (scoreCount < KeptScores || (movesSinceReset < 21 && !drawOffered)) return;
    const int lowerBound = drawOffered ? -500000 : -1;
    drawOffered = false;
    for (int i = 0; i < 3; ++i)
        if (lastScores[i] < lowerBound || lastScores[i] > 1) return;
    reporter->writeLine("offer draw");
    movesSinceReset = 0;
}

void XboardAdapter::resignTest() {
    const int32_t threshold = interpreter->searcher->resignScore.load(std::memory_order_relaxed);
    if (scoreCount < KeptScores) return;
    for (int i = 0; i < KeptScores; ++i)
        if (lastScores[i] > threshold) return;
    if (lastScores[0] > lastScores[1]) return;
    reporter->writeLine("resign");
}

void XboardAdapter::afterOwnMove(Move move, Move ponder) {
    const int64_t now = wallClockMs();
    const double gained = timeGainedByMove(controls, fullMovesPlayed(false));
    engineClock =
        clampedMilliseconds(static_cast<double>(engineClock - (now - thinkStart)) + gained);
    if (engineClock < MinimumClockMs) engineClock = MinimumClockMs;

    char text[16];
    writeMove(board.position, move, StyleCoordinates, text);
    movesText += padded(text);
    gameMakeMove(board, move);

    const bool over = gameOver();
    if (!over) resignTest();
    thinking = false;
    if (!pendingPong.empty()) {
        post(pendingPong, MessageLine);
        pendingPong.clear();
    }
    if (over) return;

    ponderMove = NoMove;
    ponderMoveText[0] = 0;
    if (ponder != NoMove && isLegalFromTo(board.position, ponder)) {
        ponderMove = ponder;
        writeMove(board.position, ponder, StyleCoordinates, ponderMoveText);
    }
    if (!ponderAllowed) return;
    pondering = ponderMove != NoMove && depthSetting < 0 && moveTimeSetting < 0;
    if (pondering) startThinking(padded(ponderMoveText).c_str());
}
