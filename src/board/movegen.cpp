#include "board/movegen.h"

#include "board/tables.h"

namespace {

constexpr Bitboard RankTwo = 0x00ff000000000000ULL;
constexpr Bitboard RankSeven = 0x000000000000ff00ULL;

struct Emitter {
    const Position& p;
    const SideState& us;
    const SideState& them;
    const bool white;
    MoveEntry* out;
    MoveEntry* const start;

    Emitter(const Position& position, MoveEntry* list)
        : p(position),
          us(position.toMove()),
          them(position.notToMove()),
          white(position.whiteToMove != 0),
          out(list),
          start(list) {}

    void add(int from, int to, int kind, int promotion = 0) {
        out->move = makeMoveValue(from, to, kind, promotion);
        ++out;
    }

    void addTargets(int from, Bitboard targets, int kind) {
        for (; targets; targets &= targets - 1) add(from, firstSquare(targets), kind);
    }

    void addPromotions(int from, int to) {
        add(from, to, Pawn, Queen);
        add(from, to, Pawn, Rook);
        add(from, to, Pawn, Bishop);
        add(from, to, Pawn, Knight);
    }

    Bitboard lastRank() const { return white ? RankEight : RankOne; }
    Bitboard pawnHomeRank() const { return white ? RankTwo : RankSeven; }
    Bitboard capturesTowardsA(Bitboard pawns) const {
        return white ? (pawns >> 9) & ~FileH : (pawns << 7) & ~FileH;
    }
    Bitboard capturesTowardsH(Bitboard pawns) const {
        return white ? (pawns >> 7) & ~FileA : (pawns << 9) & ~FileA;
    }
    Bitboard pushes(Bitboard pawns) const { return white ? pawns >> 8 : pawns << 8; }

    // Captures of one direction: promotions first, then the rest, each in square order.
    void pawnCaptures(Bitboard targets, int fromOffset, bool allPromotions) {
        for (Bitboard t = targets & lastRank(); t; t &= t - 1) {
            const int to = firstSquare(t);
            if (allPromotions)
                addPromotions(to + fromOffset, to);
            else
                add(to + fromOffset, to, Pawn, Queen);
        }
        for (Bitboard t = targets & ~lastRank(); t; t &= t - 1) {
            const int to = firstSquare(t);
            add(to + fromOffset, to, Pawn);
        }
    }

    void pawnCaptureSteps(Bitboard pawns, Bitboard captureTargets, bool allPromotions) {
        pawnCaptures(capturesTowardsA(pawns) & captureTargets, white ? 9 : -7, allPromotions);
        pawnCaptures(capturesTowardsH(pawns) & captureTargets, white ? 7 : -9, allPromotions);
    }

    // Mode 0 and evasions: every pawn move landing on `targets` (captures on `captureTargets`).
    void allPawnMoves(Bitboard pawns, Bitboard captureTargets, Bitboard targets) {
        pawnCaptureSteps(pawns, captureTargets, true);
        const int back = -us.pawnStep;
        const Bitboard empty = ~p.occupied;
        const Bitboard single = pushes(pawns) & empty;
        for (Bitboard t = single & targets & lastRank(); t; t &= t - 1) {
            const int to = firstSquare(t);
            addPromotions(to + back, to);
        }
        const Bitboard doubles = pushes(single & pushes(pawnHomeRank())) & empty & targets;
        for (Bitboard t = doubles; t; t &= t - 1) {
            const int to = firstSquare(t);
            add(to + 2 * back, to, Pawn);
        }
        for (Bitboard t = single & targets & ~lastRank(); t; t &= t - 1) {
            const int to = firstSquare(t);
            add(to + back, to, Pawn);
        }
    }

    // Modes 2 to 4: captures promote to a queen only, and only queening pushes are added.
    void selectivePawnMoves(Bitboard captureTargets) {
        const Bitboard pawns = us.pieces[Pawn];
        pawnCaptureSteps(pawns, captureTargets, false);
        const int back = -us.pawnStep;
        for (Bitboard t = pushes(pawns) & ~p.occupied & lastRank(); t; t &= t - 1) {
            const int to = firstSquare(t);
            add(to + back, to, Pawn, Queen);
        }
    }

