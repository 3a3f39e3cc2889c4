// The small command lines of the tools: help words, options, whole numbers in a range.
#pragma once

#include <string>

// "-h", "-help" or "--help".
bool isHelpWord(const std::string& word);

// A word that starts with a dash and is not a negative number.
bool looksLikeOption(const std::string& word);

// The whole of `text` as a number from `low` to `high`; false, leaving `value`, otherwise.
bool parseWholeNumber(const std::string& text, long low, long high, long& value);
