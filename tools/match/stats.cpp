#include "stats.h"

#include <cmath>
#include <cstdio>
#include <limits>

namespace match {

double eloFromScore(double score) {
    if (score <= 0) return -std::numeric_limits<double>::infinity();
    if (score >= 1) return std::numeric_limits<double>::infinity();
    return -400.0 * std::log10(1.0 / score - 1.0);
}

namespace {

// Samples with values values[i] (points per game) seen counts[i] times.
EloEstimate estimateElo(const double* values, const int* counts, int kinds) {
    EloEstimate e;
    for (int i = 0; i < kinds; ++i) e.samples += counts[i];
    if (e.samples == 0) return e;
    double mean = 0;
    for (int i = 0; i < kinds; ++i) mean += values[i] * counts[i];
    mean /= e.samples;
    double variance = 0;
    for (int i = 0; i < kinds; ++i) variance += counts[i] * (values[i] - mean) * (values[i] - mean);
    variance /= e.samples;
    const double deviation = 1.959963985 * std::sqrt(variance / e.samples);
    e.score = mean;
    e.elo = eloFromScore(mean);
    // An all-won or all-lost match has no finite interval, whatever its variance.
    e.margin = std::isinf(e.elo)
                   ? std::numeric_limits<double>::infinity()
                   : (eloFromScore(mean + deviation) - eloFromScore(mean - deviation)) / 2;
    return e;
}

}  // namespace

EloEstimate trinomialElo(int wins, int draws, int losses) {
    const double values[3] = {1, 0.5, 0};
    const int counts[3] = {wins, draws, losses};
    return estimateElo(values, counts, 3);
}

EloEstimate pentanomialElo(const int pairCounts[5]) {
    const double values[5] = {0, 0.25, 0.5, 0.75, 1};
    return estimateElo(values, pairCounts, 5);
}

double likelihoodOfSuperiority(int wins, int losses) {
    if (wins + losses == 0) return 0.5;
    return 0.5 * (1 + std::erf((wins - losses) / std::sqrt(2.0 * (wins + losses))));
}

std::string formatElo(double value) {
    if (std::isinf(value)) return value > 0 ? "+inf" : "-inf";
    char buffer[32];
    // No "-0.0" for an even score.
    std::snprintf(buffer, sizeof buffer, "%.1f", std::fabs(value) < 0.05 ? 0.0 : value);
    return buffer;
}

}  // namespace match
