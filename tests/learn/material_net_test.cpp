#include "learn/material_net.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "board/position.h"
#include "board/text.h"
#include "eval/evaluator.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> tokens(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// A directory of its own for each test.
class LearnFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("zelmark_learn_" +
               std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) +
               std::to_string(::getpid()));
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string path(const char* name) const { return (dir / name).string(); }
    void writeFile(const char* name, const std::string& text) const {
        std::ofstream(path(name)) << text;
    }
    fs::path dir;
};

Position fromFen(const std::string& fen) {
    Position p;
    constructPosition(p);
    EXPECT_NE(parseFen(p, fen.c_str()), nullptr) << fen;
    return p;
}

// Random pieces on a side's first rank and pawns on its second; `turned` is the same material
// with the colours exchanged (the board turned upside down). Kings on the e-file stay out of
// check.
void randomMaterial(std::mt19937& random, Position& p, Position& turned) {
    std::string ranks[2][2];  // for each side its first and second rank, in lower case
    for (auto& side : ranks) {
        for (int k = 0; k < 4; ++k)
            side[0].append(std::uniform_int_distribution<int>(0, k ? 2 : 1)(random), "qrbn"[k]);
        side[0].resize(7, '1');
        side[1] = std::string(std::uniform_int_distribution<int>(0, 6)(random), 'p');
        side[1].resize(8, '1');
        for (std::string& rank : side) std::shuffle(rank.begin(), rank.end(), random);
        side[0].insert(4, "k");
    }
    auto fen = [&](int top, int bottom) {
        std::string below = ranks[bottom][1] + "/" + ranks[bottom][0];
        for (char& c : below) c = static_cast<char>(std::toupper(c));
        return ranks[top][0] + "/" + ranks[top][1] + "/8/8/8/8/" + below + " w - -";
    };
    p = fromFen(fen(1, 0));
    turned = fromFen(fen(0, 1));
}

// A queen and a pawn against two rooks.
double probe(MaterialNet& net) {
    const int32_t first[5] = {1, 0, 0, 0, 1}, second[5] = {0, 2, 0, 0, 0};
    return net.materialValue(first, second, 0);
}

TEST(MaterialNet, EmbeddedNetRoundTripAndValues) {
    MaterialNet net;
    std::ostringstream out;
    ASSERT_TRUE(net.write(out));
    EXPECT_EQ(tokens(out.str()), tokens(MaterialNetText));

    // It knows a queen from a rook, and which side has it.
    const int32_t queen[5] = {1, 0, 0, 0, 4}, rook[5] = {0, 1, 0, 0, 4};
    EXPECT_GT(net.materialValue(queen, rook, 0), 0.7);
    EXPECT_LT(net.materialValue(rook, queen, 0), 0.3);

    // 0.9 is 381.697 Elo, at 110 Elo to the pawn 3469.97, cut toward zero.
    EXPECT_EQ(expectationToScore(0.9), 3469);
    EXPECT_EQ(expectationToScore(0.1), -3469);
    EXPECT_EQ(expectationToScore(1.5), expectationToScore(0.999));
}

