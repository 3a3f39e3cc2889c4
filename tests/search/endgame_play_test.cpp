// Basic mates are won in play: the engine plays both sides from random placements, searching
// a fixed depth per move, and must mate within the fifty-move rule.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#include "board/makemove.h"
#include "board/test_positions.h"
#include "board/text.h"
#include "search/limits.h"
#include "search/searcher.h"
#include "search/table.h"
#include "support/depth_search.h"

namespace {

// A legal placement of the given white pieces against a lone black king, White to move.
std::string randomPlacement(std::mt19937& random, const std::string& whitePieces) {
    for (;;) {
        char board[64];
        for (char& c : board) c = '.';
        std::string pieces = "Kk" + whitePieces;
        for (char piece : pieces) {
            int s;
            do s = static_cast<int>(random() % 64);
            while (board[s] != '.');
            board[s] = piece;
        }
        std::string fen = boardFen(board) + " w - - 0 1";
        Position p;
        constructPosition(p);
        if (!parseFen(p, fen.c_str())) continue;  // kings touching or Black in check
        int result = 0;
        if (hasNoLegalMove(p, &result)) continue;
        return fen;
    }
}

// Plays the position out; the number of moves until mate, or -1.
int playToMate(Searcher& s, const std::string& fen, int depth) {
    EXPECT_TRUE(setGameFromFen(s, fen.c_str()));
    SearchLimits limits;
    for (int ply = 0; ply < 100; ++ply) {
        int result = 0;
        if (hasNoLegalMove(s.position, &result)) return result == 1 ? ply : -1;
        if (s.position.sides[0].pieceCount[AllMen] < 2) return -1;  // the piece was lost
        searchRootToDepth(s, limits, depth);
        if (!moveFromTo(s.rootBestMove)) return -1;
        gameMakeMove(s, s.rootBestMove);
    }
    return -1;
}

void expectMates(const std::string& pieces, int games, int depth) {
    std::mt19937 random(2024);
    auto searcher = std::make_unique<Searcher>(8 << 20);
    for (int i = 0; i < games; ++i) {
        const std::string fen = randomPlacement(random, pieces);
        searcher->table->clearTable();
        EXPECT_GE(playToMate(*searcher, fen, depth), 0) << fen;
    }
}

TEST(EndgamePlay, QueenMatesTheLoneKing) {
    expectMates("Q", 6, 8);
}
TEST(EndgamePlay, RookMatesTheLoneKing) {
    expectMates("R", 6, 9);
}

// Bishop and knight: with the lone king on the edge between a corner of the bishop's colour
// and one of the other colour, the drive takes it to the right one, where the mate is.
TEST(EndgamePlay, BishopAndKnightMateInTheRightCorner) {
    auto searcher = std::make_unique<Searcher>(8 << 20);
    for (const char* fen : {"8/8/8/8/8/4K3/8/4k1NB w - - 0 1", "3k4/8/3K4/8/8/8/8/6BN w - - 0 1"}) {
        searcher->table->clearTable();
        EXPECT_GE(playToMate(*searcher, fen, 10), 0) << fen;
    }
}

}  // namespace
