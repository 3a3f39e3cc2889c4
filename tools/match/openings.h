// The openings file: one FEN or EPD position a line, '#' starting a comment.
#pragma once

#include <string>
#include <vector>

namespace match {

// The four position fields of a FEN or EPD line, with the counters if the line has them as
// fields five and six, "0 1" otherwise. Empty if the line holds no position.
std::string normaliseOpening(const std::string& line);

// Reads the openings; on failure `error` names the first bad line.
bool loadOpenings(const std::string& path, std::vector<std::string>& fens, std::string& error);

}  // namespace match
