// The entry point: the command line, and the loop that hands standard input to the engine
// session line by line.
#include <cstdio>
#include <cstring>
#include <vector>

#include "frontend/engine_session.h"

namespace {

constexpr size_t FileNameSize = 512;
const char* const HiddenOptionsWord = "VersteckteOptionen";

void runCommandLoop(const char* pgnFileName, bool showHiddenOptions) {
    SessionSettings settings;
    settings.pgnFileName = pgnFileName;
    settings.showHiddenOptions = showHiddenOptions;
    EngineSession session(settings);

    std::setvbuf(stdin, nullptr, _IONBF, 0);
    std::vector<char> line(LineBufferSize);
    while (!std::feof(stdin)) {
        if (session.quitRequested()) break;
        if (std::fgets(line.data(), static_cast<int>(line.size()), stdin)) {
            line.back() = 0;
            session.handleLine(line.data());
        } else if (std::ferror(stdin)) {
            break;  // a broken input stream would not reach its end
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    bool showHiddenOptions = false;
    const char* pgnFileName = nullptr;
    static char quotedName[FileNameSize];
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        if (std::strcmp(argument, HiddenOptionsWord) == 0) {
            showHiddenOptions = true;
        } else if (argument[0] == '"') {
            // Quotes that reach the program are taken off; an unclosed one is accepted.
            std::snprintf(quotedName, sizeof quotedName, "%s", argument + 1);
            const size_t length = std::strlen(quotedName);
            if (length > 0 && quotedName[length - 1] == '"') quotedName[length - 1] = 0;
            pgnFileName = quotedName;
        } else {
            pgnFileName = argument;
        }
    }
    runCommandLoop(pgnFileName, showHiddenOptions);
    return 0;
}
