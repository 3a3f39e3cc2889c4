#include "frontend/material_learner.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/text.h"
#include "book/exact_move.h"
#include "book/pgn_reader.h"
#include "frontend/mat_command.h"
#include "learn/material_signature.h"
#include "learn/neural_net.h"

namespace {

namespace fs = std::filesystem;

const std::string EngineGames = ZELMARK_TEST_DATA "/pgn/engine_games.pgn";

class MaterialFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("zelmark_mat_" +
               std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) +
               std::to_string(::getpid()));
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string path(const char* name) const { return (dir / name).string(); }
    fs::path dir;
};

std::string fileText(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary) << bytes;
}

Position fromFen(const char* fen) {
    Position p;
    constructPosition(p);
    EXPECT_NE(parseFen(p, fen), nullptr) << fen;
    return p;
}

// Coordinate moves played from `fen`, each checked legal.
std::vector<Move> movesFrom(const char* fen, const std::vector<std::string>& texts) {
    Position p = fromFen(fen);
    std::vector<Move> moves;
    for (const std::string& text : texts) {
        Move move = NoMove;
        EXPECT_TRUE(parseMove(p, text.c_str(), move, 1)) << text;
        UndoRecord undo;
        beginUndo(undo, p);
        makeLegal(p, move, undo);
        moves.push_back(move);
    }
    return moves;
}

// Kings stepping to and fro behind blocked pawns: the material never changes, and there is
// neither a capture nor a check to make.
std::vector<std::string> kingShuffle(int plies) {
    const std::vector<std::string> cycle = {"e1f1", "e8f8", "f1e1", "f8e8"};
    std::vector<std::string> texts;
    for (int i = 0; i < plies; ++i) texts.push_back(cycle[static_cast<size_t>(i % 4)]);
    return texts;
}

const char* const PawnsEven = "4k3/8/8/p6p/P6P/8/8/4K3 w - - 0 1";
const char* const PawnUp = "4k3/8/8/p7/P6P/8/8/4K3 w - - 0 1";

std::vector<Move> firstGameOf(const std::string& file, std::string& fen, int& resultCode) {
    PgnReader reader(file);
    std::vector<Move> moves;
    EXPECT_TRUE(reader.readGame(moves, nullptr, &resultCode, &fen));
    return moves;
}

TEST(MaterialKey, StrongerSideFirstWithTheBishopForm) {
    struct Case {
        const char* fen;
        uint32_t stronger, weaker;
        int code, balance;
    };
    const Case cases[] = {
        // A queen outweighs two rooks; the weaker side may be White.
        {"4k3/8/8/8/8/8/8/RR2K3 w - - 0 1 ", 0x2000, 0x0000, 0, 10},
        {"3qk3/8/8/8/8/8/8/RR2K3 w - - 0 1", 0x10000, 0x2000, 0, -1},
        // Each side a bishop, on squares of different colours, one pawn up for Black.
        {"2b1k3/p7/8/8/8/8/8/2B1K3 w - - 0 1", 0x101, 0x100, -1, 1},
        {"3bk3/p7/8/8/8/8/8/2B1K3 w - - 0 1", 0x101, 0x100, 1, 1},
        // The signature, not the balance, says which side is stronger: a knight beats pawns.
        {"4k3/pppp4/8/8/8/8/8/1N2K3 w - - 0 1", 0x10, 0x4, 0, -1},
    };
    for (const Case& c : cases) {
        const Position p = fromFen(c.fen);
        const uint64_t key = materialConfigurationKey(p);
        EXPECT_EQ(strongerSignature(key), c.stronger) << c.fen;
        EXPECT_EQ(weakerSignature(key), c.weaker) << c.fen;
        EXPECT_EQ(bishopCodeOfKey(key), c.code) << c.fen;
        EXPECT_EQ(materialBalanceOfKey(key), c.balance) << c.fen;
    }
    EXPECT_EQ(materialConfigurationKey(fromFen(PawnsEven)), 0u);
}

