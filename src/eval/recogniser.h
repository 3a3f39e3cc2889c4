// Endgame recognisers: one small immutable object per material distribution, chosen by the
// counts alone and cached with the material entry. The search and the evaluation ask it at
// four points; the ordinary object answers every question with "nothing special".
//
// Most classes are written once for a "strong" side and hold a flag for its colour. The twin
// for Black exchanges the sides and the sign of the score, and where the direction of the
// pawns matters it reads the board turned upside down, so the colours can't drift apart.
#pragma once

#include "board/position.h"
#include "board/score.h"

struct Evaluator;

class EndgameRecogniser {
  public:
    virtual ~EndgameRecogniser() = default;
    // Static evaluation, before any term: `score` enters as the material score from White's
    // view and may be changed. True if `score` is final.
    virtual bool quickScore(const Position& position, int& score) const;
    // Quiescence: true if the node's value is known; `score` is relative to the side to move.
    virtual bool qsearchScore(const Position& position, int& score) const;
    // Node search at small depth: true if the node ends with `score` (side to move's view);
    // `depthChange` may also extend or cut the remaining depth.
    virtual bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                           int& depthChange) const;
    // The last step of the static evaluation, on the full score from White's view.
    virtual int finalScale(const Position& position, const Evaluator& evaluator, int score) const;
};

// Known draws: K against K, K and a minor against K, one minor each.
class DeadDrawRecogniser : public EndgameRecogniser {
  public:
    bool quickScore(const Position& position, int& score) const override;
    bool qsearchScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
};

// Two knights can't force mate: a draw, but the search may look one ply for a blunder.
class TwoKnightsRecogniser : public DeadDrawRecogniser {
  public:
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
};

// King and pawn against king, from the table.
class KingPawnRecogniser : public EndgameRecogniser {
  public:
    explicit KingPawnRecogniser(bool whiteStrong) : white(whiteStrong) {}
    bool quickScore(const Position& position, int& score) const override;
    bool qsearchScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    const bool white;
};

// Rook or queen against the lone king.
class HeavyPieceRecogniser : public EndgameRecogniser {
  public:
    explicit HeavyPieceRecogniser(bool whiteStrong) : white(whiteStrong) {}
    bool quickScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    const bool white;
};

// Rook against rook or queen against queen: drawn unless something is hanging.
class EqualHeavyRecogniser : public EndgameRecogniser {
  public:
    bool quickScore(const Position& position, int& score) const override;
    bool qsearchScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
};

class QueenVsRookRecogniser : public EndgameRecogniser {
  public:
    explicit QueenVsRookRecogniser(bool whiteStrong) : white(whiteStrong) {}
    bool quickScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    const bool white;
};

// King and pawn against king and minor; the pawn's side is the strong one in name.
class PawnVsMinorRecogniser : public EndgameRecogniser {
  public:
    explicit PawnVsMinorRecogniser(bool whiteStrong) : white(whiteStrong) {}
    bool quickScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    const bool white;
};

// Material that wins in name only: the score grows with the tactical danger to the weak side.
class RookVsMinorRecogniser : public EndgameRecogniser {
  public:
    explicit RookVsMinorRecogniser(bool whiteStrong) : white(whiteStrong) {}
    bool quickScore(const Position& position, int& score) const override;
    bool qsearchScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    const bool white;
};

class TwoMinorsRecogniser : public RookVsMinorRecogniser {
  public:
    using RookVsMinorRecogniser::RookVsMinorRecogniser;
    bool quickScore(const Position& position, int& score) const override;
    bool qsearchScore(const Position& position, int& score) const override;
};

// Rook and minor against rook: scored like rook against minor, but the search isn't cut.
class RookMinorVsRookRecogniser : public RookVsMinorRecogniser {
  public:
    using RookVsMinorRecogniser::RookVsMinorRecogniser;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
};

// Minor and pawns on one rook file: the wrong bishop and the knight's corner draws.
class RookPawnsRecogniser : public EndgameRecogniser {
  public:
    explicit RookPawnsRecogniser(bool whiteStrong) : white(whiteStrong) {}
    bool quickScore(const Position& position, int& score) const override;
    bool qsearchScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    const bool white;
};

