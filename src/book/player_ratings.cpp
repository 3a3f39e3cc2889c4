// Ratings from the results of a game file: every player starts at 2,400 and moves by the
// difference between the score made and the score expected against the mean opponent, until
// the changes are small or stop shrinking.
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "book/pgn_reader.h"

namespace {

struct PlayerRecord {
    double rating = 2400.0;
    double opponentSum = 0.0;
    double score = 0.0;
    int32_t points = 0;  // two for a win, one for a draw
    int32_t games = 0;
};

int truncatedRating(double rating) {
    if (!(rating > -1e9 && rating < 1e9)) return rating > 0 ? 1000000000 : -1000000000;
    return static_cast<int>(rating);
}

}  // namespace

void computeRatings(const std::string& fileName, PlayerRatings& ratings) {
    PgnReader reader(fileName);
    if (!reader.is_open()) return;

    std::vector<std::pair<std::string, std::string>> pairings;  // White, Black
    std::map<std::string, PlayerRecord> players;
    std::vector<Move> moves;
    PgnTags tags;
    while (reader.parseGame(moves, tags)) {
        const std::string& result = tags["Result"];
        if (result == "*") continue;
        const int whitePoints = result == "1-0" ? 2 : result == "0-1" ? 0 : 1;
        const std::string& white = tags["White"];
        const std::string& black = tags["Black"];
        pairings.emplace_back(white, black);
        PlayerRecord& w = players[white];
        w.points += whitePoints;
        ++w.games;
        PlayerRecord& b = players[black];
        b.points += 2 - whitePoints;
        ++b.games;
    }
    for (auto& entry : players) {
        PlayerRecord& player = entry.second;
        player.score = player.points * 0.5 / player.games;
    }

    if (!players.empty()) {
        double maxChange = 123456789.0;
        double shift = 0.0;
        for (;;) {
            for (const auto& pairing : pairings) {
                PlayerRecord& w = players[pairing.first];
                PlayerRecord& b = players[pairing.second];
                w.opponentSum += b.rating;
                b.opponentSum += w.rating;
            }
            const double previous = maxChange;
            maxChange = 0.0;
            double sum = 0.0;
            for (auto& entry : players) {
                PlayerRecord& player = entry.second;
                const double opponent = player.opponentSum / player.games;
                const double expected =
                    1.0 / (1.0 + std::pow(10.0, (player.rating - opponent) * -0.0025));
                const double delta = (player.score - expected) * 200.0;
                player.rating += delta - shift;
                sum += player.rating;
                if (delta * delta > maxChange) maxChange = delta * delta;
                player.opponentSum = 0.0;
            }
            // The shift taken off next time holds the mean at 2,400.
            shift = sum / static_cast<double>(players.size()) - 2400.0;
            if (!(maxChange > 0.01) || !(previous * 0.995 > maxChange)) break;
        }
    }

    ratings.clear();
    for (const auto& entry : players) ratings[entry.first] = truncatedRating(entry.second.rating);
}

namespace {

int ratingOf(const PlayerRatings& ratings, const PgnTags& tags, const char* tag) {
    const auto name = tags.find(tag);
    if (name == tags.end()) return 0;
    const auto rating = ratings.find(name->second);
    return rating == ratings.end() ? 0 : rating->second;
}

}  // namespace

bool forEachDecidedGame(const std::string& fileName, bool calcElo, int minElo,
                        const DecidedGameVisitor& visit) {
    PgnReader reader(fileName);
    if (!reader.is_open()) return false;
    PlayerRatings ratings;
    if (calcElo) computeRatings(fileName, ratings);

    std::vector<Move> moves;
    PgnTags tags;
    std::string fen;
    int resultCode = ResultOther, whiteElo = 0, blackElo = 0;
    for (;;) {
        if (!reader.readGame(moves, &tags, &resultCode, &fen, &whiteElo, &blackElo)) {
            // A broken game leaves the stream just past the fault, and reading goes on from
            // there; only the end of the file ends the loop.
            if (!reader.good()) break;
            continue;
        }
        if (calcElo) {
            whiteElo = ratingOf(ratings, tags, "White");
            blackElo = ratingOf(ratings, tags, "Black");
        }
        if (minElo >= 0 && (whiteElo < minElo || blackElo < minElo)) continue;
        int result = 0;
        if (resultCode == ResultWhiteWins) {
            result = 1;
        } else if (resultCode == ResultBlackWins) {
            result = -1;
        } else if (resultCode != ResultDraw) {
            continue;
        }
        visit(moves, fen, whiteElo, blackElo, result);
    }
    return true;
}
