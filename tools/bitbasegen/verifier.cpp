#include "tools/bitbasegen/verifier.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/text.h"
#include "eval/bitbase_index.h"
#include "eval/bitbase_store.h"

namespace {

// A board without men, no castling, White to move: the frame each position is set up in.
Position emptyBoard() {
    Position p;
    constructPosition(p);
    parseFen(p, "k7/8/8/8/8/8/8/7K w - - 0 1");
    for (SideState& side : p.sides) {
        for (Bitboard& b : side.pieces) b = 0;
        for (int8_t& c : side.pieceCount) c = 0;
    }
    p.occupied = 0;
    return p;
}

// The colour listed first plays White, whose pawns move towards square 0 as the first
// colour's do. Set up directly rather than through a FEN: this runs once per index. False for
// an index no probe reads.
bool toPosition(const BitbaseKey& key, const Position& empty, Position& p) {
    p = empty;
    for (int i = 0; i < key.total; ++i) {
        const int s = key.squares[i];
        if (p.occupied >> s & 1) return false;
        const int row = s >> 3;
        const bool first = i < key.firstCount;
        if (key.kinds[i] == Pawn && (first ? row < 1 || row > 5 : row < 2 || row > 6)) return false;
        SideState& side = p.sides[first ? 0 : 1];
        side.pieces[key.kinds[i]] |= squareBit(s);
        side.pieces[AllMen] |= squareBit(s);
        ++side.pieceCount[key.kinds[i]];
        ++side.pieceCount[AllMen];
        p.occupied |= squareBit(s);
    }
    for (SideState& side : p.sides) rebuildLists(side);
    p.whiteToMove = key.sideBit == 0 ? 1 : 0;
    recomputeMaterial(p);
    updateBothSummaries(p);
    if (p.notToMove().enemyAttacks & p.notToMove().pieces[King]) return false;
    p.pinnedAttacked = pinnedAndAttacked(p.sides[1], p.sides[0], p.occupied) |
                       pinnedAndAttacked(p.sides[0], p.sides[1], p.occupied);
    return true;
}

void noteProblem(VerifyResult& r, const Position& p) {
    if (!r.firstProblem.empty()) return;
    char fen[100];
    writeFen(p, fen);
    r.firstProblem = fen;
}

}  // namespace

bool decodeBitbaseFile(const std::vector<uint8_t>& file, uint64_t indexCount,
                       std::vector<uint8_t>& bits) {
    const uint64_t blocks = (indexCount + BitbaseBlockBits - 1) / BitbaseBlockBits;
    bits.assign(blocks * BitbaseBlockBytes, 0);
    if (file.size() < blocks * BitbaseDirectoryEntryBytes) return false;
    for (uint64_t b = 0; b < blocks; ++b) {
        const uint8_t* e = &file[b * BitbaseDirectoryEntryBytes];
        uint8_t* out = &bits[b * BitbaseBlockBytes];
        if (e[0] == 255 && e[1] == 255 && e[2] == 255) {
            std::memset(out, e[3], BitbaseBlockBytes);
            continue;
        }
        const uint64_t offset = e[0] | e[1] << 8 | e[2] << 16 | uint64_t(e[3]) << 24;
        if (offset > file.size()) return false;
        // A long body's length is only a bound, which the file's end may cut.
        const size_t bound = e[4] == 0 ? BitbaseBlockBytes : e[4] < 125 ? e[4] : 3 * e[4] - 248;
        const size_t length = std::min<size_t>(bound, file.size() - offset);
        if (e[4] < 125 && length != bound) return false;
        if (e[4] == 0)
            std::memcpy(out, &file[offset], BitbaseBlockBytes);
        else if (!decodeBitbaseBody(&file[offset], length, out))
            return false;
    }
    return true;
}

const std::vector<uint8_t>* DecodedFiles::bits(const std::string& name) {
    if (auto f = files.find(name); f != files.end()) return &f->second;
    if (unreadable.count(name)) return nullptr;
    BitbaseKey key;
    std::vector<uint8_t> file, decoded;
    if (bitbaseKeyFromName(key, name.c_str())) {
        const std::string path = directory + "/" + name + BitbaseFileExtension;
        if (FILE* in = std::fopen(path.c_str(), "rb")) {
            uint8_t buffer[1 << 16];
            for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, in)) > 0;)
                file.insert(file.end(), buffer, buffer + n);
            std::fclose(in);
            if (decodeBitbaseFile(file, bitbaseIndexCount(key), decoded))
                return &(files[name] = std::move(decoded));
        }
    }
    unreadable[name] = true;
    return nullptr;
}

