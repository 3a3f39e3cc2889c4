// The match's command line.
#pragma once

#include <string>
#include <vector>

#include "settings.h"

namespace match {

// What `match -help` prints.
extern const char* const HelpText;

enum class ParseResult { Run, Help, Error };

// Fills `s` from the arguments after the program name; on Error, `error` says what is wrong.
ParseResult parseArguments(const std::vector<std::string>& args, MatchSettings& s,
                           std::string& error);

}  // namespace match
