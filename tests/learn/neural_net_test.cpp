#include "learn/neural_net.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Two inputs, two hidden nodes, one output, and a link from input 1 that skips to the output.
const char* const TinyNet =
    "31 3 0 2 1 2 2 1 0 0 1 0 0 0 1 1 0 1 1 0 0 1 2 0 1 0 2 0 1 1 2 \n0 \n"
    "0.2 -0.3 \n"    // input 0 to hidden 0 and 1
    "0.4 0.25 \n"    // input 1 to hidden 0 and to the output
    "0.1 0 0.05 \n"  // bias to hidden 0, hidden 1, output
    "1.5 \n-2 \n";   // hidden 0 and 1 to the output

bool readText(NeuralNet& net, const std::string& text) {
    std::istringstream in(text);
    return net.read(in);
}

std::string writeText(const NeuralNet& net) {
    std::ostringstream out;
    EXPECT_TRUE(net.write(out));
    return out.str();
}

double evaluate(NeuralNet& net, const std::vector<double>& x) {
    net.clearActivations();
    for (size_t i = 0; i < x.size(); ++i) net.setInput(i, x[i]);
    net.forward();
    return net.output();
}

// Three inputs, hidden layers of three and two nodes, one output; dense between neighbouring
// layers, plus two links that skip a layer. 19 links, so 25 weights.
template <class Draw>
std::string deepNetText(Draw weight) {
    std::vector<unsigned> ints = {4, 0, 3, 1, 3, 2, 2, 3, 1};
    auto link = [&ints](unsigned a, unsigned b, unsigned c, unsigned d) {
        ints.insert(ints.end(), {a, b, c, d});
    };
    for (unsigned h = 0; h < 9; ++h) link(0, h / 3, 1, h % 3);
    for (unsigned g = 0; g < 6; ++g) link(1, g / 2, 2, g % 2);
    for (unsigned g = 0; g < 2; ++g) link(2, g, 3, 0);
    link(0, 2, 3, 0);
    link(1, 1, 3, 0);
    std::ostringstream text;
    text << std::setprecision(17) << ints.size();
    for (unsigned v : ints) text << ' ' << v;
    for (int k = 0; k < 25; ++k) text << ' ' << weight();
    return text.str();
}

TEST(NeuralNet, TextFormStructureChecks) {
    NeuralNet net;
    EXPECT_FALSE(readText(net, "0"));
    EXPECT_FALSE(readText(net, "7 2 0 2 1 2 2 1"));  // fewer than three layers
    EXPECT_FALSE(readText(net, "5 3 0 2 1 2"));      // shorter than its layer list
    // A connection list that leaves one, two or three integers over.
    const std::string head = "3 0 2 1 2 2 1 0 0 1 0 0 0 1 1 0 1 1 0 0 1 2 0 1 0 2 0 1 1 2 0";
    const std::string weights = " 0.2 -0.3 0.4 0.25 0.1 0 0.05 1.5 -2";
    for (std::string extra : {" 0", " 0 0", " 0 0 0"})
        EXPECT_FALSE(
            readText(net, std::to_string(31 + extra.size() / 2) + " " + head + extra + weights));
    // A weight for each connection, hidden node and output node: nine. Eight fail.
    EXPECT_FALSE(readText(net, "31 " + head + weights.substr(0, weights.rfind(' '))));
    EXPECT_TRUE(readText(net, "31 " + head + weights));
    EXPECT_EQ(net.weightCount, 9u);
    // Nodes and layers that don't exist are refused rather than linked into nowhere.
    EXPECT_FALSE(readText(net, "11 3 0 1 1 1 2 1 0 5 1 0 1 1"));
    EXPECT_FALSE(readText(net, "11 3 0 1 1 1 2 1 0 0 2 3 1 1"));
    EXPECT_FALSE(readText(net, "11 3 0 1 7 1 2 1 0 0 1 0 1 1"));
}

TEST(NeuralNet, ForwardPassAndLayoutOfATinyNet) {
    NeuralNet net;
    ASSERT_TRUE(readText(net, TinyNet));
    const double h0 = std::tanh(0.5 * 0.2 + -1.0 * 0.4 + 0.1);
    const double h1 = std::tanh(0.5 * -0.3 + 0.0);
    const double expected = 1.5 * h0 - 2.0 * h1 + 0.25 * -1.0 + 0.05;
    EXPECT_NEAR(evaluate(net, {0.5, -1.0}), expected, 1e-15);
    // The output is linear, and each evaluation starts from clean sums.
    EXPECT_NEAR(evaluate(net, {0.0, 0.0}), 0.05 + 1.5 * std::tanh(0.1), 1e-15);
    EXPECT_NEAR(evaluate(net, {0.5, -1.0}), expected, 1e-15);
    EXPECT_EQ(writeText(net), TinyNet);
}

