// The bitbase generator: its block coder against the store's decoder, the layout of whole
// files, and the three-men files checked against known facts and against the engine's
// reader and move generator.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <stdexcept>

#include "board/makemove.h"
#include "board/tables.h"
#include "board/text.h"
#include "eval/bitbase_files.h"
#include "eval/bitbase_store.h"
#include "tools/bitbasegen/block_coder.h"
#include "tools/bitbasegen/solver.h"
#include "tools/bitbasegen/verifier.h"

namespace {

using Block = std::array<uint8_t, BitbaseBlockBytes>;

std::vector<Block> sampleBlocks() {
    std::mt19937 random(12345);
    std::vector<Block> blocks;
    Block b{};
    blocks.push_back(b);  // all zero
    for (int kind = 0; kind < 8; ++kind) {
        for (int round = 0; round < 25; ++round) {
            for (size_t i = 0; i < b.size(); ++i) {
                const uint32_t r = random();
                switch (kind) {
                    case 0:
                        b[i] = uint8_t(r);
                        break;  // noise
                    case 1:
                        b[i] = r % 40 ? 0 : uint8_t(r >> 8);
                        break;  // sparse
                    case 2:
                        b[i] = i % 97 < 60 ? 0xff : uint8_t(r >> 8);
                        break;  // runs
                    case 3:
                        b[i] = uint8_t(i % (round + 2));
                        break;  // repeats
                    case 4:
                        b[i] = uint8_t(r % 3);
                        break;  // few values
                    case 5:
                        b[i] = i < 300 ? uint8_t(i / 7) : b[i - 260];
                        break;  // far copies
                    case 6:
                        b[i] = uint8_t(i % 256);
                        break;  // every value
                    default:
                        b[i] = i % 2 ? 0 : uint8_t(r % 5 + 254);
                        break;  // near the escape
                }
            }
            blocks.push_back(b);
        }
    }
    return blocks;
}

TEST(BitbaseCoder, EveryBodyDecodesToItsBlockAndRunsShrink) {
    for (const Block& b : sampleBlocks()) {
        const std::vector<uint8_t> body = encodeBitbaseBody(b.data());
        Block out{};
        ASSERT_TRUE(decodeBitbaseBody(body.data(), body.size(), out.data()));
        ASSERT_EQ(out, b);
        // The body is exact: one byte less doesn't decode.
        EXPECT_FALSE(decodeBitbaseBody(body.data(), body.size() - 1, out.data()));
    }
    Block runs{};
    for (size_t i = 0; i < runs.size(); ++i) runs[i] = i / 64 % 2 ? 0xff : 0;
    EXPECT_LT(encodeBitbaseBody(runs.data()).size(), 30u);
}

// The store's reading of a whole file, kept plain: every block back from its entry, and the
// two layout rules the reader relies on.
TEST(BitbaseCoder, WholeFilesReadBackThroughEveryKindOfEntry) {
    std::vector<uint8_t> bits;
    const std::vector<Block> blocks = sampleBlocks();
    for (const Block& b : blocks) bits.insert(bits.end(), b.begin(), b.end());
    bits.resize(bits.size() - 100);  // a short last block, padded with zeros
    const std::vector<uint8_t> file = buildBitbaseFile(bits);
    int kinds[3] = {0, 0, 0};
    for (size_t b = 0; b < blocks.size(); ++b) {
        const uint8_t* e = &file[b * BitbaseDirectoryEntryBytes];
        Block out{};
        if (e[0] == 255 && e[1] == 255 && e[2] == 255) {
            out.fill(e[3]);
            ++kinds[0];
        } else {
            const size_t offset = e[0] | e[1] << 8 | e[2] << 16 | size_t(e[3]) << 24;
            const size_t length = e[4] == 0 ? 512 : e[4] < 125 ? e[4] : 3 * e[4] - 248;
            ASSERT_LE(offset + length, file.size()) << "block " << b;
            if (e[4] == 0)
                std::copy(&file[offset], &file[offset] + 512, out.begin());
            else
                ASSERT_TRUE(decodeBitbaseBody(&file[offset], length, out.data()));
            ++kinds[e[4] == 0 ? 1 : 2];
        }
        Block expected{};
        const size_t first = b * BitbaseBlockBytes;
        std::copy(bits.begin() + first, bits.begin() + std::min(first + 512, bits.size()),
                  expected.begin());
        ASSERT_EQ(out, expected) << "block " << b;
    }
    EXPECT_GT(kinds[0], 0);
    EXPECT_GT(kinds[1], 0);
    EXPECT_GT(kinds[2], 0);
}

// A body due at an offset whose low three bytes are all 255 would make its entry read as a
// uniform block: the writer moves it one byte on, and the store reads the block from there.
// Raw blocks of noise (one block repeated, encoded once) put block 32445 of 33075 exactly at
// 0xffffff: 5 * 33075 + 512 * 32445.
TEST(BitbaseCoder, ABodyIsNeverPlacedWhereItsEntryWouldReadAsUniform) {
    constexpr size_t Blocks = 33075, Trap = 32445;
    std::mt19937 random(7);
    std::vector<uint8_t> bits(Blocks * BitbaseBlockBytes);
    for (size_t i = 0; i < bits.size(); ++i)
        bits[i] = i < BitbaseBlockBytes ? uint8_t(random()) : bits[i - BitbaseBlockBytes];
    const std::vector<uint8_t> file = buildBitbaseFile(bits);
    const uint8_t* before = &file[(Trap - 1) * BitbaseDirectoryEntryBytes];
    const uint8_t* trap = &file[Trap * BitbaseDirectoryEntryBytes];
    ASSERT_EQ(before[0] | before[1] << 8 | before[2] << 16, 0xffffff - 512);  // all raw so far
    EXPECT_EQ(std::vector<uint8_t>(trap, trap + 5), (std::vector<uint8_t>{0, 0, 0, 1, 0}));

    // Read back through the store as a five-men file (the mirrored one all zero, so each
    // probe answers with the bit), every position whose index falls in that block.
    ScratchDirectory dir;
    std::string error;
    ASSERT_TRUE(writeFileAtomically(dir.file("KTTKT"), file, error)) << error;
    writeUniform(dir, "KTKTT", 0);
    BitbaseStore store;
    store.setDirectory(dir.text().c_str());
    store.setCacheSize(1 << 20);
    BitbaseKey material;
    bitbaseKeyFromName(material, "KTTKT");
    int probed = 0;
    for (uint64_t index = Trap * BitbaseBlockBits; index < (Trap + 1) * BitbaseBlockBits; ++index) {
        BitbaseKey key = material;
        if (!bitbasePositionFromIndex(key, index) || bitbaseIndex(key) != index) continue;
        const int8_t white[] = {King, Rook, Rook, 0}, black[] = {King, Rook, 0};
        int result = 9;
        ASSERT_TRUE(store.probe(white, black, key.squares, key.squares + 3, key.sideBit == 0, false,
                                result));
        ASSERT_EQ(result, bits[index >> 3] >> (index & 7) & 1) << index;
        ++probed;
    }
    EXPECT_GT(probed, 1000);
}

// Every material comes after those it captures or promotes into, and those are all listed,
// a pawn that takes and promotes at once included: the generator frees what no later
// material reads.
TEST(BitbaseOrder, EveryMaterialFollowsWhatItsMovesLeadTo) {
    const std::vector<std::string> order = solvingOrder(namesUpTo(4));
    EXPECT_EQ(order.size(), 36u);  // 66 files, both colours of 30 materials and KK, KBKB, ...
    for (size_t k = 0; k < order.size(); ++k)
        for (const std::string& reached : materialsReachedFrom(order[k])) {
            const auto at = std::find(order.begin(), order.end(), reached);
            ASSERT_NE(at, order.end()) << order[k] << " reaches " << reached;
            EXPECT_LT(size_t(at - order.begin()), k) << order[k] << " reaches " << reached;
        }
    const std::vector<std::string> fromPawnAgainstBishop = materialsReachedFrom("KBKL");
    for (const char* reached : {"KBK", "KKL", "KDK", "KLKT", "KLKS"})
        EXPECT_NE(std::find(fromPawnAgainstBishop.begin(), fromPawnAgainstBishop.end(), reached),
                  fromPawnAgainstBishop.end())
            << reached;
}

// All files of three men, solved once for the tests below.
class ThreeMen : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        directory = new ScratchDirectory;
        SolvedMaterials solved;
        for (const std::string& material : solvingOrder(namesUpTo(3))) {
            SolveResult r;
            std::string error;
            ASSERT_TRUE(solveMaterial(material, solved, r, error)) << error;
            ASSERT_TRUE(
                writeFileAtomically(directory->file(r.name), buildBitbaseFile(r.bits), error))
                << error;
            if (r.mirrorName != r.name) {
                ASSERT_TRUE(writeFileAtomically(directory->file(r.mirrorName),
                                                buildBitbaseFile(r.mirrorBits), error))
                    << error;
            }
            results[r.name] = std::move(r);
        }
    }
    static void TearDownTestSuite() {
        delete directory;
        results.clear();
    }

    // White's verdict through the store, from a FEN with White's men listed first.
    static int probe(const char* fen) {
        Position p;
        constructPosition(p);
        EXPECT_TRUE(parseFen(p, fen)) << fen;
        int8_t kinds[2][6] = {}, squares[2][6] = {};
        for (int side = 0; side < 2; ++side) {
            int n = 0;
            for (int kind : {King, Pawn, Knight, Bishop, Rook, Queen})
                for (int i = 0; i < p.sides[side].pieceCount[kind]; ++i) {
                    kinds[side][n] = int8_t(kind);
                    squares[side][n++] = p.sides[side].pieceList[kind][i];
                }
        }
        BitbaseStore store;
        store.setDirectory(directory->text().c_str());
        store.setCacheSize(1 << 20);
        int result = 9;
        EXPECT_TRUE(
            store.probe(kinds[0], kinds[1], squares[0], squares[1], p.whiteToMove, false, result))
            << fen;
        return result;
    }

    // The material solved under either of its names.
    static const SolveResult& solvedAs(const std::string& name) {
        for (const auto& entry : results)
            if (entry.second.name == name || entry.second.mirrorName == name) return entry.second;
        throw std::runtime_error("not solved: " + name);
    }

    static ScratchDirectory* directory;
    static std::map<std::string, SolveResult> results;
};
ScratchDirectory* ThreeMen::directory = nullptr;
std::map<std::string, SolveResult> ThreeMen::results;

