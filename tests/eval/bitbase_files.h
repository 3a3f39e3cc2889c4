// Hand-made bitbase files for the tests: a directory of 5-byte entries and the bodies after it,
// each block uniform, raw or compressed, or an entry of any bytes at all.
#pragma once

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "eval/bitbase_index.h"

class BitbaseFile {
  public:
    using Block = std::array<uint8_t, BitbaseBlockBytes>;

    BitbaseFile& uniform(uint8_t value) {
        blocks.push_back({Entry{255, 255, 255, value, 0x5a}, {}, false});
        return *this;
    }
    BitbaseFile& raw(const Block& bits) {
        blocks.push_back({Entry{}, std::vector<uint8_t>(bits.begin(), bits.end()), true});
        return *this;
    }
    // A compressed body; the length byte is its size, or `lengthByte` when given (125 and up
    // give only a bound).
    BitbaseFile& compressed(const std::vector<uint8_t>& body, int lengthByte = -1) {
        blocks.push_back({Entry{}, body, true, lengthByte < 0 ? int(body.size()) : lengthByte});
        return *this;
    }
    // A directory entry as it stands, with no body.
    BitbaseFile& entry(const std::array<uint8_t, 5>& bytes) {
        blocks.push_back({bytes, {}, false});
        return *this;
    }

    // The file's bytes, cut to `keep` bytes when given.
    void write(const std::string& path, size_t keep = SIZE_MAX) const {
        std::vector<uint8_t> bytes(blocks.size() * BitbaseDirectoryEntryBytes);
        for (size_t b = 0; b < blocks.size(); ++b) {
            Entry e = blocks[b].entry;
            if (blocks[b].hasBody) {
                const size_t offset = bytes.size();
                e = Entry{uint8_t(offset), uint8_t(offset >> 8), uint8_t(offset >> 16),
                          uint8_t(offset >> 24), uint8_t(blocks[b].lengthByte)};
                if (blocks[b].lengthByte < 0) e[4] = 0;  // raw
                bytes.insert(bytes.end(), blocks[b].body.begin(), blocks[b].body.end());
            }
            std::copy(e.begin(), e.end(), bytes.begin() + b * BitbaseDirectoryEntryBytes);
        }
        if (keep < bytes.size()) bytes.resize(keep);
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }

  private:
    using Entry = std::array<uint8_t, 5>;
    struct Stored {
        Entry entry;
        std::vector<uint8_t> body;
        bool hasBody;
        int lengthByte = -1;
    };
    std::vector<Stored> blocks;
};

// Compressed body of a block: escape 0xee, literal bytes where `bits` isn't zero and zero runs
// of up to 66 bytes between them.
inline std::vector<uint8_t> compressBlock(const BitbaseFile::Block& bits) {
    const uint8_t escape = 0xee;
    std::vector<uint8_t> body{escape};
    for (size_t at = 0; at < bits.size();) {
        size_t zeros = 0;
        while (at + zeros < bits.size() && bits[at + zeros] == 0 && zeros < 66) ++zeros;
        if (zeros >= 3) {
            body.insert(body.end(), {escape, uint8_t(64 | (zeros - 3))});
            at += zeros;
        } else if (bits[at] == escape) {
            body.insert(body.end(), {escape, 0});
            ++at;
        } else {
            body.push_back(bits[at++]);
        }
    }
    return body;
}

// A directory of its own under /tmp, removed with the object.
class ScratchDirectory {
  public:
    ScratchDirectory() {
        path = std::filesystem::temp_directory_path() /
               ("zelmark_bitbase_" + std::to_string(getpid()) + "_" + std::to_string(counter()++));
        std::filesystem::create_directories(path);
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string file(const std::string& name) const { return (path / (name + ".zbb")).string(); }
    std::string text() const { return path.string(); }

  private:
    static int& counter() {
        static int n = 0;
        return n;
    }
    std::filesystem::path path;
};

// A file of the material `name` whose blocks are all `value`.
inline void writeUniform(const ScratchDirectory& dir, const char* name, uint8_t value) {
    BitbaseKey material;
    bitbaseKeyFromName(material, name);
    BitbaseFile file;
    const uint64_t blocks = (bitbaseIndexCount(material) + BitbaseBlockBits - 1) / BitbaseBlockBits;
    for (uint64_t b = 0; b < blocks; ++b) file.uniform(value);
    file.write(dir.file(name));
}
