// bitbasegen: writes bitbase files by retrograde analysis, and checks written ones.
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "eval/bitbase_index.h"
#include "tools/bitbasegen/block_coder.h"
#include "tools/bitbasegen/solver.h"
#include "tools/bitbasegen/verifier.h"
#include "tools/support/command_line.h"

namespace {

const char* const Usage =
    "Usage: bitbasegen DIR NAME...\n"
    "       bitbasegen DIR --upto N\n"
    "       bitbasegen --verify DIR NAME...\n"
    "       bitbasegen --verify DIR --upto N\n"
    "\n"
    "Writes the bitbase files NAME.zbb into the directory DIR, or every file of at most N\n"
    "men (2 to 5). A name lists the men of the colour whose wins the file holds, then those\n"
    "of the other colour, each king first, then pawns to queens, by the letters of\n"
    "\"-BSLTDK\": KTK is rook against bare king, KBTKS rook and pawn against knight.\n"
    "Smaller materials that captures and promotions lead to are solved as well (in memory).\n"
    "\n"
    "--verify decodes the named files whole and checks each position against its moves with\n"
    "the engine's move generator; the mirrored files and those of the smaller materials must\n"
    "be in DIR.\n";

int usageError(const std::string& message) {
    std::fprintf(stderr, "bitbasegen: %s\nTry 'bitbasegen --help'.\n", message.c_str());
    return 2;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool writeFile(const std::string& dir, const std::string& name, const std::vector<uint8_t>& bits) {
    const std::vector<uint8_t> bytes = buildBitbaseFile(bits);
    std::string error;
    if (!writeFileAtomically(dir + "/" + name + BitbaseFileExtension, bytes, error)) {
        std::fprintf(stderr, "bitbasegen: %s\n", error.c_str());
        return false;
    }
    std::printf("%-6s %10zu bytes for %10zu bytes of bits (%.1f%%)\n", name.c_str(), bytes.size(),
                bits.size(), 100.0 * double(bytes.size()) / double(bits.size() ? bits.size() : 1));
    return true;
}

bool contains(const std::vector<std::string>& list, const std::string& word) {
    for (const std::string& w : list)
        if (w == word) return true;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    bool verify = false;
    long upto = 0;
    std::string dir;
    std::vector<std::string> names;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& w = words[i];
        if (isHelpWord(w)) {
            std::fputs(Usage, stdout);
            return 0;
        }
        if (w == "--verify") {
            verify = true;
        } else if (w == "--upto") {
            if (++i == words.size()) return usageError("--upto needs a number of men");
            if (!parseWholeNumber(words[i], 2, BitbaseMaxMen, upto))
                return usageError("--upto takes 2 to 5 men: " + words[i]);
        } else if (looksLikeOption(w)) {
            return usageError("unknown option: " + w);
        } else if (dir.empty()) {
            dir = w;
        } else {
            BitbaseKey key;
            std::string mirror;
            if (w.size() > size_t(BitbaseMaxMen) &&
                w.find_first_not_of("BSLTDK") == std::string::npos)
                return usageError("more than five men: " + w);
            if (!bitbaseKeyFromName(key, w.c_str()) || key.name != w || !mirrorName(w, mirror))
                return usageError(
                    "not a material (two kings, then pawns to queens by \"BSLTD\"): " + w);
            if (!contains(names, w)) names.push_back(w);
        }
    }
    if (dir.empty()) return usageError("no directory given");
    if (upto && !names.empty()) return usageError("give either names or --upto, not both");
    if (upto) names = namesUpTo(int(upto));
    if (names.empty()) return usageError("no file named");
    struct stat info;
    if (stat(dir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        return usageError("not a directory: " + dir);

    // stillRead[k]: the materials that those from k on look up.
    const std::vector<std::string> order = solvingOrder(names);
    std::vector<std::set<std::string>> stillRead(order.size() + 1);
    for (size_t k = order.size(); k-- > 0;) {
        stillRead[k] = stillRead[k + 1];
        stillRead[k].insert(order[k]);
        for (const std::string& s : materialsReachedFrom(order[k])) stillRead[k].insert(s);
    }
    auto stillNeeded = [&](size_t k, const std::string& name) {
        std::string mirror;
        mirrorName(name, mirror);
        return stillRead[k].count(name) != 0 || stillRead[k].count(mirror) != 0;
    };

    if (verify) {
        bool allRight = true;
        DecodedFiles files(dir);
        for (size_t k = 0; k < order.size(); ++k) {
            std::string mirror;
            mirrorName(order[k], mirror);
            if (!contains(names, order[k]) && !contains(names, mirror)) continue;
            files.forgetUnless([&](const std::string& n) { return stillNeeded(k, n); });
            const auto start = std::chrono::steady_clock::now();
            const VerifyResult r = verifyBitbaseMaterial(files, order[k]);
            const double seconds = secondsSince(start);
            // The mirrored file's first colour is this one's second, with the sides exchanged.
            for (int own = 1; own >= 0; --own) {
                const std::string& file = own ? order[k] : mirror;
                if (!contains(names, file) || (!own && mirror == order[k])) continue;
                const uint64_t toMove = own ? r.firstWins[0] : r.secondWins[1];
                const uint64_t notToMove = own ? r.firstWins[1] : r.secondWins[0];
                std::printf(
                    "%-6s legal %10llu  first wins: first to move %10llu, second to move %10llu"
                    "  wrong %llu  unanswered %llu  (%.1f s for the material)\n",
                    file.c_str(), (unsigned long long)r.legal, (unsigned long long)toMove,
                    (unsigned long long)notToMove, (unsigned long long)r.wrong,
                    (unsigned long long)r.unanswered, seconds);
            }
            if (r.wrong || r.unanswered) {
                std::printf("       first problem: %s\n", r.firstProblem.c_str());
                allRight = false;
            }
            std::fflush(stdout);
        }
        return allRight ? 0 : 1;
    }

    SolvedMaterials solved;
    for (size_t k = 0; k < order.size(); ++k) {
        const std::string& material = order[k];
        const auto start = std::chrono::steady_clock::now();
        solved.forgetUnless([&](const std::string& n) { return stillRead[k].count(n) != 0; });
        SolveResult r;
        std::string error;
        if (!solveMaterial(material, solved, r, error)) {
            std::fprintf(stderr, "bitbasegen: %s\n", error.c_str());
            return 1;
        }
        struct rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        std::printf("%-6s solved in %.1f s: %llu positions, longest win %d plies, peak %ld MB\n",
                    material.c_str(), secondsSince(start), (unsigned long long)r.legal,
                    r.longestWin, usage.ru_maxrss / 1024);
        if (contains(names, r.name) && !writeFile(dir, r.name, r.bits)) return 1;
        if (r.mirrorName != r.name && contains(names, r.mirrorName) &&
            !writeFile(dir, r.mirrorName, r.mirrorBits))
            return 1;
        std::fflush(stdout);
    }
    return 0;
}
