// Arbitrary bytes read as a bitbase file. The decoder must agree with a plain reading of the
// compression codes, and the store, given the bytes as the files of both colours, must answer
// a probe of every block exactly when a plain reading of the file gives a verdict, with that
// verdict; a block that failed is not kept, one that read is.
// The store reads files by name, so the input goes to a directory of this process; a crash
// leaves it behind.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "board/move.h"
#include "eval/bitbase_store.h"
#include "fuzz_support.h"

namespace {

// The codes read one by one into a growing output; false where the store must refuse.
bool referenceDecode(const std::vector<uint8_t>& body, std::vector<uint8_t>& out) {
    out.clear();
    if (body.empty()) return false;
    const uint8_t escape = body[0];
    size_t at = 1;
    auto take = [&](uint8_t& byte) {
        if (at >= body.size()) return false;
        byte = body[at++];
        return true;
    };
    while (out.size() < 512) {
        uint8_t c, n, v;
        if (!take(c)) return false;
        if (c != escape) {
            out.push_back(c);
        } else if (!take(n)) {
            return false;
        } else if (n == 0) {
            out.push_back(escape);
        } else if (n < 64) {
            if (!take(v)) return false;
            out.insert(out.end(), (n & 63) + 3, v);
        } else if (n < 128) {
            out.insert(out.end(), (n & 63) + 3, 0);
        } else {
            size_t length = 0, distance = 0;
            if (n < 192) {
                length = ((n >> 3) & 7) + 3;
                distance = n & 7;
            } else {
                if (!take(v)) return false;
                length = (n & 63) + 4;
                distance = v;
            }
            if (distance + length > out.size()) return false;
            const size_t from = out.size() - distance - length;
            for (size_t i = 0; i < length; ++i) out.push_back(out[from + i]);
        }
        if (out.size() > 512) return false;
    }
    return true;
}

// The bits of block b of the file, or false when the file gives none.
bool referenceBlock(const std::vector<uint8_t>& file, uint64_t b, std::vector<uint8_t>& bits) {
    const uint64_t entryAt = b * 5;
    if (entryAt + 5 > file.size()) return false;
    const uint8_t* e = &file[entryAt];
    if (e[0] == 255 && e[1] == 255 && e[2] == 255) {
        bits.assign(512, e[3]);
        return true;
    }
    const uint64_t offset = e[0] | e[1] << 8 | e[2] << 16 | uint64_t(e[3]) << 24;
    const size_t available = offset < file.size() ? file.size() - offset : 0;
    if (e[4] == 0) {
        if (available < 512) return false;
        bits.assign(file.begin() + offset, file.begin() + offset + 512);
        return true;
    }
    size_t length = e[4] < 125 ? e[4] : 3 * e[4] - 248;
    if (length > available) {
        if (e[4] < 125) return false;
        length = available;  // a bound, not a length: the file may end first
    }
    const std::vector<uint8_t> body(file.begin() + offset, file.begin() + offset + length);
    return referenceDecode(body, bits);
}

// -1 for no verdict, else the bit.
int referenceBit(const std::vector<uint8_t>& file, uint64_t index) {
    std::vector<uint8_t> bits;
    if (!referenceBlock(file, index / 4096, bits)) return -1;
    return (bits[(index >> 3) % 512] >> (index & 7)) & 1;
}

const int8_t WhiteKinds[] = {King, Rook, None};
const int8_t BlackKinds[] = {King, None};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> file(data, data + size);

    uint8_t decoded[512];
    std::vector<uint8_t> expected;
    const bool reads = decodeBitbaseBody(data, size, decoded);
    FUZZ_CHECK(reads == referenceDecode(file, expected), "decoder verdict differs");
    if (reads)
        FUZZ_CHECK(std::vector<uint8_t>(decoded, decoded + 512) == expected,
                   "decoded bytes differ");

    const std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                      ("zelmark_bitbase_fuzz_" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    for (const char* name : {"KTK", "KKT"}) {
        FILE* f = std::fopen((dir / (std::string(name) + ".zbb")).c_str(), "wb");
        if (!f) return 0;
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    BitbaseStore store;
    store.setCacheSize(1);
    store.setDirectory(dir.c_str());
    BitbaseKey material;
    bitbaseKeyFromName(material, "KTK");
    for (uint64_t block = 0; block < bitbaseIndexCount(material) / 4096; ++block) {
        BitbaseKey key = material;
        // A position in the block, and the bit its reading lands on.
        bitbasePositionFromIndex(key, block * 4096 + (size + block * 977) % 4096);
        BitbaseKey mirrored;
        mirroredBitbaseKey(key, mirrored);
        const int first = referenceBit(file, bitbaseIndex(key));
        const int second = first == 0 ? referenceBit(file, bitbaseIndex(mirrored)) : -1;
        const bool answers = first == 1 || second >= 0;
        const int8_t white[] = {key.squares[0], key.squares[1]};
        const int8_t black[] = {key.squares[2]};
        for (const bool cacheOnly : {false, true}) {
            int result = 7;
            const bool found = store.probe(WhiteKinds, BlackKinds, white, black, key.sideBit == 0,
                                           cacheOnly, result);
            const std::string where = "block " + std::to_string(block) +
                                      (cacheOnly ? " from the cache" : " from the disk");
            FUZZ_CHECK(found == answers, "probe answered or not against the reading, " + where);
            if (found) FUZZ_CHECK(result == (first == 1 ? 1 : -second), "wrong verdict, " + where);
        }
    }
    std::filesystem::remove_all(dir);
    return 0;
}