class BishopKnightRecogniser : public EndgameRecogniser {
  public:
    explicit BishopKnightRecogniser(bool whiteStrong) : white(whiteStrong) {}
    bool quickScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    const bool white;
};

// Queen and minor against queen; the side with the minor is the strong one.
class QueenMinorRecogniser : public EndgameRecogniser {
  public:
    explicit QueenMinorRecogniser(bool whiteStrong) : white(whiteStrong) {}
    bool quickScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    const bool white;
};

// A piece up against a pawn with rooks on: the material is replaced by `value`, and only the
// side with the pawn may come out better.
class ClampRecogniser : public EndgameRecogniser {
  public:
    explicit ClampRecogniser(int clampValue) : value(clampValue) {}
    bool quickScore(const Position& position, int& score) const override;
    int finalScale(const Position& position, const Evaluator& evaluator, int score) const override;
    const int value;
};

// Rook and pawn against rook. The rank masks are those of the pawn's side: rank 1, 8, 7, 6,
// 5, ranks 8 to 6, ranks 8 to 5.
class RookPawnVsRookRecogniser : public EndgameRecogniser {
  public:
    explicit RookPawnVsRookRecogniser(bool whiteStrong);
    bool quickScore(const Position& position, int& score) const override;
    const bool white;
    Bitboard rank[7];
};

class TwoKnightsVsPawnRecogniser : public EndgameRecogniser {
  public:
    bool quickScore(const Position& position, int& score) const override;
};

// Kings and pawns only.
class PawnEndingRecogniser : public EndgameRecogniser {
  public:
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    int finalScale(const Position& position, const Evaluator& evaluator, int score) const override;
};

// One bishop each, with pawns.
class BishopEndingRecogniser : public EndgameRecogniser {
  public:
    bool quickScore(const Position& position, int& score) const override;
    bool qsearchScore(const Position& position, int& score) const override;
    bool nodeCheck(const Position& position, int& score, int alpha, int beta, int depth,
                   int& depthChange) const override;
    int finalScale(const Position& position, const Evaluator& evaluator, int score) const override;
};

class KnightEndingRecogniser : public EndgameRecogniser {
  public:
    int finalScale(const Position& position, const Evaluator& evaluator, int score) const override;
};

class QueenEndingRecogniser : public EndgameRecogniser {
  public:
    int finalScale(const Position& position, const Evaluator& evaluator, int score) const override;
};

// Bishop against knight with pawns.
class MinorEndingRecogniser : public EndgameRecogniser {
  public:
    int finalScale(const Position& position, const Evaluator& evaluator, int score) const override;
};

// Only one colour has pawns: a small lead in pieces alone is worth less.
class OnePawnSideRecogniser : public EndgameRecogniser {
  public:
    int finalScale(const Position& position, const Evaluator& evaluator, int score) const override;
};

