#include "learn/neural_net.h"

#include <cmath>
#include <ctime>

namespace {

// Far above any net the program stores, low enough that a corrupt count cannot exhaust memory.
constexpr uint32_t MaxLayerNodes = 1u << 16;

bool readValue(std::istream& in, uint32_t& value) {
    return static_cast<bool>(in >> value);
}

}  // namespace

NeuralNet::NeuralNet() : topology{3}, hidden(1) {}

void NeuralNet::addLayer(unsigned layer, unsigned count) {
    if (recordTopology) {
        topology.push_back(layer);
        topology.push_back(count);
    }
    if (layer == 0) {
        inputs.assign(count + 1, InputNode{});
        inputs.back().value = 1.0;  // the bias node
    } else if (layer == hidden.size() + 1) {
        outputs.assign(count, OutputNode{});
    } else if (layer - 1 < hidden.size()) {
        hidden[layer - 1].assign(count, HiddenNode{});
    }
}

bool NeuralNet::addConnection(unsigned fromLayer, unsigned fromNode, unsigned toLayer,
                              unsigned toNode) {
    std::vector<NetLink>* links = nullptr;
    if (fromLayer == 0) {
        if (fromNode >= inputs.size()) return false;
        links = &inputs[fromNode].links;
    } else {
        if (fromLayer > hidden.size() || fromNode >= hidden[fromLayer - 1].size()) return false;
        links = &hidden[fromLayer - 1][fromNode].links;
    }
    SummingNode* target = nullptr;
    if (toLayer > hidden.size()) {
        if (toNode >= outputs.size()) return false;
        target = &outputs[toNode];
    } else {
        if (toLayer == 0 || toNode >= hidden[toLayer - 1].size()) return false;
        target = &hidden[toLayer - 1][toNode];
    }
    if (recordTopology) topology.insert(topology.end(), {fromLayer, fromNode, toLayer, toNode});
    links->push_back(NetLink{target, 0.0});
    return true;
}

void NeuralNet::wireNode(std::vector<NetLink>& links, const double* value, double* delta) {
    weightCount += static_cast<uint32_t>(links.size());
    for (NetLink& link : links)
        link.target->incoming.push_back(
            WeightRecord{0.0, parameters.initialStep, 1, value, delta, &link});
}

void NeuralNet::wire() {
    if (!inputs.empty()) {
        InputNode& bias = inputs.back();
        for (auto& layer : hidden)
            for (HiddenNode& node : layer) bias.links.push_back(NetLink{&node, 0.0});
        for (OutputNode& node : outputs) bias.links.push_back(NetLink{&node, 0.0});
    }
    // Hidden sources first, so that every incoming list starts with the records that pass
    // an error further back.
    for (auto& layer : hidden)
        for (HiddenNode& node : layer) wireNode(node.links, &node.value, &node.delta);
    for (InputNode& node : inputs) wireNode(node.links, &node.value, nullptr);

    auto setBoundary = [](SummingNode& node) {
        size_t i = 0;
        while (i < node.incoming.size() && node.incoming[i].sourceDelta != nullptr) ++i;
        node.firstInputRecord = i;
    };
    for (OutputNode& node : outputs) setBoundary(node);
    for (auto& layer : hidden)
        for (HiddenNode& node : layer) setBoundary(node);
}

