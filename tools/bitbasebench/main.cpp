// bitbasebench: what a bitbase probe costs when its block is cached and when it is read from
// the file, and how small the files in a directory are against their raw bits.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "board/bitboard.h"
#include "board/position.h"
#include "board/text.h"
#include "eval/bitbase_index.h"
#include "eval/bitbase_store.h"
#include "tools/support/command_line.h"

namespace {

const char* const Usage =
    "Usage: bitbasebench DIR NAME [PROBES]\n"
    "       bitbasebench --verdicts DIR FILE\n"
    "\n"
    "Probes PROBES (default 200000) random positions of the bitbase file NAME.zbb in DIR\n"
    "through the engine's store: once with a cache that holds every block they touch (after\n"
    "one pass to fill it), once with the smallest cache, where nearly every probe reads its\n"
    "block from the file (through the system's file cache). Then lists every .zbb file in\n"
    "DIR with its size against one bit per index.\n"
    "\n"
    "--verdicts reads one FEN or EPD position a line from FILE and writes each line back\n"
    "after the game's result by the files in DIR (1-0, 0-1, 1/2-1/2) or '?' without one:\n"
    "no file, more than five men, castling rights, an en passant square or a pawn on its\n"
    "home row.\n";

int usageError(const std::string& message) {
    std::fprintf(stderr, "bitbasebench: %s\nTry 'bitbasebench --help'.\n", message.c_str());
    return 2;
}

struct Probe {
    int8_t kinds[2][BitbaseMaxMen + 1];
    int8_t squares[2][BitbaseMaxMen + 1];
    bool whiteToMove;
};

// Random positions of the material that the store answers, the colour listed first as White.
std::vector<Probe> samplePositions(BitbaseStore& store, const BitbaseKey& material, size_t n) {
    std::mt19937_64 random(20261124);
    const uint64_t count = bitbaseIndexCount(material);
    std::vector<Probe> probes;
    for (uint64_t tries = 0; probes.size() < n && tries < 100 * n; ++tries) {
        BitbaseKey key = material;
        const uint64_t index = random() % count;
        if (!bitbasePositionFromIndex(key, index) || bitbaseIndex(key) != index) continue;
        Probe p{};
        for (int i = 0; i < key.total; ++i) {
            const int side = i < key.firstCount ? 0 : 1;
            const int at = side ? i - key.firstCount : i;
            p.kinds[side][at] = key.kinds[i];
            p.squares[side][at] = key.squares[i];
        }
        p.whiteToMove = key.sideBit == 0;
        int result;
        if (store.probe(p.kinds[0], p.kinds[1], p.squares[0], p.squares[1], p.whiteToMove, false,
                        result))
            probes.push_back(p);
    }
    return probes;
}

// Nanoseconds a probe, over all of `probes`; `answered` counts those with an answer.
double timeProbes(BitbaseStore& store, const std::vector<Probe>& probes, size_t& answered) {
    answered = 0;
    const auto start = std::chrono::steady_clock::now();
    for (const Probe& p : probes) {
        int result;
        answered += store.probe(p.kinds[0], p.kinds[1], p.squares[0], p.squares[1], p.whiteToMove,
                                false, result);
    }
    const double ns =
        std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    return ns / double(probes.empty() ? 1 : probes.size());
}

void listSizes(const std::string& dir) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        if (entry.path().extension() == BitbaseFileExtension) files.push_back(entry.path());
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) {
        const std::string x = a.stem().string(), y = b.stem().string();
        return x.size() != y.size() ? x.size() < y.size() : x < y;
    });
    uint64_t bytes[2] = {0, 0}, raw[2] = {0, 0};  // up to four men, five
    for (const auto& path : files) {
        BitbaseKey key;
        const std::string name = path.stem().string();
        if (!bitbaseKeyFromName(key, name.c_str())) continue;
        const uint64_t size = std::filesystem::file_size(path);
        const uint64_t bits = (bitbaseIndexCount(key) + 7) / 8;
        std::printf("%-6s %11llu bytes for %11llu bytes of bits (%5.2f%%)\n", name.c_str(),
                    (unsigned long long)size, (unsigned long long)bits,
                    100.0 * double(size) / double(bits));
        bytes[key.total == 5] += size;
        raw[key.total == 5] += bits;
    }
    for (int five = 0; five < 2; ++five)
        if (raw[five])
            std::printf("all %s: %llu bytes for %llu bytes of bits (%.2f%%)\n",
                        five ? "five men" : "up to four men", (unsigned long long)bytes[five],
                        (unsigned long long)raw[five],
                        100.0 * double(bytes[five]) / double(raw[five]));
}

