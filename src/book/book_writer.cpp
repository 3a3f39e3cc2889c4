// The tree out: the minimax that turns points into weights, the book file, the Chess960 book
// file and the shuffled test positions.
//
// The three walks keep their lines on explicit stacks on the heap, not on the call stack. A
// game puts at most 45 plies into the tree, but transpositions chain games into longer lines
// (a position at ply 40 of one game may be ply 5 of another), so a hostile game file can make
// a line as long as the tree is large, and the commands also run on the xboard queue thread
// with its 100,000-byte stack. The walks do exactly what the recursion would.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>

#include "board/text.h"
#include "book/book_editor.h"
#include "book/exact_move.h"
#include "learn/neural_net.h"

namespace {

// valueNode on a position that is already on the line: a line that comes back is a repetition,
// and counts as even.
constexpr float RepeatedPositionValue = 0.0f;
// Moves of this weight are the best of their position.
constexpr int64_t FullWeight = 99;
// The writers write their files in blocks of this size.
constexpr size_t OutputBufferBytes = 1 << 16;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using OutputFile = std::unique_ptr<std::FILE, FileCloser>;

OutputFile openOutput(const std::string& fileName) {
    OutputFile file(std::fopen(fileName.c_str(), "w"));
    if (file) std::setvbuf(file.get(), nullptr, _IOFBF, OutputBufferBytes);
    return file;
}

// A weight from a real that need not be finite or in range (a width of 0 or below): held
// inside the field's range instead of converted out of it.
int16_t toWeight(double d) {
    if (!(d > 0.0)) return 0;
    if (d >= 32767.0) return INT16_MAX;
    return static_cast<int16_t>(d);
}

// What valueNode gathers over the moves of a position.
struct MoveSums {
    float best = UnratedValue;  // the best value of a move to be played
    uint64_t whiteSum = 0, blackSum = 0;
    uint64_t most = 0;  // the most points of a move
    size_t underCount = 0;
};

// The rest of valueNode once every move of the position has its value: near-best moves count
// double in the position's own rating, rare moves pay, the values become weights and the
// writers get the moves to be played first, the best of them first. Returns the rating of the
// position for the side to move.
float finishPosition(std::vector<BookMove>& moves, MoveSums& sums, bool whiteToMove, double width) {
    // A single move that passes the threshold is played, whatever its score.
    if (moves.size() == 1 && !moves[0].done) {
        moves[0].weight = FullWeight;
        return moves[0].value;
    }
    if (moves.size() > 1) {
        float top = -9999.0f;
        for (BookMove& m : moves) {
            const uint64_t t = static_cast<uint64_t>(m.whitePoints) + m.blackPoints;
            if (m.value >= sums.best - 0.01) {
                sums.whiteSum += m.whitePoints;
                sums.blackSum += m.blackPoints;
            }
            if (t * 5 < sums.most && t != 0) m.value -= static_cast<float>(sums.most / t + 35);
            top = std::max(top, m.value);
        }
        if (sums.underCount != moves.size()) {
            for (BookMove& m : moves) {
                if (m.done) {
                    m.weight = 0;
                } else if (m.value < top - 0.01) {
                    const double d = (m.value + width - top) * 99.0 / width;
                    m.weight = d < 1.0 ? 0 : toWeight(d);
                } else {
                    m.weight = FullWeight;
                }
            }
            std::stable_sort(moves.begin(), moves.end(), [](const BookMove& a, const BookMove& b) {
                if (a.done != b.done) return a.done < b.done;
                return a.value > b.value;
            });
        }
    }
    return whiteToMove ? pointsRating(sums.whiteSum, sums.blackSum)
                       : pointsRating(sums.blackSum, sums.whiteSum);
}

}  // namespace

