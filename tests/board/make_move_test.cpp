#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "board/keys.h"
#include "board/makemove.h"
#include "board/movegen.h"
#include "board/tables.h"
#include "board/text.h"
#include "test_positions.h"

namespace {

Position fromFen(const char* fen) {
    Position p;
    constructPosition(p);
    EXPECT_NE(parseFen(p, fen), nullptr) << fen;
    return p;
}

Move moveOf(Position& p, const char* text) {
    Move m = NoMove;
    EXPECT_TRUE(parseMove(p, text, m, 1)) << text;
    return m;
}

// Random games from every suite position: after each make all derived data must equal a fresh
// computation, and each undo must restore the record byte for byte.
TEST(MakeMove, RandomGamesKeepEveryInvariantAndUndoExactly) {
    std::mt19937 random(7);
    std::vector<SuiteLine> lines = readSuite("perft-dev.epd");
    for (const SuiteLine& extra : readSuite("perft960-dev.epd")) lines.push_back(extra);
    int checkedMoves = 0;
    for (const SuiteLine& line : lines) {
        Position p;
        constructPosition(p);
        if (!parseFen(p, line.fen.c_str())) continue;
        for (int game = 0; game < 5; ++game) {
            Position start;
            std::memcpy(&start, &p, sizeof p);
            UndoRecord undo[40];
            Position before[40];
            int ply = 0;
            for (; ply < 40; ++ply) {
                MoveEntry list[MaxMovesPerPosition];
                MoveEntry* end = generateMoves(p, GenAll, list);
                if (end == list) break;
                std::memcpy(&before[ply], &p, sizeof p);
                // Try every move once at this node, then follow one at random.
                for (MoveEntry* e = list; e < end; ++e) {
                    UndoRecord u;
                    beginUndo(u, p);
                    if (!makeLegal(p, e->move, u)) {
                        ASSERT_EQ(std::memcmp(&p, &before[ply], sizeof p), 0);
                        continue;
                    }
                    ASSERT_EQ(invariantProblem(p), "") << line.fen;
                    Position fresh;
                    std::memcpy(&fresh, &p, sizeof p);
                    updateBothSummaries(fresh);
                    EXPECT_EQ(std::memcmp(&fresh.sides[0], &p.sides[0], 32), 0);
                    EXPECT_EQ(std::memcmp(&fresh.sides[1], &p.sides[1], 32), 0);
                    ++checkedMoves;
                    undoMove(u);
                    ASSERT_EQ(std::memcmp(&p, &before[ply], sizeof p), 0) << line.fen;
                }
                bool made = false;
                for (int tries = 0; tries < 50 && !made; ++tries) {
                    beginUndo(undo[ply], p);
                    made = makeLegal(p, list[random() % (end - list)].move, undo[ply]);
                }
                if (!made) break;
            }
            while (ply-- > 0) {
                undoMove(undo[ply]);
                ASSERT_EQ(std::memcmp(&p, &before[ply], sizeof p), 0);
            }
            ASSERT_EQ(std::memcmp(&p, &start, sizeof p), 0);
        }
    }
    EXPECT_GT(checkedMoves, 10000);
}

TEST(MakeMove, OneRecordServesEveryMoveOfANode) {
    // The search and perft save once per node: a capture made and undone must not leave its
    // captured kind behind for the en passant capture or double push that follows.
    Position p = fromFen("4k3/8/8/2n1pP2/8/8/6P1/4K2R w K e6 0 1");
    UndoRecord u;
    beginUndo(u, p);
    ASSERT_TRUE(makeLegal(p, moveOf(p, "h1h8"), u));
    undoMove(u);
    ASSERT_TRUE(makeLegal(p, moveOf(p, "f5e6"), u));
    EXPECT_EQ(p.black().pieces[Pawn], 0u);
    EXPECT_EQ(invariantProblem(p), "");
    undoMove(u);
    Position other = fromFen("4k3/8/8/2n1pP2/7p/8/6P1/4K2R w K e6 0 1");
    beginUndo(u, other);
    ASSERT_TRUE(makeLegal(other, moveOf(other, "f5e6"), u));
    undoMove(u);
    ASSERT_TRUE(makeLegal(other, moveOf(other, "g2g4"), u));
    EXPECT_EQ(other.epSquare, squareFromLetters('g', '3'));
    EXPECT_EQ(invariantProblem(other), "");
}

TEST(MakeMove, Chess960CastlingKeepsKeysExact) {
    const char* cases[][2] = {
        {"4k3/8/8/8/8/8/8/6KR w H - 0 1", "O-O"},       // king already on g1
        {"1r2k3/8/8/8/8/8/8/1RK5 w B - 0 1", "O-O-O"},  // king stays on c1
    };
    for (const auto& c : cases) {
        Position p = fromFen(c[0]);
        Move m = NoMove;
        ASSERT_TRUE(parseMove(p, c[1], m, 0)) << c[0];
        UndoRecord u;
        beginUndo(u, p);
        ASSERT_TRUE(makeLegal(p, m, u)) << c[0];
        EXPECT_EQ(invariantProblem(p), "") << c[0];
        const SideState& mover = p.notToMove();
        const bool isShort = std::strcmp(c[1], "O-O") == 0;
        const Bitboard rank = mover.homeRank;
        EXPECT_EQ(mover.pieces[King], rank & FileMask[isShort ? 6 : 2]) << c[0];
        EXPECT_TRUE(mover.pieces[Rook] & rank & FileMask[isShort ? 5 : 3]) << c[0];
        EXPECT_EQ(p.lastMoveMask, mover.pieces[King]);
        EXPECT_EQ(p.castling & mover.castleRightsMask, 0);
    }
}

TEST(MakeMove, EnPassantTargetOnlyWhenAPawnCanTake) {
    Position p = fromFen("4k3/8/8/8/5p2/8/4P1P1/4K3 w - - 0 1");
    UndoRecord u;
    beginUndo(u, p);
    ASSERT_TRUE(makeLegal(p, moveOf(p, "g2g4"), u));
    EXPECT_EQ(p.epSquare, squareFromLetters('g', '3'));
    EXPECT_EQ(invariantProblem(p), "");

    Position quiet = fromFen("4k3/8/8/8/8/8/P7/4K3 w - - 0 1");
    beginUndo(u, quiet);
    ASSERT_TRUE(makeLegal(quiet, moveOf(quiet, "a2a4"), u));
    EXPECT_EQ(quiet.epSquare, -1);
    EXPECT_EQ(invariantProblem(quiet), "");
}

TEST(MakeMove, PinnedAndAttackedMen) {
    // Knight and bishop are both pinned and attacked; the rook on the king's rank has no
    // enemy behind it.
    Position p = fromFen("4r1k1/8/8/q7/4N3/8/3B4/1R2K2b w - - 0 1");
    EXPECT_EQ(p.pinnedAttacked,
              squareBit(squareFromLetters('e', '4')) | squareBit(squareFromLetters('d', '2')));
}

TEST(GameHistory, StopsGrowingAt101AndResetsOnIrreversibleMoves) {
    Game g;
    constructGame(g);
    ASSERT_TRUE(setGameFromFen(g, "4k3/8/8/8/8/8/4P3/R3K3 w - - 0 1"));
    const char* shuffle[] = {"a1a2", "e8d8", "a2a1", "d8e8"};
    for (int i = 0; i < 120; ++i) gameMakeMove(g, moveOf(g.position, shuffle[i % 4]));
    EXPECT_EQ(g.historyCount, 101);
    EXPECT_EQ(gameDrawState(g), 3);
    gameMakeMove(g, moveOf(g.position, "e2e4"));
    EXPECT_EQ(g.historyCount, 1);
}

TEST(GameHistory, SearchDrawStateCountsEarlierOccurrences) {
    Game g;
    constructGame(g);
    const char* moves[] = {"g1f3", "g8f6", "f3g1", "f6g8"};
    for (const char* m : moves) gameMakeMove(g, moveOf(g.position, m));
    EXPECT_EQ(searchDrawState(g), 3);  // the start position stands twice in the history
    gameMakeMove(g, moveOf(g.position, "g1f3"));
    EXPECT_EQ(searchDrawState(g), 3);
    gameMakeMove(g, moveOf(g.position, "e7e5"));
    EXPECT_EQ(searchDrawState(g), 1);  // after a pawn move the history holds only itself
}

TEST(DrawState, MaterialAndBlockedPawns) {
    EXPECT_EQ(materialDrawKind(fromFen("4k3/8/8/8/8/8/8/3NK3 w - - 0 1")), 10);
    EXPECT_EQ(materialDrawKind(fromFen("4k3/8/8/8/8/8/8/2N1K1N1 w - - 0 1")), 0);
    // Bishops all on one square colour, of both sides, in any number.
    EXPECT_EQ(materialDrawKind(fromFen("4kb2/8/8/8/8/8/8/2B1K3 w - - 0 1")), 10);
    EXPECT_EQ(materialDrawKind(fromFen("4k1b1/8/8/8/8/8/8/2B1K3 w - - 0 1")), 0);
    // Locked pawns, kings shut out: dead. A king with a way round: not dead.
    EXPECT_EQ(materialDrawKind(fromFen("8/8/1k6/p1p1p1p1/P1P1P1P1/8/1K6/8 w - - 0 1")), 40);
    EXPECT_EQ(materialDrawKind(fromFen("8/8/1k6/p1p1p3/P1P1P3/8/1K6/8 w - - 0 1")), 0);
}

TEST(Validation, MenLimitsAndWaitingSideInCheck) {
    Position p;
    constructPosition(p);
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/P7/PPPPPPPP/4K3 w - - 0 1"), nullptr);    // nine pawns
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/8/PPPPPPPP/QQ2K3 w - - 0 1"), nullptr);   // 8 + 2 queens
    EXPECT_NE(parseFen(p, "4k3/8/8/8/8/8/PPPPPPP1/RRR1K3 w - - 0 1"), nullptr);  // 7 + 3 rooks
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/8/PPPPPPP1/RRRRK3 w - - 0 1"), nullptr);  // 7 + 4 rooks
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/8/8/4K2r b - - 0 1"), nullptr);  // White to wait in check
    EXPECT_EQ(parseFen(p, "8/8/8/8/8/8/8/8/8 w - - 0 1"), nullptr);     // no kings
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/8/8/4K2P w - - 0 1"), nullptr);  // pawn on the first rank
}

TEST(Keys, CastlingKeyOfNoRightsStillCounts) {
    Position p = fromFen("4k3/8/8/8/8/8/8/4K3 b - - 0 1");
    const uint64_t men = WhiteZobrist[King][squareFromLetters('e', '1')] ^
                         BlackZobrist[King][squareFromLetters('e', '8')];
    EXPECT_EQ(p.hashKey ^ men, WhiteZobrist[0][0]);
    EXPECT_EQ(WhiteZobrist[0][0], 0xa92e77842ea08c29ULL);
}

TEST(Fingerprint, RightsBitEightAndAnEnPassantSquareWithBitEightLookAlike) {
    Position a = fromFen("r3k3/8/8/8/P7/8/8/4K3 b q a3 0 1");
    Position b = fromFen("r3k3/8/8/8/P7/8/8/4K3 b - a3 0 1");
    EXPECT_EQ(a.epSquare, 40);
    EXPECT_EQ(fingerprint(a), fingerprint(b));
    EXPECT_NE(a.hashKey, b.hashKey);
}

}  // namespace
