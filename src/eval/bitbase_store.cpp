#include "eval/bitbase_store.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Bytes of memory one block stands for, in the sizing of the table: a block with its share of
// chain heads at two blocks a chain.
constexpr size_t BytesPerBlock = 568;
constexpr size_t BytesPerBucket = 1136;
constexpr size_t SmallestCache = 54400;
// Buckets the eviction compares, and its stride through the table (odd, so it reaches all).
constexpr int EvictionCandidates = 5;
constexpr uint64_t EvictionStride = 113;

constexpr uint32_t NameWeights[8] = {10001, 10007, 10009, 10033, 10037, 10039, 10057, 10067};

uint64_t blockHash(const char* name, uint64_t blockNumber) {
    uint64_t h = blockNumber;
    for (int i = 0; name[i]; ++i) h += static_cast<uint64_t>(name[i]) * NameWeights[i];
    return h;
}

// The longest body a directory entry allows: 3 * 255 - 248.
constexpr size_t LongestBody = 517;

}  // namespace

// The body's first byte is the escape E; then, until 512 bytes are out:
//   x (not E)            x
//   E 0                  E
//   E n v    (n < 64)    v, (n & 63) + 3 times
//   E n      (n 64-127)  0, (n & 63) + 3 times
//   E n      (n 128-191) copy L = ((n >> 3) & 7) + 3 bytes from L + (n & 7) back
//   E n d    (n >= 192)  copy L = (n & 63) + 4 bytes from L + d back
bool decodeBitbaseBody(const uint8_t* body, size_t length, uint8_t* out) {
    if (length == 0) return false;
    const uint8_t escape = body[0];
    size_t in = 1, at = 0;
    while (at < BitbaseBlockBytes) {
        if (in >= length) return false;
        const uint8_t c = body[in++];
        if (c != escape) {
            out[at++] = c;
            continue;
        }
        if (in >= length) return false;
        const uint8_t n = body[in++];
        if (n == 0) {
            out[at++] = escape;
            continue;
        }
        size_t count = 0, back = 0;
        switch (n >> 6) {
            case 0:
            case 1: {
                count = (n & 63) + 3;
                uint8_t value = 0;
                if (n < 64) {
                    if (in >= length) return false;
                    value = body[in++];
                }
                if (at + count > BitbaseBlockBytes) return false;
                std::memset(out + at, value, count);
                at += count;
                continue;
            }
            case 2:
                count = ((n >> 3) & 7) + 3;
                back = (n & 7) + count;
                break;
            default:
                if (in >= length) return false;
                count = (n & 63) + 4;
                back = body[in++] + count;
                break;
        }
        if (back > at || at + count > BitbaseBlockBytes) return false;
        for (size_t i = 0; i < count; ++i, ++at) out[at] = out[at - back];
    }
    return true;
}

BitbaseStore::BitbaseStore() = default;

BitbaseStore::~BitbaseStore() {
    freeBlocks();
}

void BitbaseStore::freeBlocks() {
    for (uint64_t i = 0; buckets && i < bucketCount; ++i) {
        for (BitbaseBlock* b = buckets[i]; b;) {
            BitbaseBlock* next = b->next;
            delete b;
            b = next;
        }
    }
    std::free(buckets);
    buckets = nullptr;
    bucketCount = 0;
    maxBlocks = 0;
    blockCount = 0;
}

void BitbaseStore::setCacheSize(size_t bytes) {
    std::lock_guard<std::mutex> guard(lock);
    freeBlocks();
    useClock = 0;
    if (bytes == 0) return;
    if (bytes < SmallestCache) bytes = SmallestCache;
    // The next power of two above bytes / 1136, the following one for an exact power.
    uint64_t fill = bytes / BytesPerBucket;
    for (int s = 1; s < 64; s *= 2) fill |= fill >> s;
    const uint64_t count = fill + 1;
    // calloc checks the product, so a request beyond the machine gives no table.
    buckets = static_cast<BitbaseBlock**>(std::calloc(count, sizeof(BitbaseBlock*)));
    if (!buckets) return;
    bucketCount = count;
    maxBlocks = bytes / BytesPerBlock;
}

void BitbaseStore::setDirectory(const char* text) {
    std::lock_guard<std::mutex> guard(lock);
    std::snprintf(directory, sizeof directory, "%s", text);
}

bool BitbaseStore::probe(const int8_t* whiteKinds, const int8_t* blackKinds,
                         const int8_t* whiteSquares, const int8_t* blackSquares, bool whiteToMove,
                         bool cacheOnly, int& result) {
    BitbaseKey key, mirrored;
    if (!makeBitbaseKey(key, whiteKinds, whiteSquares, blackKinds, blackSquares,
                        whiteToMove ? 0 : 1))
        return false;
    // The second look: Black listed first on the board flipped top to bottom, so that the
    // colour listed first always has its pawns moving towards a8.
    mirroredBitbaseKey(key, mirrored);
    const uint64_t index = bitbaseIndex(key);
    const uint64_t mirroredIndex = bitbaseIndex(mirrored);
    if (index == NoBitbaseIndex) return false;

    std::lock_guard<std::mutex> guard(lock);
    if (!buckets) return false;
    const int first = readBit(key, index, cacheOnly);
    if (first > 0) {
        result = 1;
        return true;
    }
    if (first < 0) return false;
    // White doesn't win: whether Black does tells a loss from a draw.
    if (mirroredIndex == NoBitbaseIndex) return false;
    const int second = readBit(mirrored, mirroredIndex, cacheOnly);
    if (second < 0) return false;
    result = -second;
    return true;
}

