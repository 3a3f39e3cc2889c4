// The openings file. Three forms are read:
//   - one FEN or EPD position a line;
//   - one move list a line, played from the start position, in SAN or in the UCI form, move
//     numbers and a closing result allowed ("1. e4 e5 2. Nf3 Nc6", "d2d4 g8f6");
//   - PGN, recognised by a line that starts with '[': each game is an opening, its moves
//     played from the start position or from its FEN tag. Comments, variations and NAGs are
//     passed over, so a file of named opening lines such as an ECO classification serves.
// In the line forms, '#' starts a comment line and FEN and move lines may be mixed.
#pragma once

#include <string>
#include <vector>

namespace match {

// Where a game starts: a position and the moves the engines find already made.
struct Opening {
    std::string fen;
    std::vector<std::string> moves;  // in the UCI form, checked against the board
};

// The four position fields of a FEN or EPD line, with the counters if the line has them as
// fields five and six, "0 1" otherwise. Empty if the line holds no position.
std::string normaliseOpening(const std::string& line);

// Reads the openings; on failure `error` names the first bad line. In Chess960 castling moves
// are read as the king taking its rook.
bool loadOpenings(const std::string& path, bool chess960, std::vector<Opening>& openings,
                  std::string& error);

}  // namespace match