bool NeuralNet::read(std::istream& in) {
    uint32_t count;
    if (!readValue(in, count)) return false;
    std::vector<uint32_t> list;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t value;
        if (!readValue(in, value)) return false;
        list.push_back(value);
    }
    if (list.empty()) return false;
    const uint32_t layers = list[0];
    if (layers < 3) return false;
    // The layer list is checked whole before anything is replaced: a layer index or node count
    // that cannot be built leaves the old net standing.
    if (1 + 2 * static_cast<uint64_t>(layers) > count) return false;
    uint64_t nodes = 0;
    for (uint32_t i = 0; i < layers; ++i) {
        if (list[1 + 2 * i] >= layers || list[2 + 2 * i] > MaxLayerNodes) return false;
        nodes += list[2 + 2 * i];
    }
    if (nodes > MaxLayerNodes) return false;
    topology = std::move(list);
    recordTopology = false;
    weightCount = 0;

    // Every layer is rebuilt from nothing, so no old link can point into a replaced layer.
    inputs.clear();
    outputs.clear();
    hidden.assign(layers - 2, {});
    for (uint32_t i = 0; i < layers; ++i) addLayer(topology[1 + 2 * i], topology[2 + 2 * i]);
    size_t at = 1 + 2 * static_cast<size_t>(layers);
    for (; at + 4 <= count; at += 4)
        if (!addConnection(topology[at], topology[at + 1], topology[at + 2], topology[at + 3]))
            return false;
    if (at != count) return false;
    wire();

    auto readWeights = [&in](std::vector<NetLink>& links) {
        for (NetLink& link : links)
            if (!(in >> link.weight)) return false;
        return true;
    };
    for (InputNode& node : inputs)
        if (!readWeights(node.links)) return false;
    for (auto& layer : hidden)
        for (HiddenNode& node : layer)
            if (!readWeights(node.links)) return false;
    return true;
}

bool NeuralNet::write(std::ostream& out) const {
    const std::ios_base::fmtflags flags = out.flags();
    const std::streamsize precision = out.precision();
    // Ten significant digits, in the plain %g-like form, whatever the stream was set to.
    out.unsetf(std::ios_base::floatfield);
    if (precision < 10) out.precision(10);
    auto finish = [&](bool result) {
        out.flags(flags);
        out.precision(precision);
        return result;
    };

    if (!(out << topology.size() << ' ')) return finish(false);
    for (size_t i = 0; i < topology.size(); ++i) {
        out << topology[i] << ' ';
        if (i % 30 == 29) out << '\n';
        if (!out) return finish(false);
    }
    if (!(out << '\n')) return finish(false);

    auto writeLine = [&out](const std::vector<NetLink>& links) {
        if (links.empty()) return true;
        for (const NetLink& link : links)
            if (!(out << link.weight << ' ')) return false;
        return static_cast<bool>(out << '\n');
    };
    for (const InputNode& node : inputs)
        if (!writeLine(node.links)) return finish(false);
    for (const auto& layer : hidden)
        for (const HiddenNode& node : layer)
            if (!writeLine(node.links)) return finish(false);
    return finish(true);
}

void NeuralNet::clearActivations() {
    for (size_t i = 0; i + 1 < inputs.size(); ++i) inputs[i].value = 0.0;
    for (auto& layer : hidden)
        for (HiddenNode& node : layer) node.sum = 0.0;
    for (OutputNode& node : outputs) node.sum = 0.0;
}

void NeuralNet::setInput(size_t index, double x) {
    // The bias node and inputs that a loaded net lacks are left alone.
    if (index + 1 >= inputs.size()) return;
    InputNode& node = inputs[index];
    node.value = x;
    for (NetLink& link : node.links) link.target->sum += x * link.weight;
}

void NeuralNet::forward() {
    if (!inputs.empty())
        for (NetLink& link : inputs.back().links) link.target->sum += link.weight;
    for (auto& layer : hidden) {
        for (HiddenNode& node : layer) {
            node.value = std::tanh(node.sum);
            for (NetLink& link : node.links) link.target->sum += node.value * link.weight;
        }
    }
    // The output is linear: whoever needs a range clamps it.
    for (OutputNode& node : outputs) node.value = node.sum;
}

void NeuralNet::resetDeltas() {
    for (auto& layer : hidden)
        for (HiddenNode& node : layer) node.delta = 0.0;
    for (OutputNode& node : outputs) node.delta = 0.0;
}

namespace {

void propagate(SummingNode& node, double error) {
    const size_t boundary = node.firstInputRecord;
    for (size_t i = 0; i < boundary; ++i) {
        WeightRecord& r = node.incoming[i];
        r.gradient += error * *r.sourceValue;
        *r.sourceDelta += error * r.link->weight;
    }
    for (size_t i = boundary; i < node.incoming.size(); ++i) {
        WeightRecord& r = node.incoming[i];
        r.gradient += error * *r.sourceValue;
    }
}

}  // namespace

