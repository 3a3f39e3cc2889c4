#include "eval/evaluator.h"

#include <algorithm>

#include "board/tables.h"

namespace {

// Material cache salts by bishop colour code -1, 0, +1.
constexpr uint32_t ClassSalt[3] = {0x8af732da, 0xbf753d1d, 0xf339e5f6};

// A side's pawns are worth a little more in number, up to four or five, then less.
constexpr int16_t PawnCountValue[9] = {-140, 1, 40, 53, 56, 55, 52, 47, 42};

// Below this total of both materialSum values the endgame shortcuts apply.
constexpr int EndgameMaterial = 28000;

bool sameCounts(const SideState& white, const SideState& black) {
    for (int kind = Pawn; kind <= Queen; ++kind)
        if (white.pieceCount[kind] != black.pieceCount[kind]) return false;
    return true;
}

// A side to move with only king and pawns, not in check, whose king has every neighbouring
// square attacked.
bool kingBoxedIn(const SideState& us) {
    if (us.pieceCount[AllMen] != us.pieceCount[Pawn] + 1) return false;
    const Bitboard king = us.pieces[King];
    if (us.enemyAttacks & king) return false;
    return (KingMask[us.kingSquare()] & ~us.enemyAttacks) == 0;
}

bool hasPawnMove(const Position& p) {
    const SideState& us = p.toMove();
    const Bitboard pawns = us.pieces[Pawn];
    Bitboard targets = p.notToMove().men();
    if (p.epSquare >= 0) targets |= squareBit(p.epSquare);
    if (p.whiteToMove) {
        const Bitboard attacks = upPawnAttacks(pawns);
        return ((pawns >> 8) & ~p.occupied) != 0 || (attacks & targets) != 0;
    }
    const Bitboard attacks = downPawnAttacks(pawns);
    return ((pawns << 8) & ~p.occupied) != 0 || (attacks & targets) != 0;
}

}  // namespace

int gamePhase(const Position& position) {
    const SideState& white = position.sides[0];
    const SideState& black = position.sides[1];
    const int men = white.pieceCount[AllMen] + black.pieceCount[AllMen];
    const int raw = (white.materialSum + black.materialSum - 256 * men - 27000) >> 6;
    return std::clamp(raw, 0, 256);
}

Evaluator::Evaluator()
    : currentPawnEntry(&emptyPawnEntry),
      ordinaryRecogniser(&Recognisers),
      position(nullptr),
      currentRecogniser(&Recognisers.RecDefault),
      baseMaterial(0) {
    computePawnEntry(emptyPawnEntry, 0, 0, 0);
    clearCaches();
}

void Evaluator::clearCaches() {
    std::fill(std::begin(pawnCache), std::end(pawnCache), PawnEntry{});
    std::fill(std::begin(materialCache), std::end(materialCache), MaterialEntry{});
}

bool Evaluator::setNeuroMaterial(int value) {
    if (value != netStrength) {
        clearCaches();
        netStrength = value;
    }
    return true;
}

bool Evaluator::setNeuroWidth(int value) {
    if (value != netBalance) {
        clearCaches();
        netBalance = value;
    }
    return true;
}

int Evaluator::blendMaterial(const Position& p, int base) const {
    return blendNetMaterial(materialNet, p, base, netStrength, netBalance);
}

bool Evaluator::setMaterialFile(const char* name) {
    const char* fileName = name ? name : "";
    if (materialFileName == fileName) return true;
    materialFileName = fileName;
    clearCaches();
    return readMaterialNet(materialNet, fileName);
}

int Evaluator::handMadeMaterial(const Position& p) const {
    const SideState& white = p.sides[0];
    const SideState& black = p.sides[1];
    if (sameCounts(white, black)) return 0;

    const int lead = white.materialSum - black.materialSum;
    // The same lead is worth more with less material on the board.
    int v = lead + lead * 128 / (white.materialSum + black.materialSum + 100);

    int pair = 0;
    if (white.pieceCount[Bishop] >= 2) {
        v += 108;
        pair = 82;
    }
    if (black.pieceCount[Bishop] >= 2) {
        v -= 108;
        pair = white.pieceCount[Bishop] < 2 ? -82 : 0;
    }
    if (white.pieceCount[Rook] >= 2) v -= 95;
    if (black.pieceCount[Rook] >= 2) v += 95;

    const int whitePawns = white.pieceCount[Pawn];
    const int blackPawns = black.pieceCount[Pawn];
    const int ending = 256 - gamePhase(p);
    if (whitePawns != blackPawns && ending >= 1)
        v += ending * (pair + PawnCountValue[whitePawns] - PawnCountValue[blackPawns]) / 256;

    if (netStrength > 0) v = blendMaterial(p, v);
    return v;
}