    void bishopLike(const int8_t* list, int count, int kind, Bitboard targets) {
        for (int i = 0; i < count; ++i)
            addTargets(list[i], bishopAttacks(list[i], p.occupied) & targets, kind);
    }
    void rookLike(const int8_t* list, int count, int kind, Bitboard targets) {
        for (int i = 0; i < count; ++i)
            addTargets(list[i], rookAttacks(list[i], p.occupied) & targets, kind);
    }
    void knights(Bitboard targets) {
        const int8_t* list = us.pieceList[Knight];
        for (int i = 0; i < us.pieceCount[Knight]; ++i)
            addTargets(list[i], KnightMask[list[i]] & targets, Knight);
    }
    void pieces(Bitboard knightTargets, Bitboard bishopTargets, Bitboard rookTargets,
                Bitboard queenTargets) {
        knights(knightTargets);
        bishopLike(us.pieceList[Bishop], us.pieceCount[Bishop], Bishop, bishopTargets);
        rookLike(us.pieceList[Rook], us.pieceCount[Rook], Rook, rookTargets);
        bishopLike(us.pieceList[Queen], us.pieceCount[Queen], Queen, queenTargets);
        rookLike(us.pieceList[Queen], us.pieceCount[Queen], Queen, queenTargets);
    }
    void king(Bitboard targets) {
        const int k = us.pieceList[King][0];
        addTargets(k, KingMask[k] & targets, King);
    }

    void bishopLikeFrom(Bitboard men, int kind, Bitboard targets) {
        for (; men; men &= men - 1) {
            const int s = firstSquare(men);
            addTargets(s, bishopAttacks(s, p.occupied) & targets, kind);
        }
    }
    void rookLikeFrom(Bitboard men, int kind, Bitboard targets) {
        for (; men; men &= men - 1) {
            const int s = firstSquare(men);
            addTargets(s, rookAttacks(s, p.occupied) & targets, kind);
        }
    }
    void knightsFrom(Bitboard men, Bitboard targets) {
        for (; men; men &= men - 1) {
            const int s = firstSquare(men);
            addTargets(s, KnightMask[s] & targets, Knight);
        }
    }

    void castling() {
        const int rights = p.castling & (white ? 3 : 12);
        if (!rights) return;
        const int k = us.pieceList[King][0];
        const uint8_t shortRight = white ? CastleWhiteShort : CastleBlackShort;
        const uint8_t longRight = white ? CastleWhiteLong : CastleBlackLong;
        if ((rights & shortRight) && !(p.occupied & us.castleEmptyShort) &&
            !(us.enemyAttacks & us.castleSafeShort))
            add(k, us.shortRookFrom, King);
        if ((rights & longRight) && !(p.occupied & us.castleEmptyLong) &&
            !(us.enemyAttacks & us.castleSafeLong))
            add(k, us.longRookFrom, King);
    }

    bool listed(int from, int to, int kind) const {
        const Move m = makeMoveValue(from, to, kind);
        for (const MoveEntry* e = start; e < out; ++e)
            if (e->move == m) return true;
        return false;
    }

    void addUnlisted(int from, Bitboard targets, int kind) {
        for (; targets; targets &= targets - 1) {
            const int to = firstSquare(targets);
            if (!listed(from, to, kind)) add(from, to, kind);
        }
    }

    void generateAll() {
        const Bitboard captureTargets =
            them.men() | (p.epSquare >= 0 ? squareBit(p.epSquare) : Bitboard{0});
        allPawnMoves(us.pieces[Pawn], captureTargets, ~Bitboard{0});
        const Bitboard notOwn = ~us.men();
        pieces(notOwn, notOwn, notOwn, notOwn);
        king(~(us.enemyAttacks | us.men()));
        castling();
    }

