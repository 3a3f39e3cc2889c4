// Arbitrary text read as a net. A net that reads must write a text that reads to the same net;
// any net, read in full or left half-built by a failed read, must evaluate and train.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "fuzz_support.h"
#include "learn/material_net.h"
#include "learn/neural_net.h"

namespace {

// Links and training records point into the node arrays; a step of training walks them all.
double exercise(NeuralNet& net) {
    net.clearActivations();
    for (size_t i = 0; i + 1 < net.inputs.size() + 2; ++i)
        net.setInput(i, static_cast<double>(i % 5) - 2.0);
    net.forward();
    const double out = net.output();
    net.resetDeltas();
    net.backpropagateOutput(0.25 - out);
    net.backpropagateHidden();
    net.updateWeights();
    return out;
}

bool sameWeights(const NeuralNet& a, const NeuralNet& b) {
    auto close = [](double x, double y) {
        return x == y || std::fabs(x - y) <= 1e-9 * std::max(std::fabs(x), std::fabs(y));
    };
    if (a.inputs.size() != b.inputs.size() || a.hidden.size() != b.hidden.size() ||
        a.outputs.size() != b.outputs.size())
        return false;
    for (size_t i = 0; i < a.inputs.size(); ++i) {
        if (a.inputs[i].links.size() != b.inputs[i].links.size()) return false;
        for (size_t k = 0; k < a.inputs[i].links.size(); ++k)
            if (!close(a.inputs[i].links[k].weight, b.inputs[i].links[k].weight)) return false;
    }
    for (size_t l = 0; l < a.hidden.size(); ++l) {
        if (a.hidden[l].size() != b.hidden[l].size()) return false;
        for (size_t n = 0; n < a.hidden[l].size(); ++n) {
            const auto& x = a.hidden[l][n].links;
            const auto& y = b.hidden[l][n].links;
            if (x.size() != y.size()) return false;
            for (size_t k = 0; k < x.size(); ++k)
                if (!close(x[k].weight, y[k].weight)) return false;
        }
    }
    return true;
}

// Ten significant digits cannot carry a weight at the very ends of the double range: written,
// it reads back as an overflow or underflow. No net of the program comes near them.
bool ordinaryWeights(const NeuralNet& net) {
    auto ordinary = [](const std::vector<NetLink>& links) {
        for (const NetLink& link : links) {
            const double size = std::fabs(link.weight);
            if (size > 1e300 || (size != 0.0 && size < 1e-300)) return false;
        }
        return true;
    };
    for (const InputNode& node : net.inputs)
        if (!ordinary(node.links)) return false;
    for (const auto& layer : net.hidden)
        for (const HiddenNode& node : layer)
            if (!ordinary(node.links)) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    // Once into a fresh net and once over a net that is already built, as a material file
    // is read over the embedded net.
    NeuralNet fresh;
    std::istringstream in(text);
    const bool read = fresh.read(in);
    {
        NeuralNet used, original;
        std::istringstream embedded(MaterialNetText), embeddedAgain(MaterialNetText);
        FUZZ_CHECK(used.read(embedded) && original.read(embeddedAgain), "embedded net refused");
        std::istringstream again(text);
        FUZZ_CHECK(used.read(again) == read, "reading over a net differs from a fresh read");
        // A read that left the old net standing must leave all of it, or the net would write
        // a text that does not fit its weights, and train with a wrong weight count.
        if (!read && sameWeights(used, original)) {
            FUZZ_CHECK(
                used.topology == original.topology && used.weightCount == original.weightCount,
                "a failed read kept the old weights but changed the topology");
        }
        exercise(used);
    }
    if (!read || !ordinaryWeights(fresh)) {
        exercise(fresh);
        return 0;
    }

    std::ostringstream out;
    FUZZ_CHECK(fresh.write(out), "write failed");
    const std::string written = out.str();
    NeuralNet copy;
    std::istringstream back(written);
    FUZZ_CHECK(copy.read(back), "own text refused:\n" + written);
    FUZZ_CHECK(copy.topology == fresh.topology, "topology changed:\n" + written);
    FUZZ_CHECK(copy.weightCount == fresh.weightCount, "weight count changed:\n" + written);
    FUZZ_CHECK(sameWeights(copy, fresh), "weights changed:\n" + written);
    std::ostringstream outAgain;
    FUZZ_CHECK(copy.write(outAgain) && outAgain.str() == written, "second write differs");

    const double a = exercise(fresh);
    const double b = exercise(copy);
    FUZZ_CHECK(a == b || (std::isnan(a) && std::isnan(b)) ||
                   std::fabs(a - b) <= 1e-6 * (1.0 + std::fabs(a)),
               "outputs differ: " + std::to_string(a) + " " + std::to_string(b));
    return 0;
}
