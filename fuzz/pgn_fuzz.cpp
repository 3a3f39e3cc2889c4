// Arbitrary bytes read as a PGN file. Every game the reader accepts must replay legally and
// carry the mandatory tags; every message must have the reader's form and one of its texts;
// readGame must agree with parseGame; the followed game must hand out only moves that are
// legal where the game says; and the ratings must cover exactly the players of rated games.
// The reader takes a file name, so the input goes to a file of this process. Messages go to
// a second file while the reader works: a crash inside the reader leaves its report there,
// and both files stay behind.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "book/pgn_reader.h"
#include "fuzz_support.h"

namespace {

std::string scratchName(const char* suffix) {
    return "/tmp/zelmark_pgn_fuzz_" + std::to_string(getpid()) + suffix;
}

// Standard error goes to a file from construction to `take`.
class MessageCapture {
  public:
    MessageCapture() : name(scratchName(".err")) {
        std::fflush(stderr);
        saved = dup(2);
        const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        FUZZ_CHECK(saved >= 0 && file >= 0, "cannot redirect standard error to " + name);
        dup2(file, 2);
        close(file);
    }
    std::string take() {
        std::fflush(stderr);
        dup2(saved, 2);
        close(saved);
        std::ifstream in(name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

  private:
    std::string name;
    int saved = -1;
};

bool startsWith(const std::string& text, size_t at, const std::string& prefix) {
    return text.compare(at, prefix.size(), prefix) == 0;
}

// Each message: the prefix, "line L char C: ", a known text, its detail, a line end. A detail
// holds bytes of the input, which may look like the prefix (the fuzzer learns it), so a piece
// that doesn't go on as a message belongs to the detail before it.
size_t checkMessages(const std::string& text, const std::string& fileName, int lines) {
    static const char* const Fixed[] = {
        "unexpected end of file",
        "symbol expected",
        "String erwartet",
        "']' expected",
        "unexpected ')'",
        "unexpected ']'",
        "Game termination marker different from Result",
        "'White' missing (in game above current line)",
        "'Black' missing (in game above current line)",
        "'Result' missing (in game above current line)",
    };
    const std::string prefix = "info string PGN-Parser: file " + fileName + " line ";
    // The body of a message: its text from the known start on, or empty if none starts here.
    const auto bodyOf = [&](size_t at, size_t end) {
        const std::string message = text.substr(at + prefix.size(), end - at - prefix.size());
        int line = -1, column = -1, used = 0;
        if (std::sscanf(message.c_str(), "%d char %d: %n", &line, &column, &used) != 2 ||
            used == 0 || line < 1 || line > lines || column < 0)
            return std::string();
        const std::string body = message.substr(static_cast<size_t>(used));
        bool known =
            startsWith(body, 0, "illegal move ") || startsWith(body, 0, "unexpected string ");
        for (const char* fixed : Fixed) known = known || startsWith(body, 0, fixed);
        return known ? body : std::string();
    };
    FUZZ_CHECK(text.empty() || startsWith(text, 0, prefix), "message form: " + text.substr(0, 200));
    std::vector<std::string> bodies;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find(prefix, at + prefix.size());
        if (end == std::string::npos) end = text.size();
        const std::string body = bodyOf(at, end);
        if (!body.empty())
            bodies.push_back(body);
        else
            FUZZ_CHECK(!bodies.empty(), "message form: " + text.substr(at, 200));
        if (body.empty()) bodies.back() += text.substr(at, end - at);
        at = end;
    }
    for (const std::string& body : bodies) {
        FUZZ_CHECK(body.back() == '\n', "message end: " + body);
        bool known =
            startsWith(body, 0, "illegal move ") || startsWith(body, 0, "unexpected string ");
        for (const char* fixed : Fixed) known = known || body == std::string(fixed) + "\n";
        FUZZ_CHECK(known, "message text: " + body);
    }
    return bodies.size();
}

// The moves of a game from its FEN tag (or the start), each one legal where it is played.
// False if the board can't be set; a FEN tag in the middle of the moves is not replayed.
bool replayable(const std::string& fen, const std::vector<Move>& moves, Position& p) {
    constructPosition(p);
    if (!fen.empty() && !parseFen(p, fen.c_str())) return false;
    for (Move move : moves) {
        bool legal = false;
        for (Move m : legalMoves(p)) legal = legal || m == move;
        if (!legal) return false;
        UndoRecord undo;
        beginUndo(undo, p);
        makeLegal(p, move, undo);
    }
    return true;
}

// Plain random source for the follow keys, seeded from the input.
struct Lcg {
    uint64_t state;
    uint64_t next() {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return state >> 11;
    }
};

struct GameRead {
    std::vector<Move> moves;
    PgnTags tags;
};

// The games parseGame gives, up to the end of the file.
std::vector<GameRead> parsedGames(const std::string& fileName, size_t size, bool& ok,
                                  bool& advanced) {
    std::vector<GameRead> games;
    PgnReader reader(fileName);
    advanced = true;
    bool failed = false;
    for (size_t calls = 0; reader.good(); ++calls) {
        // Each call takes at least one character.
        if (calls > size + 1) {
            advanced = false;
            break;
        }
        GameRead game;
        if (reader.parseGame(game.moves, game.tags)) {
            // Games after a failure are marked by an empty tag to keep the ratings' cut.
            if (failed) game.tags[""] = "after a failure";
            games.push_back(game);
        } else {
            failed = true;
        }
    }
    ok = reader.ok;
    return games;
}

struct ReadGameResult {
    std::vector<Move> moves;
    PgnTags tags;
    int result, whiteElo, blackElo;
    std::string fen;
};

std::vector<ReadGameResult> readGames(const std::string& fileName) {
    std::vector<ReadGameResult> games;
    PgnReader reader(fileName);
    for (;;) {
        ReadGameResult g{{}, {}, -1, -2, -2, "x"};
        if (!reader.readGame(g.moves, &g.tags, &g.result, &g.fen, &g.whiteElo, &g.blackElo)) break;
        games.push_back(g);
    }
    return games;
}

// The followed games as loadNextGame fills them, beside readGame's FEN of each.
void loadedGames(const std::string& fileName, std::vector<std::vector<FollowedMove>>& followed,
                 std::vector<std::string>& fens) {
    PgnReader loader(fileName);
    PgnReader reader(fileName);
    std::vector<Move> moves;
    std::string fen;
    while (reader.loadNextGame()) {
        followed.push_back(reader.followedMoves);
        fens.push_back(loader.readGame(moves, nullptr, nullptr, &fen) ? fen : "(none)");
    }
}

struct Probe {
    uint64_t key;
    bool hit;
    Move move;
    size_t game;    // the followed game the probe should meet, or SIZE_MAX past the last
    int32_t index;  // followIndex after the probe
    bool exhausted;
};

// Probes as a search would make them: mostly the key the game expects next (either side of a
// new game), sometimes the last key again or any key at all.
std::vector<Probe> follow(const std::string& fileName,
                          const std::vector<std::vector<FollowedMove>>& followed, uint64_t seed) {
    std::vector<Probe> probes;
    PgnReader reader(fileName);
    Lcg random{seed};
    size_t game = SIZE_MAX;  // index into `followed` of the loaded game
    uint64_t lastKey = 0;
    for (int n = 0; n < 64 && !reader.followExhausted; ++n) {
        size_t target = game;
        if (game == SIZE_MAX || static_cast<size_t>(reader.followIndex) >= followed[game].size()) {
            target = game == SIZE_MAX ? 0 : game + 1;
            while (target < followed.size() && followed[target].empty()) ++target;
            if (target >= followed.size()) target = SIZE_MAX;
        }
        const uint64_t choice = random.next() % 8;
        uint64_t key = random.next();
        if (choice < 6 && target != SIZE_MAX) {
            const std::vector<FollowedMove>& entries = followed[target];
            size_t index = static_cast<size_t>(reader.followIndex);
            if (target != game) index = entries.size() > 1 && (choice & 1) ? 1 : 0;
            if (index < entries.size()) key = entries[index].positionKey;
        } else if (choice == 6) {
            key = lastKey;
        }
        Probe probe{key, false, NoMove, target, 0, false};
        probe.hit = reader.nextFollowedMove(key, probe.move);
        probe.index = reader.followIndex;
        probe.exhausted = reader.followExhausted;
        probes.push_back(probe);
        lastKey = key;
        game = target;
    }
    return probes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string fileName = scratchName(".pgn");
    {
        std::ofstream out(fileName, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    int lines = 1;
    uint64_t seed = 1469598103934665603ULL;
    for (size_t i = 0; i < size; ++i) {
        lines += data[i] == '\n';
        seed = (seed ^ data[i]) * 1099511628211ULL;
    }

    bool ok = true, advanced = true;
    std::vector<GameRead> games;
    std::vector<ReadGameResult> readResults;
    std::vector<std::vector<FollowedMove>> followed;
    std::vector<std::string> fens;
    std::vector<Probe> probes;
    PlayerRatings ratings;
    std::string firstMessages, messages;
    {
        MessageCapture capture;
        games = parsedGames(fileName, size, ok, advanced);
        firstMessages = capture.take();
    }
    {
        MessageCapture capture;
        readResults = readGames(fileName);
        loadedGames(fileName, followed, fens);
        probes = follow(fileName, followed, seed);
        computeRatings(fileName, ratings);
        messages = capture.take();
    }

    FUZZ_CHECK(advanced, "parseGame does not advance");
    FUZZ_CHECK(ok == (checkMessages(firstMessages, fileName, lines) == 0),
               "ok flag and messages disagree");
    checkMessages(messages, fileName, lines);

    std::set<std::string> ratedPlayers;
    bool allDraws = true;
    for (const GameRead& game : games) {
        const PgnTags& tags = game.tags;
        FUZZ_CHECK(tags.count("White") && tags.count("Black") && tags.count("Result"),
                   "game read without a mandatory tag");
        const std::string& result = tags.at("Result");
        if (!tags.count("") && result != "*") {
            ratedPlayers.insert(tags.at("White"));
            ratedPlayers.insert(tags.at("Black"));
            allDraws = allDraws && result != "1-0" && result != "0-1";
        }
        Position p;
        if (!tags.count("FEN"))
            FUZZ_CHECK(replayable("", game.moves, p), "moves of a game do not replay");
    }

    // readGame stops at the first failure and passes over games with an Elo below -1.
    size_t next = 0;
    for (const ReadGameResult& g : readResults) {
        FUZZ_CHECK(g.whiteElo >= -1 && g.blackElo >= -1, "game with a low Elo given back");
        PgnTags tags = g.tags;
        while (next < games.size() && games[next].tags != tags) ++next;
        FUZZ_CHECK(next < games.size() && games[next].moves == g.moves,
                   "readGame gives a game parseGame did not");
        const std::string& text = tags.at("Result");
        const int expected = text == "1-0" ? 0 : text == "0-1" ? 1 : text == "1/2-1/2" ? 2 : 3;
        FUZZ_CHECK(g.result == expected,
                   "result code " + std::to_string(g.result) + " for " + text);
        FUZZ_CHECK(g.fen == (tags.count("FEN") ? tags.at("FEN") : ""), "FEN of readGame");
        ++next;
    }

    // Every followed entry is the position reached so far and a legal move in it.
    for (size_t i = 0; i < followed.size(); ++i) {
        Position p;
        constructPosition(p);
        FUZZ_CHECK(fens[i] != "(none)" && (fens[i].empty() || parseFen(p, fens[i].c_str())),
                   "loadNextGame took a game readGame did not: " + fens[i]);
        for (const FollowedMove& entry : followed[i]) {
            FUZZ_CHECK(entry.positionKey == p.hashKey, "followed key out of step");
            bool legal = false;
            for (Move m : legalMoves(p)) legal = legal || m == entry.move;
            FUZZ_CHECK(legal, "followed move not legal in " + fenOf(p));
            UndoRecord undo;
            beginUndo(undo, p);
            makeLegal(p, entry.move, undo);
        }
    }
    for (size_t i = 0; i < probes.size(); ++i) {
        const Probe& probe = probes[i];
        if (!probe.hit) {
            FUZZ_CHECK(probe.exhausted, "a miss must end the following");
            FUZZ_CHECK(i + 1 == probes.size(), "probing went on after the end");
            continue;
        }
        FUZZ_CHECK(probe.game != SIZE_MAX && probe.index >= 2, "hit outside the games");
        const std::vector<FollowedMove>& entries = followed[probe.game];
        const size_t at = static_cast<size_t>(probe.index - 2);
        FUZZ_CHECK(at < entries.size() && entries[at].positionKey == probe.key &&
                       entries[at].move == probe.move,
                   "followed move from the wrong entry");
    }

    std::set<std::string> rated;
    for (const auto& entry : ratings) {
        rated.insert(entry.first);
        if (allDraws) FUZZ_CHECK(entry.second == 2400, "drawn games moved a rating");
    }
    FUZZ_CHECK(rated == ratedPlayers, "ratings for other players than those of rated games");
    // A crash leaves both files behind, the report among the messages.
    std::remove(fileName.c_str());
    std::remove(scratchName(".err").c_str());
    return 0;
}
