#include "engine_connection.h"

#include <cstdio>
#include <vector>

namespace match {

namespace {

// Splits a command line at blanks; single or double quotes group words.
std::vector<std::string> splitCommand(const std::string& command) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (char c : command) {
        if (quote) {
            if (c == quote) {
                quote = 0;
            } else {
                word += c;
            }
        } else if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == ' ' || c == '\t') {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

}  // namespace

bool EngineConnection::launch(const std::string& command, std::string& error) {
    const std::vector<std::string> words = splitCommand(command);
    if (words.empty()) {
        process_.kill();
        error = "empty engine command";
        return false;
    }
    return process_.spawn(words, false, error);
}

bool EngineConnection::send(const std::string& line) {
    if (log_) logLine(">", line);
    return process_.sendLine(line);
}

ReadStatus EngineConnection::readLine(std::string& line, TimePoint deadline,
                                      EngineConnection* alsoDrain) {
    const ReadStatus s =
        process_.readLine(line, deadline, alsoDrain ? &alsoDrain->process_ : nullptr);
    if (s != ReadStatus::Line) return s;
    // Engines built for other systems may end their lines with "\r\n".
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (log_) logLine("<", line);
    return s;
}

ReadStatus EngineConnection::waitFor(const std::string& word, TimePoint deadline, std::string& line,
                                     EngineConnection* alsoDrain) {
    for (;;) {
        const ReadStatus s = readLine(line, deadline, alsoDrain);
        if (s != ReadStatus::Line) return s;
        if (line.compare(0, word.size(), word) == 0 &&
            (line.size() == word.size() || line[word.size()] == ' '))
            return s;
    }
}

void EngineConnection::quit(int graceMs) {
    if (!process_.spawned()) return;
    send("quit");
    int status = 0;
    process_.waitForExit(SteadyClock::now() + std::chrono::milliseconds(graceMs), status);
    process_.kill();
}

void EngineConnection::logLine(const char* direction, const std::string& line) const {
    static const TimePoint origin = SteadyClock::now();
    std::fprintf(stderr, "%9.3f %s%s %s\n", microsecondsBetween(origin, SteadyClock::now()) / 1e6,
                 label_.c_str(), direction, line.c_str());
}

}  // namespace match
