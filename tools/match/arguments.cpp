#include "arguments.h"

#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace match {

const char* const HelpText =
    "Usage: match -engine CMD [KEY=VALUE...] -engine CMD [KEY=VALUE...] [options]\n"
    "\n"
    "Plays two engines (UCI or xboard) against each other, one game at a time, and\n"
    "adjudicates every move with the engine's own board code.\n"
    "\n"
    "Engines:\n"
    "  -engine CMD [KEY=VALUE...]  an engine command line (quote it if it has arguments),\n"
    "                      then its settings. name=TEXT names it in the PGN; threads=N sets\n"
    "                      Threads or NumberOfProcessors, whichever it declares;\n"
    "                      ponder=true|false lets it think on the opponent's time (go ponder,\n"
    "                      ponderhit, stop) and sets its Ponder option. Any other KEY=VALUE\n"
    "                      is sent as 'setoption name KEY value VALUE', e.g. Hash=16 MultiPV=3.\n"
    "                      nodes=N limits each search to N nodes ('go nodes N') instead of\n"
    "                      the clock, depth=N to N plies ('go depth N'); both may be given.\n"
    "                      LOW-HIGH draws the value for every move from the seeded generator,\n"
    "                      so that games at a fixed limit vary. Not with ponder.\n"
    "                      proto=xboard speaks the xboard protocol 2 to it instead of UCI\n"
    "                      (new, level, time, otim, usermove, go, hard/easy for ponder); it\n"
    "                      takes no other settings: start it where its own settings file is,\n"
    "                      e.g. -engine \"sh -c 'cd DIR && exec ENGINE'\" proto=xboard.\n"
    "  -each KEY=VALUE...  the same settings for both engines\n"
    "  -nodes N[-M]        the same as -each nodes=N[-M]\n"
    "\n"
    "Games:\n"
    "  -openings FILE [order=random]\n"
    "                      the openings, each played twice with colours swapped, in the\n"
    "                      file's order or shuffled by the seed. One FEN or EPD position a\n"
    "                      line, or one move list a line played from the start position (SAN\n"
    "                      or UCI moves, move numbers allowed: '1. e4 e5 2. Nf3', 'd2d4 g8f6'),\n"
    "                      '#' starting a comment; or a PGN file, such as an ECO file of\n"
    "                      opening lines, each game's moves played from the start position or\n"
    "                      its FEN tag. A game's record holds its opening's moves, and no FEN\n"
    "                      tag if it began at the start position. Default: the start position.\n"
    "  -randomplies N      N random legal plies after each opening (default 0)\n"
    "  -seed S             seeds the node counts, random plies and opening order (default 1)\n"
    "  -games N            number of games (default: two per opening)\n"
    "  -rounds N           the same as -games 2N\n"
    "  -tc BASE[+INC]      seconds per game plus increment per move, e.g. 1+0.01, 10+0.1\n"
    "                      (default 10+0.1)\n"
    "  -variant standard|960  Chess960 sets UCI_Chess960 for both engines and expects\n"
    "                      castling written as the king taking its rook\n"
    "  -concurrency 1      games at a time; only 1 is supported\n"
    "\n"
    "Rules and limits:\n"
    "  -lag MS             overrun of the clock forgiven in a game (default 50)\n"
    "  -timeout MS         wait for uciok and readyok, for bestmove after stop, and for a\n"
    "                      move under a node or depth limit, before an engine counts as hung\n"
    "                      and is restarted (default 5000). Such a limit replaces the clock,\n"
    "                      so there is no loss on time; the clock and its rules still hold for\n"
    "                      an engine without one.\n"
    "  -maxgrowth KIB      a fault if an engine's resident memory at the end exceeds what it\n"
    "                      held after the warm-up (the first tenth of the games) by more than\n"
    "                      KIB; the summary shows the figures in any case\n"
    "  -resign movecount=N score=CP\n"
    "                      a side loses when for N moves its engine scored at most -CP and\n"
    "                      the opponent at least CP (off by default)\n"
    "  -draw movenumber=M movecount=N score=CP\n"
    "                      a draw when from move M on both engines scored within CP of\n"
    "                      zero for N moves each (off by default)\n"
    "\n"
    "Output:\n"
    "  -pgnout FILE        write every game to FILE (overwritten)\n"
    "  -event TEXT, -site TEXT  the PGN's Event and Site tags\n"
    "  -debug              log all engine traffic to standard error\n"
    "  -help               this text\n"
    "\n"
    "Options may be written with one dash or two. The Elo margin is the 95 % interval of the\n"
    "pentanomial model over game pairs, with the trinomial one beside it.\n"
    "Exit status: 0 clean, 1 if any engine crashed, hung, made an illegal move, lost on time,\n"
    "refused an input under xboard (an \"Error\" or \"Illegal move\" line) or grew beyond\n"
    "-maxgrowth, 2 for a usage or set-up error.\n";

