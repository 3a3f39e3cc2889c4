#include "frontend/book_command.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "frontend/line_scan.h"

namespace {

// The first occurrence of `word` that is followed by a blank, a carriage return, a line feed
// or the end of the line.
const char* findWord(const char* text, const char* word) {
    const size_t length = std::strlen(word);
    for (const char* found = std::strstr(text, word); found; found = std::strstr(found + 1, word)) {
        const char after = found[length];
        if (after == 0 || after == ' ' || after == '\r' || after == '\n') return found;
    }
    return nullptr;
}

void takeName(BookRequest& request, const char* line, const char* begin, size_t length) {
    request.fileNameOffset = static_cast<size_t>(begin - line);
    request.fileNameLength = length;
    request.fileName.assign(begin, std::min(length, MaxBookFileName));
}

void readAdd(BookRequest& request, const char* line, const char* text, const char* add) {
    request.action = BookAction::Add;
    // The name is one word.
    const char* name = skipSpace(add + 5);
    const char* end = name;
    while (*end && !std::isspace(static_cast<unsigned char>(*end))) ++end;
    takeName(request, line, name, static_cast<size_t>(end - name));
    if (const char* value = std::strstr(text, " value"))
        std::sscanf(value, " value %u", &request.value);
    if (const char* elo = std::strstr(text, " ELO")) std::sscanf(elo, " ELO %d", &request.minElo);
    request.calcElo = findWord(text, " CalcELO") != nullptr;
    request.all = findWord(text, " all") != nullptr;
}

void readWrite(BookRequest& request, const char* line, const char* text, const char* write) {
    const char* name = nullptr;
    if (std::strncmp(write, " write960 ", 10) == 0) {
        request.action = BookAction::Write960;
        name = write + 10;
    } else if (std::strncmp(write, " writeEPD ", 10) == 0) {
        request.action = BookAction::WriteEpd;
        name = write + 10;
    } else {
        request.action = BookAction::WriteBook;
        name = write + 6;
    }
    while (*name == ' ') ++name;
    // The name runs up to the blank before the first "threshold" or "width".
    size_t length = std::strlen(name);
    for (const char* option : {"threshold", "width"}) {
        if (const char* found = std::strstr(name, option)) {
            const size_t before = found == name ? 0 : static_cast<size_t>(found - name) - 1;
            length = std::min(length, before);
        }
    }
    takeName(request, line, name, length);
    if (const char* threshold = std::strstr(text, " threshold"))
        std::sscanf(threshold, " threshold %d", &request.threshold);
    if (const char* width = std::strstr(text, " width"))
        std::sscanf(width, " width %d", &request.width);
}

}  // namespace

BookRequest parseBookCommand(const char* line) {
    BookRequest request;
    const char* text = skipChars(line, 4);
    if (findWord(text, " delete")) {
        request.action = BookAction::Delete;
    } else if (std::strstr(text, " lock")) {
        // " unlock" holds no " lock": the blank comes first.
        request.action = BookAction::Lock;
    } else if (std::strstr(text, " unlock")) {
        request.action = BookAction::Unlock;
    } else if (const char* add = std::strstr(text, " add ")) {
        readAdd(request, line, text, add);
    } else if (const char* write = std::strstr(text, " write")) {
        readWrite(request, line, text, write);
    }
    return request;
}
