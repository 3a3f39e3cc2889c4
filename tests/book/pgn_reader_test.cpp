#include "book/pgn_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/position.h"
#include "board/text.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// The committed sample files sit beside the tests, found from this file's own path so that
// the tests run from any build directory.
std::string dataFile(const std::string& name) {
    const std::string source = __FILE__;
    return source.substr(0, source.rfind('/')) + "/../data/pgn/" + name;
}

std::string writeFile(const std::string& name, const std::string& text) {
    const std::string path =
        ::testing::TempDir() + "pgn_" + std::to_string(getpid()) + "_" + name + ".pgn";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

// Moves of a line in algebraic text, played from `fen` (the start position if empty); the
// board after them goes to `end` if given.
std::vector<Move> line(const std::vector<const char*>& texts, const char* fen = "",
                       Position* end = nullptr) {
    Position own;
    Position& p = end ? *end : own;
    constructPosition(p);
    if (*fen) {
        EXPECT_NE(parseFen(p, fen), nullptr) << fen;
    }
    std::vector<Move> moves;
    for (const char* text : texts) {
        Move m = NoMove;
        EXPECT_TRUE(parseMove(p, text, m, 0)) << text;
        UndoRecord undo;
        beginUndo(undo, p);
        makeLegal(p, m, undo);
        moves.push_back(m);
    }
    return moves;
}

uint64_t keyAfter(const std::vector<const char*>& texts, const char* fen = "") {
    Position p;
    line(texts, fen, &p);
    return p.hashKey;
}

std::string message(const std::string& path, const std::string& text) {
    return "info string PGN-Parser: file " + path + " " + text + "\n";
}

const std::string Tags = "[White \"A\"]\n[Black \"B\"]\n[Result \"*\"]\n";

std::string describeToken(int kind, const std::string& text) {
    const bool hasText =
        kind == TokenString || kind == TokenInteger || kind == TokenNag || kind == TokenSymbol;
    return std::to_string(kind) + (hasText ? ":" + text : "");
}

TEST(PgnTokens, KindsTextsAndSkippedText) {
    const struct {
        const char* name;
        std::string text;
        std::vector<std::string> tokens;  // kind, and ":text" where the kind has one
    } cases[] = {
        {"escapes", R"("a\"b\\c" "")", {"0:a\"b\\c", "0:", "10"}},
        {"numbers and symbols",
         "$12 12. 1-0 1/2-1/2 e8=Q+ O-O-O",
         {"8:12", "1:12", "2", "9:1-0", "9:1/2-1/2", "9:e8=Q+", "9:O-O-O", "10"}},
        {"suffixes stand apart", "Nf3!? e4", {"9:Nf3", "9:!", "9:?", "9:e4", "10"}},
        {"punctuation", "()[]*.", {"4", "5", "6", "7", "3", "2", "10"}},
        {"comments", "{a (b) \"c}e4 ; d5\n;\ne5{", {"9:e4", "9:e5", "10"}},
        // The first character of the file stands at column 2, so "%" there is a symbol.
        {"escape only from line two", "% x\n%y\ne4 %z", {"9:%", "9:x", "9:e4", "9:%z", "10"}},
        {"escape after a carriage return", "e4\r\n% y\r\ne5", {"9:e4", "9:e5", "10"}},
        {"open string at the end", "\"ab", {"0:ab", "10"}},
        {"empty", "", {"10"}},
    };
    for (const auto& c : cases) {
        PgnReader reader(writeFile("tokens", c.text));
        std::vector<std::string> tokens;
        for (int kind = 0; kind != TokenEndOfFile && tokens.size() < 20;) {
            kind = reader.nextToken();
            tokens.push_back(describeToken(kind, reader.tokenText));
        }
        EXPECT_EQ(tokens, c.tokens) << c.name;
    }
}

