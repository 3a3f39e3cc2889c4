// Net texts found by the net fuzz target in fuzz/, read over a net that is already built.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "learn/neural_net.h"

namespace {

// Two inputs, two hidden nodes, one output.
const char* const SmallNet =
    "23 3 0 2 1 2 2 1 0 0 1 0 0 1 1 1 1 0 2 0 1 1 2 0\n0.5\n-0.25\n0.1 0.2 0.3\n1.5\n-1.5\n";

void readSmallNet(NeuralNet& net) {
    std::istringstream in(SmallNet);
    ASSERT_TRUE(net.read(in));
}

std::string textOf(const NeuralNet& net) {
    std::ostringstream out;
    EXPECT_TRUE(net.write(out));
    return out.str();
}

TEST(FuzzRegression, FailedReadOfTheNumberListKeepsTheWholeNet) {
    // The list announces five numbers and ends after three: the old net stays, and with it the
    // topology it writes and the weight count its training divides by.
    NeuralNet net;
    readSmallNet(net);
    const std::string before = textOf(net);
    const uint32_t weights = net.weightCount;
    std::istringstream in("5 3 0 1");
    EXPECT_FALSE(net.read(in));
    EXPECT_EQ(net.weightCount, weights);
    EXPECT_EQ(textOf(net), before);
}

TEST(FuzzRegression, LayersTogetherBeyondTheNodeLimitAreRefused) {
    // Each of the eight hidden layers keeps to the limit of one layer; the list as a whole must
    // not, since a few kilobytes of such a list would allocate gigabytes.
    std::string list = "21 10 0 1";
    for (int layer = 1; layer <= 8; ++layer) list += " " + std::to_string(layer) + " 65536";
    list += " 9 1\n";
    NeuralNet net;
    readSmallNet(net);
    std::istringstream in(list);
    EXPECT_FALSE(net.read(in));
    EXPECT_EQ(net.inputs.size(), 3u);  // the layer list is refused before anything is rebuilt
    EXPECT_EQ(net.hidden.size(), 1u);
}

}  // namespace