int BitbaseStore::readBit(const BitbaseKey& key, uint64_t index, bool cacheOnly) {
    const uint64_t blockNumber = index / BitbaseBlockBits;
    const uint64_t start = blockNumber * BitbaseBlockBytes;
    const uint64_t hash = blockHash(key.name, blockNumber);
    BitbaseBlock** head = &buckets[hash & (bucketCount - 1)];
    BitbaseBlock* previous = nullptr;
    BitbaseBlock* block = *head;
    while (block && (block->start != start || std::strcmp(block->name, key.name) != 0)) {
        previous = block;
        block = block->next;
    }
    ++useClock;
    const size_t byte = (index >> 3) % BitbaseBlockBytes;
    const int bit = static_cast<int>(index & 7);
    if (block) {
        // To the front, stamped with this use; a block already at the front keeps its stamp.
        if (previous) {
            previous->next = block->next;
            block->next = *head;
            *head = block;
            block->lastUse = useClock;
        }
        return (block->bits[byte] >> bit) & 1;
    }
    if (cacheOnly) return -1;
    block = acquireBlock(hash);
    if (!block) return -1;
    block->start = start;
    std::memcpy(block->name, key.name, sizeof block->name);
    block->lastUse = useClock;
    if (!loadBlock(*block, blockNumber)) {
        // Nothing remembers the failure: the next probe of this block reads again.
        --blockCount;
        delete block;
        return -1;
    }
    block->next = *head;
    *head = block;
    return (block->bits[byte] >> bit) & 1;
}

BitbaseBlock* BitbaseStore::acquireBlock(uint64_t hash) {
    if (blockCount < maxBlocks) {
        BitbaseBlock* fresh = new (std::nothrow) BitbaseBlock;
        if (fresh) ++blockCount;
        return fresh;
    }
    // The tail of a chain is its least recently used block; of the tails of five non-empty
    // chains the one unused longest goes. Every held block is in some chain, so the walk finds
    // five; the step limit only guards a table with no blocks at all.
    BitbaseBlock* stalest = nullptr;
    BitbaseBlock** stalestLink = nullptr;
    uint32_t stalestAge = 0;
    uint64_t b = hash;
    int seen = 0;
    for (uint64_t steps = 0; seen < EvictionCandidates && steps < EvictionCandidates * bucketCount;
         ++steps) {
        const uint64_t bucket = b & (bucketCount - 1);
        b = bucket + EvictionStride;
        BitbaseBlock** link = &buckets[bucket];
        if (!*link) continue;
        ++seen;
        while ((*link)->next) link = &(*link)->next;
        const uint32_t age = useClock - (*link)->lastUse;
        if (!stalest || age > stalestAge) {
            stalest = *link;
            stalestLink = link;
            stalestAge = age;
        }
    }
    if (stalest) *stalestLink = nullptr;
    return stalest;
}

bool BitbaseStore::loadBlock(BitbaseBlock& block, uint64_t blockNumber) const {
    char path[sizeof directory + BitbaseMaxMen + 8];
    std::snprintf(path, sizeof path, "%s/%s%s", directory, block.name, BitbaseFileExtension);
    // Opened anew for each miss: no handle is kept between probes.
    FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    uint8_t entry[BitbaseDirectoryEntryBytes];
    bool ok = std::fseek(file, static_cast<long>(blockNumber * BitbaseDirectoryEntryBytes),
                         SEEK_SET) == 0 &&
              std::fread(entry, 1, sizeof entry, file) == sizeof entry;
    if (ok && entry[0] == 255 && entry[1] == 255 && entry[2] == 255) {
        std::memset(block.bits, entry[3], sizeof block.bits);
    } else if (ok) {
        const long offset = static_cast<long>(entry[0] | entry[1] << 8 | entry[2] << 16 |
                                              static_cast<uint32_t>(entry[3]) << 24);
        const size_t length = entry[4];
        ok = std::fseek(file, offset, SEEK_SET) == 0;
        if (ok && length == 0) {
            ok = std::fread(block.bits, 1, sizeof block.bits, file) == sizeof block.bits;
        } else if (ok) {
            // A short body has its exact length; a long one only a bound, and it may end the
            // file before the bound.
            uint8_t body[LongestBody];
            const size_t wanted = length < 125 ? length : 3 * length - 248;
            const size_t got = std::fread(body, 1, wanted, file);
            ok = (got == wanted || length >= 125) && decodeBitbaseBody(body, got, block.bits);
        }
    }
    std::fclose(file);
    return ok;
}
