// Games and files for the book editor's tests: lines of play that never repeat a position and
// PGN text for them.
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