namespace {

bool parseInteger(const std::string& text, int& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (*end || v < -1000000000L || v > 1000000000L) return false;
    value = static_cast<int>(v);
    return true;
}

bool parseCount(const std::string& text, int64_t& value) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(text.c_str(), &end, 10);
    if (*end || v > 1000000000000ULL) return false;
    value = static_cast<int64_t>(v);
    return true;
}

// "N" or "LOW-HIGH", every count at least one.
bool parseSearchLimit(const std::string& text, SearchLimit& limit) {
    const size_t dash = text.find('-');
    if (!parseCount(text.substr(0, dash), limit.low)) return false;
    limit.high = limit.low;
    if (dash != std::string::npos && !parseCount(text.substr(dash + 1), limit.high)) return false;
    return limit.low >= 1 && limit.high >= limit.low;
}

bool parseSeconds(const std::string& text, double& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !*end && std::isfinite(value) && value >= 0;
}

bool parseBoolean(const std::string& text, bool& value) {
    std::string t;
    for (char c : text) t += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (t == "true" || t == "on" || t == "yes" || t == "1") {
        value = true;
    } else if (t == "false" || t == "off" || t == "no" || t == "0") {
        value = false;
    } else {
        return false;
    }
    return true;
}

bool parseTimeControl(const std::string& text, double& base, double& increment) {
    const size_t plus = text.find('+');
    increment = 0;
    if (!parseSeconds(text.substr(0, plus), base) || base <= 0) return false;
    return plus == std::string::npos || parseSeconds(text.substr(plus + 1), increment);
}

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// One KEY=VALUE of an engine. The driver's own keys are recognised in any case, so that
// "Ponder=true" also makes the driver send go ponder.
bool applyEngineSetting(EngineSettings& e, const std::string& setting, std::string& error) {
    const size_t eq = setting.find('=');
    const std::string key = setting.substr(0, eq);
    const std::string value = setting.substr(eq + 1);
    const std::string k = lowerCase(key);
    if (key.empty()) {
        error = "setting without a name: " + setting;
    } else if (k == "name") {
        e.name = value;
    } else if (k == "ponder") {
        if (!parseBoolean(value, e.ponder)) error = "ponder needs true or false: " + setting;
    } else if (k == "nodes" || k == "depth") {
        if (!parseSearchLimit(value, k == "nodes" ? e.nodes : e.depth))
            error = k + " needs N or LOW-HIGH: " + setting;
    } else if (k == "threads") {
        if (!parseInteger(value, e.threads) || e.threads < 1)
            error = "threads needs a positive number: " + setting;
    } else if (k == "proto") {
        if (value == "xboard" || value == "uci") {
            e.xboard = value == "xboard";
        } else {
            error = "proto needs uci or xboard: " + setting;
        }
    } else {
        e.options.emplace_back(key, value);
    }
    return error.empty();
}

// "movecount=3 score=600": the words after -resign or -draw.
bool applyScoreRule(ScoreRule& rule, const std::string& setting, std::string& error) {
    const size_t eq = setting.find('=');
    const std::string key = lowerCase(setting.substr(0, eq));
    int value = 0;
    if (eq == std::string::npos || !parseInteger(setting.substr(eq + 1), value) || value < 0) {
        error = "bad adjudication setting: " + setting;
    } else if (key == "movecount") {
        rule.moveCount = value;
    } else if (key == "score") {
        rule.score = value;
    } else if (key == "movenumber") {
        rule.moveNumber = value;
    } else {
        error = "unknown adjudication setting: " + setting;
    }
    return error.empty();
}

}  // namespace

