#include "learn/material_net.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "board/bishop_colours.h"
#include "board/position.h"

namespace {

// NaN falls to the low end, so that a broken net still gives a number.
double clampReal(double x, double low, double high) {
    if (!(x >= low)) return low;
    return x > high ? high : x;
}

// Score of a rating difference and back, 400 Elo to the decade.
double expectedScore(double elo) {
    return 1.0 / (1.0 + std::pow(10.0, elo * -0.0025));
}
double ratingOf(double score) {
    return std::log10(1.0 / clampReal(score, 0.001, 0.999) - 1.0) * -400.0;
}

// Materials whose statistics say little about the value of the pieces: the game is drawn or
// decided whatever the lead (two knights, a minor against a pawn, queen against queen and a
// minor), or an ending recogniser takes over from the material value.
bool misleadingMaterial(unsigned long a, unsigned long b) {
    if (a == 0x20 && (b == 0 || b == 1)) return true;
    if (b == 0x10000 && (a == 0x10100 || a == 0x10010)) return true;
    if (a == 0x110 && b == 0) return true;
    if (a == 0x1000 && (b == 0x100 || b == 0x10 || b == 0x101 || b == 0x11 || b == 0x20 ||
                        b == 0x110 || b == 0x200))
        return true;
    if ((a == 0x1100 || a == 0x1010) && (b == 0x1000 || b == 0x1001)) return true;
    if (a < 16 && b == 0) return true;
    if ((a == 0x20 || a == 0x110 || a == 0x200) && (b == 0x10 || b == 0x100)) return true;
    if (a == 0x100 && b == 0x20) return true;
    if (b == 0 && a != 0 && (a & (a - 1)) == 0) return true;  // a lone piece kind
    if ((a == 0x10 || a == 0x100) && b == 1) return true;
    return false;
}

// Queens, rooks, bishops, knights, pawns from a signature of one hexadecimal digit each.
void countsOf(unsigned long signature, int32_t* counts) {
    for (int kind = 0; kind < 5; ++kind)
        counts[kind] = static_cast<int32_t>((signature >> (4 * (4 - kind))) & 15);
}

// Too few games before this, and the statistics are noise.
constexpr double MinimumGames = 350000.0;

// Odd strides for the subset phases. The last, out of line with the primes, leaves practically
// no sample out.
constexpr uint64_t Strides[17] = {7,  11, 13, 17, 19, 23, 29, 31,       37,
                                  41, 43, 47, 53, 59, 61, 67, 908419877};

}  // namespace

MaterialNet::MaterialNet() {
    readMaterialNet(*this, nullptr);
}

double MaterialNet::materialValue(const int32_t first[5], const int32_t second[5], int code) {
    clearActivations();
    const int32_t* sides[2] = {first, second};
    for (size_t side = 0; side < 2; ++side) {
        const int32_t* c = sides[side];
        // With opposite-coloured bishops every bishop counts alike; otherwise the first bishop
        // of a side has an input of its own.
        const double firstBishop = c[2] != 0 && code >= 0 ? 1.0 : 0.0;
        const size_t at = 6 * side;
        setInput(at, c[0]);
        setInput(at + 1, c[1]);
        setInput(at + 2, firstBishop);
        setInput(at + 3, c[2] - firstBishop);
        setInput(at + 4, c[3]);
        setInput(at + 5, c[4]);
    }
    forward();
    return output();
}

bool readMaterialNet(MaterialNet& net, const char* name) {
    if (name == nullptr || *name == 0 || std::strcmp(name, "(internal)") == 0) {
        std::istringstream in(MaterialNetText);
        return net.read(in);
    }
    std::ifstream in(name);
    if (!in) return false;
    return net.read(in);
}

bool writeMaterialValues(const NeuralNet& net, const char* fileName) {
    std::ofstream out(fileName);
    if (!out) return false;
    const bool written = net.write(out);
    out.close();
    return written && !out.fail();
}

int expectationToScore(double p) {
    p = clampReal(p, 0.001, 0.999);
    // 400 Elo to the decade, 110 Elo to the pawn of 1000.
    return static_cast<int>(std::log10(1.0 / p - 1.0) * -400.0 * 1000.0 * 0.00909090909090909);
}

int blendNetMaterial(MaterialNet& net, const Position& position, int base, int strength,
                     int width) {
    if (strength <= 0) return base;
    int32_t white[5], black[5];
    for (int i = 0; i < 5; ++i) {
        white[i] = position.sides[0].pieceCount[Queen - i];
        black[i] = position.sides[1].pieceCount[Queen - i];
    }
    const int code = bishopColourCode(position);
    // The net is not symmetrical by construction; asking it from both sides makes the value
    // change sign with the colours.
    const double p1 = clampReal(net.materialValue(white, black, code), 0.02, 0.98);
    const double p2 = clampReal(net.materialValue(black, white, code), 0.02, 0.98);
    const int netScore = expectationToScore((1.0 - p2 + p1) * 0.5);

    // Strongest near a balanced value, fading as the mean of the two values grows.
    const double w = width * 0.01;
    const double x = (netScore + base) * 0.0005;
    const double spread = x * x + w * w;
    const double f = spread > 0.0 ? strength * w * w * 0.01 / spread : 0.0;
    return static_cast<int>((1.0 - f) * base + netScore * f);
}

// ---------------------------------------------------------------------------------------------

