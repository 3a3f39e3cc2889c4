#include "learn/neural_net.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Two inputs, two hidden nodes, one output, and a link from input 1 that skips to the output.
const char* const TinyNet =
    "31 3 0 2 1 2 2 1 0 0 1 0 0 0 1 1 0 1 1 0 0 1 2 0 1 0 2 0 1 1 2 \n0 \n"
    "0.2 -0.3 \n"           // input 0 to hidden 0 and 1
    "0.4 0.2500000001 \n"   // input 1 to hidden 0 and to the output
    "0.1 -2.5e-07 0.05 \n"  // bias to hidden 0, hidden 1, output
    "1.5 \n-2 \n";          // hidden 0 and 1 to the output

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

TEST(NeuralNet, ForwardPassAndTextRoundTripOfATinyNet) {
    NeuralNet net;
    ASSERT_TRUE(readText(net, TinyNet));
    const double h0 = std::tanh(0.5 * 0.2 + -1.0 * 0.4 + 0.1);
    const double h1 = std::tanh(0.5 * -0.3 - 2.5e-7);
    const double expected = 1.5 * h0 - 2.0 * h1 + 0.2500000001 * -1.0 + 0.05;
    EXPECT_NEAR(evaluate(net, {0.5, -1.0}), expected, 1e-15);
    // The output is linear, and each evaluation starts from clean sums.
    EXPECT_NEAR(evaluate(net, {0.0, 0.0}), 0.05 + 1.5 * std::tanh(0.1) - 2.0 * std::tanh(-2.5e-7),
                1e-15);
    EXPECT_NEAR(evaluate(net, {0.5, -1.0}), expected, 1e-15);

    // Ten significant digits whatever the stream was set to, and the setting comes back.
    std::ostringstream out;
    out << std::fixed << std::setprecision(2);
    ASSERT_TRUE(net.write(out));
    EXPECT_EQ(out.str(), TinyNet);
    EXPECT_EQ(out.precision(), 2);
    EXPECT_TRUE(out.flags() & std::ios_base::fixed);
    NeuralNet copy;
    ASSERT_TRUE(readText(copy, out.str()));
    EXPECT_EQ(writeText(copy), TinyNet);
}

TEST(NeuralNet, WeightUpdateHoldsAtTheLimit) {
    RandomSource::instance().seed(99);
    NeuralNet net;
    ASSERT_TRUE(readText(net, TinyNet));
    WeightRecord& limited = net.outputs[0].incoming[0];

    // Driven past the limit: held there with the smallest step, keeping its direction, until a
    // gradient the other way takes it off.
    limited.link->weight = 19.9;
    limited.step = 0.4;
    limited.gradient = 5.0;
    net.updateWeights();
    EXPECT_EQ(limited.link->weight, 19.9999999);
    EXPECT_EQ(limited.step, 1e-11);
    limited.gradient = 1.0;
    net.updateWeights();
    EXPECT_EQ(limited.link->weight, 19.9999999);
    limited.gradient = -1.0;
    net.updateWeights();
    EXPECT_LT(limited.link->weight, 19.9999999);
}

}  // namespace
