// One store shared by several searcher threads: probes from all of them while a small cache
// evicts all the time. Run under the thread sanitizer by `make tsan`.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "board/move.h"
#include "eval/bitbase_files.h"
#include "eval/bitbase_store.h"

namespace {

struct Probe {
    int8_t white[2], black[2];
    bool whiteToMove;
    int expected;
};

TEST(Threads, BitbaseProbesShareOneStoreWhileItEvicts) {
    // KTKT, its own mirror: blocks alternately all wins and all not, so that the second look
    // decides half the probes.
    ScratchDirectory dir;
    BitbaseKey material;
    ASSERT_TRUE(bitbaseKeyFromName(material, "KTKT"));
    const uint64_t blocks = bitbaseIndexCount(material) / BitbaseBlockBits;
    BitbaseFile file;
    for (uint64_t b = 0; b < blocks; ++b) file.uniform(b % 2 ? 255 : 0);
    file.write(dir.file("KTKT"));

    std::vector<Probe> probes;
    for (uint64_t b = 0; b < blocks; b += 3) {
        BitbaseKey key = material;
        ASSERT_TRUE(bitbasePositionFromIndex(key, b * BitbaseBlockBits + b % 4096));
        BitbaseKey mirrored;
        mirroredBitbaseKey(key, mirrored);
        const int first = (bitbaseIndex(key) / BitbaseBlockBits) % 2;
        const int second = (bitbaseIndex(mirrored) / BitbaseBlockBits) % 2;
        probes.push_back({{key.squares[0], key.squares[1]},
                          {key.squares[2], key.squares[3]},
                          key.sideBit == 0,
                          first ? 1 : -second});
    }

    BitbaseStore store;
    store.setCacheSize(1);  // 95 blocks for 427 probed
    store.setDirectory(dir.text().c_str());
    const int8_t kinds[] = {King, Rook, None};
    std::atomic<int> wrong{0}, unanswered{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 3; ++round) {
                for (size_t i = t; i < probes.size() * 2; i += 3) {
                    const Probe& p = probes[(i * 7 + t) % probes.size()];
                    int result = 7;
                    // Every fourth probe only looks into the cache, as a shallow node does.
                    const bool cacheOnly = i % 4 == 0;
                    if (!store.probe(kinds, kinds, p.white, p.black, p.whiteToMove, cacheOnly,
                                     result)) {
                        if (!cacheOnly) ++unanswered;
                    } else if (result != p.expected) {
                        ++wrong;
                    }
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(unanswered.load(), 0);
    EXPECT_EQ(store.blocksHeld(), 95u);
}

}  // namespace