ParseResult parseArguments(const std::vector<std::string>& args, MatchSettings& s,
                           std::string& error) {
    int engineCount = 0;
    std::vector<std::string> each;
    std::vector<std::string> engineWords[2];
    size_t i = 0;
    auto value = [&](const std::string& option, std::string& out) {
        if (i >= args.size()) {
            error = option + " needs a value";
            return false;
        }
        out = args[i++];
        return true;
    };
    // The KEY=VALUE words that follow an option.
    auto settings = [&]() {
        std::vector<std::string> words;
        while (i < args.size() && args[i].find('=') != std::string::npos && args[i][0] != '-')
            words.push_back(args[i++]);
        return words;
    };
    while (i < args.size()) {
        std::string option = args[i++];
        if (option.size() < 2 || option[0] != '-') {
            error = "unexpected argument: " + option;
            return ParseResult::Error;
        }
        option.erase(0, option[1] == '-' ? 2 : 1);
        std::string v;
        int n = 0;
        if (option == "help" || option == "h") return ParseResult::Help;
        if (option == "engine") {
            if (engineCount == 2) {
                error = "more than two engines";
                return ParseResult::Error;
            }
            if (!value("-engine", v)) return ParseResult::Error;
            s.engines[engineCount].command = v;
            engineWords[engineCount++] = settings();
        } else if (option == "each") {
            const std::vector<std::string> words = settings();
            if (words.empty()) {
                error = "-each needs KEY=VALUE settings";
                return ParseResult::Error;
            }
            each.insert(each.end(), words.begin(), words.end());
        } else if (option == "nodes") {
            if (!value("-nodes", v)) return ParseResult::Error;
            each.push_back("nodes=" + v);
        } else if (option == "openings") {
            if (!value("-openings", s.openingsPath)) return ParseResult::Error;
            for (const std::string& w : settings()) {
                const std::string order = lowerCase(w);
                if (order != "order=random" && order != "order=sequential") {
                    error = "-openings takes order=random or order=sequential: " + w;
                    return ParseResult::Error;
                }
                s.shuffleOpenings = order == "order=random";
            }
        } else if (option == "randomplies") {
            if (!value("-randomplies", v)) return ParseResult::Error;
            if (!parseInteger(v, n) || n < 0 || n > 100) {
                error = "-randomplies needs a number from 0 to 100";
                return ParseResult::Error;
            }
            s.randomPlies = n;
        } else if (option == "seed") {
            int64_t seed = 0;
            if (!value("-seed", v)) return ParseResult::Error;
            if (!parseCount(v, seed)) {
                error = "-seed needs a number";
                return ParseResult::Error;
            }
            s.seed = static_cast<uint64_t>(seed);
        } else if (option == "games" || option == "rounds") {
            if (!value("-" + option, v)) return ParseResult::Error;
            if (!parseInteger(v, n) || n < 1) {
                error = "-" + option + " needs a positive number";
                return ParseResult::Error;
            }
            s.games = option == "games" ? n : 2 * n;
        } else if (option == "tc") {
            if (!value("-tc", v)) return ParseResult::Error;
            if (!parseTimeControl(v, s.baseSeconds, s.incrementSeconds)) {
                error = "bad time control: " + v;
                return ParseResult::Error;
            }
            s.timeControl = v;
        } else if (option == "variant") {
            if (!value("-variant", v)) return ParseResult::Error;
            v = lowerCase(v);
            if (v == "960" || v == "chess960" || v == "fischerandom") {
                s.chess960 = true;
            } else if (v == "standard") {
                s.chess960 = false;
            } else {
                error = "unknown variant: " + v;
                return ParseResult::Error;
            }
        } else if (option == "concurrency") {
            if (!value("-concurrency", v)) return ParseResult::Error;
            if (v != "1") {
                error = "only -concurrency 1 is supported";
                return ParseResult::Error;
            }
        } else if (option == "lag" || option == "timeout") {
            if (!value("-" + option, v)) return ParseResult::Error;
            if (!parseInteger(v, n) || n < 0) {
                error = "-" + option + " needs milliseconds";
                return ParseResult::Error;
            }
            (option == "lag" ? s.lagMs : s.timeoutMs) = n;
        } else if (option == "maxgrowth") {
            if (!value("-maxgrowth", v)) return ParseResult::Error;
            if (!parseInteger(v, n) || n < 0) {
                error = "-maxgrowth needs KiB";
                return ParseResult::Error;
            }
            s.maxGrowthKiB = n;
        } else if (option == "resign" || option == "draw") {
            ScoreRule& rule = option == "resign" ? s.resign : s.draw;
            const std::vector<std::string> words = settings();
            for (const std::string& w : words)
                if (!applyScoreRule(rule, w, error)) return ParseResult::Error;
            if (rule.moveCount < 1) {
                error = "-" + option + " needs movecount=N with N at least 1";
                return ParseResult::Error;
            }
        } else if (option == "pgnout") {
            if (!value("-pgnout", s.pgnPath)) return ParseResult::Error;
        } else if (option == "event") {
            if (!value("-event", s.event)) return ParseResult::Error;
        } else if (option == "site") {
            if (!value("-site", s.site)) return ParseResult::Error;
        } else if (option == "debug") {
            s.debug = true;
        } else {
            error = "unknown option: " + args[i - 1];
            return ParseResult::Error;
        }
    }
    if (engineCount != 2) {
        error = "two engines are needed (-engine CMD ... -engine CMD ...)";
        return ParseResult::Error;
    }
    // An engine's own settings follow the shared ones, so they win.
    for (int e = 0; e < 2; ++e) {
        for (const std::vector<std::string>* words : {&each, &engineWords[e]})
            for (const std::string& w : *words)
                if (!applyEngineSetting(s.engines[e], w, error)) return ParseResult::Error;
        // A search limit replaces the clock, on whose time a ponder search would run.
        if (s.engines[e].ponder && s.engines[e].offClock()) {
            error = "engine " + std::to_string(e + 1) + ": ponder needs the clock";
            return ParseResult::Error;
        }
        // The xboard protocol has no options to set and a clock of its own.
        const EngineSettings& x = s.engines[e];
        if (x.xboard && (!x.options.empty() || x.threads > 0 || x.offClock())) {
            error = "engine " + std::to_string(e + 1) +
                    ": proto=xboard takes no options, threads, nodes or depth";
            return ParseResult::Error;
        }
    }
    return ParseResult::Run;
}

}  // namespace match
