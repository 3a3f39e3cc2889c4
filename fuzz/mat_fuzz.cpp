// The inputs of the material tools. The first byte chooses: a dump behind a block of game
// keys, read over a learner that already holds a position, then folded into a table; or text
// read as a material table and trained on for an epoch. Nothing that is read may bring a value
// that is not a finite number into a table or the training.
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "frontend/material_learner.h"
#include "fuzz_support.h"
#include "learn/material_net.h"

namespace {

std::string scratchName(const char* what) {
    return "/tmp/zelmark_mat_fuzz_" + std::to_string(getpid()) + "_" + what;
}

std::string fileText(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void fuzzDump(const uint8_t* data, size_t size) {
    const std::string dump = scratchName("dump.bin");
    {
        std::ofstream out(dump, std::ios::binary);
        // Game keys of the file: the fuzzer writes what follows them.
        const std::string keys(MaterialGameKeyCount * 4, '\x5a');
        out << keys;
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    static MaterialLearner* learner = new MaterialLearner;
    learner->positions.clear();
    learner->totals.clear();
    learner->positions[1] = PositionStats{0x20000100ULL, 5.0, 1000, 1000, 40.0};
    FUZZ_CHECK(learner->readMemory(dump), "dump did not open");
    FUZZ_CHECK(learner->positions.size() <= 1 + size / 40, "more records than bytes");
    FUZZ_CHECK(learner->seenGames.size() <= size / 8, "more games than bytes");
    for (const auto& [key, stats] : learner->positions)
        FUZZ_CHECK(std::isfinite(stats.evalSum) && std::isfinite(stats.plySum),
                   "record not finite");
    const std::string table = scratchName("table.txt");
    FUZZ_CHECK(learner->writeTable(table), "table did not open");
    const std::string text = fileText(table);
    FUZZ_CHECK(text.find("nan") == std::string::npos && text.find("inf") == std::string::npos,
               text.substr(0, 400));
    std::remove(dump.c_str());
    std::remove(table.c_str());
}

void fuzzTable(const uint8_t* data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    MaterialSampleSet set;
    readMaterialSamples(in, set);
    FUZZ_CHECK(std::isfinite(set.totalWeight), "total weight not finite");
    for (const MaterialSample& sample : set.samples)
        FUZZ_CHECK(
            std::isfinite(sample.target) && std::isfinite(sample.weight) && sample.weight >= 0.0,
            "sample not finite");
    if (set.samples.empty() || !(set.totalWeight > 0.0)) return;
    MaterialTrainer trainer(std::move(set), "/dev/null", "/nonexistent/zelmark-fuzz-net");
    const double error = trainer.runEpoch();
    FUZZ_CHECK(std::isfinite(error), "training error not finite");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    if (data[0] & 1) {
        fuzzDump(data + 1, size - 1);
    } else {
        fuzzTable(data + 1, size - 1);
    }
    return 0;
}