TEST(PgnGames, MovesAndMessages) {
    const struct {
        const char* name;
        std::string text;
        bool read;
        std::vector<const char*> moves;
        std::string error;  // behind the file name; empty for none
    } cases[] = {
        {"empty file", "", false, {}, ""},
        {"comments, NAGs and nested variations are dropped",
         Tags + "1. e4 e5 {a (comment} (1... c5 2. Nf3 (2. c3 \")\") d6) $1 2. Nf3 ; Nc3\n"
                "% 2... d5\nNc6 *\n",
         true,
         {"e4", "e5", "Nf3", "Nc6"},
         ""},
        {"check and mate claims",
         Tags + "1. f3 e5 2. g4 Qh4# *",
         true,
         {"f3", "e5", "g4", "Qh4"},
         ""},
        {"study export with a FEN, comments and a variation",
         "[Event \"\xF0\x9F\x92\x8E Puzzle 1\"]\n" + Tags +
             "[FEN \"2r2r2/1Q3pkp/p4np1/qp6/4B3/1P2P2P/P4PP1/R4RK1 b - - 7 20\"]\n\n"
             "{ Find the move.\nTwo lines. }\n20... Rc7 { [%cal Gf3g5] } (20... Rb8 { good } "
             "21. Qc6) 21. b4 Rxb7 22. bxa5 { } 22... Nxe4 *\n",
         true,
         {"Rc7", "b4", "Rxb7", "bxa5", "Nxe4"},
         ""},
        {"exclamation mark", Tags + "1. e4! *\n", false, {"e4"}, "line 4 char 7: illegal move !"},
        {"check claim on a quiet move",
         Tags + "1. Nf3+ *",
         false,
         {},
         "line 4 char 8: illegal move Nf3+"},
        {"escape inside a line is a symbol",
         Tags + "1. e4 % e5 *",
         false,
         {"e4"},
         "line 4 char 8: illegal move %"},
        {"escape at the start of the file is a symbol",
         "% x\n" + Tags + "*",
         false,
         {},
         "line 1 char 3: illegal move %"},
        {"end of file among the moves", Tags + "1. e4 e5", false, {"e4", "e5"}, ""},
        {"marker against the Result tag",
         "[White \"A\"]\n[Black \"B\"]\n[Result \"1-0\"]\ne4 0-1\n",
         false,
         {"e4"},
         "line 5 char 0: Game termination marker different from Result"},
        {"decisive marker without a Result tag",
         "[White \"A\"]\n[Black \"B\"]\n1-0",
         false,
         {},
         "line 3 char 3: Game termination marker different from Result"},
        {"White missing first",
         "*\n",
         false,
         {},
         "line 2 char 0: 'White' missing (in game above current line)"},
        {"Black missing",
         "[White \"A\"]\n[Result \"*\"]\n*\n",
         false,
         {},
         "line 4 char 0: 'Black' missing (in game above current line)"},
        {"Result missing",
         "[White \"A\"]\n[Black \"B\"]\n*",
         false,
         {},
         "line 3 char 1: 'Result' missing (in game above current line)"},
        {"string among the moves",
         Tags + "1. e4 \"text\" *",
         false,
         {"e4"},
         "line 4 char 13: unexpected string text"},
        {"stray parenthesis", Tags + "1. e4 ) *", false, {"e4"}, "line 4 char 8: unexpected ')'"},
        {"stray bracket", Tags + "] *", false, {}, "line 4 char 2: unexpected ']'"},
        {"tag name not a symbol",
         "[White \"A\"]\n[\"Black\" \"B\"]\n",
         false,
         {},
         "line 2 char 9: symbol expected"},
        {"tag value not a string", "[White A]\n", false, {}, "line 1 char 10: String erwartet"},
        {"tag not closed", "[White \"A\" \"B\"]", false, {}, "line 1 char 16: ']' expected"},
        {"end of file in a variation",
         Tags + "1. e4 (1. d4 (1. c4) *\n",
         false,
         {"e4"},
         "line 5 char 0: unexpected end of file"},
        {"FEN tag",
         Tags + "[FEN \"6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1\"]\n1. Ra8# *",
         true,
         {"Ra8"},
         ""},
        {"FEN tag that does not read",
         Tags + "[FEN \"8/8/8/8/8/8/8/8 w - - 0 1\"]\n1. e4 *",
         false,
         {},
         "line 5 char 6: illegal move e4"},
    };
    for (const auto& c : cases) {
        const std::string path = writeFile("game", c.text);
        PgnReader reader(path);
        std::vector<Move> moves;
        PgnTags tags;
        CaptureStderr();
        const bool read = reader.parseGame(moves, tags);
        const std::string errors = GetCapturedStderr();
        EXPECT_EQ(read, c.read) << c.name;
        const char* fen = tags.count("FEN") ? tags["FEN"].c_str() : "";
        EXPECT_EQ(moves, line(c.moves, c.moves.empty() ? "" : fen)) << c.name;
        EXPECT_EQ(errors, c.error.empty() ? "" : message(path, c.error)) << c.name;
        EXPECT_EQ(reader.ok, c.error.empty()) << c.name;
    }
}

