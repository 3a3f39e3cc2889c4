// A small feed-forward network in double precision with a plain text form, and the one random
// generator of the program. The network trains with a per-weight adaptive step that is shaken
// by a random factor at every update, so two training runs never coincide.
#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <vector>

struct NetLink;

// Training state of one weight, kept at the node where its link ends.
struct WeightRecord {
    double gradient;
    double step;
    int32_t sign;  // direction of the last step
    const double* sourceValue;
    double* sourceDelta;  // null when the source is an input node
    NetLink* link;
};

struct NetNode {
    virtual ~NetNode() = default;
    virtual void addDelta(double amount) = 0;
    double value = 0.0;
};

// A hidden or output node: it gathers a weighted sum and, in training, an error.
struct SummingNode : NetNode {
    void addDelta(double amount) override { delta += amount; }
    double sum = 0.0;
    double delta = 0.0;
    std::vector<WeightRecord> incoming;
    // Records of hidden sources come first; from here on the sources are input nodes.
    size_t firstInputRecord = 0;
};

struct NetLink {
    SummingNode* target;
    double weight;
};

struct InputNode : NetNode {
    void addDelta(double) override {}
    std::vector<NetLink> links;
};

struct HiddenNode : SummingNode {
    std::vector<NetLink> links;
};

struct OutputNode : SummingNode {};

struct NetParameters {
    double shrinkLow = 0.45;  // random factor of the step after a change of direction
    double shrinkHigh = 0.55;
    double growLow = 1.16;  // random factor while the direction holds
    double growHigh = 1.24;
    double minStep = 1e-11;  // also the step of a weight that hit the limit
    double initialStep = 1e-7;
    double maxStep = 0.5;
    double weightLimit = 19.9999999;
    double flatSpot = 0.001;  // keeps the tanh derivative from vanishing at saturation
};

class NeuralNet {
  public:
    NeuralNet();
    virtual ~NeuralNet() = default;
    // Links and records point into the node arrays, so a net is never copied.
    NeuralNet(const NeuralNet&) = delete;
    NeuralNet& operator=(const NeuralNet&) = delete;

    // Building by hand, layers first. Layer 0 is the input layer (a bias node is added to
    // `count`), the layer after the last hidden one the output layer; a new net has one hidden
    // layer. Both record their arguments in the topology while recordTopology is set.
    // addConnection refuses (false) a node or layer that does not exist, so that a bad file
    // cannot make a link into nowhere.
    void addLayer(unsigned layer, unsigned count);
    bool addConnection(unsigned fromLayer, unsigned fromNode, unsigned toLayer, unsigned toNode);
    // Adds the bias links and the training records. Nothing may be added after it.
    void wire();

    // The text form. A text whose integers can't be read, or whose layer list is bad, leaves
    // the nodes and weights as they were; a later failure keeps what was built so far: a
    // half-built net, still usable.
    bool read(std::istream& in);
    bool write(std::ostream& out) const;

    // One evaluation: clearActivations, setInput for each input, forward, then output().
    void clearActivations();
    void setInput(size_t index, double x);
    void forward();
    double output() const { return outputs.empty() ? 0.0 : outputs[0].value; }

    // One training pattern after forward: resetDeltas, store the output error in
    // outputs[0].delta, backpropagateOutput with it, backpropagateHidden. The gradients
    // add up over the patterns until updateWeights, once per epoch.
    void resetDeltas();
    void backpropagateOutput(double delta);
    void backpropagateHidden();
    void updateWeights();

    std::vector<uint32_t> topology;
    bool recordTopology = true;
    std::vector<InputNode> inputs;  // the last one is the bias node
    std::vector<std::vector<HiddenNode>> hidden;
    std::vector<OutputNode> outputs;
    uint32_t weightCount = 0;
    NetParameters parameters;

  private:
    void wireNode(std::vector<NetLink>& links, const double* value, double* delta);
    void updateRecord(WeightRecord& record);
};

// Three 32-bit shift registers; the first clocks one of the other two at each step.
class RandomSource {
  public:
    // The process-wide generator, seeded from the clock at the first call. Not locked: it is
    // used by command-driven tools and by the book probe before any worker starts.
    static RandomSource& instance();

    explicit RandomSource(uint32_t timeSeconds) { seed(timeSeconds); }
    // A time of 0 seeds 1, so that the third register never starts at zero.
    void seed(uint32_t timeSeconds);
    void seedFromClock();
    // Twenty steps without output; the tools call it before each word of a hash table.
    void warm();

    uint32_t next();
    // `next` scaled into [low, high].
    double nextReal(double low, double high);
    int nextInt(int low, int high);

  private:
    void step();
    uint32_t a = 0, b = 0, c = 0;
};