TEST(MatCommand, SubcommandsFileNamesAndAddOptions) {
    struct Case {
        const char* line;
        MatAction action;
        const char* name;
        int value, minElo;
        bool calcElo;
    };
    const Case cases[] = {
        {"mat learn table.txt", MatAction::Learn, "table.txt", 1000, -1, false},
        {"mat   writemem  dump file.bin", MatAction::WriteMemory, "dump file.bin", 1000, -1, false},
        {"mat readmem d.bin", MatAction::ReadMemory, "d.bin", 1000, -1, false},
        {"mat write t.txt", MatAction::Write, "t.txt", 1000, -1, false},
        {"mat delete", MatAction::Delete, "", 1000, -1, false},
        {"mat add g.pgn", MatAction::Add, "g.pgn", 1000, -1, false},
        {"mat add my games.pgn value 2000 ELO 2200", MatAction::Add, "my games.pgn", 2000, 2200,
         false},
        {"mat add g.pgn ELO 2000 CalcELO", MatAction::Add, "g.pgn", 1000, 2000, true},
        // Without an option in front, the name swallows the word.
        {"mat add g.pgn CalcELO", MatAction::Add, "g.pgn CalcELO", 1000, -1, true},
        {"mat add g.pgn value 5 CalcELOs", MatAction::Add, "g.pgn", 5, -1, false},
        {"mat add value 5", MatAction::Add, "", 5, -1, false},
        {"mat writes x", MatAction::None, "", 1000, -1, false},
        {"mat rnd", MatAction::None, "", 1000, -1, false},
        {"mat", MatAction::None, "", 1000, -1, false},
    };
    for (const Case& c : cases) {
        const MatRequest r = parseMatCommand(c.line);
        EXPECT_EQ(r.action, c.action) << c.line;
        EXPECT_EQ(r.fileName, c.name) << c.line;
        EXPECT_EQ(r.value, c.value) << c.line;
        EXPECT_EQ(r.minElo, c.minElo) << c.line;
        EXPECT_EQ(r.calcElo, c.calcElo) << c.line;
    }
    EXPECT_EQ(parseMatCommand("mat rnd 25").games, 25);
    const std::string longName(3000, 'x');
    const MatRequest cut = parseMatCommand(("mat write " + longName).c_str());
    EXPECT_EQ(cut.fileName.size(), MaxMatFileName);
    EXPECT_EQ(cut.fileNameLength, longName.size());
}

TEST(MaterialLearner, GamesShorterThan33PliesAreNeitherTakenNorRemembered) {
    std::string fen;
    int resultCode = ResultOther;
    const std::vector<Move> game = firstGameOf(EngineGames, fen, resultCode);
    ASSERT_GT(game.size(), 40u);
    MaterialLearner learner;
    const std::vector<Move> short32(game.begin(), game.begin() + 32);
    EXPECT_FALSE(learner.addGame(short32, fen, 0, 0, 1000, 1));
    EXPECT_TRUE(learner.seenGames.empty());
    const std::vector<Move> long33(game.begin(), game.begin() + 33);
    EXPECT_TRUE(learner.addGame(long33, fen, 0, 0, 1000, 1));
    EXPECT_EQ(learner.seenGames.size(), 1u);

    EXPECT_FALSE(learner.addGame(game, "not a position", 0, 0, 1000, 1));
    EXPECT_FALSE(learner.addGame({}, "", 0, 0, 1000, 1));
}

TEST(MaterialLearner, EqualMaterialSamplesNothingAndOneStretchSamplesOnce) {
    MaterialLearner learner;
    EXPECT_TRUE(learner.addGame(movesFrom(PawnsEven, kingShuffle(40)), PawnsEven, 0, 0, 1000, 1));
    EXPECT_TRUE(learner.positions.empty());

    // The identity is of the moves alone: the same moves from another start are the same game.
    EXPECT_TRUE(learner.addGame(movesFrom(PawnUp, kingShuffle(40)), PawnUp, 0, 0, 1000, 1));
    EXPECT_TRUE(learner.positions.empty());

    MaterialLearner other;
    EXPECT_TRUE(other.addGame(movesFrom(PawnUp, kingShuffle(40)), PawnUp, 0, 0, 1000, 1));
    ASSERT_EQ(other.positions.size(), 1u);
    const PositionStats& stats = other.positions.begin()->second;
    EXPECT_EQ(stats.materialKey, materialConfigurationKey(fromFen(PawnUp)));
    EXPECT_EQ(stats.weightSum, 1000);
    EXPECT_EQ(stats.scoreSum, 1000);  // White, the stronger side, won
    // The material stood for two plies before the sample: the one after the third move.
    EXPECT_DOUBLE_EQ(stats.plySum, (40 - 2) * 1000.0);
}

