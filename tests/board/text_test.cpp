#include "board/text.h"

#include <gtest/gtest.h>

#include <string>

#include "board/makemove.h"
#include "board/tables.h"
#include "support/fen_text.h"
#include "test_positions.h"

namespace {

Position fromFen(const char* fen) {
    Position p;
    constructPosition(p);
    EXPECT_NE(parseFen(p, fen), nullptr) << fen;
    return p;
}

std::string moveText(Position& p, const char* input, int style, int format = 1) {
    Move m = NoMove;
    if (!parseMove(p, input, m, format)) return "(refused)";
    char buffer[32];
    return writeMove(p, m, style, buffer);
}

bool reads(Position& p, const char* input, int format = 0) {
    Move m = NoMove;
    return parseMove(p, input, m, format);
}

TEST(Fen, SuitePositionsRoundTripAndCastlingFormsAgree) {
    for (const char* file : {"perft-dev.epd", "perft960-dev.epd"}) {
        for (const SuiteLine& line : readSuite(file)) {
            Position p;
            constructPosition(p);
            if (!parseFen(p, line.fen.c_str())) continue;
            Position again = fromFen(fenOf(p).c_str());
            EXPECT_EQ(again.hashKey, p.hashKey) << line.fen;
            EXPECT_EQ(fenOf(again), fenOf(p));
        }
    }
    const std::vector<SuiteLine> shredder = readSuite("perft960-dev.epd");
    const std::vector<SuiteLine> xfen = readSuite("perft960-xfen-dev.epd");
    ASSERT_EQ(shredder.size(), xfen.size());
    for (size_t i = 0; i < shredder.size(); ++i) {
        Position a = fromFen(shredder[i].fen.c_str());
        Position b = fromFen(xfen[i].fen.c_str());
        EXPECT_EQ(a.hashKey, b.hashKey) << xfen[i].fen;
        EXPECT_EQ(a.white().shortRookFrom, b.white().shortRookFrom);
        EXPECT_EQ(a.black().longRookFrom, b.black().longRookFrom);
    }
}

TEST(Fen, CastlingFieldForms) {
    // KQkq with an extra rook one file in from the corner takes the outermost rook.
    Position p = fromFen("r3k1rr/8/8/8/8/8/8/R3K1RR w KQkq - 0 1");
    EXPECT_EQ(p.white().shortRookFrom, 63);
    // Kb narrows the short rook files to the b-file, where no rook stands east of the king.
    Position q = fromFen("4k3/8/8/8/8/8/8/R3K2R w Kb - 0 1");
    EXPECT_EQ(q.castling & CastleWhiteShort, 0);
    // A bare file letter sets a right and remembers the form.
    Position r = fromFen("1r2k3/8/8/8/8/8/8/1R2K3 w Bb - 0 1");
    EXPECT_EQ(r.castling, CastleWhiteLong | CastleBlackLong);
    EXPECT_EQ(r.fenFileLetters, 1);
    EXPECT_EQ(r.chess960, 1);
}

TEST(Fen, Refusals) {
    Position p;
    constructPosition(p);
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/8/8/4K3 w - e3 0 1"), nullptr);  // e3 needs Black to move
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/8/8/4K3 x - - 0 1"), nullptr);   // side
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/8/8/4K3 w KZ - 0 1"), nullptr);  // castling letter
    EXPECT_EQ(parseFen(p, "4k3/8/8/7/8/8/8/4K3 w - - 0 1"), nullptr);   // short row
    EXPECT_EQ(parseFen(p, "4k3/9/8/8/8/8/8/4K3 w - - 0 1"), nullptr);   // digit 9
    EXPECT_EQ(parseFen(p, "4k3/8/8/8/8/8/8/4K3X w - - 0 1"), nullptr);  // past the board
    EXPECT_EQ(parseFen(p, ""), nullptr);
    EXPECT_EQ(parseFen(p, "\x01"), nullptr);
    // Both sides hold rights with kings on different files.
    EXPECT_EQ(parseFen(p, "r2k3r/8/8/8/8/8/8/R3K2R w KQkq - 0 1"), nullptr);
}

TEST(Fen, CountersSetTheHistory) {
    Game g;
    constructGame(g);
    ASSERT_TRUE(setGameFromFen(g, "4k3/8/8/8/8/8/8/4K2R w K - 37 80"));
    EXPECT_EQ(g.historyCount, 38);
    ASSERT_TRUE(setGameFromFen(g, "4k3/8/8/8/8/8/8/4K2R w K - 100 80"));
    EXPECT_EQ(g.historyCount, 1);
    ASSERT_TRUE(setGameFromFen(g, "4k3/8/8/8/8/8/8/4K2R w K -"));
    EXPECT_EQ(g.historyCount, 1);
    ASSERT_TRUE(setGameFromFen(g, "4k3/8/8/8/8/8/8/4K2R b K - 5 80"));
    EXPECT_EQ(fullFenOf(g), "4k3/8/8/8/8/8/8/4K2R b K - 5 4");
}

TEST(Chess960, StartNumbers) {
    Position p;
    constructPosition(p);
    setChess960Position(p, 518);
    EXPECT_EQ(fenOf(p), "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
    EXPECT_EQ(p.chess960, 0);
    setChess960Position(p, 0);
    EXPECT_EQ(fenOf(p), "bbqnnrkr/pppppppp/8/8/8/8/PPPPPPPP/BBQNNRKR w KQkq -");
    EXPECT_EQ(p.chess960, 1);
    setChess960Position(p, 960 + 518);
    EXPECT_EQ(p.chess960, 0);
}

TEST(MoveText, ThreeStyles) {
    Position p = fromFen("r3k2r/8/8/3pP3/8/2N3N1/8/R3K2R w KQkq d6 0 1");
    EXPECT_EQ(moveText(p, "e5d6", StyleEnglish), "exd6");
    EXPECT_EQ(moveText(p, "e5d6", StyleGerman), "exd6 e.p.");
    EXPECT_EQ(moveText(p, "c3e4", StyleEnglish), "Nce4");
    EXPECT_EQ(moveText(p, "g3e4", StyleGerman), "Sge4");
    EXPECT_EQ(moveText(p, "e1g1", StyleCoordinates), "e1g1");
    EXPECT_EQ(moveText(p, "e1g1", StyleEnglish), "0-0");
    EXPECT_EQ(moveText(p, "a1a8", StyleGerman), "Txa8+");
    p.chess960 = 1;
    EXPECT_EQ(moveText(p, "e1c1", StyleCoordinates), "O-O-O");
    p.chess960 = 0;
    p.fenFileLetters = 1;
    EXPECT_EQ(moveText(p, "e1g1", StyleCoordinates), "e1h1");
}

TEST(MoveText, MateMarkAndPromotionLetters) {
    Position p = fromFen("6k1/5ppp/8/8/8/8/1p6/R5K1 w - - 0 1");
    EXPECT_EQ(moveText(p, "a1a8", StyleGerman), "Ta8#");
    Position q = fromFen("6k1/8/8/8/8/8/1p6/6K1 b - - 0 1");
    EXPECT_EQ(moveText(q, "b2b1n", StyleCoordinates), "b2b1n");
    EXPECT_EQ(moveText(q, "b2b1n", StyleEnglish), "b1N");
    EXPECT_EQ(moveText(q, "b2b1q", StyleGerman), "b1D+");
}

TEST(MoveText, ReadingAlgebraicTails) {
    Position p = fromFen("4k3/8/8/3pP3/8/8/8/R3K2R w KQ d6 0 1");
    EXPECT_TRUE(reads(p, "exd6 e.p."));
    EXPECT_TRUE(reads(p, "exd6ep"));
    EXPECT_FALSE(reads(p, "exd6+"));  // gives no check
    EXPECT_FALSE(reads(p, "Ra2ep"));  // not en passant
    EXPECT_TRUE(reads(p, "Ra8+!?"));
    EXPECT_FALSE(reads(p, "Ra8+!!?"));  // two annotations
    EXPECT_FALSE(reads(p, "Ra8++"));    // claims mate, is only check
    EXPECT_FALSE(reads(p, "Ra8+#"));    // two claims
    EXPECT_TRUE(reads(p, "Ta8+"));
    EXPECT_TRUE(reads(p, "Ra1-b1"));
    EXPECT_TRUE(reads(p, "O-O") && reads(p, "0-0") && reads(p, "O-O", 1) && reads(p, "0-0-0", 1));
    EXPECT_FALSE(reads(p, "o-o"));
}

TEST(MoveText, ReadingCapturesAndCandidates) {
    Position p = fromFen("4k3/8/8/8/8/5p2/8/R3K1NR w K - 0 1");
    EXPECT_TRUE(reads(p, "Nxf3"));
    EXPECT_FALSE(reads(p, "Nf3"));  // a capture without x
    Position q = fromFen("4k3/8/8/8/8/8/8/R3K1NR w K - 0 1");
    EXPECT_FALSE(reads(q, "Nxf3"));  // nothing to take: x is an unknown character
    EXPECT_TRUE(reads(q, "Nf3"));
    EXPECT_TRUE(reads(q, "Ng1f3"));
    Position r = fromFen("4k3/8/8/8/8/8/4K3/R6R w - - 0 1");
    EXPECT_FALSE(reads(r, "Rd1"));  // both rooks reach d1
    EXPECT_TRUE(reads(r, "Rad1"));
    EXPECT_TRUE(reads(r, "Rhd1"));
    EXPECT_EQ(moveText(r, "h1d1", StyleEnglish), "Rhd1");
    Position s = fromFen("4k3/8/8/8/8/8/8/R3K2R w - - 0 1");
    EXPECT_TRUE(reads(s, "Rd1"));  // the king blocks the h-rook
}

TEST(MoveText, ReadingCoordinates) {
    Position p = fromFen("4k3/P7/8/8/8/8/8/4K2R w K - 0 1");
    Move m = NoMove;
    ASSERT_TRUE(parseMove(p, "a7a8n", m, 1));
    EXPECT_EQ(movePromotion(m), Knight);
    ASSERT_TRUE(parseMove(p, "a7a8Q", m, 1));
    EXPECT_EQ(movePromotion(m), Queen);
    EXPECT_FALSE(parseMove(p, "a7a8k", m, 1));
    ASSERT_TRUE(parseMove(p, "e1g1", m, 1));  // castling as the king's two-square step
    EXPECT_EQ(moveTo(m), 63);
    ASSERT_TRUE(parseMove(p, "e1h1", m, 1));   // or as the king taking its rook
    EXPECT_FALSE(parseMove(p, "e2e4", m, 1));  // no man there
    EXPECT_FALSE(parseMove(p, "e1e3", m, 1));
    EXPECT_FALSE(parseMove(p, "", m, 1));
}

}  // namespace