TEST(MaterialNet, BlendIntoTheHandMadeValue) {
    auto handMade = std::make_unique<Evaluator>();
    handMade->setNeuroMaterial(0);
    auto blended = std::make_unique<Evaluator>();
    MaterialNet net;

    std::mt19937 random(2024);
    int differentFromBase = 0;
    for (int trial = 0; trial < 200; ++trial) {
        Position p, turned;
        randomMaterial(random, p, turned);
        const int base = handMade->materialValue(p, false);
        const int value = blended->materialValue(p, false);
        EXPECT_EQ(blended->materialValue(turned, false), -value);
        int32_t white[5], black[5];
        for (int k = 0; k < 5; ++k) {
            white[k] = p.sides[0].pieceCount[Queen - k];
            black[k] = p.sides[1].pieceCount[Queen - k];
        }
        if (std::equal(white, white + 5, black)) {
            EXPECT_EQ(value, 0);
            continue;
        }
        const int code = bishopColourCode(p);
        const double p1 = std::clamp(net.materialValue(white, black, code), 0.02, 0.98);
        const double p2 = std::clamp(net.materialValue(black, white, code), 0.02, 0.98);
        const double expected = std::clamp((1 - p2 + p1) * 0.5, 0.001, 0.999);
        const int netScore =
            static_cast<int>(std::log10(1 / expected - 1) * -400 * 1000 * 0.00909090909090909);
        const double width = 8.0;
        const double x = (netScore + base) * 0.0005;
        const double f = 40 * width * width * 0.01 / (x * x + width * width);
        EXPECT_EQ(value, static_cast<int>((1 - f) * base + f * netScore));
        differentFromBase += value != base;
    }
    EXPECT_GT(differentFromBase, 100);

    // A width of a hundredth of a pawn fades the net out for anything but a near-balance.
    const Position queenUp = fromFen("4k3/pppp4/8/8/8/8/PPPP4/3QK3 w - -");
    blended->setNeuroWidth(1);
    EXPECT_NEAR(blended->materialValue(queenUp, false), handMade->materialValue(queenUp, false), 1);
}

TEST_F(LearnFiles, MaterialFileChoices) {
    auto e = std::make_unique<Evaluator>();
    const double embedded = probe(e->materialNet);
    const Position p = fromFen("3rk3/4p3/8/8/8/8/3QP3/4K3 w - -");
    auto cached = [&e] {
        return std::any_of(std::begin(e->materialCache), std::end(e->materialCache),
                           [](const MaterialEntry& m) { return m.recogniser != nullptr; });
    };
    std::ostringstream text;
    ASSERT_TRUE(e->materialNet.write(text));
    const std::string full = text.str();

    // "(internal)" differs from the empty name stored at the start: read again, caches cleared.
    e->materialValue(p, false);
    EXPECT_TRUE(e->setMaterialFile("(internal)"));
    EXPECT_FALSE(cached());

    // A missing file: false, the old net stays, the name stays so that it is not tried again.
    const std::string missing = path("missing.txt");
    EXPECT_FALSE(e->setMaterialFile(missing.c_str()));
    EXPECT_EQ(e->materialFileName, missing);
    EXPECT_EQ(probe(e->materialNet), embedded);
    e->materialValue(p, false);
    EXPECT_TRUE(e->setMaterialFile(missing.c_str()));
    EXPECT_TRUE(cached());

    // Text that is no net, or a net cut inside its integers: the old net is still in use.
    writeFile("garbage.txt", "this is not a net\n");
    EXPECT_FALSE(e->setMaterialFile(path("garbage.txt").c_str()));
    writeFile("short.txt", full.substr(0, 40));
    EXPECT_FALSE(e->setMaterialFile(path("short.txt").c_str()));
    EXPECT_EQ(probe(e->materialNet), embedded);

    // Another net is taken up.
    std::string other = full;
    other.replace(other.rfind("0.5603518481"), 12, "0.3603518481");
    writeFile("other.txt", other);
    EXPECT_TRUE(e->setMaterialFile(path("other.txt").c_str()));
    EXPECT_NEAR(probe(e->materialNet), embedded - 0.2, 1e-12);

    // Cut off in the weights: rebuilt as far as it was read, and used like that.
    writeFile("truncated.txt", full.substr(0, full.rfind("-6.253055336")));
    EXPECT_FALSE(e->setMaterialFile(path("truncated.txt").c_str()));
    EXPECT_EQ(e->materialNet.hidden[0][4].links[0].weight, 0.0);
    EXPECT_EQ(e->materialNet.inputs[12].links[5].weight, 0.5603518481);
    EXPECT_TRUE(std::isfinite(probe(e->materialNet)));
    EXPECT_NE(probe(e->materialNet), embedded);
    e->evaluate(p);

    EXPECT_TRUE(e->setMaterialFile(nullptr));
    EXPECT_EQ(probe(e->materialNet), embedded);
}