void readMaterialSamples(std::istream& in, MaterialSampleSet& set) {
    std::string line;
    while (std::getline(in, line)) {
        unsigned long first, second;
        int code, balance;
        double score, games, eval, plies;
        if (std::sscanf(line.c_str(), "%lx %lx %d %d %lf %lf %lf %lf", &first, &second, &code,
                        &balance, &score, &games, &eval, &plies) != 8)
            break;
        // Not a number passes every comparison below and would poison the whole training.
        if (!std::isfinite(score) || !std::isfinite(games) || !std::isfinite(eval) ||
            !std::isfinite(plies))
            continue;
        if (games < MinimumGames || score < 0.006 || score > 0.994) continue;
        // The evaluation of the games contradicts the material lead.
        if ((eval < -250 && balance > 0) || (eval > 250 && balance < 0)) continue;
        if (misleadingMaterial(first, second)) continue;

        MaterialSample sample;
        countsOf(first, sample.counts);
        countsOf(second, sample.counts + 5);
        sample.code = code;
        sample.balance = balance;
        sample.games = games;
        // The mean evaluation difference of the games is taken out of the score.
        sample.target = expectedScore(ratingOf(score) - eval);
        // Both terms are large near the minimum of games and fall as games are added, so the
        // weight grows with the games; a score nearer 0.5 weighs more as well.
        const double a = 1.0 / (std::sqrt(games * 0.001) - std::sqrt(350.0) + 0.001);
        const double b = 1.0 / ((games - MinimumGames) * 3.3333333333333333e-6 + 0.001);
        sample.weight = (1.0 / (a + b)) * (1.0 - score) * 4.0 * score;
        set.samples.push_back(sample);
        set.totalWeight += sample.weight;
    }
}

MaterialTrainer::MaterialTrainer(MaterialSampleSet samples, const char* logFileName,
                                 const char* netFile) {
    set = std::move(samples);
    used = set.samples.size();
    log = std::fopen(logFileName, "w");
    netFileName = netFile;
    readMaterialNet(net, netFile);
    std::stable_sort(
        set.samples.begin(), set.samples.end(),
        [](const MaterialSample& x, const MaterialSample& y) { return x.weight > y.weight; });
}

MaterialTrainer::~MaterialTrainer() {
    if (log) std::fclose(log);
}

void MaterialTrainer::beginPhase() {
    RandomSource& random = RandomSource::instance();
    const size_t count = set.samples.size();
    subset = !subset;
    rate = 0.001;
    used = count;
    const uint32_t r = random.next();
    if (!subset) {
        epochsLeft = r % 50001 + 75000;
    } else if (r % 100 >= 40 && count >= 300) {
        // The heaviest samples only; strides beyond the count skip none of them.
        used = random.next() % (count - 200) + 200;
        epochsLeft = random.next() % 401 + 800;
        stride1 = stride2 = 2 * count;
        offset = 1;
    } else {
        epochsLeft = random.next() % 501 + 1000;
        stride1 = Strides[random.next() % 17];
        stride2 = Strides[random.next() % 17];
        offset = random.next() % 10000;
    }
}

double MaterialTrainer::trainPattern(const int32_t first[5], const int32_t second[5], int code,
                                     double target, double weight) {
    const double o = net.materialValue(first, second, code);
    const double scale = weight * rate * 0.5 / set.totalWeight;
    net.resetDeltas();
    const double delta = (target - o) * scale * 2.0 / net.weightCount;
    if (!net.outputs.empty()) net.outputs[0].delta = delta;
    net.backpropagateOutput(delta);
    net.backpropagateHidden();
    return weight * (o - target) * (o - target);
}

double MaterialTrainer::runEpoch() {
    if (--epochsLeft < 1) beginPhase();

    double error = 0.0;
    uint64_t index = offset;
    for (size_t i = 0; i < used; ++i, ++index) {
        if (subset && (index % stride1 == 0 || index % stride2 == 0)) continue;
        const MaterialSample& s = set.samples[i];
        // Each sample is learnt from both sides, so that the net stays symmetrical.
        error += trainPattern(s.counts, s.counts + 5, s.code, s.target, s.weight);
        error += trainPattern(s.counts + 5, s.counts, s.code, 1.0 - s.target, s.weight);
    }
    error /= set.totalWeight * 2.0;

    net.updateWeights();
    ++epoch;
    // Only full phases save: a subset fits the net to part of the data.
    if (!subset && epoch > lastSaved + 99 && error < bestError) {
        writeMaterialValues(net, netFileName.c_str());
        lastSaved = epoch;
        bestError = error;
    }
    const double rms = std::sqrt(error);
    if ((epoch - lastSaved) % 100 == 0 && log) {
        const char mark = epoch == lastSaved ? '*' : (subset ? 'X' : ' ');
        std::fprintf(log, "%c%6ld %7.5f %10.7f %5ld\n", mark, epoch, rate, rms,
                     static_cast<long>(expectationToScore(rms + 0.5)));
        std::fflush(log);
    }
    return error;
}

void learnMaterial(const char* sampleFileName) {
    MaterialSampleSet samples;
    {
        std::ifstream in(sampleFileName);
        if (in) readMaterialSamples(in, samples);
    }
    MaterialTrainer trainer(std::move(samples), "NeuroLrn.txt", MaterialValuesFile);
    for (;;) trainer.runEpoch();
}
