#include "openings.h"

#include <fstream>
#include <sstream>

#include "board/position.h"
#include "board/text.h"

namespace match {

std::string normaliseOpening(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> fields;
    std::string f;
    while (fields.size() < 6 && in >> f) fields.push_back(f);
    if (fields.size() < 4) return {};
    std::string fen = fields[0] + " " + fields[1] + " " + fields[2] + " " + fields[3];
    auto number = [](const std::string& t) {
        return !t.empty() && t.find_first_not_of("0123456789") == std::string::npos;
    };
    if (fields.size() == 6 && number(fields[4]) && number(fields[5])) {
        return fen + " " + fields[4] + " " + fields[5];
    }
    return fen + " 0 1";
}

bool loadOpenings(const std::string& path, std::vector<std::string>& fens, std::string& error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot read " + path;
        return false;
    }
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') continue;
        const std::string fen = normaliseOpening(line);
        Game g;
        constructGame(g);
        if (fen.empty() || !setGameFromFen(g, fen.c_str())) {
            error = path + ":" + std::to_string(number) + ": not a position: " + line;
            return false;
        }
        fens.push_back(fen);
    }
    if (fens.empty()) {
        error = path + " holds no positions";
        return false;
    }
    return true;
}

}  // namespace match