    void generateEvasions() {
        const int k = us.pieceList[King][0];
        const Bitboard occ = p.occupied;
        Bitboard forbidden = us.men() | us.enemyAttacks;
        Bitboard checkers = 0;
        // The king blocks the checking ray itself, so the attack map misses the square behind
        // it; the line attacks from the king's square add it.
        const Bitboard straight = them.pieces[Rook] | them.pieces[Queen];
        const Bitboard diagonal = them.pieces[Bishop] | them.pieces[Queen];
        const Bitboard lines[4] = {rankAttacks(k, occ), fileAttacks(k, occ), risingAttacks(k, occ),
                                   fallingAttacks(k, occ)};
        for (int i = 0; i < 4; ++i) {
            const Bitboard sliders = lines[i] & (i < 2 ? straight : diagonal);
            if (sliders) {
                checkers |= sliders;
                forbidden |= lines[i] & ~sliders;
            }
        }
        king(~forbidden);
        checkers |= KnightMask[k] & them.pieces[Knight];
        checkers |=
            (capturesTowardsA(squareBit(k)) | capturesTowardsH(squareBit(k))) & them.pieces[Pawn];
        if (checkers & (checkers - 1)) return;

        Bitboard blocks = checkers;
        const int checker = firstSquare(checkers);
        if ((straight & checkers) && (rookAttacks(k, occ) & checkers))
            blocks |= rookAttacks(k, occ) & rookAttacks(checker, occ);
        if ((diagonal & checkers) && (bishopAttacks(k, occ) & checkers))
            blocks |= bishopAttacks(k, occ) & bishopAttacks(checker, occ);
        const Bitboard free = ~(us.men() & p.pinnedAttacked);

        Bitboard captureTargets = them.men() & blocks;
        if (p.epSquare >= 0) {
            // En passant only takes the checking pawn itself, never interposes.
            const int e = p.epSquare;
            const bool kingCheckedByThatPawn =
                white ? (k == e + 15 || k == e + 17) : (k == e - 17 || k == e - 15);
            if (kingCheckedByThatPawn) captureTargets |= squareBit(e);
        }
        allPawnMoves(us.pieces[Pawn] & free, captureTargets, blocks);
        knightsFrom(us.pieces[Knight] & free, blocks);
        bishopLikeFrom(us.pieces[Bishop] & free, Bishop, blocks);
        rookLikeFrom(us.pieces[Rook] & free, Rook, blocks);
        bishopLikeFrom(us.pieces[Queen] & free, Queen, blocks);
        rookLikeFrom(us.pieces[Queen] & free, Queen, blocks);
    }

    Bitboard captureTargetsWithEp() const {
        return them.men() | (p.epSquare >= 0 ? squareBit(p.epSquare) : Bitboard{0});
    }

    // Pawns guarded by an enemy pawn are no prey for a rook.
    Bitboard rookPrey() const { return them.men() & ~(them.pieces[Pawn] & us.enemyPawnAttacks); }
    Bitboard queenPrey() const { return (them.men() & ~us.enemyPawnAttacks) | them.pieces[Queen]; }

    void generateCaptures() {
        selectivePawnMoves(captureTargetsWithEp());
        pieces(them.men(), them.men(), rookPrey(), queenPrey());
        king(them.men() & ~us.enemyAttacks);
    }

    void discoveringMoves(int c, Bitboard line) {
        const Bitboard free = ~(p.occupied | line);
        Bitboard bit = squareBit(c);
        if (us.pieces[Knight] & bit) {
            addUnlisted(c, KnightMask[c] & free, Knight);
        } else if (us.pieces[Bishop] & bit) {
            addUnlisted(c, bishopAttacks(c, p.occupied) & free, Bishop);
        } else if (us.pieces[Rook] & bit) {
            addUnlisted(c, rookAttacks(c, p.occupied) & free, Rook);
        } else if (us.pieces[Queen] & bit) {
            addUnlisted(c, queenAttacks(c, p.occupied) & free, Queen);
        } else if (us.pieces[King] & bit) {
            addUnlisted(c, KingMask[c] & free, King);
        } else if (us.pieces[Pawn] & bit) {
            const Bitboard single = pushes(bit) & free & ~(RankOne | RankEight);
            addUnlisted(c, single, Pawn);
            if (single && (bit & pawnHomeRank())) addUnlisted(c, pushes(single) & free, Pawn);
        }
    }