float BookEditor::valueNode(Position& board, int64_t minPoints, double width) {
    // One position of the line being valued, with the move whose reply is being valued.
    struct Frame {
        uint64_t key;
        std::vector<BookMove>* moves;
        size_t next;
        MoveSums sums;
        UndoRecord undo;
    };
    std::vector<Frame> line;
    const auto enter = [&](uint64_t key) {
        if (!onPath.insert(key).second) return false;
        Frame frame{};
        frame.key = key;
        frame.moves = tree.find(key);
        line.push_back(frame);
        return true;
    };
    if (!enter(board.hashKey)) return RepeatedPositionValue;

    float returned = 0.0f;
    bool returning = false;
    for (;;) {
        Frame& f = line.back();
        const size_t count = f.moves ? f.moves->size() : 0;
        if (returning) {
            BookMove& m = (*f.moves)[f.next];
            m.value = -returned;
            if (m.value > f.sums.best && !m.done) f.sums.best = m.value;
            undoMove(f.undo);
            ++f.next;
            returning = false;
        }
        bool descended = false;
        for (; f.next < count; ++f.next) {
            BookMove& m = (*f.moves)[f.next];
            const uint64_t t = static_cast<uint64_t>(m.whitePoints) + m.blackPoints;
            f.sums.whiteSum += m.whitePoints;
            f.sums.blackSum += m.blackPoints;
            f.sums.most = std::max(f.sums.most, t);
            if (static_cast<int64_t>(t) <= minPoints) {
                ++f.sums.underCount;
                m.done = 1;
            }
            // A value from an earlier visit stays and plays no part in the best.
            if (m.value > -1000.0f) continue;
            if (!makeExactMove(board, m.move, f.undo)) {
                // Only a key shared by two positions gets here: the move is left alone.
                m.done = 1;
                m.value = moveElo(m, board.whiteToMove == 0);
                continue;
            }
            if (!m.done && tree.contains(board.hashKey)) {
                if (enter(board.hashKey)) {
                    descended = true;
                    break;
                }
                m.value = -RepeatedPositionValue;
            } else {
                // The opponent's point of view, while a valued reply gives the mover's: the
                // two are mixed on purpose.
                m.value = moveElo(m, board.whiteToMove != 0);
            }
            if (m.value > f.sums.best && !m.done) f.sums.best = m.value;
            undoMove(f.undo);
        }
        if (descended) continue;

        onPath.erase(f.key);
        std::vector<BookMove> none;
        returned = finishPosition(f.moves ? *f.moves : none, f.sums, board.whiteToMove != 0, width);
        line.pop_back();
        if (line.empty()) return returned;
        returning = true;
    }
}

bool BookEditor::keepsLineOpen(uint64_t key) const {
    if (onPath.count(key)) return false;
    const std::vector<BookMove>* moves = tree.find(key);
    if (!moves) return false;
    for (const BookMove& m : *moves)
        if (!m.done && m.weight > 0) return true;
    return false;
}

void BookEditor::writeNode(Position& board, std::FILE* out) {
    // One position of the line being written. `ownLoss` is how much the side to move has given
    // away on this line by playing moves under 99, `nextLoss` the same for the other side.
    struct Frame {
        uint64_t key;
        std::vector<BookMove>* moves;
        size_t next;
        int64_t written;
        int64_t depth;
        int64_t ownLoss, nextLoss;
        UndoRecord undo;
    };
    std::vector<Frame> line;
    const auto enter = [&](uint64_t key, int64_t depth, int64_t ownLoss, int64_t nextLoss) {
        if (!onPath.insert(key).second) return false;
        Frame frame{};
        frame.key = key;
        frame.moves = tree.find(key);
        frame.depth = depth;
        frame.ownLoss = ownLoss;
        frame.nextLoss = nextLoss;
        line.push_back(frame);
        return true;
    };
    if (!enter(board.hashKey, 0, 0, 0)) return;

    bool returning = false;
    for (;;) {
        Frame& f = line.back();
        const size_t count = f.moves ? f.moves->size() : 0;
        if (returning) {
            undoMove(f.undo);
            std::fputs("* ", out);
            ++f.next;
            returning = false;
        }
        bool descended = false;
        for (; f.next < count; ++f.next) {
            BookMove& m = (*f.moves)[f.next];
            // Each move is written at most once in the whole file.
            if (m.done) continue;
            m.done = 1;
            if (!isGeneratedMove(board, m.move)) continue;
            char text[16];
            writeMove(board, m.move, StyleCoordinates, text);
            beginUndo(f.undo, board);
            if (!makeLegal(board, m.move, f.undo)) continue;
            int64_t w = m.weight;
            if (w < FullWeight) w -= f.ownLoss;
            if (w <= 0) {
                // A move that is not to be played stays in the file with weight 0 if the
                // line behind it still leads somewhere.
                if (!keepsLineOpen(board.hashKey)) {
                    undoMove(f.undo);
                    continue;
                }
                w = 0;
            }
            ++(board.whiteToMove ? blackMoves : whiteMoves);
            if (f.written > 0) {
                std::fputc('\n', out);
                for (int64_t column = 0; column < 10 * f.depth; ++column) std::fputc(' ', out);
            }
            std::fprintf(out, "%6s%3lld ", text, static_cast<long long>(w));
            ++f.written;
            const int64_t given = f.ownLoss - m.weight + FullWeight;
            if (enter(board.hashKey, f.depth + 1, f.nextLoss, given < FullWeight ? given : 1)) {
                descended = true;
                break;
            }
            undoMove(f.undo);
            std::fputs("* ", out);
        }
        if (descended) continue;
        onPath.erase(f.key);
        line.pop_back();
        if (line.empty()) return;
        returning = true;
    }
}