// All recognisers, built once before main() and shared read-only by every searcher. The
// ordinary one comes first.
struct RecogniserTable {
    EndgameRecogniser RecDefault;
    DeadDrawRecogniser RecDeadDraw;
    TwoKnightsRecogniser RecTwoKnights;
    KingPawnRecogniser RecKpkWhite{true};
    KingPawnRecogniser RecKpkBlack{false};
    HeavyPieceRecogniser RecHeavyWhite{true};
    HeavyPieceRecogniser RecHeavyBlack{false};
    EqualHeavyRecogniser RecEqualHeavy;
    QueenVsRookRecogniser RecQueenVsRook{true};
    QueenVsRookRecogniser RecRookVsQueen{false};
    PawnVsMinorRecogniser RecPawnVsMinorWhite{true};
    PawnVsMinorRecogniser RecPawnVsMinorBlack{false};
    RookVsMinorRecogniser RecRookVsMinorWhite{true};
    RookVsMinorRecogniser RecRookVsMinorBlack{false};
    RookPawnsRecogniser RecPawnsBishopBlack{false};
    RookPawnsRecogniser RecPawnsBishopWhite{true};
    BishopKnightRecogniser RecBishopKnightWhite{true};
    BishopKnightRecogniser RecBishopKnightBlack{false};
    RookMinorVsRookRecogniser RecRookMinorVsRookWhite{true};
    RookMinorVsRookRecogniser RecRookMinorVsRookBlack{false};
    // Two minors against a minor, and (the second ones) two minors against a rook.
    TwoMinorsRecogniser RecTwoMinorsWhite{true};
    TwoMinorsRecogniser RecTwoMinorsWhite2{true};
    TwoMinorsRecogniser RecTwoMinorsBlack{false};
    TwoMinorsRecogniser RecTwoMinorsBlack2{false};
    QueenMinorRecogniser RecQueenMinorWhite{true};
    QueenMinorRecogniser RecQueenMinorBlack{false};
    // The first pair serves rooks with a minor against a rook and pawn, the second a rook
    // against minor and pawn; the third is spare.
    ClampRecogniser RecFortressWhite{100};
    ClampRecogniser RecFortressBlack{-100};
    ClampRecogniser RecFortressWhite2{100};
    ClampRecogniser RecFortressBlack2{-100};
    ClampRecogniser RecFortressWhite3{100};
    ClampRecogniser RecFortressBlack3{-100};
    RookPawnVsRookRecogniser RecRookPawnVsRookWhite{true};
    RookPawnVsRookRecogniser RecRookPawnVsRookBlack{false};
    TwoKnightsVsPawnRecogniser RecTwoKnightsVsPawn;
    PawnEndingRecogniser RecPawnEnding;
    BishopEndingRecogniser RecBishopEnding;
    KnightEndingRecogniser RecKnightEnding;
    QueenEndingRecogniser RecQueenEnding;
    MinorEndingRecogniser RecMinorEnding;
    OnePawnSideRecogniser RecOnePawnSide;

    // Reads only the men counts, so quiescence may ask it with men taken off the counts.
    const EndgameRecogniser* select(const Position& position) const;
};

extern const RecogniserTable Recognisers;

// The recogniser for the counts of `position`.
const EndgameRecogniser* selectRecogniser(const Position& position);

// A node's value is known to lie in lo..hi, seen by a side `owner`; `ownerToMove` tells
// whether that side is to move. If the whole range is at or above beta (at or below alpha)
// for the side to move, `score` takes the near end and the node can end.
bool boundCut(int lo, int hi, bool ownerToMove, int alpha, int beta, int& score);
// The same with lo..hi from White's view.
bool boundCut(const Position& position, int lo, int hi, int alpha, int beta, int& score);

// Whether an equal rook or queen ending has anything hanging or a king in danger.
bool isSharp(const Position& position);

// Reward for driving the weak king away from the centre and bringing the strong king near,
// from the strong side's view; used for endings without pawns.
int mateDrive(int base, const SideState& strong, const SideState& weak);
// The drive of bishop and knight: the weak king belongs in a corner of the bishop's colour.
int bishopKnightDrive(const SideState& strong, const SideState& weak);
// How dangerous the position is for the weak side, 0 upwards; 10 means a tactic is at hand.
int fortressPoints(const SideState& strong, const SideState& weak, Bitboard occupied,
                   bool strongToMove);

// The functions below read the board with the strong side's pawns advancing towards square
// 0 (White's direction); callers with Black as the strong side pass sides turned upside down
// (see turnedSide).

// True if a minor with pawns on one rook file can't win.
bool rookPawnDraw(const SideState& strong, const SideState& weak, bool strongToMove);
// Whether the weak side's knight or bishop stops the strong side's single pawn.
bool knightStopsPawn(const SideState& strong, const SideState& weak, bool strongToMove);
bool bishopStopsPawn(const SideState& strong, const SideState& weak, bool strongToMove);
// Two knights (strong) against a pawn: a drive to the rim while the pawn stays blocked.
int pawnKnightsDrive(const SideState& strong, const SideState& weak, Bitboard occupied,
                     bool strongToMove);

// The side with every square turned (s becomes s ^ 56), so Black's men read as White's.
SideState turnedSide(const SideState& side);