    void discoveredChecks(int k) {
        const Bitboard occ = p.occupied;
        const Bitboard seen =
            ((them.enemyAttacks & ~them.enemyPawnAttacks) | them.enemyDoubleAttacks) & us.men();
        const Bitboard straight = us.pieces[Rook] | us.pieces[Queen];
        if (straight) {
            for (Bitboard cands = rookAttacks(k, occ) & seen; cands; cands &= cands - 1) {
                const int c = firstSquare(cands);
                const bool onFile = fileOf(c) == fileOf(k);
                const Bitboard reach = onFile ? fileAttacks(c, occ) : rankAttacks(c, occ);
                if (!(reach & straight)) continue;
                // The table entry at index c is read as an occupancy pattern of a8: a kept
                // quirk that decides which destinations count as leaving the line.
                discoveringMoves(c, onFile ? FileAttacks[c] : RankAttacks[c]);
            }
        }
        const Bitboard diagonal = us.pieces[Bishop] | us.pieces[Queen];
        if (diagonal) {
            for (Bitboard cands = bishopAttacks(k, occ) & seen; cands; cands &= cands - 1) {
                const int c = firstSquare(cands);
                const bool rising = fileOf(c) + rowOf(c) == fileOf(k) + rowOf(k);
                const Bitboard reach = rising ? risingAttacks(c, occ) : fallingAttacks(c, occ);
                if (!(reach & diagonal)) continue;
                discoveringMoves(c, rising ? RisingAttacks[c] : FallingAttacks[c]);
            }
        }
    }

    void seventhRankPushes() {
        const Bitboard home = them.homeRank;
        const Bitboard enemy = them.men();
        const Bitboard neighbours = ((enemy << 1) & ~FileA) | ((enemy >> 1) & ~FileH);
        const Bitboard h = home & (~p.occupied | neighbours);
        const Bitboard s = white ? h << 8 : h >> 8;
        if (!(them.enemyPawnAttacks & s)) return;
        for (Bitboard t = s & ~p.occupied; t; t &= t - 1) {
            const int to = firstSquare(t);
            const int from = to - us.pawnStep;
            if ((us.pieces[Pawn] & squareBit(from)) && !listed(from, to, Pawn)) add(from, to, Pawn);
        }
    }

    void generateChecks(bool withSeventh) {
        const int k = them.pieceList[King][0];
        const Bitboard occ = p.occupied;
        const Bitboard safe = (them.enemyDoubleAttacks | ~us.enemyAttacks) & ~us.men();
        const Bitboard b = bishopAttacks(k, occ);
        const Bitboard r = rookAttacks(k, occ) & safe;
        const int kf = fileOf(k);
        // Pawn pushes that give check, single steps only.
        const int c1 = white ? k + 7 : k - 9;
        const int c2 = white ? k + 9 : k - 7;
        const bool c1Exists = white ? kf > 0 : kf > 0;
        const bool c2Exists = white ? kf < 7 : kf < 7;
        const int checkSquares[2] = {c1Exists ? c1 : -1, c2Exists ? c2 : -1};
        for (int c : checkSquares) {
            if (c < 0 || c > 63) continue;
            const int behind = c - us.pawnStep;
            if (behind < 0 || behind > 63) continue;
            if ((us.pieces[Pawn] & squareBit(behind)) && !(occ & squareBit(c)))
                add(behind, c, Pawn);
        }
        selectivePawnMoves(captureTargetsWithEp());
        knights((KnightMask[k] & safe) | them.men());
        bishopLike(us.pieceList[Bishop], us.pieceCount[Bishop], Bishop, (b & safe) | them.men());
        rookLike(us.pieceList[Rook], us.pieceCount[Rook], Rook, r | rookPrey());
        const Bitboard queenTargets = queenPrey() | r | (b & safe);
        bishopLike(us.pieceList[Queen], us.pieceCount[Queen], Queen, queenTargets);
        rookLike(us.pieceList[Queen], us.pieceCount[Queen], Queen, queenTargets);
        king(them.men() & ~us.enemyAttacks);
        discoveredChecks(k);
        if (withSeventh) seventhRankPushes();
    }
};

}  // namespace

MoveEntry* generateMoves(const Position& p, int mode, MoveEntry* out) {
    Emitter e(p, out);
    if (e.us.enemyAttacks & e.us.pieces[King]) mode = GenEvasions;
    switch (mode) {
        case GenAll:
            e.generateAll();
            break;
        case GenEvasions:
            e.generateEvasions();
            break;
        case GenChecksAndSeventh:
            e.generateChecks(true);
            break;
        case GenChecks:
            e.generateChecks(false);
            break;
        case GenCaptures:
            e.generateCaptures();
            break;
        default:
            break;
    }
    return e.out;
}