TEST(PgnGames, EscapedTagValueAndRepeatedTag) {
    PgnReader reader(writeFile("tags",
                               "[White \"A \\\"B\\\" \\\\ C\"]\n[Black \"D\"]\n"
                               "[Result \"1-0\"]\n[Result \"*\"]\n*\n"));
    std::vector<Move> moves;
    PgnTags tags;
    ASSERT_TRUE(reader.parseGame(moves, tags));
    EXPECT_EQ(tags["White"], "A \"B\" \\ C");
    EXPECT_EQ(tags["Result"], "*");  // the last one counts, for the marker too
}

TEST(PgnGames, AFailedGameLeavesTheRestForTheNextCall) {
    const std::string path = writeFile("rest", Tags + "1. e4! *\n\n" + Tags + "1. d4 *\n");
    PgnReader reader(path);
    std::vector<Move> moves;
    PgnTags tags;
    CaptureStderr();
    EXPECT_FALSE(reader.parseGame(moves, tags));
    // The marker of the broken game ends a game of its own, one without tags.
    EXPECT_FALSE(reader.parseGame(moves, tags));
    const std::string errors = GetCapturedStderr();
    EXPECT_EQ(errors, message(path, "line 4 char 7: illegal move !") +
                          message(path,
                                  "line 5 char 0: 'White' missing (in game above current "
                                  "line)"));
    EXPECT_TRUE(reader.parseGame(moves, tags));
    EXPECT_EQ(moves, line({"d4"}));
    EXPECT_FALSE(reader.parseGame(moves, tags));
    EXPECT_FALSE(reader.ok);  // an error stays on record
}

TEST(PgnGames, EveryEntryOfAnEcoFileLacksThePlayers) {
    // Openings written by another program: tags for the opening only, no players.
    const std::string path = dataFile("eco_excerpt.pgn");
    PgnReader reader(path);
    ASSERT_TRUE(reader.is_open());
    std::vector<Move> moves;
    PgnTags tags;
    CaptureStderr();
    int games = 0;
    while (reader.good() && games < 100) {
        EXPECT_FALSE(reader.parseGame(moves, tags));
        ++games;
    }
    const std::string errors = GetCapturedStderr();
    // One message per entry, each on the line after the entry's marker.
    const std::string head = "info string PGN-Parser: file " + path + " line ";
    const std::string tail = " char 0: 'White' missing (in game above current line)";
    std::vector<int> lines;
    for (size_t at = 0, end; (end = errors.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::string text = errors.substr(at, end - at);
        ASSERT_EQ(text.compare(0, head.size(), head), 0) << text;
        ASSERT_GT(text.size(), head.size() + tail.size()) << text;
        ASSERT_EQ(text.substr(text.size() - tail.size()), tail) << text;
        lines.push_back(std::stoi(text.substr(head.size())));
    }
    EXPECT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines.front(), 18);
    EXPECT_EQ(games, 12);  // the last call finds the end of the file
}