TEST_F(ThreeMen, EveryFileIsWrittenWhole) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory->text())) {
        EXPECT_EQ(entry.path().extension(), ".zbb") << entry.path();
        ++files;
    }
    EXPECT_EQ(files, 11);  // KK and both colours of five materials
}

// The longest mates are known: queen in 10 moves, rook in 16, so 20 and 32 plies from the
// side that is mated.
TEST_F(ThreeMen, LongestMatesAreTheKnownOnes) {
    EXPECT_EQ(solvedAs("KDK").longestWin, 20);
    EXPECT_EQ(solvedAs("KTK").longestWin, 32);
    EXPECT_EQ(solvedAs("KLK").longestWin, 0);
    EXPECT_EQ(solvedAs("KSK").longestWin, 0);
}

// With the queen to move every position wins; with the bare king to move only stalemate or
// taking an undefended queen saves it.
TEST_F(ThreeMen, QueenWinsExceptStalematesAndLostQueens) {
    BitbaseKey material;
    bitbaseKeyFromName(material, "KDK");
    BitbaseStore store;
    store.setDirectory(directory->text().c_str());
    store.setCacheSize(1 << 20);
    uint64_t checked = 0;
    for (int k = 0; k < 64; ++k)
        for (int q = 0; q < 64; ++q)
            for (int bare = 0; bare < 64; ++bare) {
                if (k == q || k == bare || q == bare || kingDistance(k, bare) < 2) continue;
                const Bitboard occupied = squareBit(k) | squareBit(q) | squareBit(bare);
                const bool check = queenAttacks(q, occupied) >> bare & 1;
                for (int whiteToMove = 0; whiteToMove < 2; ++whiteToMove) {
                    if (whiteToMove && check) continue;
                    const int8_t wk[] = {King, Queen, 0}, ws[] = {int8_t(k), int8_t(q)};
                    const int8_t bk[] = {King, 0}, bs[] = {int8_t(bare)};
                    int result = 9;
                    ASSERT_TRUE(store.probe(wk, bk, ws, bs, whiteToMove, false, result));
                    int expected = 1;
                    if (!whiteToMove) {
                        Bitboard guarded = KingMask[k];
                        for (Bitboard a = queenAttacks(q, occupied & ~squareBit(bare)); a;
                             a &= a - 1)
                            guarded |= squareBit(firstSquare(a));
                        const bool takes = kingDistance(bare, q) == 1 && !(KingMask[k] >> q & 1);
                        const bool stuck = !check && (KingMask[bare] & ~guarded) == 0;
                        if (takes || stuck) expected = 0;
                    }
                    ASSERT_EQ(result, expected)
                        << k << " " << q << " " << bare << " " << whiteToMove;
                    ++checked;
                }
            }
    EXPECT_GT(checked, 100000u);
}

