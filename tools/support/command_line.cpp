#include "tools/support/command_line.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

bool isHelpWord(const std::string& word) {
    return word == "-h" || word == "-help" || word == "--help";
}

bool looksLikeOption(const std::string& word) {
    return word.size() > 1 && word[0] == '-' && !std::isdigit(static_cast<unsigned char>(word[1]));
}

bool parseWholeNumber(const std::string& text, long low, long high, long& value) {
    // strtol alone would take " 12", "12abc" and "" (as 0).
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (*end || errno == ERANGE || v < low || v > high) return false;
    value = v;
    return true;
}