TEST(PgnGames, ReadGameResultsEloAndFen) {
    const std::string path = writeFile(
        "read",
        "[White \"A\"]\n[Black \"B\"]\n[Result \"1-0\"]\n[WhiteElo \"-2\"]\n1. e4 1-0\n"
        "[White \"A\"]\n[Black \"B\"]\n[Result \"0-1\"]\n[WhiteElo \"2500\"]\n[BlackElo \"-1\"]\n"
        "1. e4 0-1\n"
        "[White \"A\"]\n[Black \"B\"]\n[Result \"1/2-1/2\"]\n[BlackElo \"?\"]\n"
        "[FEN \"4k3/8/8/8/8/8/8/4K3 b - - 0 1\"]\n1... Kd7 1/2-1/2\n" +
            Tags + "*\n");
    PgnReader reader(path);
    std::vector<Move> moves;
    int result = -5, whiteElo = -5, blackElo = -5;
    std::string fen = "x";
    // The game with an Elo below -1 is passed over.
    ASSERT_TRUE(reader.readGame(moves, nullptr, &result, &fen, &whiteElo, &blackElo));
    EXPECT_EQ(result, ResultBlackWins);
    EXPECT_EQ(whiteElo, 2500);
    EXPECT_EQ(blackElo, -1);
    EXPECT_EQ(fen, "");
    ASSERT_TRUE(reader.readGame(moves, nullptr, &result, &fen, &whiteElo, &blackElo));
    EXPECT_EQ(result, ResultDraw);
    EXPECT_EQ(whiteElo, 0);
    EXPECT_EQ(blackElo, 0);
    EXPECT_EQ(fen, "4k3/8/8/8/8/8/8/4K3 b - - 0 1");
    EXPECT_EQ(moves, line({"Kd7"}, fen.c_str()));
    PgnTags tags;
    ASSERT_TRUE(reader.readGame(moves, &tags, &result));
    EXPECT_EQ(result, ResultOther);
    EXPECT_EQ(tags.size(), 3u);
    result = -5;
    EXPECT_FALSE(reader.readGame(moves, nullptr, &result));
    EXPECT_EQ(result, ResultOther);
    EXPECT_TRUE(reader.ok);
}

TEST(PgnFollow, OneMoveGame) {
    const std::string path = writeFile("one", Tags + "1. e4 *\n");
    const uint64_t start = keyAfter({});
    Move move = NoMove;
    {
        PgnReader reader(path);
        ASSERT_TRUE(reader.nextFollowedMove(start, move));
        EXPECT_EQ(move, line({"e4"})[0]);
        EXPECT_EQ(reader.followIndex, 2);
        // The game is over and no other follows.
        EXPECT_FALSE(reader.nextFollowedMove(keyAfter({"e4", "e5"}), move));
        EXPECT_TRUE(reader.followExhausted);
    }
    {
        // With one entry the engine can't have Black's side: the key must be the first.
        PgnReader reader(path);
        EXPECT_FALSE(reader.nextFollowedMove(keyAfter({"e4"}), move));
        EXPECT_EQ(reader.followIndex, 0);
        EXPECT_TRUE(reader.followExhausted);
        EXPECT_FALSE(reader.nextFollowedMove(start, move));
    }
}

