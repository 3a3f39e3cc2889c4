// The learned value of material: a net from the piece counts of both sides to the expected
// score of the first side, blended into the hand-made material value; and its training from
// the material statistics that the `mat` tools write.
#pragma once

#include <cstdint>
#include <cstdio>
#include <istream>
#include <string>
#include <vector>

#include "learn/neural_net.h"

struct Position;

// The stored net in its text form, read when a MaterialNet is built.
extern const char* const MaterialNetText;

// Name of the file that the training writes and reads its best net to and from.
constexpr const char* MaterialValuesFile = "materialwerte.txt";

class MaterialNet : public NeuralNet {
  public:
    // Built with the embedded weights.
    MaterialNet();
    ~MaterialNet() override = default;

    // Expected score of the first side, unclamped. Each side's counts are queens, rooks,
    // bishops, knights, pawns; `code` is the bishop colour code (-1 opposite colours).
    double materialValue(const int32_t first[5], const int32_t second[5], int code);
};

// Null, empty or "(internal)" reads the embedded text. A file that can't be opened leaves the
// net as it is; one that opens but is no net leaves it as far as it was rebuilt.
bool readMaterialNet(MaterialNet& net, const char* name);
bool writeMaterialValues(const NeuralNet& net, const char* fileName = MaterialValuesFile);

// An expected score as a White's-view score in thousandths of a pawn: 400 Elo to the decade
// and 110 Elo to the pawn. `p` is first clamped to 0.001 .. 0.999.
int expectationToScore(double p);

// `base` (White's view) blended with the net's value of the position's material. `strength`
// is the percentage at a balanced value, `width` in hundredths of a pawn says how fast the
// blend fades as the imbalance grows. Strength 0 or less leaves `base`.
int blendNetMaterial(MaterialNet& net, const Position& position, int base, int strength, int width);

// ---------------------------------------------------------------------------------------------
// Training.

struct MaterialSample {
    int32_t counts[10];  // queens, rooks, bishops, knights, pawns of the first side, then second
    int32_t code;
    double target;  // expected score of the first side, the evaluation difference taken out
    double games;
    double weight;
    int32_t balance;
};

struct MaterialSampleSet {
    std::vector<MaterialSample> samples;
    double totalWeight = 0.0;
};

// Reads lines of "A B code balance score games eval plies" (A and B hexadecimal signatures
// with one digit per kind, queens highest) up to the first line without eight fields. Lines
// with too few games, a one-sided score, or a material known to mislead are dropped.
void readMaterialSamples(std::istream& in, MaterialSampleSet& set);

// The state of `mat learn`. Training alternates full phases, which may save the net, with
// shorter phases over subsets of the samples that only shake it.
class MaterialTrainer {
  public:
    // Opens the log (truncating it), reads the net from `netFileName` if that holds one
    // (else the embedded net stays), and sorts the samples heaviest first.
    MaterialTrainer(MaterialSampleSet samples, const char* logFileName, const char* netFileName);
    ~MaterialTrainer();
    MaterialTrainer(const MaterialTrainer&) = delete;
    MaterialTrainer& operator=(const MaterialTrainer&) = delete;

    // One epoch over the samples and one weight update. Returns the epoch's error, the mean
    // weighted squared error over both orientations of each sample.
    double runEpoch();

    MaterialNet net;
    MaterialSampleSet set;
    double rate = 1e-5;
    double bestError = 9999999.9;
    long epoch = 0;
    long lastSaved = 0;
    bool subset = false;
    long epochsLeft = 10000;
    uint64_t offset = 0;
    uint64_t stride1 = 7;
    uint64_t stride2 = 13;
    size_t used;

  private:
    void beginPhase();
    double trainPattern(const int32_t first[5], const int32_t second[5], int code, double target,
                        double weight);

    std::FILE* log;
    std::string netFileName;
};

// The `mat learn` command: trains on the samples of `sampleFileName` (a missing file gives an
// empty set) with the log "NeuroLrn.txt", saving improvements to "materialwerte.txt". It never
// returns; the user ends the process.
[[noreturn]] void learnMaterial(const char* sampleFileName);