int printVerdicts(const std::string& dir, const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "bitbasebench: cannot read %s\n", path.c_str());
        return 1;
    }
    BitbaseStore store;
    store.setDirectory(dir.c_str());
    store.setCacheSize(size_t(64) << 20);
    for (std::string line; std::getline(in, line);) {
        Position p;
        constructPosition(p);
        const char* verdict = "?";
        int8_t kinds[2][BitbaseMaxMen + 2] = {}, squares[2][BitbaseMaxMen + 2] = {};
        // The files hold no castling, no capture en passant and no pawn on its home row: the
        // bits of such an index are filler, not a verdict.
        bool fits = parseFen(p, line.c_str()) && !p.castling && p.epSquare < 0 &&
                    popcount(p.occupied) <= 5 && !(p.white().pieces[Pawn] & 0xff000000000000) &&
                    !(p.black().pieces[Pawn] & 0xff00);
        for (int side = 0; side < 2 && fits; ++side) {
            int n = 0;
            for (int kind : {King, Pawn, Knight, Bishop, Rook, Queen})
                for (int i = 0; i < p.sides[side].pieceCount[kind]; ++i) {
                    kinds[side][n] = int8_t(kind);
                    squares[side][n++] = p.sides[side].pieceList[kind][i];
                }
        }
        int result = 0;
        if (fits && store.probe(kinds[0], kinds[1], squares[0], squares[1], p.whiteToMove != 0,
                                false, result))
            verdict = result > 0 ? "1-0" : result < 0 ? "0-1" : "1/2-1/2";
        std::printf("%s %s\n", verdict, line.c_str());
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words[0] == "--verdicts") {
        if (words.size() != 3) return usageError("--verdicts takes a directory and a file");
        return printVerdicts(words[1], words[2]);
    }
    for (const std::string& w : words) {
        if (isHelpWord(w)) {
            std::fputs(Usage, stdout);
            return 0;
        }
        if (looksLikeOption(w)) return usageError("unknown option: " + w);
    }
    if (words.size() < 2 || words.size() > 3) return usageError("give a directory and a name");
    long probes = 200000;
    if (words.size() == 3 && !parseWholeNumber(words[2], 1, 100000000, probes))
        return usageError("probes must be 1 to 100000000: " + words[2]);
    BitbaseKey material;
    if (!bitbaseKeyFromName(material, words[1].c_str()) || material.name != words[1])
        return usageError("not a material: " + words[1]);

    BitbaseStore store;
    store.setDirectory(words[0].c_str());
    store.setCacheSize(size_t(1) << 30);
    const std::vector<Probe> sample = samplePositions(store, material, size_t(probes));
    if (sample.empty()) {
        std::fprintf(stderr, "bitbasebench: no answer from %s in %s\n", words[1].c_str(),
                     words[0].c_str());
        return 1;
    }
    size_t answered = 0;
    const double cached = timeProbes(store, sample, answered);
    std::printf(
        "%zu probes of %s, cache holding all %llu blocks they touch: %.0f ns a probe "
        "(%zu answered)\n",
        sample.size(), words[1].c_str(), (unsigned long long)store.blocksHeld(), cached, answered);
    store.setCacheSize(1);
    const double read = timeProbes(store, sample, answered);
    std::printf("the same with the smallest cache (%llu blocks): %.0f ns a probe (%zu answered)\n",
                (unsigned long long)store.blockLimit(), read, answered);
    listSizes(words[0]);
    return 0;
}