TEST(PgnFollow, BlackSideThenTheNextGame) {
    const char* fen = "4k3/8/8/8/8/8/4P3/4K3 b - - 0 1";
    const std::string path =
        writeFile("follow", Tags + "1. e4 e5 2. Nf3 Nc6 *\n" + Tags + "*\n" + Tags + "[FEN \"" +
                                fen + "\"]\n1... Kd7 2. e4 Kd6 *\n" + Tags + "1. d4 *\n");
    PgnReader reader(path);
    Move move = NoMove;
    ASSERT_TRUE(reader.nextFollowedMove(keyAfter({"e4"}), move));
    EXPECT_EQ(move, line({"e4", "e5"})[1]);
    ASSERT_TRUE(reader.nextFollowedMove(keyAfter({"e4", "e5", "Nf3"}), move));
    EXPECT_EQ(move, line({"e4", "e5", "Nf3", "Nc6"})[3]);
    // The game without moves is passed; the FEN game starts with the root's key.
    ASSERT_TRUE(reader.nextFollowedMove(keyAfter({}, fen), move));
    EXPECT_EQ(move, line({"Kd7"}, fen)[0]);
    ASSERT_TRUE(reader.nextFollowedMove(keyAfter({"Kd7", "e4"}, fen), move));
    EXPECT_EQ(move, line({"Kd7", "e4", "Kd6"}, fen)[2]);
    // A root the game doesn't reach ends the following for good.
    EXPECT_FALSE(reader.nextFollowedMove(keyAfter({"e4"}), move));
    EXPECT_TRUE(reader.followExhausted);
    EXPECT_FALSE(reader.nextFollowedMove(keyAfter({}), move));
}

TEST(PgnFollow, MovesThatDoNotFitTheLastFenAreLeftOut) {
    // The first move was read against the start position, the others against the FEN that
    // followed it; the game is followed from that FEN.
    const char* fen = "4k3/8/8/8/8/8/4P3/4K3 w - - 0 1";
    PgnReader reader(writeFile("late_fen", Tags + "1. Nf3 [FEN \"" + fen + "\"] 1. e4 Kd7 *\n"));
    Move move = NoMove;
    ASSERT_TRUE(reader.nextFollowedMove(keyAfter({}, fen), move));
    EXPECT_EQ(move, line({"e4"}, fen)[0]);
    ASSERT_EQ(reader.followedMoves.size(), 2u);
    EXPECT_EQ(reader.followedMoves[1].move, line({"e4", "Kd7"}, fen)[1]);
}

TEST(PgnFollow, AMoveOfTheSameSquaresByAnotherManIsLeftOut) {
    // Qd1-d4 was read with a queen on d1; the last FEN has a rook there, whose d1-d4 is legal
    // on the squares but is not the move read. Made as read, it would corrupt the board.
    const char* queen = "4k3/8/8/8/8/8/8/3QK3 w - - 0 1";
    const char* rook = "4k3/8/8/8/8/8/8/3RK3 w - - 0 1";
    PgnReader reader(writeFile("same_squares",
                               Tags + "[FEN \"" + queen + "\"] 1. Qd4 [FEN \"" + rook + "\"] *\n"));
    ASSERT_TRUE(reader.loadNextGame());
    EXPECT_TRUE(reader.followedMoves.empty());
}

TEST(PgnFollow, FileThatDoesNotOpen) {
    const std::string path = ::testing::TempDir() + "pgn_no_such_dir/none.pgn";
    CaptureStderr();
    PgnReader reader(path);
    EXPECT_EQ(GetCapturedStderr(), message(path, "line 1 char 1: Cannot open file"));
    EXPECT_FALSE(reader.ok);
    EXPECT_TRUE(reader.followExhausted);
    Move move = NoMove;
    EXPECT_FALSE(reader.nextFollowedMove(keyAfter({}), move));
    std::vector<Move> moves;
    PgnTags tags;
    EXPECT_FALSE(reader.parseGame(moves, tags));
}

std::string ratedGame(const char* white, const char* black, const char* result) {
    return std::string("[White \"") + white + "\"]\n[Black \"" + black + "\"]\n[Result \"" +
           result + "\"]\n" + result + "\n";
}

