// Exact win/draw/loss for every position of one material, by retrograde analysis.
//
// A material is solved once for both colours: its positions are indexed with the shared
// bitbase index of one orientation (say "KTK"), and the mirrored file ("KKT") is read off the
// same verdicts. Captures and promotions leave the material; their verdicts come from the
// solutions of smaller materials, which must be solved first (see solvingOrder).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "eval/bitbase_index.h"

// Verdicts of solved materials for the side to move, two bits per index: 1 win, 2 loss, 0 a
// draw or a position that doesn't exist.
class SolvedMaterials {
  public:
    // 1 win, 0 draw, -1 loss for the side to move of a legal position; the material (either
    // orientation) must have been added.
    int verdict(const BitbaseKey& key) const;
    bool has(const std::string& name) const;
    void add(const std::string& name, std::vector<uint8_t> packed);
    // Frees the solutions that `keep` says no later material reads.
    template <class Keep>
    void forgetUnless(Keep keep) {
        for (auto t = tables.begin(); t != tables.end();)
            t = keep(t->first) ? std::next(t) : tables.erase(t);
    }

  private:
    std::map<std::string, std::vector<uint8_t>> tables;
};

struct SolveResult {
    std::string name, mirrorName;  // mirrorName equals name when both colours have one army
    std::vector<uint8_t> bits, mirrorBits;  // the files' bits, one per index
    uint64_t legal = 0;              // positions (indices that a probe reads) of the material
    uint64_t firstWins[2] = {0, 0};  // wins of the colour listed first, by sideBit
    uint64_t secondWins[2] = {0, 0};
    int longestWin = 0;  // plies until mate or a winning capture or promotion
};

// The name with the colours exchanged ("KTK" gives "KKT"); false for a name that no file has.
bool mirrorName(const std::string& name, std::string& mirror);

// The materials to solve for `names`, smaller ones and those they depend on first, each listed
// by one of its two names.
std::vector<std::string> solvingOrder(const std::vector<std::string>& names);

// The materials one capture or promotion away, each by the name solvingOrder uses.
std::vector<std::string> materialsReachedFrom(const std::string& name);

// Every file name of at most `men` men.
std::vector<std::string> namesUpTo(int men);

// Solves `name`, whose captures and promotions are in `solved`, and adds it there. False with
// `error` set if a win's distance doesn't fall along one of its moves, or a verdict
// disagrees with its successors: the analysis would have gone wrong.
bool solveMaterial(const std::string& name, SolvedMaterials& solved, SolveResult& result,
                   std::string& error);
