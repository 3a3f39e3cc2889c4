// Arbitrary text read as a FEN. Whatever the reader accepts must be a sound position: its
// derived data consistent, its own FEN readable to the same position, every legal move
// writable and readable in all text styles, and the counting code in agreement with plain
// generation.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "frontend/perft.h"
#include "fuzz_support.h"

namespace {

// The selective modes may offer a move that GenAll leaves out (a king step of a discovered
// check does not look at the attack map) but then makeLegal must refuse it.
void checkSelectiveModes(Position& p, const std::vector<MoveEntry>& all) {
    std::set<Move> pseudoLegal;
    for (const MoveEntry& e : all) {
        FUZZ_CHECK(pseudoLegal.insert(e.move).second,
                   "move " + std::to_string(e.move) + " generated twice in " + fenOf(p));
    }
    for (int mode : {GenChecksAndSeventh, GenChecks, GenCaptures}) {
        std::vector<MoveEntry> list(MaxMovesPerPosition);
        const MoveEntry* end = generateMoves(p, mode, list.data());
        FUZZ_CHECK(end - list.data() <= MaxMovesPerPosition, "list size in " + fenOf(p));
        for (const MoveEntry* e = list.data(); e != end; ++e) {
            if (pseudoLegal.count(e->move)) continue;
            UndoRecord undo;
            beginUndo(undo, p);
            const bool legal = makeLegal(p, e->move, undo);
            if (legal) undoMove(undo);
            FUZZ_CHECK(!legal, "mode " + std::to_string(mode) + " move " + std::to_string(e->move) +
                                   " is legal but not among all moves of " + fenOf(p));
        }
    }
}

// Both colours' castling rooks start on the same files and a right dies with its rook's first
// move, so in a game two rights of one wing never name rooks on different files. A FEN that
// does may settle on other rooks when read again.
bool gameLikeCastling(const Position& p) {
    const SideState& w = p.sides[0];
    const SideState& b = p.sides[1];
    if ((p.castling & (CastleWhiteShort | CastleBlackShort)) ==
            (CastleWhiteShort | CastleBlackShort) &&
        fileOf(w.shortRookFrom) != fileOf(b.shortRookFrom))
        return false;
    return (p.castling & (CastleWhiteLong | CastleBlackLong)) !=
               (CastleWhiteLong | CastleBlackLong) ||
           fileOf(w.longRookFrom) == fileOf(b.longRookFrom);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = inputText(data, size);
    Position p;
    constructPosition(p);
    const bool read = parseFen(p, text.c_str()) != nullptr;
    Game game;
    constructGame(game);
    FUZZ_CHECK(setGameFromFen(game, text.c_str()) == read, "parseFen and setGameFromFen differ");
    if (!read) return 0;

    const std::string fen = fenOf(p);
    FUZZ_CHECK(fenOf(game.position) == fen && game.position.hashKey == p.hashKey,
               "game and position read differently: " + fen);
    FUZZ_CHECK(game.historyCount >= 1 && game.historyCount <= 100, "half-move clock of " + fen);
    checkInvariants(p, "reading");

    Position again;
    constructPosition(again);
    FUZZ_CHECK(parseFen(again, fen.c_str()) != nullptr, "own FEN refused: " + fen);
    // Without castling rights the Chess960 flag shows nowhere.
    FUZZ_CHECK(again.hashKey == p.hashKey && again.castling == p.castling &&
                   (!gameLikeCastling(p) ||
                    (fenOf(again) == fen && (again.chess960 == p.chess960 || p.castling == 0))),
               "FEN round trip changed " + fen + " into " + fenOf(again));

    const std::string full = fullFenOf(game);
    Game gameAgain;
    constructGame(gameAgain);
    FUZZ_CHECK(setGameFromFen(gameAgain, full.c_str()), "own full FEN refused: " + full);
    FUZZ_CHECK(gameAgain.historyCount == game.historyCount &&
                   gameAgain.position.hashKey == game.position.hashKey,
               "full FEN round trip changed " + full);

    std::vector<MoveEntry> all(MaxMovesPerPosition);
    all.resize(static_cast<size_t>(generateMoves(p, GenAll, all.data()) - all.data()));
    checkSelectiveModes(p, all);

    const std::vector<Move> legal = legalMoves(p);
    uint64_t replies = 0;
    for (Move move : legal) {
        checkMakeUndo(p, move, "move " + std::to_string(move));
        checkMoveTexts(p, move);
        UndoRecord undo;
        beginUndo(undo, p);
        makeLegal(p, move, undo);
        replies += legalMoves(p).size();
        undoMove(undo);
    }

    int result = 2;
    FUZZ_CHECK(hasNoLegalMove(p, &result) == legal.empty(), "hasNoLegalMove wrong in " + fen);
    if (legal.empty()) {
        const int expected = sideToMoveInCheck(p) ? (p.whiteToMove ? -1 : 1) : 0;
        FUZZ_CHECK(result == expected, "game result wrong in " + fen);
    }

    PerftTable table(0);
    FUZZ_CHECK(perftCount(table, p, 1) == legal.size(), "perft 1 differs in " + fen);
    FUZZ_CHECK(perftCount(table, p, 2) == replies, "perft 2 differs in " + fen);
    FUZZ_CHECK(fenOf(p) == fen && p.hashKey == again.hashKey, "perft changed " + fen);
    return 0;
}
