// Checks written files with the engine's own move generator, independently of the generator's
// solver: every position's verdict against the verdicts of its successors. Each file is decoded
// once, whole, by the store's block decoder, so a lookup is a bit test.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "eval/bitbase_index.h"

struct VerifyResult {
    uint64_t legal = 0;               // positions a probe reads
    uint64_t firstWins[2] = {0, 0};   // wins of the colour listed first, by sideBit
    uint64_t secondWins[2] = {0, 0};  // and of the other colour
    uint64_t wrong = 0;               // positions whose verdict disagrees with their moves
    uint64_t unanswered = 0;          // lookups without an answer: a file missing or unreadable
    std::string firstProblem;         // FEN of the first wrong or unanswered position
};

// The bits of whole files, read from one directory on first use and kept.
class DecodedFiles {
  public:
    explicit DecodedFiles(std::string directory) : directory(std::move(directory)) {}
    // The file's bits, one per index; null if it is missing or doesn't decode.
    const std::vector<uint8_t>* bits(const std::string& name);
    // The key's bit: 1 or 0, -1 without an answer.
    int bit(const BitbaseKey& key);
    // Drops every file whose name `keep` rejects.
    template <class Keep>
    void forgetUnless(Keep keep) {
        recent = {};
        for (auto f = files.begin(); f != files.end();)
            f = keep(f->first) ? std::next(f) : files.erase(f);
    }

  private:
    std::string directory;
    std::map<std::string, std::vector<uint8_t>> files;
    std::map<std::string, bool> unreadable;
    static constexpr int RecentFiles = 4;
    struct Recent {
        uint64_t code;  // the name's bytes; 0 for an empty slot
        const std::vector<uint8_t>* bits;
    };
    std::array<Recent, RecentFiles> recent{};
    int nextRecent = 0;
};

// Decodes a whole file's bytes the way the store reads each block; false if an entry or body
// doesn't decode. `bits` gets `indexCount` bits, rounded up to whole blocks.
bool decodeBitbaseFile(const std::vector<uint8_t>& file, uint64_t indexCount,
                       std::vector<uint8_t>& bits);

// Checks the material of file `name` (both of its files at once: the verdict of each position
// needs both). Files that captures and promotions lead to are read from `files` too.
VerifyResult verifyBitbaseMaterial(DecodedFiles& files, const std::string& name);
