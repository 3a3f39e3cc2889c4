#include "openings.h"

#include <fstream>
#include <sstream>

#include "board/position.h"
#include "board/text.h"
#include "referee.h"

namespace match {

namespace {

bool isResult(const std::string& t) {
    return t == "1-0" || t == "0-1" || t == "1/2-1/2" || t == "*";
}

// The move in a word of movetext, without a move number glued to its front ("12.Nf3",
// "3...e5"); empty for a bare move number, a NAG or an annotation glyph.
std::string moveOfWord(const std::string& word) {
    size_t start = 0;
    while (start < word.size() && word[start] >= '0' && word[start] <= '9') ++start;
    if (start > 0 && start < word.size() && word[start] == '.') {
        while (start < word.size() && word[start] == '.') ++start;
    } else {
        start = 0;  // "0-0" castling is no move number
    }
    const std::string move = word.substr(start);
    if (move.empty() || move[0] == '$' || move.find_first_not_of("!?") == std::string::npos)
        return {};
    return move;
}

// Collects one opening at a time and plays its moves as they come, so that an error names
// the line of the move that fails.
class OpeningBuilder {
  public:
    OpeningBuilder(const std::string& path, bool chess960) : path_(path), chess960_(chess960) {}

    bool start(const std::string& fen, int line, std::string& error) {
        started_ = true;
        opening_ = {fen, {}};
        if (referee_.reset(fen, chess960_)) return true;
        error = where(line) + "not a position: " + fen;
        return false;
    }
    bool started() const { return started_; }

    // A word of movetext; results end nothing here, the caller decides.
    bool word(const std::string& text, int line, std::string& error) {
        const std::string move = moveOfWord(text);
        if (move.empty()) return true;
        if (!started_ && !start(StandardStartFen, line, error)) return false;
        if (!referee_.playNotation(move)) {
            error = where(line) + "not a legal move: " + move;
            return false;
        }
        opening_.moves.push_back(referee_.uciMoves().back());
        return true;
    }

    void finish(std::vector<Opening>& openings) {
        if (started_) openings.push_back(opening_);
        started_ = false;
    }

  private:
    std::string where(int line) const { return path_ + ":" + std::to_string(line) + ": "; }

    std::string path_;
    bool chess960_;
    bool started_ = false;
    Opening opening_;
    Referee referee_;
};

bool isPgn(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        const size_t start = line.find_first_not_of(" \t\r");
        if (start != std::string::npos && line[start] == '[') return true;
    }
    return false;
}

// The value of a tag pair "[Name "value"]" if its name is `name`.
bool tagValue(const std::string& tag, const std::string& name, std::string& value) {
    std::istringstream in(tag);
    std::string word;
    if (!(in >> word) || word != name) return false;
    const size_t open = tag.find('"');
    const size_t close = tag.rfind('"');
    if (open == std::string::npos || close <= open) return false;
    value = tag.substr(open + 1, close - open - 1);
    return true;
}

bool readPgn(const std::string& text, OpeningBuilder& builder, std::vector<Opening>& openings,
             std::string& error) {
    int line = 1;
    int depth = 0;  // of variations, whose moves are not the game's
    bool inMovetext = false;
    size_t i = 0;
    auto skipTo = [&](char end) {
        while (i < text.size() && text[i] != end) line += text[i++] == '\n';
    };
    while (i < text.size()) {
        const char c = text[i];
        const bool lineStart = i == 0 || text[i - 1] == '\n';
        if (c == '\n') {
            ++line;
            ++i;
        } else if (c == ' ' || c == '\t' || c == '\r') {
            ++i;
        } else if (c == ';' || (c == '%' && lineStart)) {
            skipTo('\n');
        } else if (c == '{') {
            skipTo('}');
            ++i;
        } else if (c == '(' || c == ')') {
            depth += c == '(' ? 1 : (depth > 0 ? -1 : 0);
            ++i;
        } else if (c == ']' || c == '}' || (c == '[' && depth > 0)) {
            ++i;  // stray, or a tag inside a variation
        } else if (c == '[') {
            // A tag section after movetext without a result starts the next game.
            if (inMovetext) builder.finish(openings);
            inMovetext = false;
            const size_t from = ++i;
            // A tag's value may hold brackets ("Abbazia defence [!]"); only its quotes count.
            for (bool quoted = false; i < text.size() && (quoted || text[i] != ']'); ++i) {
                if (text[i] == '\\' && quoted) {
                    ++i;
                } else if (text[i] == '"') {
                    quoted = !quoted;
                } else if (text[i] == '\n') {
                    ++line;
                }
            }
            std::string fen;
            if (tagValue(text.substr(from, i - from), "FEN", fen) &&
                !builder.start(normaliseOpening(fen), line, error))
                return false;
            ++i;
        } else {
            const size_t from = i;
            while (i < text.size() &&
                   std::string(" \t\r\n{}()[];").find(text[i]) == std::string::npos)
                ++i;
            if (depth > 0) continue;
            const std::string word = text.substr(from, i - from);
            if (isResult(word)) {
                if (!builder.started()) builder.start(StandardStartFen, line, error);
                builder.finish(openings);
                inMovetext = false;
            } else {
                inMovetext = true;
                if (!builder.word(word, line, error)) return false;
            }
        }
    }
    builder.finish(openings);
    return true;
}

bool readLines(const std::string& text, OpeningBuilder& builder, std::vector<Opening>& openings,
               std::string& error) {
    std::istringstream in(text);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::istringstream words(line);
        std::string word;
        if (!(words >> word) || word[0] == '#') continue;
        // A FEN's first field has its rank separators; no move list has a slash.
        if (word.find('/') != std::string::npos) {
            const std::string fen = normaliseOpening(line);
            if (!builder.start(fen.empty() ? line : fen, number, error)) return false;
        } else {
            do {
                if (!isResult(word) && !builder.word(word, number, error)) return false;
            } while (words >> word);
        }
        builder.finish(openings);
    }
    return true;
}

}  // namespace

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

bool loadOpenings(const std::string& path, bool chess960, std::vector<Opening>& openings,
                  std::string& error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot read " + path;
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    OpeningBuilder builder(path, chess960);
    const bool read = isPgn(text.str()) ? readPgn(text.str(), builder, openings, error)
                                        : readLines(text.str(), builder, openings, error);
    if (!read) return false;
    if (openings.empty()) {
        error = path + " holds no openings";
        return false;
    }
    return true;
}

}  // namespace match
