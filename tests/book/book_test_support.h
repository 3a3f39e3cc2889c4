// Games and files for the book editor's tests: lines of play that never repeat a position, PGN
// text for them, and an independent reading of a written book file that replays its moves on
// the board.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/position.h"
#include "board/text.h"
#include "book/book_editor.h"

inline std::string tempPath(const std::string& name) {
    return ::testing::TempDir() + "book_" + std::to_string(getpid()) + "_" + name;
}

inline std::string writeTempFile(const std::string& name, const std::string& text) {
    const std::string path = tempPath(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// A game as moves, in coordinates and as English algebraic text.
struct TestGame {
    std::vector<Move> moves;
    std::vector<std::string> coordinates;
    std::vector<std::string> texts;
};

// `prefix` in coordinates, then moves picked by `seed` up to `plies` plies (fewer if the game
// ends or runs out of new positions), never coming back to a position of the game. Piece moves
// that take nothing come first, so that the men last and the pawns lock nothing.
inline TestGame distinctGame(const std::vector<std::string>& prefix, int plies, uint32_t seed) {
    TestGame game;
    Position p;
    constructPosition(p);
    std::set<uint64_t> seen{p.hashKey};
    auto play = [&](Move move) {
        char text[16];
        writeMove(p, move, StyleCoordinates, text);
        game.coordinates.push_back(text);
        writeMove(p, move, StyleEnglish, text);
        UndoRecord undo;
        beginUndo(undo, p);
        makeLegal(p, move, undo);
        seen.insert(p.hashKey);
        game.moves.push_back(move);
        game.texts.push_back(text);
    };
    for (const std::string& text : prefix) {
        Move move = NoMove;
        EXPECT_TRUE(parseMove(p, text.c_str(), move, 1)) << text;
        play(move);
    }
    while (static_cast<int>(game.moves.size()) < plies) {
        MoveEntry list[MaxMovesPerPosition];
        const MoveEntry* end = generateMoves(p, GenAll, list);
        const int count = static_cast<int>(end - list);
        bool moved = false;
        for (int pass = 0; pass < 2 && !moved; ++pass) {
            for (int i = 0; i < count && !moved; ++i) {
                seed = seed * 1103515245u + 12345u;
                const Move move = list[(static_cast<int>(seed >> 8) + i) % count].move;
                const bool quietPiece =
                    moveKind(move) != Pawn && !(p.occupied & squareBit(moveTo(move)));
                if (pass == 0 && !quietPiece) continue;
                UndoRecord undo;
                beginUndo(undo, p);
                if (!makeLegal(p, move, undo)) continue;
                const bool fresh = !seen.count(p.hashKey);
                undoMove(undo);
                char text[16];
                writeMove(p, move, StyleEnglish, text);
                // The English text has a blank for three men on crossing lines.
                if (fresh && !std::strchr(text, ' ')) {
                    play(move);
                    moved = true;
                }
            }
        }
        if (!moved) break;
    }
    return game;
}

inline std::string pgnGame(const TestGame& game, const char* result, int whiteElo = 0,
                           int blackElo = 0, const char* white = "W", const char* black = "B") {
    std::string text = std::string("[White \"") + white + "\"]\n[Black \"" + black +
                       "\"]\n[Result \"" + result + "\"]\n";
    if (whiteElo) text += "[WhiteElo \"" + std::to_string(whiteElo) + "\"]\n";
    if (blackElo) text += "[BlackElo \"" + std::to_string(blackElo) + "\"]\n";
    text += "\n";
    for (size_t i = 0; i < game.texts.size(); ++i) {
        if (i % 2 == 0) text += std::to_string(i / 2 + 1) + ". ";
        text += game.texts[i] + " ";
    }
    return text + result + "\n\n";
}

// What a book file says, read token by token the way its format is defined: entries of a move
// in coordinates, a weight and the move's own node, each node closed by "*", "startpos n" to
// change to a Chess960 start. Every move is parsed strictly and made on the board.
struct BookFileRecord {
    uint64_t key;
    Move move;
    int weight;
    bool operator<(const BookFileRecord& o) const {
        return key != o.key ? key < o.key : move != o.move ? move < o.move : weight < o.weight;
    }
    bool operator==(const BookFileRecord& o) const {
        return key == o.key && move == o.move && weight == o.weight;
    }
};

struct BookFileReplay {
    std::vector<BookFileRecord> records;  // the moves of weight 1 or more, in file order
    int zeroWeightMoves = 0;
    int deepestLine = 0;
    std::string problem;  // empty if the file is sound
};

inline BookFileReplay replayBookText(const std::string& text) {
    BookFileReplay replay;
    std::istringstream in(text);
    Position board;
    constructPosition(board);
    std::vector<UndoRecord> line;
    std::string token;
    for (;;) {
        if (!(in >> token)) {
            replay.problem = "the file ends before the outermost node is closed";
            return replay;
        }
        if (token == "*") {
            if (line.empty()) return replay;
            undoMove(line.back());
            line.pop_back();
            continue;
        }
        if (token == "startpos") {
            unsigned number = 0;
            if (!line.empty() || !(in >> number) || number < 1 || number > 960) {
                replay.problem = "startpos inside a line or without a number 1 to 960";
                return replay;
            }
            setChess960Position(board, number);
            continue;
        }
        int weight = 0;
        Move move = NoMove;
        if (!(in >> weight) || weight == -1) {
            replay.problem = "no weight behind " + token;
            return replay;
        }
        if (!parseMove(board, token.c_str(), move, 1)) {
            replay.problem = "move " + token + " does not read where it stands";
            return replay;
        }
        if (weight >= 1) replay.records.push_back({board.hashKey, move, weight});
        if (weight <= 0) ++replay.zeroWeightMoves;
        line.emplace_back();
        beginUndo(line.back(), board);
        if (!makeLegal(board, move, line.back())) {
            replay.problem = "move " + token + " leaves its king in check";
            return replay;
        }
        replay.deepestLine = std::max(replay.deepestLine, static_cast<int>(line.size()));
    }
}

// A book written by the editor from six games that share an opening with both castlings and
// an en passant capture. Then three games go 6... Nc6 7. Nc3 and Black wins them, three go
// 6... c5 7. c4 and White wins them, and after that each game goes its own way. So the
// opening, 6... Nc6, 7. Nc3 and 7. c4 get weight 99, and 6... c5 stays in the file with
// weight 0 to keep 7. c4 reachable. For a round trip through the book reader, whose records
// must be those of `replay`.
struct RoundTripBook {
    std::string path;
    std::vector<std::string> opening;  // in coordinates
    BookFileReplay replay;
};

inline RoundTripBook writeRoundTripBook(const std::string& name) {
    RoundTripBook book;
    book.opening = {"e2e4", "g8f6", "e4e5", "d7d5", "e5d6", "e7e6",
                    "g1f3", "f8d6", "f1e2", "e8g8", "e1g1"};
    std::string pgn;
    for (const char* third : {"a7a6", "h7h6", "b7b6"}) {
        for (const std::vector<std::string>& parting :
             {std::vector<std::string>{"b8c6", "b1c3"}, std::vector<std::string>{"c7c5", "c2c4"}}) {
            std::vector<std::string> start = book.opening;
            start.insert(start.end(), parting.begin(), parting.end());
            start.push_back(third);
            pgn += pgnGame(distinctGame(start, 40, 21),
                           parting[0] == std::string("b8c6") ? "0-1" : "1-0");
        }
    }
    BookEditor editor;
    editor.addGames(writeTempFile(name + ".pgn", pgn), 1000, false, false, -1);
    book.path = tempPath(name + ".opn");
    EXPECT_TRUE(editor.writeBook(book.path, 3000, 25));
    book.replay = replayBookText(readFile(book.path));
    return book;
}
