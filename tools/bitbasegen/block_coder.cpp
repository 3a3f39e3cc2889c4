#include "tools/bitbasegen/block_coder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "eval/bitbase_index.h"

namespace {

constexpr int Block = BitbaseBlockBytes;

// What one code at a position writes, and what it costs.
struct Step {
    int length = 1;  // output bytes
    int cost = 1;    // body bytes
    uint8_t code[3] = {0, 0, 0};
};

// The cheapest code that starts at `at`, measured as bytes saved per step: greedy is enough
// here, the blocks are mostly long runs.
Step bestStep(const uint8_t* block, int at, uint8_t escape) {
    Step best;
    best.code[0] = block[at];
    if (block[at] == escape) {
        best.cost = 2;
        best.code[1] = 0;
    }
    auto consider = [&](int length, int cost, uint8_t a, uint8_t b, uint8_t c) {
        if (length - cost > best.length - best.cost) {
            best.length = length;
            best.cost = cost;
            best.code[0] = a;
            best.code[1] = b;
            best.code[2] = c;
        }
    };
    int run = 1;
    while (at + run < Block && block[at + run] == block[at] && run < 66) ++run;
    if (block[at] == 0 && run >= 3) consider(run, 2, escape, uint8_t(64 | (run - 3)), 0);
    if (block[at] != 0 && run >= 4) consider(run, 3, escape, uint8_t(run - 3), block[at]);
    // Copies read from before `at` only: source start = at - gap - length.
    for (int from = at > 322 ? at - 322 : 0; from < at; ++from) {
        int length = 0;
        while (at + length < Block && from + length < at && length < 67 &&
               block[from + length] == block[at + length])
            ++length;
        const int gap = at - from - length;
        for (int l = length; l >= 3; --l) {
            const int g = at - from - l;
            if (l <= 10 && g <= 7) {
                consider(l, 2, escape, uint8_t(128 | ((l - 3) << 3) | g), 0);
                break;
            }
        }
        if (length >= 4 && gap <= 255)
            consider(length, 3, escape, uint8_t(192 | (length - 4)), uint8_t(gap));
    }
    return best;
}

}  // namespace

std::vector<uint8_t> encodeBitbaseBody(const uint8_t* block) {
    // The escape is the rarest byte value, so literals seldom need doubling.
    int counts[256] = {};
    for (int i = 0; i < Block; ++i) ++counts[block[i]];
    int escape = 1;
    for (int v = 1; v < 256; ++v)
        if (counts[v] < counts[escape]) escape = v;
    std::vector<uint8_t> body{uint8_t(escape)};
    for (int at = 0; at < Block;) {
        const Step s = bestStep(block, at, uint8_t(escape));
        body.insert(body.end(), s.code, s.code + s.cost);
        at += s.length;
    }
    return body;
}

std::vector<uint8_t> buildBitbaseFile(const std::vector<uint8_t>& bits) {
    const size_t blocks = (bits.size() + Block - 1) / Block;
    std::vector<uint8_t> file(blocks * BitbaseDirectoryEntryBytes);
    size_t mustHold = 0;  // bytes a reader may ask for, from the bounds of long bodies
    // A block equal to the one before it takes its body without a second encoding.
    uint8_t previous[Block] = {};
    std::vector<uint8_t> previousBody;
    for (size_t b = 0; b < blocks; ++b) {
        uint8_t block[Block] = {};
        const size_t first = b * Block;
        std::memcpy(block, bits.data() + first, std::min<size_t>(Block, bits.size() - first));
        uint8_t* entry = &file[b * BitbaseDirectoryEntryBytes];
        bool uniform = true;
        for (int i = 1; i < Block && uniform; ++i) uniform = block[i] == block[0];
        if (uniform) {
            entry[0] = entry[1] = entry[2] = 255;
            entry[3] = block[0];
            entry[4] = 0;
            continue;
        }
        if (previousBody.empty() || std::memcmp(block, previous, Block) != 0) {
            previousBody = encodeBitbaseBody(block);
            std::memcpy(previous, block, Block);
        }
        std::vector<uint8_t> body = previousBody;
        int lengthByte = 0;
        if (body.size() >= size_t(Block)) {
            body.assign(block, block + Block);
        } else if (body.size() <= 124) {
            lengthByte = int(body.size());
        } else {
            lengthByte = int((body.size() + 248 + 2) / 3);
        }
        // An offset whose low three bytes are all 255 would read as a uniform entry.
        if ((file.size() & 0xffffff) == 0xffffff) file.push_back(0);
        const size_t offset = file.size();
        entry[0] = uint8_t(offset);
        entry[1] = uint8_t(offset >> 8);
        entry[2] = uint8_t(offset >> 16);
        entry[3] = uint8_t(offset >> 24);
        entry[4] = uint8_t(lengthByte);
        if (lengthByte >= 125) mustHold = std::max(mustHold, offset + 3 * lengthByte - 248);
        file.insert(file.end(), body.begin(), body.end());
    }
    if (file.size() < mustHold) file.resize(mustHold, 0);
    return file;
}

bool writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes,
                         std::string& error) {
    const std::string temporary = path + ".tmp";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
        error = "cannot create " + temporary + ": " + std::strerror(errno);
        return false;
    }
    size_t done = 0;
    bool ok = true;
    while (ok && done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0)
            ok = false;
        else
            done += size_t(n);
    }
    ok = ok && ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    if (ok && std::rename(temporary.c_str(), path.c_str()) != 0) ok = false;
    if (!ok) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        ::unlink(temporary.c_str());
    }
    return ok;
}
