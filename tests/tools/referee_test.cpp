// The match driver's referee: move checking, the rules that end a game, SAN and PGN text.
#include "tools/match/referee.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "tools/match/pgn.h"

namespace {

using match::Ending;
using match::Referee;

// The game from `fen` after `moves`, each of which must be accepted.
Referee played(const std::string& fen, std::initializer_list<const char*> moves,
               bool chess960 = false) {
    Referee r;
    EXPECT_TRUE(r.reset(fen, chess960)) << fen;
    for (const char* m : moves) EXPECT_TRUE(r.play(m)) << fen << " " << m;
    return r;
}

Ending endingAfter(const std::string& fen, std::initializer_list<const char*> moves) {
    return played(fen, moves).verdict().ending;
}

TEST(Referee, RulesThatEndTheGame) {
    EXPECT_EQ(endingAfter("7k/5Q2/8/6K1/8/8/8/8 w - - 0 1", {"g5g6"}), Ending::Stalemate);

    // The start position counts as the first of three.
    const char* knights[] = {"g1f3", "g8f6", "f3g1", "f6g8", "g1f3", "g8f6", "f3g1"};
    Referee r = played(match::StandardStartFen, {});
    for (const char* m : knights) EXPECT_TRUE(r.play(m));
    EXPECT_FALSE(r.verdict().over());
    EXPECT_TRUE(r.play("f6g8"));
    EXPECT_EQ(r.verdict().ending, Ending::Repetition);

    // Fifty moves: the hundredth reversible half-move draws, unless it mates.
    const char* late = "8/8/8/4k3/8/8/4K3/R7 w - - 98 80";
    EXPECT_EQ(endingAfter(late, {"a1a2"}), Ending::None);
    EXPECT_EQ(endingAfter(late, {"a1a2", "e5d5"}), Ending::FiftyMoves);
    EXPECT_EQ(endingAfter("k7/8/1K6/8/8/8/8/7R w - - 99 80", {"h1h8"}), Ending::Checkmate);
    EXPECT_EQ(endingAfter("8/8/8/4k3/8/8/4K3/R6n w - - 99 80", {"a1h1"}), Ending::None);

    // No mating material: a lone minor piece, or bishops all on one colour.
    EXPECT_EQ(endingAfter("8/8/8/4k3/8/8/3rK3/6n1 w - - 0 1", {"e2d2"}),
              Ending::InsufficientMaterial);
    EXPECT_EQ(endingAfter("8/8/8/5k2/8/2B5/3rK3/B7 w - - 0 1", {"c3d2"}),
              Ending::InsufficientMaterial);
    EXPECT_EQ(endingAfter("8/8/8/4k3/8/8/3pK3/8 w - - 0 1", {"e2e3"}), Ending::None);
}

TEST(Referee, RefusesAnythingButAStrictLegalUciMove) {
    Referee r = played("8/P7/8/8/8/8/k7/4K2R w K - 0 1", {});
    for (const char* bad : {"", "0000", "a7a8", "a7a8k", "a7a8Q", "A7A8q", "a7-a8q", "a7a8q ",
                            "e1e3", "e2e4", "Ke2", "O-O", "e1h1", "e1g1q", "h1h2q", "e1g1+"}) {
        EXPECT_FALSE(r.play(bad)) << '"' << bad << '"';
    }
    EXPECT_TRUE(r.uciMoves().empty());
    EXPECT_TRUE(r.play("e1g1"));
    EXPECT_EQ(r.sanMoves().back(), "O-O");
}

TEST(Referee, SanDisambiguatesByLegalMovesOnly) {
    const char* const cases[][3] = {
        {"4k3/8/8/8/8/1N6/4N3/4K3 w - - 0 1", "b3d4", "Nbd4"},
        {"4r1k1/8/8/8/8/1N6/4N3/4K3 w - - 0 1", "b3d4", "Nd4"},  // the e2 knight is pinned
        {"4k3/8/8/1N6/8/1N6/8/4K3 w - - 0 1", "b3d4", "N3d4"},
        {"Q5Q1/8/8/8/7k/8/Q7/4K3 w - - 0 1", "a8d5", "Qa8d5"},
        {"8/P7/8/8/8/8/k7/4K3 w - - 0 1", "a7a8q", "a8=Q+"},
        {"rnbqkb1r/ppp1pppp/5n2/3pP3/8/8/PPPP1PPP/RNBQKBNR w KQkq d6 0 3", "e5d6", "exd6"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(played(c[0], {c[1]}).sanMoves().back(), c[2]) << c[0];
    }
}

TEST(Referee, PgnOfAShortGameFromAPositionWithBlackToMove) {
    const Referee r = played("rnbqkbnr/pppp1ppp/8/8/3pP3/2P5/PP3PPP/RNBQKBNR b KQkq - 0 3",
                             {"d4c3", "b1c3", "f8b4", "f1c4", "b4c3", "b2c3"});
    match::GameRecord record;
    record.date = "2024.01.02";
    record.round = "7";
    record.white = "Alpha";
    record.black = "Be\"ta";
    record.timeControl = "1+0.01";
    record.verdict = match::forfeit(false, Ending::TimeForfeit, "Black loses on time");
    EXPECT_EQ(match::pgnText(record, r),
              "[Event \"Zelmark match\"]\n[Site \"?\"]\n[Date \"2024.01.02\"]\n[Round \"7\"]\n"
              "[White \"Alpha\"]\n[Black \"Be\\\"ta\"]\n[Result \"1-0\"]\n[SetUp \"1\"]\n"
              "[FEN \"rnbqkbnr/pppp1ppp/8/8/3pP3/2P5/PP3PPP/RNBQKBNR b KQkq - 0 3\"]\n"
              "[TimeControl \"1+0.01\"]\n[PlyCount \"6\"]\n[Termination \"time forfeit\"]\n\n"
              "3... dxc3 4. Nxc3 Bb4 5. Bc4 Bxc3+ 6. bxc3 {Black loses on time} 1-0\n\n");
}

}  // namespace
