#include "frontend/mat_command.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "frontend/line_scan.h"

namespace {

void takeName(MatRequest& request, const char* line, const char* begin, size_t length) {
    request.fileNameOffset = static_cast<size_t>(begin - line);
    request.fileNameLength = length;
    request.fileName.assign(begin, std::min(length, MaxMatFileName));
}

// The name is the rest of the line behind the word, white space skipped.
void takeRest(MatRequest& request, const char* line, const char* afterWord) {
    const char* name = skipSpace(afterWord);
    takeName(request, line, name, std::strlen(name));
}

bool endsWord(char c) {
    return c == 0 || c == ' ' || c == '\r' || c == '\n';
}

void readAdd(MatRequest& request, const char* line, const char* word, const char* afterWord) {
    request.action = MatAction::Add;
    const char* name = skipSpace(afterWord);
    // The name runs to the blank before the first "value " or "ELO ", whichever comes first.
    size_t length = std::strlen(name);
    for (const char* option : {"value ", "ELO "}) {
        if (const char* found = std::strstr(afterWord, option)) {
            const size_t before =
                found <= name ? 0 : std::max<size_t>(static_cast<size_t>(found - name), 1) - 1;
            length = std::min(length, before);
        }
    }
    takeName(request, line, name, length);
    // The options count from the word on, so that one may follow it at once.
    if (const char* value = std::strstr(word, " value"))
        std::sscanf(value, " value %d", &request.value);
    if (const char* elo = std::strstr(word, " ELO")) std::sscanf(elo, " ELO %d", &request.minElo);
    for (const char* found = std::strstr(word, " CalcELO"); found;
         found = std::strstr(found + 1, " CalcELO")) {
        if (endsWord(found[8])) request.calcElo = true;
    }
}

}  // namespace

MatRequest parseMatCommand(const char* line) {
    MatRequest request;
    const char* text = skipSpace(skipChars(line, 4));
    auto startsWith = [text](const char* word) {
        return std::strncmp(text, word, std::strlen(word)) == 0;
    };
    if (startsWith("learn ")) {
        request.action = MatAction::Learn;
        takeRest(request, line, text + 6);
    } else if (startsWith("delete")) {
        request.action = MatAction::Delete;
    } else if (startsWith("rnd ")) {
        request.action = MatAction::Random;
        std::sscanf(text + 4, "%ld", &request.games);
    } else if (startsWith("add ")) {
        readAdd(request, line, text, text + 4);
    } else if (startsWith("writemem ")) {
        request.action = MatAction::WriteMemory;
        takeRest(request, line, text + 9);
    } else if (startsWith("readmem ")) {
        request.action = MatAction::ReadMemory;
        takeRest(request, line, text + 8);
    } else if (startsWith("write ")) {
        request.action = MatAction::Write;
        takeRest(request, line, text + 6);
    }
    return request;
}