int DecodedFiles::bit(const BitbaseKey& key) {
    // A material's successors mostly stay in it: the file of the last lookup is tried first.
    uint64_t code = 0;
    std::memcpy(&code, key.name, sizeof key.name);
    const std::vector<uint8_t>* found = nullptr;
    for (const Recent& r : recent)
        if (r.code == code) found = r.bits;
    if (!found) {
        found = bits(key.name);
        if (!found) return -1;
        recent[nextRecent] = Recent{code, found};
        nextRecent = (nextRecent + 1) % RecentFiles;
    }
    const uint64_t index = bitbaseIndex(key);
    if (index == NoBitbaseIndex || (index >> 3) >= found->size()) return -1;
    return (*found)[index >> 3] >> (index & 7) & 1;
}

namespace {

// White's verdict from the decoded files, or 2 without an answer.
int whiteVerdict(DecodedFiles& files, const Position& p) {
    int8_t kinds[2][BitbaseMaxMen + 1] = {}, squares[2][BitbaseMaxMen + 1] = {};
    for (int side = 0; side < 2; ++side) {
        const SideState& s = p.sides[side];
        int n = 0;
        for (int kind : {King, Pawn, Knight, Bishop, Rook, Queen})
            for (int i = 0; i < s.pieceCount[kind]; ++i) {
                if (n == BitbaseMaxMen) return 2;
                kinds[side][n] = int8_t(kind);
                squares[side][n++] = s.pieceList[kind][i];
            }
    }
    BitbaseKey key;
    if (!makeBitbaseKey(key, kinds[0], squares[0], kinds[1], squares[1], p.whiteToMove ? 0 : 1))
        return 2;
    const int first = files.bit(key);
    if (first != 0) return first == 1 ? 1 : 2;
    BitbaseKey mirrored;
    mirroredBitbaseKey(key, mirrored);
    const int second = files.bit(mirrored);
    return second == 1 ? -1 : second == 0 ? 0 : 2;
}

}  // namespace

VerifyResult verifyBitbaseMaterial(DecodedFiles& files, const std::string& name) {
    VerifyResult r;
    BitbaseKey material;
    if (!bitbaseKeyFromName(material, name.c_str())) {
        r.firstProblem = "no such material";
        ++r.unanswered;
        return r;
    }
    const uint64_t count = bitbaseIndexCount(material);
    const Position empty = emptyBoard();
    Position p;
    for (uint64_t index = 0; index < count; ++index) {
        BitbaseKey key = material;
        if (!bitbasePositionFromIndex(key, index) || bitbaseIndex(key) != index) continue;
        if (!toPosition(key, empty, p)) continue;
        ++r.legal;
        const int sign = p.whiteToMove ? 1 : -1;  // White's verdicts to the mover's
        const int stored = whiteVerdict(files, p);
        int best = -2, moves = 0;
        MoveEntry list[MaxMovesPerPosition];
        MoveEntry* end = generateMoves(p, GenAll, list);
        for (MoveEntry* e = list; e != end && best < 2; ++e) {
            UndoRecord undo;
            beginUndo(undo, p);
            if (!makeLegal(p, e->move, undo)) continue;
            ++moves;
            const int v = whiteVerdict(files, p);
            undoMove(undo);
            best = v == 2 ? 2 : std::max(best, v * sign);
        }
        if (moves == 0) best = sideToMoveInCheck(p) ? -1 : 0;
        if (stored == 2 || best == 2) {
            ++r.unanswered;
            noteProblem(r, p);
            continue;
        }
        if (stored * sign != best) {
            ++r.wrong;
            noteProblem(r, p);
        }
        if (stored == 1) ++r.firstWins[key.sideBit];
        if (stored == -1) ++r.secondWins[key.sideBit];
    }
    return r;
}
