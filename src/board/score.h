// The score scale of the search and the evaluation. A pawn is 1000, so one unit is a tenth of
// a centipawn; 0 is a draw. Mates are counted from the root: a side mated at ply p scores
// p - ScoreMate, and every score at least ScoreMateZone in size is a mate score, stored in the
// table relative to its node.
#pragma once

constexpr int ScoreMate = 500000;
constexpr int ScoreInfinite = ScoreMate + 1;
constexpr int ScoreMateZone = 400000;

// The score of the side to move when it is mated at `ply`.
constexpr int matedAt(int ply) {
    return ply - ScoreMate;
}
// The score of the side that mates at `ply`.
constexpr int mateAt(int ply) {
    return ScoreMate - ply;
}
constexpr bool isMateScore(int score) {
    return score >= ScoreMateZone || score <= -ScoreMateZone;
}
