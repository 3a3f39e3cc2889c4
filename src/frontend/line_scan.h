// Small readers for command lines, where words are found by substring and skipped by count.
#pragma once

#include <cctype>
#include <cstddef>

// Advances by up to `count` characters, never past the end of the text.
inline const char* skipChars(const char* text, size_t count) {
    while (count > 0 && *text) {
        ++text;
        --count;
    }
    return text;
}

inline const char* skipSpace(const char* text) {
    while (*text && std::isspace(static_cast<unsigned char>(*text))) ++text;
    return text;
}