TEST(MaterialLearner, TheSameGameCountsOnceAndOnlyItsFirst300PliesIdentifyIt) {
    MaterialLearner learner;
    const std::vector<Move> longGame = movesFrom(PawnUp, kingShuffle(320));
    const std::vector<Move> cut(longGame.begin(), longGame.begin() + 300);
    EXPECT_TRUE(learner.addGame(cut, PawnUp, 0, 0, 1000, 1));
    EXPECT_TRUE(learner.addGame(longGame, PawnUp, 0, 0, 1000, -1));
    EXPECT_EQ(learner.seenGames.size(), 1u);
    ASSERT_EQ(learner.positions.size(), 1u);
    EXPECT_EQ(learner.positions.begin()->second.weightSum, 1000);

    // The same again through a file: the file's games are taken once however often it comes.
    MaterialLearner fromFile;
    ASSERT_TRUE(fromFile.addGames(EngineGames, 1000, false, -1));
    const auto seen = fromFile.seenGames.size();
    const auto positions = fromFile.positions;
    EXPECT_GT(seen, 15u);
    EXPECT_GT(positions.size(), 20u);
    ASSERT_TRUE(fromFile.addGames(EngineGames, 1000, false, -1));
    EXPECT_EQ(fromFile.seenGames.size(), seen);
    EXPECT_EQ(fromFile.positions.size(), positions.size());
    EXPECT_FALSE(fromFile.addGames("/nonexistent/games.pgn", 1000, false, -1));
    // No player of the file has a rating tag: a least rating drops every game.
    MaterialLearner rated;
    ASSERT_TRUE(rated.addGames(EngineGames, 1000, false, 1));
    EXPECT_TRUE(rated.seenGames.empty());
}

TEST_F(MaterialFiles, TableDiscountsRepeatedPositionsAndSkipsEmptyWeights) {
    // Two games of weight 2000 through one position: 4000, discounted as four games.
    MaterialLearner learner;
    std::vector<std::string> a = kingShuffle(40), b = kingShuffle(40);
    b[20] = "e1d1";
    b[22] = "d1e1";
    EXPECT_TRUE(learner.addGame(movesFrom(PawnUp, a), PawnUp, 0, 0, 2000, 1));
    EXPECT_TRUE(learner.addGame(movesFrom(PawnUp, b), PawnUp, 0, 0, 2000, 0));
    ASSERT_EQ(learner.positions.size(), 1u);
    EXPECT_EQ(learner.positions.begin()->second.weightSum, 4000);
    EXPECT_EQ(learner.positions.begin()->second.scoreSum, 3000);
    // A configuration that has no weight is not written.
    learner.totals[0x1000000ULL << 4].scoreSum = 0.0;
    ASSERT_TRUE(learner.writeTable(path("table.txt")));

    const double d = (std::pow(0.8, 4.0) - 1.0) * -5.000000000000001 / 4.0;
    char expected[200];
    std::snprintf(expected, sizeof expected, "%05x %05x %2d %3d %8.6f %10ld %10.3f %6.1f\n", 0x2,
                  0x1, 0, 1, 0.75, static_cast<long>(4000 * d),
                  learner.positions.begin()->second.evalSum / 4000.0, 38.0);
    EXPECT_EQ(fileText(path("table.txt")), expected);

    MaterialLearner empty;
    ASSERT_TRUE(empty.writeTable(path("empty.txt")));
    EXPECT_TRUE(fs::exists(path("empty.txt")));
    EXPECT_EQ(fileText(path("empty.txt")), "");
    EXPECT_FALSE(empty.writeTable((dir / "missing" / "t.txt").string()));
}

// A learner with a few games and positions, dumped.
std::string sampleDump(MaterialLearner& learner, const std::string& name) {
    EXPECT_TRUE(learner.addGames(EngineGames, 1000, false, -1));
    EXPECT_TRUE(learner.writeMemory(name));
    return fileText(name);
}

void setWord(std::string& bytes, size_t at, uint32_t word) {
    std::memcpy(&bytes[at], &word, sizeof word);
}

