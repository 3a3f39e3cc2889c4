// The learner's binary dump and the text table that the material net trains on.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "frontend/material_learner.h"
#include "learn/material_signature.h"

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

constexpr size_t GameKeyBytes = sizeof(uint32_t) * MaterialGameKeyCount;
constexpr double MaxDumpSum = 1e18;
constexpr size_t PositionRecordBytes = sizeof(uint64_t) + sizeof(PositionStats);

bool writeWord(std::FILE* file, uint32_t word) {
    return std::fwrite(&word, sizeof word, 1, file) == 1;
}

bool readWord(std::FILE* file, uint32_t& word) {
    return std::fread(&word, sizeof word, 1, file) == 1;
}

// Each further game through one position counts 0.8 of the one before: with n games of
// weight 1000 the factor times n is 1 + 0.8 + 0.8^2 + ... (n terms).
double discountOf(double weight) {
    if (weight <= 1000.0) return 1.0;
    const double games = weight * 0.001;
    return (std::pow(0.8, games) - 1.0) * -5.000000000000001 / games;
}

// A conversion that the C library's format can take whatever the double holds.
long countOf(double weight) {
    if (!(weight > -2e18)) return weight != weight ? 0 : -2000000000000000000L;
    if (weight > 2e18) return 2000000000000000000L;
    return static_cast<long>(weight);
}

}  // namespace

bool MaterialLearner::writeMemory(const std::string& fileName) const {
    const File file(std::fopen(fileName.c_str(), "wb"));
    if (!file) return false;
    bool written = std::fwrite(gameKeys.data(), GameKeyBytes, 1, file.get()) == 1;
    written = written && writeWord(file.get(), static_cast<uint32_t>(seenGames.size()));
    for (const uint64_t game : seenGames)
        written = written && std::fwrite(&game, sizeof game, 1, file.get()) == 1;
    written = written && writeWord(file.get(), static_cast<uint32_t>(positions.size()));
    for (const auto& [key, stats] : positions) {
        unsigned char record[PositionRecordBytes];
        std::memcpy(record, &key, sizeof key);
        std::memcpy(record + sizeof key, &stats, sizeof stats);
        written = written && std::fwrite(record, sizeof record, 1, file.get()) == 1;
    }
    // A full disk shows only here; the file opened, so the caller has nothing to report.
    (void)written;
    return true;
}

bool MaterialLearner::readMemory(const std::string& fileName) {
    const File file(std::fopen(fileName.c_str(), "rb"));
    if (!file) return false;
    std::vector<uint32_t> keys(MaterialGameKeyCount);
    if (std::fread(keys.data(), GameKeyBytes, 1, file.get()) != 1) return true;
    gameKeys.swap(keys);
    seenGames.clear();

    // The counts only bound the reading; the file's end bounds it too, so a count larger than
    // the file costs nothing, and a record cut short is dropped.
    uint32_t count = 0;
    if (!readWord(file.get(), count)) return true;
    for (uint32_t i = 0; i < count; ++i) {
        uint64_t game = 0;
        if (std::fread(&game, sizeof game, 1, file.get()) != 1) return true;
        seenGames.insert(game);
    }
    if (!readWord(file.get(), count)) return true;
    for (uint32_t i = 0; i < count; ++i) {
        unsigned char record[PositionRecordBytes];
        if (std::fread(record, sizeof record, 1, file.get()) != 1) return true;
        uint64_t key = 0;
        PositionStats stats;
        std::memcpy(&key, record, sizeof key);
        std::memcpy(&stats, record + sizeof key, sizeof stats);
        // Not a number, an infinity, or a sum that a few more could carry past the largest
        // double would poison the totals of its whole configuration. Real sums stay far below.
        if (!(std::fabs(stats.evalSum) < MaxDumpSum) || !(std::fabs(stats.plySum) < MaxDumpSum))
            continue;
        positions[key] = stats;
    }
    return true;
}

bool MaterialLearner::writeTable(const std::string& fileName) {
    for (const auto& [key, stats] : positions) {
        const double weight = stats.weightSum;
        const double d = discountOf(weight);
        MaterialTotals& entry = totals[stats.materialKey];
        entry.evalSum += stats.evalSum * d;
        entry.scoreSum += stats.scoreSum * d;
        entry.weightSum += weight * d;
        entry.plySum += stats.plySum * d;
    }
    const File file(std::fopen(fileName.c_str(), "w"));
    if (!file) return false;
    for (const auto& [key, entry] : totals) {
        const double w = entry.weightSum;
        if (w == 0.0) continue;
        std::fprintf(file.get(), "%05x %05x %2d %3d %8.6f %10ld %10.3f %6.1f\n",
                     strongerSignature(key), weakerSignature(key), bishopCodeOfKey(key),
                     materialBalanceOfKey(key), entry.scoreSum / w, countOf(w), entry.evalSum / w,
                     entry.plySum / w);
    }
    return true;
}