TEST(NeuralNet, RoundTripKeepsTenSignificantDigits) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
    std::uniform_int_distribution<int> exponent(-12, 0);
    std::vector<double> drawn;
    const std::string text = deepNetText([&] {
        drawn.push_back(drawn.empty() ? -19.9999999
                                      : mantissa(random) * std::pow(10.0, exponent(random)));
        return drawn.back();
    });
    NeuralNet net;
    ASSERT_TRUE(readText(net, text));

    // Whatever the stream was set to, ten digits are written and the setting comes back.
    std::ostringstream out;
    out << std::fixed << std::setprecision(2);
    ASSERT_TRUE(net.write(out));
    EXPECT_EQ(out.precision(), 2);
    EXPECT_TRUE(out.flags() & std::ios_base::fixed);

    NeuralNet copy;
    ASSERT_TRUE(readText(copy, out.str()));
    EXPECT_EQ(copy.topology, net.topology);
    std::istringstream in(out.str());
    std::string token;
    for (size_t i = 0; i <= net.topology.size(); ++i) in >> token;
    for (double w : drawn) {
        double read;
        ASSERT_TRUE(in >> read);
        EXPECT_NEAR(read, w, std::fabs(w) * 5e-10);
    }
    EXPECT_EQ(writeText(copy), writeText(net));
}

// With E = 1/2 (t - o)^2 summed over the patterns, and no flat spot, the gradient that
// training accumulates is -dE/dw.
TEST(NeuralNet, BackPropagationMatchesFiniteDifferences) {
    const std::vector<std::vector<double>> patterns = {{0.3, -0.7, 1.1}, {-0.4, 0.9, 0.2}};
    const std::vector<double> targets = {0.8, -0.5};
    std::mt19937 random(11);
    std::uniform_real_distribution<double> weight(-1.2, 1.2);
    NeuralNet net;
    ASSERT_TRUE(readText(net, deepNetText([&] { return weight(random); })));
    net.parameters.flatSpot = 0.0;
    for (size_t k = 0; k < patterns.size(); ++k) {
        const double d = targets[k] - evaluate(net, patterns[k]);
        net.resetDeltas();
        net.outputs[0].delta = d;
        net.backpropagateOutput(d);
        net.backpropagateHidden();
    }
    auto error = [&] {
        double e = 0.0;
        for (size_t k = 0; k < patterns.size(); ++k)
            e += 0.5 * std::pow(targets[k] - evaluate(net, patterns[k]), 2);
        return e;
    };
    std::vector<SummingNode*> nodes = {&net.outputs[0]};
    for (auto& layer : net.hidden)
        for (HiddenNode& node : layer) nodes.push_back(&node);
    for (SummingNode* node : nodes) {
        for (WeightRecord& r : node->incoming) {
            const double saved = r.link->weight;
            r.link->weight = saved + 1e-6;
            const double up = error();
            r.link->weight = saved - 1e-6;
            const double down = error();
            r.link->weight = saved;
            EXPECT_NEAR(r.gradient, -(up - down) / 2e-6, 1e-8);
        }
    }
}

TEST(NeuralNet, WeightUpdateLimitsAndDirection) {
    RandomSource::instance().seed(99);
    NeuralNet net;
    ASSERT_TRUE(readText(net, TinyNet));
    WeightRecord& limited = net.outputs[0].incoming[0];
    WeightRecord& idle = net.outputs[0].incoming[1];

    // Driven past the limit: held there with the smallest step, keeping its direction, until a
    // gradient the other way takes it off.
    limited.link->weight = 19.9;
    limited.step = 0.4;
    limited.gradient = 5.0;
    net.updateWeights();
    EXPECT_EQ(limited.link->weight, 19.9999999);
    EXPECT_EQ(limited.step, 1e-11);
    EXPECT_EQ(limited.sign, 1);
    limited.gradient = 1.0;
    net.updateWeights();
    EXPECT_EQ(limited.link->weight, 19.9999999);
    limited.gradient = -1.0;
    net.updateWeights();
    EXPECT_LT(limited.link->weight, 19.9999999);

    // A gradient of exactly 0 turns the direction at every update and halves the step, down
    // to the smallest one; each step is still taken.
    idle.step = 1e-7;
    for (int k = 0; k < 40; ++k) {
        const int sign = idle.sign;
        const double step = idle.step;
        const double weight = idle.link->weight;
        net.updateWeights();
        EXPECT_EQ(idle.sign, -sign);
        if (step * 0.45 > 1e-11) {
            EXPECT_GE(idle.step, step * 0.45);
            EXPECT_LE(idle.step, step * 0.55);
        }
        EXPECT_DOUBLE_EQ(idle.link->weight, weight + idle.sign * idle.step);
    }
    EXPECT_EQ(idle.step, 1e-11);
}

TEST(RandomSource, DeterministicAfterSeedingAndInRange) {
    RandomSource a(0x5eed), b(0x5eed), other(0x5eee);
    std::vector<uint32_t> first;
    bool differs = false;
    for (int i = 0; i < 1000; ++i) {
        first.push_back(a.next());
        ASSERT_EQ(first.back(), b.next());
        differs |= first.back() != other.next();
    }
    EXPECT_TRUE(differs);
    a.seed(0x5eed);
    for (uint32_t x : first) ASSERT_EQ(a.next(), x);
    RandomSource zero(0), one(1);  // a time of zero seeds 1
    for (int i = 0; i < 100; ++i) ASSERT_EQ(zero.next(), one.next());

    for (int i = 0; i < 1000; ++i) {
        const int k = a.nextInt(3, 9);
        ASSERT_TRUE(k >= 3 && k <= 9);
        const double x = a.nextReal(0.45, 0.55);
        ASSERT_TRUE(x >= 0.45 && x <= 0.55);
    }
}

}  // namespace