TEST_F(MaterialFiles, DumpRoundTripAndHostileDumps) {
    MaterialLearner source;
    const std::string dump = sampleDump(source, path("dump.bin"));
    const size_t keysEnd = MaterialGameKeyCount * 4;
    const size_t gamesEnd = keysEnd + 4 + 8 * source.seenGames.size();
    ASSERT_EQ(dump.size(), gamesEnd + 4 + 40 * source.positions.size());

    MaterialLearner copy;
    ASSERT_TRUE(copy.readMemory(path("dump.bin")));
    EXPECT_EQ(copy.gameKeys, source.gameKeys);
    EXPECT_EQ(copy.seenGames, source.seenGames);
    ASSERT_EQ(copy.positions.size(), source.positions.size());
    EXPECT_EQ(std::memcmp(&copy.positions.begin()->second, &source.positions.begin()->second,
                          sizeof(PositionStats)),
              0);
    // What the file holds replaces entries of its keys; others stay.
    copy.positions[12345].weightSum = 7;
    ASSERT_TRUE(copy.readMemory(path("dump.bin")));
    EXPECT_EQ(copy.positions.size(), source.positions.size() + 1);

    // The bounds of what may come in; where the file is whole up to a point, the least too.
    struct Case {
        const char* what;
        std::string bytes;
        size_t leastGames, games, positions;
    };
    std::string countsTooLarge = dump;
    setWord(countsTooLarge, gamesEnd, 0xffffffffu);
    std::string gamesCountTooLarge = dump;
    setWord(gamesCountTooLarge, keysEnd, 0xffffffffu);
    std::string gamesCountTooSmall = dump;
    setWord(gamesCountTooSmall, keysEnd, 2);
    std::string notANumber = dump;
    const double nan = std::nan("");
    std::memcpy(&notANumber[gamesEnd + 4 + 8 + 8], &nan, sizeof nan);
    const size_t n = source.positions.size();
    const size_t games = source.seenGames.size();
    const Case cases[] = {
        {"count beyond the file", countsTooLarge, games, games, n},
        {"record cut short", dump.substr(0, dump.size() - 5), games, games, n - 1},
        {"no position count", dump.substr(0, gamesEnd + 2), games, games, 0},
        // The games swallow the position records, whose bytes then read as games.
        {"game count beyond the file", gamesCountTooLarge, games, (dump.size() - keysEnd - 4) / 8,
         0},
        // Game bytes read as a count and as records, as far as the file goes.
        {"game count too small", gamesCountTooSmall, 2, 2, (dump.size() - keysEnd) / 40},
        {"evaluation not a number", notANumber, games, games, n - 1},
    };
    for (const Case& c : cases) {
        writeBytes(path("hostile.bin"), c.bytes);
        MaterialLearner learner;
        ASSERT_TRUE(learner.readMemory(path("hostile.bin"))) << c.what;
        EXPECT_EQ(learner.gameKeys, source.gameKeys) << c.what;
        EXPECT_GE(learner.seenGames.size(), c.leastGames) << c.what;
        EXPECT_LE(learner.seenGames.size(), c.games) << c.what;
        EXPECT_LE(learner.positions.size(), c.positions) << c.what;
        // Whatever came in, the table is written and every number in it is finite.
        ASSERT_TRUE(learner.writeTable(path("table.txt"))) << c.what;
        const std::string table = fileText(path("table.txt"));
        EXPECT_EQ(table.find("nan"), std::string::npos) << c.what;
        EXPECT_EQ(table.find("inf"), std::string::npos) << c.what;
    }

    // Too short for the game keys: the learner stays as it was.
    writeBytes(path("short.bin"), dump.substr(0, 1000));
    MaterialLearner kept;
    const auto keys = kept.gameKeys;
    EXPECT_TRUE(kept.readMemory(path("short.bin")));
    EXPECT_EQ(kept.gameKeys, keys);
    EXPECT_FALSE(kept.readMemory(path("none.bin")));
    EXPECT_FALSE(kept.writeMemory((dir / "missing" / "d.bin").string()));
}

// Whether the game ended as the random player says: mate or stalemate, the fifty-move rule,
// a third occurrence, or material that cannot mate.
bool gameIsOver(Game& game) {
    int result = 0;
    if (hasNoLegalMove(game.position, &result)) return true;
    const int draw = gameDrawState(game);
    return game.historyCount > 100 || (draw != 0 && draw != 1);
}

TEST(MaterialLearner, RandomGamesAreLegalToTheEndAndEndByTheRules) {
    RandomSource::instance().seed(4242);
    MaterialLearner learner;
    int decided = 0;
    for (unsigned number = 1; number <= 960; number += 37) {
        Game start;
        int whiteScore = -1;
        const std::vector<Move> moves = learner.playRandomGame(number, start, whiteScore);
        ASSERT_FALSE(moves.empty());
        Game game = start;
        for (size_t i = 0; i < moves.size(); ++i) {
            ASSERT_FALSE(gameIsOver(game)) << "start " << number << " ply " << i;
            Position probe = game.position;
            UndoRecord undo;
            ASSERT_TRUE(makeExactMove(probe, moves[i], undo)) << "start " << number << " ply " << i;
            gameMakeMove(game, moves[i]);
        }
        ASSERT_TRUE(gameIsOver(game)) << "start " << number;
        int result = 0;
        if (hasNoLegalMove(game.position, &result) && result != 0) {
            EXPECT_EQ(whiteScore, result > 0 ? 1000 : 0);
            ++decided;
        } else {
            EXPECT_EQ(whiteScore, 500);
        }
        learner.addRandomGame(start, moves, whiteScore);
    }
    // The weights favour mates and good captures: some games end in a mate.
    EXPECT_GT(decided, 0);
    for (const auto& [key, totals] : learner.totals) {
        EXPECT_NE(key, 0u);
        EXPECT_EQ(std::fmod(totals.weightSum, 1000.0), 0.0);
        EXPECT_LE(totals.scoreSum, totals.weightSum);
    }
}

}  // namespace