// The engine solves king and pawn against king at start-up on its own; both must agree on
// every position, with the pawn's side to move and without.
TEST_F(ThreeMen, PawnEndingAgreesWithTheEnginesOwnTable) {
    BitbaseStore store;
    store.setDirectory(directory->text().c_str());
    store.setCacheSize(1 << 20);
    uint64_t compared = 0, wins = 0;
    for (int pawn = 8; pawn < 48; ++pawn)
        for (int k = 0; k < 64; ++k)
            for (int bare = 0; bare < 64; ++bare)
                for (int attackerToMove = 0; attackerToMove < 2; ++attackerToMove) {
                    const int kpk = kpkProbe(attackerToMove, k, bare, pawn);
                    if (kpk == 127) continue;
                    // Home-rank pawns and positions with the side not to move in check have
                    // no bit.
                    const Bitboard occupied = squareBit(k) | squareBit(bare) | squareBit(pawn);
                    if (rowOf(pawn) == 6 || popcount(occupied) < 3 || kingDistance(k, bare) < 2)
                        continue;
                    if (attackerToMove && (upPawnAttacks(squareBit(pawn)) >> bare & 1)) continue;
                    const int8_t wk[] = {King, Pawn, 0}, ws[] = {int8_t(k), int8_t(pawn)};
                    const int8_t bk[] = {King, 0}, bs[] = {int8_t(bare)};
                    int result = 9;
                    ASSERT_TRUE(store.probe(wk, bk, ws, bs, attackerToMove, false, result));
                    ASSERT_EQ(result, kpk > 0 ? 1 : 0)
                        << k << " " << bare << " " << pawn << " " << attackerToMove;
                    ++compared;
                    wins += result;
                }
    EXPECT_GT(compared, 150000u);
    EXPECT_GT(wins, compared / 2);
}

