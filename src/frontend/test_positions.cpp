#include "frontend/test_positions.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <vector>

#include "board/makemove.h"
#include "board/text.h"
#include "book/exact_move.h"
#include "book/pgn_reader.h"
#include "frontend/reporter.h"
#include "learn/neural_net.h"
#include "search/limits.h"
#include "search/searcher.h"

namespace {

constexpr size_t ControlLineLimit = 999;
// A name this short stands for no file.
constexpr size_t ShortestFileName = 4;
constexpr int LeastGameMoves = 30;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

struct ControlFile {
    std::string middlegame;
    std::string endgame;
    long lastGameDone = 0;
    std::string gameFile;
};

void trimEnd(std::string& text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
}

// False if the file does not open or has fewer than four lines.
bool readControlFile(const std::string& name, ControlFile& control, bool& opened) {
    std::ifstream in(name);
    opened = in.is_open();
    if (!opened) return false;
    std::string lines[4];
    for (std::string& line : lines) {
        if (!std::getline(in, line)) return false;
        if (line.size() > ControlLineLimit) line.resize(ControlLineLimit);
    }
    control.middlegame = lines[0];
    control.endgame = lines[1];
    trimEnd(control.middlegame);
    trimEnd(control.endgame);
    control.lastGameDone = std::strtol(lines[2].c_str(), nullptr, 10);
    control.gameFile = lines[3];
    trimEnd(control.gameFile);
    return true;
}

void collectKnownKeys(const std::string& name, std::set<uint64_t>& keys) {
    if (name.size() < ShortestFileName) return;
    std::ifstream in(name);
    std::string line;
    while (std::getline(in, line)) {
        if (line.size() <= TestPositionFenColumn) continue;
        Position board;
        constructPosition(board);
        if (parseFen(board, line.c_str() + TestPositionFenColumn)) keys.insert(board.hashKey);
    }
}

File openForAppending(const std::string& name) {
    if (name.size() < ShortestFileName) return nullptr;
    return File(std::fopen(name.c_str(), "a"));
}

void rewriteControlFile(const std::string& name, const ControlFile& control, long gameNumber) {
    const File file(std::fopen(name.c_str(), "w"));
    if (!file) return;
    std::fprintf(file.get(), "%s\n%s\n%ld\n%s\n", control.middlegame.c_str(),
                 control.endgame.c_str(), gameNumber, control.gameFile.c_str());
}

int men(const Position& p) {
    return p.white().pieceCount[AllMen] + p.black().pieceCount[AllMen];
}

int bothSides(const Position& p, int kind) {
    return p.white().pieceCount[kind] + p.black().pieceCount[kind];
}

}  // namespace

bool keepsTestPosition(int resultCode, long staticValue, long clamped) {
    if (resultCode == ResultWhiteWins) return clamped >= staticValue;
    if (resultCode == ResultBlackWins) return clamped <= staticValue;
    return clamped * clamped <= staticValue * staticValue;
}

void runTestPositions(const std::string& controlFileName, Reporter& reporter,
                      const TestPositionSettings& settings) {
    ControlFile control;
    bool opened = false;
    if (!readControlFile(controlFileName, control, opened)) {
        if (!opened) {
            const std::string text = "info string error opening the input file " + controlFileName;
            reporter.writeLine(text.c_str());
        } else {
            reporter.reportError("testpos: the control file needs four lines: ",
                                 controlFileName.c_str());
        }
        return;
    }
    std::set<uint64_t> knownKeys;
    collectKnownKeys(control.middlegame, knownKeys);
    collectKnownKeys(control.endgame, knownKeys);
    const File middlegame = openForAppending(control.middlegame);
    const File endgame = openForAppending(control.endgame);
    // Without a file to write there is nothing to do, and no reason to walk the games.
    if (!middlegame && !endgame) return;
    PgnReader reader(control.gameFile);
    if (!reader.is_open()) return;

    RandomSource& random = RandomSource::instance();
    std::vector<Move> moves;
    std::string fen;
    int resultCode = ResultOther;
    for (long gameNumber = 1;; ++gameNumber) {
        if (!reader.readGame(moves, nullptr, &resultCode, &fen)) break;
        if (gameNumber <= control.lastGameDone || resultCode == ResultOther ||
            moves.size() < LeastGameMoves)
            continue;
        char progress[2200];
        std::snprintf(progress, sizeof progress, "M:<%s> E:<%s>: Partie %6ld",
                      control.middlegame.c_str(), control.endgame.c_str(), gameNumber);
        reporter.writeLine(progress);

        uint32_t skip = random.next() % 13;
        // Each game gets a fresh searcher, so no table entry of one game helps another.
        const auto searcher = std::make_unique<Searcher>(settings.tableBytes);
        searcher->useBook = false;
        Searcher& s = *searcher;
        if (fen.empty()) {
            setGamePosition(s, nullptr);
        } else if (!setGameFromFen(s, fen.c_str())) {
            continue;
        }
        // The game's history starts here, whatever half-move clock the FEN gave.
        Game& game = s;
        game.historyCount = 1;
        game.history[0] = fingerprint(game.position);

        size_t next = 0;
        while (next < moves.size()) {
            bool playable = true;
            for (uint32_t i = 0; i < skip && next < moves.size(); ++i) {
                const Move move = moves[next++];
                Position probe = s.position;
                UndoRecord undo;
                if (!makeExactMove(probe, move, undo)) {
                    playable = false;
                    break;
                }
                gameMakeMove(s, move);
            }
            if (!playable) break;
            const int h = s.historyCount;
            // Right after a capture or a pawn move the next position comes soon.
            skip = 1 + random.next() % (h < 6 ? 2 : 4);
            const Position& p = s.position;
            if (men(p) < 6 || h > 20) break;
            if (h > 10) continue;
            const int phase = 3 * (men(p) + 2 * bothSides(p, Queen)) +
                              2 * (bothSides(p, Rook) - bothSides(p, Pawn));
            // The random term blurs the border between the two files.
            std::FILE* out = static_cast<int>(random.next() % 14) + 29 > phase ? endgame.get()
                                                                               : middlegame.get();
            if (!out) continue;
            const uint64_t key = p.hashKey;
            if (!knownKeys.insert(key).second) continue;
            s.searchRunning = true;
            s.ponderRequested = false;
            s.stopRequested = false;
            const long allowance = static_cast<long>(std::min(key % 3251, key % 4751)) + 250;
            if (sideToMoveInCheck(p)) continue;
            int value = 0;
            if (!s.quietPosition(&value) || value < -allowance || value > allowance) continue;
            s.buildRootList(nullptr, false);
            if (s.rootCount == 0) break;

            SearchLimits limits;
            limits.maxDepth = 100;
            limits.movesToPlan = 10.0;
            limits.targetTime = NoTimeLimit;
            limits.softLimit = NoTimeLimit;
            limits.hardLimit = NoTimeLimit;
            limits.maxNodes = settings.maxNodes;
            limits.maxNodesHard = settings.maxNodesHard;
            limits.startClock();
            runSearch(s, &limits);
            limits.stopClock();
            s.limits = nullptr;
            const long score = s.rootScore;
            if (score >= -1 && score <= 1) continue;
            const long clamped = std::min<long>(std::max<long>(score, -TestPositionScoreLimit),
                                                TestPositionScoreLimit);
            if (!keepsTestPosition(resultCode, value, clamped)) continue;

            rewriteControlFile(controlFileName, control, gameNumber);
            char position[160];
            writeFullFen(s, position);
            std::fprintf(out, "%8ld%8ld %s\n", static_cast<long>(value), clamped, position);
            std::fflush(out);
        }
    }
}