// Samples that value each material 0.1 above the stored net.
MaterialSampleSet shiftedSamples(size_t count) {
    MaterialNet net;
    std::mt19937 random(5);
    MaterialSampleSet set;
    while (set.samples.size() < count) {
        MaterialSample s{};
        for (int k = 0; k < 10; ++k)
            s.counts[k] = std::uniform_int_distribution<int>(0, k % 5 == 4 ? 8 : 2)(random);
        s.target = std::clamp(net.materialValue(s.counts, s.counts + 5, 0) + 0.1, 0.05, 0.95);
        s.weight = std::uniform_real_distribution<double>(0.1, 1.0)(random);
        set.samples.push_back(s);
        set.totalWeight += s.weight;
    }
    return set;
}

TEST_F(LearnFiles, TrainingLowersTheErrorAndSavesTheNet) {
    RandomSource::instance().seed(17);
    MaterialTrainer trainer(shiftedSamples(12), path("log.txt").c_str(), path("net.txt").c_str());
    const double first = trainer.runEpoch();
    double last = first;
    for (int epoch = 2; epoch <= 300; ++epoch) last = trainer.runEpoch();
    EXPECT_LT(last, first * 0.5);

    // Epoch 100 is the first that may save; each hundredth epoch after a save is logged.
    std::ifstream log(path("log.txt"));
    std::string line;
    ASSERT_TRUE(std::getline(log, line));
    EXPECT_EQ(line.substr(0, 16), "*   100 0.00001 ");
    MaterialNet saved;
    EXPECT_TRUE(readMaterialNet(saved, path("net.txt").c_str()));
    ASSERT_EQ(trainer.lastSaved, 300);
    EXPECT_NEAR(probe(saved), probe(trainer.net), 1e-6);

    // Without samples the error is not a number and nothing is ever saved.
    MaterialTrainer empty(MaterialSampleSet{}, path("log2.txt").c_str(), path("net2.txt").c_str());
    for (int epoch = 0; epoch < 150; ++epoch) EXPECT_TRUE(std::isnan(empty.runEpoch()));
    EXPECT_FALSE(fs::exists(path("net2.txt")));
}

TEST(MaterialSamples, JunkLinesAreDroppedAndReadingEndsAtTheFirstLineWithoutEightFields) {
    // A queen against a rook: kept. Then lines that must never reach the training.
    std::istringstream table(
        "10000 01000  0   4 0.700000     350000     10.000   80.0\n"
        "10000 01000  0   4 nan     400000     10.000   80.0\n"
        "10000 01000  0   4 0.700000     inf     10.000   80.0\n"
        "10000 01000  0   4 0.700000     400000     -inf   80.0\n"
        "10000 01000  0   4 0.700000     400000     10.000   nan\n"
        "10000 01000  0   4 0.700000     349999     10.000   80.0\n"
        "10000 01000  0   4 0.995000     400000     10.000   80.0\n"
        "10000 01000  0   4 0.700000     400000   -300.000   80.0\n"
        "fffff fffff 99 -7 0.500000 1e300 0 0\n"
        "10000 00200  1   3 0.600000     500000      0.000   70.0\n"
        "junk\n"
        "01000 00010  0   2 0.600000     500000      0.000   70.0\n");
    MaterialSampleSet set;
    readMaterialSamples(table, set);
    ASSERT_EQ(set.samples.size(), 3u);
    // Exactly the least number of games: kept, with a small weight.
    EXPECT_GT(set.samples[0].weight, 0.0);
    EXPECT_LT(set.samples[0].weight, 0.01);
    for (const MaterialSample& sample : set.samples) {
        EXPECT_TRUE(std::isfinite(sample.target));
        EXPECT_TRUE(std::isfinite(sample.weight));
    }
    EXPECT_TRUE(std::isfinite(set.totalWeight));
    EXPECT_EQ(set.samples[2].counts[0], 1);
    EXPECT_EQ(set.samples[2].counts[7], 2);
    EXPECT_EQ(set.samples[2].code, 1);
}

}  // namespace