// Only the first output is trained.
void NeuralNet::backpropagateOutput(double delta) {
    if (!outputs.empty()) propagate(outputs[0], delta);
}

void NeuralNet::backpropagateHidden() {
    for (auto layer = hidden.rbegin(); layer != hidden.rend(); ++layer) {
        for (HiddenNode& node : *layer) {
            const double slope = 1.0 - node.value * node.value + parameters.flatSpot;
            propagate(node, slope * node.delta);
        }
    }
}

void NeuralNet::updateRecord(WeightRecord& r) {
    const NetParameters& k = parameters;
    RandomSource& random = RandomSource::instance();
    if (r.sign * r.gradient > 0.0) {
        r.step *= random.nextReal(k.growLow, k.growHigh);
        if (!(r.step <= k.maxStep)) r.step = k.maxStep;
    } else {
        // A gradient of exactly zero turns the direction too.
        r.sign = -r.sign;
        r.step *= random.nextReal(k.shrinkLow, k.shrinkHigh);
        if (r.step < k.minStep) r.step = k.minStep;
    }
    r.gradient = 0.0;
    double& weight = r.link->weight;
    weight += r.sign * r.step;
    if (!(weight <= k.weightLimit)) {
        weight = k.weightLimit;
        r.step = k.minStep;
    } else if (weight < -k.weightLimit) {
        weight = -k.weightLimit;
        r.step = k.minStep;
    }
}

void NeuralNet::updateWeights() {
    for (OutputNode& node : outputs)
        for (WeightRecord& r : node.incoming) updateRecord(r);
    for (auto layer = hidden.rbegin(); layer != hidden.rend(); ++layer)
        for (HiddenNode& node : *layer)
            for (WeightRecord& r : node.incoming) updateRecord(r);
}

// ---------------------------------------------------------------------------------------------

namespace {

// True when exactly one bit of the value is set.
constexpr bool singleBit(uint32_t x) {
    return x != 0 && (x & (x - 1)) == 0;
}

}  // namespace

RandomSource& RandomSource::instance() {
    // Never destroyed, so that a tool running at exit still finds it.
    static RandomSource* const source =
        new RandomSource(static_cast<uint32_t>(static_cast<uint64_t>(std::time(nullptr))));
    return *source;
}

void RandomSource::seed(uint32_t timeSeconds) {
    a = 0x01234567u;
    b = 0x89abcdefu;
    c = timeSeconds != 0 ? timeSeconds : 1u;
    warm();
}

void RandomSource::seedFromClock() {
    seed(static_cast<uint32_t>(static_cast<uint64_t>(std::time(nullptr))));
}

void RandomSource::warm() {
    for (int i = 0; i < 20; ++i) step();
}

void RandomSource::step() {
    const uint32_t t = a & 0x08000001u;
    a >>= 1;
    if (singleBit(t)) {
        a |= 0x80000000u;
        uint32_t n = 0;
        if (singleBit(b & 0x00020001u)) n |= 0x20000000u;
        if (singleBit(b & 0x00040002u)) n |= 0x40000000u;
        if (singleBit(b & 0x00080004u)) n |= 0x80000000u;
        b = (b >> 3) | n;
    } else {
        uint32_t n = 0;
        if (singleBit(c & 0x80100000u)) n |= 2u;
        if (singleBit(c & 0x40080000u)) n |= 1u;
        c = (c << 2) | n;
    }
}

uint32_t RandomSource::next() {
    step();
    return a ^ b ^ c;
}

double RandomSource::nextReal(double low, double high) {
    return next() * 2.3283064370807974e-10 * (high - low) + low;
}

int RandomSource::nextInt(int low, int high) {
    const uint32_t span = static_cast<uint32_t>(high) - static_cast<uint32_t>(low) + 1u;
    if (span == 0) return static_cast<int>(next());  // the whole 32-bit range
    return static_cast<int>(static_cast<uint32_t>(low) + next() % span);
}
