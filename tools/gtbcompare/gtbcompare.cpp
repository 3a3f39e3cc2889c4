// gtbcompare: every verdict of the three-men bitbase files against the Gaviota tables of
// Debian's gaviotatb package, probed through its own library. Built only where that library
// is installed; the engine never links it.
#include <cstdio>
#include <string>

extern "C" {
#include <gtb-probe.h>
}

#include "eval/bitbase_index.h"
#include "eval/bitbase_store.h"
#include "tools/support/command_line.h"

namespace {

const char* const Usage =
    "Usage: gtbcompare BITBASEDIR GAVIOTADIR\n"
    "\n"
    "Compares each position of the three-men files in BITBASEDIR (both colours of KDK, KTK,\n"
    "KLK, KSK, KBK) with the Gaviota tables in GAVIOTADIR (the .gtb.cp4 files, such as\n"
    "/usr/share/gaviotatb/gtb4) and prints the positions compared and those that differ.\n";

constexpr unsigned char GaviotaPiece[7] = {tb_NOPIECE, tb_PAWN,  tb_KNIGHT, tb_BISHOP,
                                           tb_ROOK,    tb_QUEEN, tb_KING};

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && isHelpWord(argv[1])) {
        std::fputs(Usage, stdout);
        return 0;
    }
    if (argc != 3) {
        std::fprintf(stderr, "gtbcompare: needs two directories\nTry 'gtbcompare --help'.\n");
        return 2;
    }
    const char** paths = tbpaths_init();
    paths = tbpaths_add(paths, argv[2]);
    tb_init(0, tb_CP4, paths);
    tbcache_init(size_t(16) << 20, 96);
    if (!(tb_availability() & 2)) {
        std::fprintf(stderr, "gtbcompare: no complete three-men tables in %s\n", argv[2]);
        return 1;
    }
    BitbaseStore store;
    store.setDirectory(argv[1]);
    store.setCacheSize(size_t(16) << 20);
    uint64_t compared = 0, differing = 0, unanswered = 0;
    for (const char* name : {"KDK", "KTK", "KLK", "KSK", "KBK"}) {
        BitbaseKey material;
        bitbaseKeyFromName(material, name);
        for (uint64_t index = 0; index < bitbaseIndexCount(material); ++index) {
            BitbaseKey key = material;
            if (!bitbasePositionFromIndex(key, index) || bitbaseIndex(key) != index) continue;
            const int king = key.squares[0], piece = key.squares[1], bare = key.squares[2];
            const int row = piece >> 3;
            if (king == piece || king == bare || piece == bare) continue;
            if (key.kinds[1] == 1 && (row < 1 || row > 5)) continue;
            // White has the piece, as the file's colour listed first: probe both sides to
            // move and let Gaviota say which positions are legal.
            unsigned wSq[3] = {unsigned(king ^ 56), unsigned(piece ^ 56), tb_NOSQUARE};
            unsigned bSq[2] = {unsigned(bare ^ 56), tb_NOSQUARE};
            unsigned char wPc[3] = {tb_KING, GaviotaPiece[key.kinds[1]], tb_NOPIECE};
            unsigned char bPc[2] = {tb_KING, tb_NOPIECE};
            unsigned info = 0;
            if (!tb_probe_WDL_hard(key.sideBit == 0 ? tb_WHITE_TO_MOVE : tb_BLACK_TO_MOVE,
                                   tb_NOSQUARE, tb_NOCASTLE, wSq, bSq, wPc, bPc, &info))
                continue;
            if (info != tb_DRAW && info != tb_WMATE && info != tb_BMATE) continue;
            const int expected = info == tb_WMATE ? 1 : info == tb_BMATE ? -1 : 0;
            const int8_t wk[3] = {6, key.kinds[1], 0}, ws[2] = {int8_t(king), int8_t(piece)};
            const int8_t bk[2] = {6, 0}, bs[1] = {int8_t(bare)};
            // The same position with colours exchanged reads the mirrored files.
            const int8_t fs[2] = {int8_t(king ^ 56), int8_t(piece ^ 56)},
                         fb[1] = {int8_t(bare ^ 56)};
            for (int flipped = 0; flipped < 2; ++flipped) {
                int result = 0;
                const bool found =
                    flipped ? store.probe(bk, wk, fb, fs, key.sideBit == 1, false, result)
                            : store.probe(wk, bk, ws, bs, key.sideBit == 0, false, result);
                if (flipped) result = -result;
                ++compared;
                if (!found)
                    ++unanswered;
                else if (result != expected) {
                    if (differing++ < 5)
                        std::printf("%s index %llu (%s): bitbase %d, Gaviota %d\n", name,
                                    (unsigned long long)index, flipped ? "colours exchanged" : "",
                                    result, expected);
                }
            }
        }
    }
    std::printf("%llu verdicts compared, %llu differ, %llu unanswered\n",
                (unsigned long long)compared, (unsigned long long)differing,
                (unsigned long long)unanswered);
    tbcache_done();
    tb_done();
    tbpaths_done(paths);
    return differing || unanswered || compared == 0 ? 1 : 0;
}
