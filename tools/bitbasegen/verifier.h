// Checks a written file through the engine's own reader and move generator, independently of
// the generator's solver: every position's bit against the bits of its successors.
#pragma once

#include <cstdint>
#include <string>

struct VerifyResult {
    uint64_t legal = 0;              // positions a probe reads
    uint64_t firstWins[2] = {0, 0};  // wins of the colour listed first, by sideBit
    uint64_t wrong = 0;              // positions whose bit disagrees with their moves
    uint64_t unanswered = 0;         // probes without an answer: a file missing or unreadable
    std::string firstProblem;        // FEN of the first wrong or unanswered position
};

// Reads the file `name` from `directory`. Every probe reads through a BitbaseStore, so the
// mirrored file and the files that captures and promotions lead to must be there too.
VerifyResult verifyBitbaseFile(const std::string& directory, const std::string& name);
