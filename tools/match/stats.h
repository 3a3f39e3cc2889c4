// Score, Elo difference and its 95 % error margin from match counts. The trinomial model
// treats each game as independent; the pentanomial one scores each pair of games on the same
// opening with colours swapped as one sample, which removes most of the opening's bias from
// the variance.
#pragma once

#include <string>

namespace match {

struct EloEstimate {
    double score = 0.5;  // mean points per game, 0 to 1
    double elo = 0;
    double margin = 0;  // half the width of the 95 % interval, in Elo
    int samples = 0;    // games (trinomial) or pairs (pentanomial)
};

// -400 log10(1 / score - 1): the Elo difference that predicts the score; infinite at 0 and 1.
double eloFromScore(double score);

// Games scored 1, 1/2 and 0 as independent samples.
EloEstimate trinomialElo(int wins, int draws, int losses);

// pairCounts[k]: pairs in which the first engine scored k/2 points out of 2.
EloEstimate pentanomialElo(const int pairCounts[5]);

// Likelihood of superiority: the chance that the first engine is the stronger, draws aside.
double likelihoodOfSuperiority(int wins, int losses);

// One decimal ("12.3", "-0.4", never "-0.0"), or "+inf" and "-inf".
std::string formatElo(double value);

}  // namespace match
