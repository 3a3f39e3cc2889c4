#include "eval/bitbase_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "bitbase_files.h"
#include "board/move.h"

namespace {

using Block = BitbaseFile::Block;

std::vector<uint8_t> zerosAfter(std::vector<uint8_t> body, size_t written, uint8_t escape) {
    for (size_t left = 512 - written; left > 0;) {
        const size_t run = left > 66 ? 66 : left;
        if (run >= 3) {
            body.insert(body.end(), {escape, uint8_t(64 | (run - 3))});
        } else {
            body.insert(body.end(), run, 0);
        }
        left -= run;
    }
    return body;
}

// Each body is filled up to 512 bytes with zero runs after the bytes its own codes write.
struct DecodeCase {
    const char* what;
    std::vector<uint8_t> body;
    int writes;  // bytes the case's own codes write; -1 if decoding fails, -2 if it runs out
    std::vector<uint8_t> expected;
};

TEST(BitbaseDecoder, EveryCodeAndEveryRefusal) {
    const uint8_t E = 0x7f;
    const DecodeCase cases[] = {
        {"literals and an escaped escape", {E, 1, 2, E, 0, 3}, 4, {1, 2, E, 3}},
        {"run of a value", {E, 9, E, 2, 0xab}, 6, {9, 0xab, 0xab, 0xab, 0xab, 0xab}},
        {"run of zeros", {E, 9, E, 64 | 1, 5}, 6, {9, 0, 0, 0, 0, 5}},
        // Short copy: L = 3, from L + 1 back.
        {"short copy", {E, 1, 2, 3, 4, E, 128 | (0 << 3) | 1}, 7, {1, 2, 3, 4, 1, 2, 3}},
        // Long copy: L = 4, from L + 0 back, repeating the last four.
        {"long copy", {E, 1, 2, 3, 4, E, 192, 0}, 8, {1, 2, 3, 4, 1, 2, 3, 4}},
        {"long copy with distance", {E, 1, 2, 3, 4, 5, E, 192, 1}, 9, {1, 2, 3, 4, 5, 1, 2, 3, 4}},
        {"copy from before the start", {E, 1, 2, E, 128 | 0}, -1, {}},
        {"long copy from before the start", {E, 1, 2, 3, 4, E, 192, 1}, -1, {}},
        // The body ends inside a code.
        {"escape with nothing after it", {E, 1, E}, -2, {}},
        {"run with its value missing", {E, 1, E, 5}, -2, {}},
        {"long copy with its distance missing", {E, 1, 2, 3, 4, E, 192}, -2, {}},
    };
    for (const DecodeCase& c : cases) {
        std::vector<uint8_t> body = c.body;
        if (c.writes >= 0) body = zerosAfter(body, c.writes, E);
        if (c.writes == -1) body = zerosAfter(body, 0, E);  // room enough: the code itself fails
        uint8_t out[512];
        std::memset(out, 0xcc, sizeof out);
        const bool ok = decodeBitbaseBody(body.data(), body.size(), out);
        EXPECT_EQ(ok, c.writes >= 0) << c.what;
        if (!ok || c.writes < 0) continue;
        std::vector<uint8_t> expected = c.expected;
        expected.resize(512, 0);
        EXPECT_EQ(std::vector<uint8_t>(out, out + 512), expected) << c.what;
    }
}

TEST(BitbaseDecoder, NothingMayPassTheBlockEnd) {
    const uint8_t E = 0;
    // 507 zeros first, then codes that would write 6 or more.
    const std::vector<uint8_t> endings[] = {
        {E, 5, 1},            // run of a value
        {E, 64 | 3},          // run of zeros
        {E, 128 | (3 << 3)},  // short copy of 6
        {E, 192 | 2, 0},      // long copy of 6
    };
    for (const std::vector<uint8_t>& ending : endings) {
        std::vector<uint8_t> body{E};
        for (int i = 0; i < 7; ++i) body.insert(body.end(), {E, 64 | 63});  // 7 * 66 = 462
        body.insert(body.end(), {E, 64 | 42});                              // 45: 507
        body.insert(body.end(), ending.begin(), ending.end());
        body.insert(body.end(), 20, 1);  // literals that would have ended it properly
        uint8_t out[512];
        EXPECT_FALSE(decodeBitbaseBody(body.data(), body.size(), out)) << int(ending[1]);
    }
    // Exactly 512 is fine, and what follows is never read.
    std::vector<uint8_t> exact = zerosAfter({E}, 0, E);
    exact.push_back(E);
    uint8_t out[512];
    EXPECT_TRUE(decodeBitbaseBody(exact.data(), exact.size(), out));
    EXPECT_FALSE(decodeBitbaseBody(exact.data(), exact.size() - 2, out));
    EXPECT_FALSE(decodeBitbaseBody(exact.data(), 0, out));
}

TEST(BitbaseStore, CacheSizes) {
    struct Case {
        size_t bytes;
        uint64_t blocks, buckets;
    };
    const Case cases[] = {
        {0, 0, 0},
        {1, 95, 64},  // the smallest cache
        {54399, 95, 64},
        {1136 * 64, 128, 128},  // an exact power of two goes one further
        {1136 * 64 - 1, 127, 64},
        {100 * 1048576, 184608, 131072},
        {size_t{1} << 60, 0, 0},  // more than any machine: no table, no answers
    };
    for (const Case& c : cases) {
        BitbaseStore store;
        store.setCacheSize(12345678);
        store.setCacheSize(c.bytes);
        EXPECT_EQ(store.blockLimit(), c.blocks) << c.bytes;
        EXPECT_EQ(store.tableSize(), c.buckets) << c.bytes;
        EXPECT_EQ(store.hasTable(), c.buckets != 0) << c.bytes;
        EXPECT_EQ(store.blocksHeld(), 0u);
    }
}

// White king, rook and Black king, with White's men listed first as the search lists them.
struct Men {
    int8_t whiteKing, whiteRook, blackKing;
    bool whiteToMove;
};

const int8_t WhiteKinds[] = {King, Rook, None};
const int8_t BlackKinds[] = {King, None};

bool probeMen(BitbaseStore& store, const Men& m, bool cacheOnly, int& result) {
    const int8_t white[] = {m.whiteKing, m.whiteRook};
    const int8_t black[] = {m.blackKing};
    return store.probe(WhiteKinds, BlackKinds, white, black, m.whiteToMove, cacheOnly, result);
}

uint64_t indexOf(const Men& m) {
    const int8_t white[] = {m.whiteKing, m.whiteRook};
    const int8_t black[] = {m.blackKing};
    BitbaseKey key;
    makeBitbaseKey(key, WhiteKinds, white, BlackKinds, black, m.whiteToMove ? 0 : 1);
    return bitbaseIndex(key);
}

const Men Sample{60, 7, 20, true};  // Ke1, Rh8 against Ke6, White to move

// The KTK file: every block uniform `fill`, but for the sample's block, which `form` writes.
void writeKtk(const ScratchDirectory& dir, const std::function<void(BitbaseFile&)>& form,
              uint8_t fill = 0, size_t keep = SIZE_MAX) {
    const uint64_t special = indexOf(Sample) / 4096;
    BitbaseFile ktk;
    for (uint64_t b = 0; b < 20; ++b) b == special ? form(ktk) : (void)ktk.uniform(fill);
    ktk.write(dir.file("KTK"), keep);
}

TEST(BitbaseStore, EveryBlockFormGivesItsBits) {
    const uint64_t index = indexOf(Sample);
    Block withBit{};
    withBit[(index >> 3) % 512] = uint8_t(1 << (index & 7));
    Block withoutBit;
    withoutBit.fill(0xff);
    withoutBit[(index >> 3) % 512] ^= uint8_t(1 << (index & 7));
    const std::vector<uint8_t> packed = compressBlock(withBit);
    ASSERT_LT(packed.size(), 125u);
    struct Case {
        const char* what;
        std::function<void(BitbaseFile&)> form;
        int expected;
    };
    const Case cases[] = {
        // The entry's fifth byte is junk and no body follows the directory.
        {"uniform 255", [](BitbaseFile& f) { f.uniform(255); }, 1},
        {"uniform 0", [](BitbaseFile& f) { f.uniform(0); }, 0},
        {"raw", [&](BitbaseFile& f) { f.raw(withBit); }, 1},
        {"raw without the bit", [&](BitbaseFile& f) { f.raw(withoutBit); }, 0},
        {"compressed, exact length", [&](BitbaseFile& f) { f.compressed(packed); }, 1},
        // At most 3 * 200 - 248 = 352 bytes: the body is shorter and ends the file.
        {"compressed, a bound past the file's end",
         [&](BitbaseFile& f) { f.compressed(packed, 200); }, 1},
    };
    for (const Case& c : cases) {
        ScratchDirectory dir;
        writeKtk(dir, c.form, 0xff);
        writeUniform(dir, "KKT", 0);
        BitbaseStore store;
        store.setCacheSize(1);
        store.setDirectory(dir.text().c_str());
        int result = 7;
        EXPECT_TRUE(probeMen(store, Sample, false, result)) << c.what;
        EXPECT_EQ(result, c.expected) << c.what;
    }
}

// White's file first; if White doesn't win there, Black's file of the flipped board.
TEST(BitbaseStore, SecondLookTellsLossFromDraw) {
    struct Case {
        int ktk, kkt;  // uniform value, -1 for no file
        bool found;
        int result;
    };
    const Case cases[] = {
        {255, -1, true, 1}, {0, 255, true, -1},  {0, 0, true, 0},
        {0, -1, false, 0},  {-1, 255, false, 0},
    };
    for (const Case& c : cases) {
        ScratchDirectory dir;
        if (c.ktk >= 0) writeUniform(dir, "KTK", uint8_t(c.ktk));
        if (c.kkt >= 0) writeUniform(dir, "KKT", uint8_t(c.kkt));
        BitbaseStore store;
        store.setCacheSize(1);
        store.setDirectory(dir.text().c_str());
        for (const bool whiteToMove : {true, false}) {
            int result = 7;
            const Men m{Sample.whiteKing, Sample.whiteRook, Sample.blackKing, whiteToMove};
            EXPECT_EQ(probeMen(store, m, false, result), c.found) << c.ktk << " " << c.kkt;
            if (c.found) {
                EXPECT_EQ(result, c.result) << c.ktk << " " << c.kkt;
            }
        }
    }
}

// A bad block gives no answer and leaves no trace: once the file is mended the same probe reads
// it.
TEST(BitbaseStore, BadFilesGiveNoAnswerAndAreReadAgain) {
    const uint8_t E = 0x11;
    std::vector<uint8_t> overrun{E};
    for (int i = 0; i < 8; ++i) overrun.insert(overrun.end(), {E, 64 | 63});  // 528 zeros
    const std::vector<uint8_t> earlyCopy = zerosAfter({E, 1, E, 128 | 1}, 0, E);
    const std::vector<uint8_t> fine = zerosAfter({E}, 0, E);
    const std::vector<uint8_t> unfinished(fine.begin(), fine.end() - 2);
    Block raw{};
    struct Case {
        const char* what;
        std::function<void(BitbaseFile&)> form;
        int cutFromEnd;  // bytes missing at the file's end
    };
    const Case cases[] = {
        {"a run past 512 bytes", [&](BitbaseFile& f) { f.compressed(overrun); }, 0},
        {"a copy from before the start", [&](BitbaseFile& f) { f.compressed(earlyCopy); }, 0},
        {"a body that ends too soon", [&](BitbaseFile& f) { f.compressed(unfinished); }, 0},
        {"an exact body cut by the file's end", [&](BitbaseFile& f) { f.compressed(fine); }, 1},
        {"a raw body cut by the file's end", [&](BitbaseFile& f) { f.raw(raw); }, 1},
        {"a body offset past the file's end",
         [](BitbaseFile& f) {
             f.entry({0, 0, 0, 1, 0});
         },
         0},
        {"a directory cut before the entry", [](BitbaseFile& f) { f.uniform(255); }, 100},
    };
    for (const Case& c : cases) {
        ScratchDirectory dir;
        size_t keep = SIZE_MAX;
        if (c.cutFromEnd) {
            writeKtk(dir, c.form);
            keep = std::filesystem::file_size(dir.file("KTK")) - c.cutFromEnd;
        }
        writeKtk(dir, c.form, 0, keep);
        writeUniform(dir, "KKT", 0);
        BitbaseStore store;
        store.setCacheSize(1);
        store.setDirectory(dir.text().c_str());
        int result = 7;
        EXPECT_FALSE(probeMen(store, Sample, false, result)) << c.what;
        EXPECT_EQ(store.blocksHeld(), 0u) << c.what;
        EXPECT_FALSE(probeMen(store, Sample, false, result)) << c.what;
        writeKtk(dir, [](BitbaseFile& f) { f.uniform(255); });
        EXPECT_TRUE(probeMen(store, Sample, false, result)) << c.what;
        EXPECT_EQ(result, 1) << c.what;
    }
}

TEST(BitbaseStore, DiskIsReadOnlyWithATableAndWithoutCacheOnly) {
    ScratchDirectory dir;
    writeUniform(dir, "KTK", 255);
    BitbaseStore store;
    store.setDirectory(dir.text().c_str());
    int result = 7;
    EXPECT_FALSE(probeMen(store, Sample, false, result));  // no size set yet
    store.setCacheSize(1);
    EXPECT_FALSE(probeMen(store, Sample, true, result));  // not yet in memory
    EXPECT_TRUE(probeMen(store, Sample, false, result));
    std::filesystem::remove(dir.file("KTK"));
    EXPECT_TRUE(probeMen(store, Sample, true, result));  // now it is
    EXPECT_TRUE(probeMen(store, Sample, false, result));
    EXPECT_EQ(result, 1);
    store.setCacheSize(1);  // a new size forgets every block
    EXPECT_FALSE(probeMen(store, Sample, true, result));
    writeUniform(dir, "KTK", 255);
    store.setCacheSize(0);
    EXPECT_FALSE(probeMen(store, Sample, false, result));
    store.setCacheSize(1);
    store.setDirectory(".");
    EXPECT_FALSE(probeMen(store, Sample, false, result));
}

// A file of 1280 blocks through a cache of 95: the cache stays full, never fuller, and the
// blocks it keeps still answer from memory.
TEST(BitbaseStore, EvictionKeepsTheCacheFullAndItsBlocksReadable) {
    ScratchDirectory dir;
    BitbaseKey material;
    ASSERT_TRUE(bitbaseKeyFromName(material, "KTKT"));
    writeUniform(dir, "KTKT", 255);
    BitbaseStore store;
    store.setCacheSize(1);
    store.setDirectory(dir.text().c_str());
    const int8_t kinds[] = {King, Rook, None};
    std::vector<std::array<int8_t, 5>> positions;  // four squares and White to move
    std::set<uint64_t> blocksUsed;
    for (int b = 0; b < 400; ++b) {
        BitbaseKey key = material;
        ASSERT_TRUE(bitbasePositionFromIndex(key, uint64_t(b) * 4096 + 77));
        positions.push_back({key.squares[0], key.squares[1], key.squares[2], key.squares[3],
                             int8_t(key.sideBit == 0)});
        blocksUsed.insert(bitbaseIndex(key) / 4096);
        int result = 7;
        const std::array<int8_t, 5>& s = positions.back();
        ASSERT_TRUE(store.probe(kinds, kinds, &s[0], &s[2], s[4], false, result));
        EXPECT_EQ(result, 1);
        EXPECT_LE(store.blocksHeld(), 95u);
    }
    EXPECT_EQ(store.blocksHeld(), 95u);
    std::filesystem::remove(dir.file("KTKT"));
    std::set<uint64_t> resident;
    for (const std::array<int8_t, 5>& s : positions) {
        int result = 7;
        if (!store.probe(kinds, kinds, &s[0], &s[2], s[4], true, result)) continue;
        EXPECT_EQ(result, 1);
        const int8_t white[] = {s[0], s[1]}, black[] = {s[2], s[3]};
        BitbaseKey key;
        makeBitbaseKey(key, kinds, white, kinds, black, s[4] ? 0 : 1);
        resident.insert(bitbaseIndex(key) / 4096);
    }
    ASSERT_GT(blocksUsed.size(), 95u);
    EXPECT_EQ(resident.size(), 95u);
    // The block read last is among them.
    int result = 7;
    EXPECT_TRUE(
        store.probe(kinds, kinds, &positions.back()[0], &positions.back()[2], true, true, result));
}

}  // namespace
