// Arbitrary text read as a move, in algebraic and in coordinate form, against one of a few
// fixed positions chosen by the first byte. A move the reader accepts must be legal, must be
// one the generator produces, and must survive make, undo and the three text styles.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

// Castling both ways and in Chess960 with rooks next to the king or on the king's target,
// en passant (also the one that would expose the king), promotions with and without capture,
// pinned men, checks and mates, and men that need file, rank or square to tell them apart.
const char* const Positions[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/Pp2P3/2N2Q1p/1PPBBPPP/R3K2R b KQkq a3 0 1",
    "rnbqkbnr/ppp1p1pp/8/3pPp2/8/8/PPPP1PPP/RNBQKBNR w KQkq f6 0 3",
    "8/8/8/KPp4r/8/8/8/6k1 w - c6 0 1",
    "8/8/8/2k5/2pP4/8/B7/4K3 b - d3 0 3",
    "n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - - 0 1",
    "1k6/8/8/8/Q6Q/8/8/Q2K3Q w - - 0 1",
    "7k/8/8/1N3N2/8/1N3N2/8/K7 w - - 0 1",
    "6k1/5ppp/8/8/8/8/5PPP/R5K1 w - - 0 1",
    "bqnb1rkr/pp3ppp/3ppn2/2p5/5P2/P2P4/NPP1P1PP/BQ1BNRKR w HFhf - 2 9",
    "1r2k3/8/8/8/8/8/8/1R2K3 w Bb - 0 1",
    "rk5r/8/8/8/8/8/8/RK5R w KQkq - 0 1",
    "2r1k2r/8/8/8/8/8/8/R3K2R b KQk - 0 1",
    "r3k2r/8/3Q4/8/8/5q2/8/R3K2R b KQkq - 0 1",
    "4k3/8/8/8/8/8/4r3/R3K2R w KQ - 0 1",
};
constexpr size_t PositionCount = sizeof Positions / sizeof Positions[0];

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const char* fen = Positions[data[0] % PositionCount];
    const std::string text = inputText(data + 1, size - 1);

    Position p;
    constructPosition(p);
    FUZZ_CHECK(parseFen(p, fen) != nullptr, std::string("fixed position refused: ") + fen);
    const std::vector<Move> legal = legalMoves(p);
    Position before;
    std::memcpy(static_cast<void*>(&before), &p, sizeof p);

    for (int format : {0, 1}) {
        Move move = NoMove;
        const bool read = parseMove(p, text.c_str(), move, format);
        FUZZ_CHECK(std::memcmp(&before, &p, sizeof p) == 0,
                   "parseMove changed the board for '" + text + "'");
        if (!read) continue;
        const std::string context =
            "'" + text + "' (format " + std::to_string(format) + ") in " + fen;
        FUZZ_CHECK(std::find(legal.begin(), legal.end(), move) != legal.end(),
                   "reads as a move the generator lacks: " + std::to_string(move) + " " + context);
        checkMakeUndo(p, move, context);
        checkMoveTexts(p, move);
    }
    return 0;
}