TEST(PgnRatings, ResultsMovePlayersApartAroundTheMean) {
    PlayerRatings ratings;
    computeRatings(writeFile("even", ratedGame("A", "B", "1-0") + ratedGame("A", "B", "0-1") +
                                         ratedGame("C", "A", "*")),
                   ratings);
    EXPECT_EQ(ratings, (PlayerRatings{{"A", 2400}, {"B", 2400}}));

    // 3.5 of 4 is the score of a 338-point lead. The file is read up to its first bad game.
    const std::string path =
        writeFile("lopsided", ratedGame("A", "B", "1-0") + ratedGame("B", "A", "0-1") +
                                  ratedGame("A", "B", "1/2-1/2") + ratedGame("B", "A", "0-1") +
                                  "1. e9\n" + ratedGame("B", "A", "1-0"));
    CaptureStderr();
    computeRatings(path, ratings);
    EXPECT_EQ(GetCapturedStderr(), message(path, "line 18 char 0: illegal move e9"));
    ASSERT_EQ(ratings.size(), 2u);
    EXPECT_NEAR(ratings["A"] - ratings["B"], 338, 4);
    EXPECT_NEAR(ratings["A"] + ratings["B"], 4800, 2);

    CaptureStderr();
    computeRatings(::testing::TempDir() + "pgn_no_such_dir/none.pgn", ratings);
    GetCapturedStderr();
    EXPECT_EQ(ratings.size(), 2u);  // a file that doesn't open writes nothing
}

}  // namespace

// Files no program should write, read to their end: the games around the damage are taken,
// the damage costs its message, and nothing hangs or recurses without bound.
TEST(PgnBadInput, DamagedFilesReadToTheirEnd) {
    const std::string game = Tags + "1. e4 e5 *\n";
    std::string binary;
    for (int i = 0; i < 4096; ++i) binary += static_cast<char>((i * 7919) % 256);
    const struct {
        const char* name;
        std::string text;
        int games;          // whole games taken before the end of the file
        const char* error;  // part of the messages; empty for none
    } cases[] = {
        {"binary", binary, 0, "illegal move"},
        {"binary after a game", game + binary, 1, "illegal move"},
        {"cut inside a tag", game + "[White \"ab", 1, "']' expected"},
        {"cut inside a comment", game + Tags + "1. e4 {no end", 1, ""},
        {"cut inside a variation", game + Tags + "1. e4 (1. d4 d5", 1, "unexpected end of file"},
        {"line of 100,000 characters in a comment",
         Tags + "{" + std::string(100000, 'x') + "} 1. e4 e5 *\n" + game, 2, ""},
        {"move of 100,000 characters", Tags + "1. " + std::string(100000, 'e') + " *\n" + game, 1,
         "illegal move eeee"},
        {"a thousand nested variations",
         Tags + "1. e4 " + std::string(1000, '(') + std::string(1000, ')') + " e5 *\n" + game, 2,
         ""},
        {"a thousand variations never closed", Tags + "1. e4 " + std::string(1000, '('), 0,
         "unexpected end of file"},
        {"illegal moves", Tags + "1. e4 e5 2. Ke3 *\n" + game, 1, "illegal move Ke3"},
    };
    for (const auto& c : cases) {
        const std::string path = writeFile("bad", c.text);
        PgnReader reader(path);
        std::vector<Move> moves;
        int games = 0;
        CaptureStderr();
        // Each call takes at least one token, so the file's length bounds the calls.
        for (size_t calls = 0; calls <= c.text.size() + 1; ++calls) {
            if (reader.readGame(moves)) {
                ++games;
            } else if (reader.eof()) {
                break;
            }
        }
        const std::string errors = GetCapturedStderr();
        EXPECT_TRUE(reader.eof()) << c.name;
        EXPECT_EQ(games, c.games) << c.name;
        if (*c.error) {
            EXPECT_NE(errors.find(c.error), std::string::npos) << c.name << ": " << errors;
        } else {
            EXPECT_EQ(errors.find("PGN-Parser"), std::string::npos) << c.name << ": " << errors;
        }
        std::remove(path.c_str());
    }
}
