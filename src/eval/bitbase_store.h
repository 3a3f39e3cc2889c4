// The bitbase files, read through a block cache: a hash table of chains of 512-byte blocks,
// each chain in most-recently-used order. One lock covers a whole probe, disk reads included,
// so every searcher thread can share one store.
//
// A file has no header: entry b of the directory, 5 bytes at offset 5 * b, describes block b.
// Bytes 0 to 2 all 255: every byte of the block is byte 3. Otherwise bytes 0 to 3 are the
// little-endian offset of the block's body, and byte 4 its length: 0 for 512 raw bytes, 1 to
// 124 for a compressed body of exactly that many bytes, 125 to 255 for one of at most
// 3 * length - 248 bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "eval/bitbase_index.h"

struct BitbaseBlock {
    uint64_t start;  // block number times 512
    BitbaseBlock* next;
    uint32_t lastUse;
    char name[BitbaseMaxMen + 1];
    uint8_t bits[BitbaseBlockBytes];
};

// Decodes a compressed body of `length` bytes into the 512 bytes of `out`. The first byte is
// the escape value; see the table in bitbase_store.cpp. False if the body ends before 512
// bytes are out, or a run or copy would pass the end of the block or copy from before its start.
bool decodeBitbaseBody(const uint8_t* body, size_t length, uint8_t* out);

class BitbaseStore {
  public:
    // Directory ".", no table: nothing is probed until a size is set.
    BitbaseStore();
    ~BitbaseStore();
    BitbaseStore(const BitbaseStore&) = delete;
    BitbaseStore& operator=(const BitbaseStore&) = delete;

    // Discards every block and the table. 0 leaves the store without a table; other sizes
    // below 54400 bytes count as 54400. A table that can't be allocated leaves none.
    void setCacheSize(size_t bytes);
    // The directory of the files, without a separator at its end; at most 511 characters kept.
    void setDirectory(const char* text);

    // The verdict for the position of two zero-terminated kind lists, White's first, each king
    // first and then pawns to queens, with their squares. True if found: `result` 1 if White
    // wins, -1 if White loses, 0 for a draw (which needs the files of both colours). With
    // `cacheOnly` the disk is never read. A failed read is not remembered: the next probe of
    // the block reads again.
    bool probe(const int8_t* whiteKinds, const int8_t* blackKinds, const int8_t* whiteSquares,
               const int8_t* blackSquares, bool whiteToMove, bool cacheOnly, int& result);

    bool hasTable() const { return buckets != nullptr; }
    // Sizes, for the tests and the options' checks.
    uint64_t tableSize() const { return bucketCount; }
    uint64_t blockLimit() const { return maxBlocks; }
    uint64_t blocksHeld() const { return blockCount; }
    const char* directoryText() const { return directory; }

  private:
    // 1 or 0 for the bit, -1 for no answer.
    int readBit(const BitbaseKey& key, uint64_t index, bool cacheOnly);
    // A block to fill: a new one while below the limit, else the stalest tail of five chains
    // from `hash` on. Null if memory fails.
    BitbaseBlock* acquireBlock(uint64_t hash);
    bool loadBlock(BitbaseBlock& block, uint64_t blockNumber) const;
    void freeBlocks();

    BitbaseBlock** buckets = nullptr;  // chain heads
    uint64_t bucketCount = 0;          // a power of two
    uint64_t maxBlocks = 0;
    uint64_t blockCount = 0;
    uint32_t useClock = 0;  // increased by each lookup
    char directory[512] = ".";
    std::mutex lock;
};
