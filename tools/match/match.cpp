// Plays two UCI engines against each other under a fast clock and adjudicates every move with
// the engine's own board code: the gate for legal play. See `match -help`.
#include <cstdio>
#include <string>
#include <vector>

#include "arguments.h"
#include "driver.h"

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    match::MatchSettings settings;
    std::string error;
    switch (match::parseArguments(args, settings, error)) {
        case match::ParseResult::Help:
            std::fputs(match::HelpText, stdout);
            return 0;
        case match::ParseResult::Error:
            std::fprintf(stderr, "match: %s\nTry 'match -help'.\n", error.c_str());
            return 2;
        case match::ParseResult::Run:
            break;
    }
    match::Match m(settings, stdout);
    return m.run();
}
