#include "score_adjudicator.h"

#include <algorithm>
#include <sstream>

namespace match {

namespace {

constexpr int NoScore = -0x7fffffff;

}  // namespace

// Whether the last `count` scores of a side all pass the test.
template <typename Test>
bool ScoreAdjudicator::lastAll(int side, int count, Test test) const {
    const std::deque<int>& s = scores_[side];
    if (static_cast<int>(s.size()) < count) return false;
    return std::all_of(s.end() - count, s.end(), test);
}

void ScoreAdjudicator::record(bool white, bool hasScore, int score) {
    std::deque<int>& s = scores_[white ? 0 : 1];
    s.push_back(hasScore ? score : NoScore);
    if (s.size() > 1000) s.pop_front();
}

Verdict ScoreAdjudicator::check(int moveNumber) const {
    if (resign_.moveCount > 0) {
        for (int side = 0; side < 2; ++side) {
            const bool loserIsWhite = side == 0;
            if (lastAll(side, resign_.moveCount,
                        [&](int s) { return s != NoScore && s <= -resign_.score; }) &&
                lastAll(1 - side, resign_.moveCount,
                        [&](int s) { return s != NoScore && s >= resign_.score; })) {
                return forfeit(loserIsWhite, Ending::AdjudicatedWin,
                               std::string(colourName(!loserIsWhite)) + " wins by adjudication");
            }
        }
    }
    if (draw_.moveCount > 0 && moveNumber >= draw_.moveNumber) {
        auto level = [&](int s) { return s != NoScore && s <= draw_.score && s >= -draw_.score; };
        if (lastAll(0, draw_.moveCount, level) && lastAll(1, draw_.moveCount, level))
            return {Outcome::Draw, Ending::AdjudicatedDraw, "Draw by adjudication"};
    }
    return {};
}

bool parseInfoScore(const std::string& line, int& score) {
    std::istringstream in(line);
    std::string word;
    bool found = false;
    while (in >> word) {
        if (word == "multipv") {
            int n = 0;
            if (in >> n && n != 1) return false;
        } else if (word == "score") {
            std::string kind;
            int value = 0;
            if (!(in >> kind >> value)) return false;
            if (kind == "cp") {
                score = value;
                found = true;
            } else if (kind == "mate") {
                // Far beyond any material score, nearer mates further out.
                score = value > 0 ? 100000 - value : -100000 - value;
                found = true;
            }
        }
    }
    return found;
}

bool parseThinkingScore(const std::string& line, int& score) {
    std::istringstream in(line);
    long depth = 0;
    long value = 0;
    double time = 0;
    double nodes = 0;
    if (!(in >> depth >> value >> time >> nodes)) return false;
    score = static_cast<int>(std::max(-1000000L, std::min(value, 1000000L)));
    return true;
}

}  // namespace match