int Evaluator::materialValue(bool removed) {
    const Position& p = *position;
    const uint32_t key =
        ClassSalt[bishopColourCode(p) + 1] ^ p.sides[0].materialKey ^ p.sides[1].materialKey;
    MaterialEntry& entry = materialCache[key & (MaterialCacheSize - 1)];
    // A cleared entry has no recogniser, so a key that happens to be 0 still misses.
    if (entry.key != key || entry.recogniser == nullptr) {
        entry.value = handMadeMaterial(p);
        entry.recogniser = ordinaryRecogniser->select(p);
        entry.key = key;
    }
    if (!removed) {
        currentRecogniser = entry.recogniser;
        baseMaterial = entry.value;
        return entry.value;
    }
    if (entry.recogniser != &ordinaryRecogniser->RecDefault)
        return p.whiteToMove ? RecogniserChangeScore : -RecogniserChangeScore;
    return entry.value - baseMaterial;
}

int Evaluator::materialValue(const Position& p, bool removed) {
    position = &p;
    return materialValue(removed);
}

const PawnEntry& Evaluator::pawnEntry() {
    const Position& p = *position;
    if ((p.sides[0].pieces[Pawn] | p.sides[1].pieces[Pawn]) == 0) return emptyPawnEntry;
    PawnEntry& entry = pawnCache[p.pawnKey & (PawnCacheSize - 1)];
    if (entry.key != p.pawnKey)
        computePawnEntry(entry, p.pawnKey, p.sides[0].pieces[Pawn], p.sides[1].pieces[Pawn]);
    return entry;
}

int Evaluator::positionalScore(int material) {
    const Position& p = *position;
    currentPawnEntry = &pawnEntry();
    int mid = material;
    int end = material;
    mobilityTerms(mid, end);
    mid += currentPawnEntry->midScore;
    end += currentPawnEntry->endScore;
    if (p.whiteToMove) {
        mid += 33;
        end += 3;
    } else {
        mid -= 33;
        end -= 3;
    }
    const int phase = gamePhase(p);
    pieceTerms(mid, end, phase > 0, phase < 256);
    if (phase == 0) return endgameKingTerms() + end;
    if (phase == 256) return middlegameKingTerms() + mid;
    return ((endgameKingTerms() + end) * (256 - phase) + phase * (middlegameKingTerms() + mid)) /
           256;
}

int Evaluator::evaluate(const Position& p) {
    position = &p;
    currentPawnEntry = &emptyPawnEntry;
    int material = materialValue(false);

    const SideState& white = p.sides[0];
    const SideState& black = p.sides[1];
    if (white.materialSum + black.materialSum < EndgameMaterial) {
        if (kingBoxedIn(p.toMove())) {
            // A king without a square is a mating or zugzwang risk, and with no pawn move
            // either it is stalemate.
            material += p.whiteToMove ? -150 : 150;
            if (!hasPawnMove(p)) return 0;
        }
        // The recogniser may also only shift or replace the material and let the rest run.
        if (currentRecogniser->quickScore(p, material)) return p.whiteToMove ? material : -material;
        if ((white.pieces[Pawn] | black.pieces[Pawn]) == 0) {
            int v;
            if (white.materialSum > black.materialSum) {
                v = mateDrive(material, white, black);
            } else if (white.materialSum < black.materialSum) {
                v = -mateDrive(-material, black, white);
            } else {
                v = (mateDrive(0, white, black) - mateDrive(0, black, white)) / 3;
            }
            return p.whiteToMove ? v + 3 : 3 - v;
        }
    }

    int score = positionalScore(material);
    score = currentRecogniser->finalScale(p, *this, score);
    return sideToMoveScore(score, p.whiteToMove != 0);
}

int Evaluator::evaluateForDisplay(const Position& p) {
    const int score = evaluate(p);
    const int unitless = score > 0 ? score - 1 : (score < 0 ? score + 1 : 0);
    return p.whiteToMove ? unitless - baseMaterial : unitless + baseMaterial;
}