TEST_F(ThreeMen, KnownPositionsThroughTheStore) {
    EXPECT_EQ(probe("k7/2Q5/8/8/8/8/8/7K b - - 0 1"), 0);   // stalemate
    EXPECT_EQ(probe("7K/8/8/8/8/8/1Q6/k7 b - - 0 1"), 0);   // the king takes the queen
    EXPECT_EQ(probe("8/8/8/8/8/2K5/1Q6/k7 b - - 0 1"), 1);  // mate
    EXPECT_EQ(probe("7K/8/8/8/8/8/2Q5/k7 w - - 0 1"), 1);
    EXPECT_EQ(probe("4k3/8/4K3/4P3/8/8/8/8 w - - 0 1"), 1);  // king in front on the sixth
    EXPECT_EQ(probe("4k3/8/4K3/4P3/8/8/8/8 b - - 0 1"), 1);
    EXPECT_EQ(probe("k7/8/8/P7/8/8/8/7K w - - 0 1"), 0);     // rook pawn, king in the corner
    EXPECT_EQ(probe("8/8/8/8/8/8/1r6/K1k5 b - - 0 1"), -1);  // Black's rook: KTK read mirrored
}

// The engine's move generator finds every verdict consistent with its moves, and the
// verifier's whole-file decoding counts what the solver counted.
TEST_F(ThreeMen, VerifierFindsEveryPositionConsistent) {
    DecodedFiles files(directory->text());
    for (const auto& [name, r] : results) {
        const VerifyResult v = verifyBitbaseMaterial(files, name);
        EXPECT_EQ(v.wrong, 0u) << name << ": " << v.firstProblem;
        EXPECT_EQ(v.unanswered, 0u) << name << ": " << v.firstProblem;
        EXPECT_EQ(v.legal, r.legal) << name;
        for (int side = 0; side < 2; ++side) {
            EXPECT_EQ(v.firstWins[side], r.firstWins[side]) << name << " " << side;
            EXPECT_EQ(v.secondWins[side], r.secondWins[side]) << name << " " << side;
        }
    }
}

// A win the file lost is a verdict its moves contradict.
TEST_F(ThreeMen, VerifierFindsALostWin) {
    ScratchDirectory damaged;
    std::string error;
    for (const auto& [name, r] : results)
        for (const auto& [file, bits] : {std::pair{r.name, r.bits}, {r.mirrorName, r.mirrorBits}})
            if (!bits.empty()) {
                ASSERT_TRUE(writeFileAtomically(damaged.file(file), buildBitbaseFile(bits), error));
            }
    // White Ke1, Rh1 against Ke8, White to move: won, now stored as not won.
    const int8_t kinds[] = {King, Rook, 0}, squares[] = {60, 63}, bare[] = {King, 0}, e8[] = {4};
    BitbaseKey key;
    ASSERT_TRUE(makeBitbaseKey(key, kinds, squares, bare, e8, 0));
    const SolveResult& rook = solvedAs("KTK");
    std::vector<uint8_t> bits = rook.name == "KTK" ? rook.bits : rook.mirrorBits;
    const uint64_t index = bitbaseIndex(key);
    ASSERT_TRUE(bits[index >> 3] >> (index & 7) & 1);
    bits[index >> 3] &= uint8_t(~(1 << (index & 7)));
    ASSERT_TRUE(writeFileAtomically(damaged.file("KTK"), buildBitbaseFile(bits), error));
    DecodedFiles files(damaged.text());
    const VerifyResult v = verifyBitbaseMaterial(files, "KKT");
    EXPECT_GT(v.wrong, 0u);
    EXPECT_EQ(v.unanswered, 0u);
}

}  // namespace