Position BookEditor::startWriting() {
    whiteMoves = blackMoves = 0;
    Position board;
    constructPosition(board);
    return board;
}

bool BookEditor::writeBook(const std::string& fileName, int threshold, int width) {
    const OutputFile out = openOutput(fileName);
    if (!out) return false;
    Position board = startWriting();
    valueNode(board, minimumPoints(threshold), width);
    writeNode(board, out.get());
    std::fputs("* -1\n", out.get());
    return true;
}

bool BookEditor::write960(const std::string& fileName, int threshold, int width) {
    const OutputFile out = openOutput(fileName);
    if (!out) return false;
    Position board = startWriting();
    for (unsigned n = 1; n <= 960; ++n) {
        setChess960Position(board, n);
        if (!tree.contains(board.hashKey)) continue;
        valueNode(board, minimumPoints(threshold), width);
        if (n != 1) std::fputc('\n', out.get());
        std::fprintf(out.get(), "startpos %u\n", n);
        writeNode(board, out.get());
        std::fputc('\n', out.get());
    }
    std::fputs("* -1\n", out.get());
    return true;
}

void BookEditor::collectEpd(Position& board) {
    // One position of the line being searched for test positions. `balanced` counts the
    // roughly equal moves, twice those whose reply position has such moves of its own.
    struct Frame {
        uint64_t key;
        std::vector<BookMove>* moves;
        size_t next;
        size_t prefixLength;
        int balanced;
        bool taken;
        UndoRecord undo;
    };
    std::vector<Frame> line;
    std::string prefix;
    const auto enter = [&](uint64_t key) {
        if (!onPath.insert(key).second) return false;
        Frame frame{};
        frame.key = key;
        frame.moves = tree.find(key);
        frame.prefixLength = prefix.size();
        line.push_back(frame);
        return true;
    };
    if (!enter(board.hashKey)) return;

    // What the position just left reports: whether it had enough balanced moves, and whether
    // it or a position behind it was taken.
    bool childUseful = false, childTaken = false;
    bool returning = false;
    for (;;) {
        Frame& f = line.back();
        const size_t count = f.moves ? f.moves->size() : 0;
        bool descended = false;
        for (; f.next < count; ++f.next) {
            BookMove& m = (*f.moves)[f.next];
            if (!returning) {
                if (m.done) continue;
                m.done = 1;
                if (!isGeneratedMove(board, m.move)) continue;
                char text[16];
                writeMove(board, m.move, StyleGerman, text);
                beginUndo(f.undo, board);
                if (!makeLegal(board, m.move, f.undo)) continue;
                ++(board.whiteToMove ? blackMoves : whiteMoves);
                prefix.resize(f.prefixLength);
                prefix += ' ';
                prefix += text;
                childUseful = childTaken = false;
                // Only a move to be played leads on.
                if (m.weight >= 1 && enter(board.hashKey)) {
                    descended = true;
                    break;
                }
            }
            returning = false;
            f.taken = f.taken || childTaken;
            undoMove(f.undo);
            const float elo = moveElo(m, board.whiteToMove != 0);
            if (m.weight >= 1 && -100.0f < elo && elo < 100.0f) f.balanced += childUseful ? 2 : 1;
        }
        if (descended) continue;

        // Only the deepest such position of each line of play is taken.
        const bool useful = f.balanced >= 3;
        if (useful && !f.taken) {
            char fen[128];
            writeFen(board, fen);
            prefix.resize(f.prefixLength);
            epdLines.push_back(std::string(fen) + " 0 1; \"" + prefix + "\"; ");
            f.taken = true;
        }
        childUseful = useful;
        childTaken = f.taken;
        onPath.erase(f.key);
        line.pop_back();
        if (line.empty()) return;
        returning = true;
    }
}

bool BookEditor::writeEPD(const std::string& fileName, int threshold, int width) {
    const OutputFile out = openOutput(fileName);
    if (!out) return false;
    Position board = startWriting();
    valueNode(board, minimumPoints(threshold), width);
    collectEpd(board);

    RandomSource& random = RandomSource::instance();
    const size_t count = epdLines.size();
    for (size_t i = 0; i < count; ++i) {
        const size_t j = random.next() % count;
        if (i != j) std::swap(epdLines[i], epdLines[j]);
    }
    for (size_t i = 0; i < count; ++i)
        std::fprintf(out.get(), "%s\"JT-Teststellung %zu\"\n", epdLines[i].c_str(), i + 1);
    return true;
}
