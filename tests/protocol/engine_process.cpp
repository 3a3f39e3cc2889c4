#include "protocol/engine_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <stdexcept>

namespace {

ChildProcess::Deadline after(int milliseconds) {
    return ChildProcess::Clock::now() + std::chrono::milliseconds(milliseconds);
}

int msLeft(ChildProcess::Deadline deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - ChildProcess::Clock::now())
            .count();
    return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

EngineProcess::EngineProcess(const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {ZELMARK_BINARY};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::string error;
    if (!process.spawn(argv, true, error)) throw std::runtime_error(error);
}

void EngineProcess::sendRaw(const std::string& bytes) {
    ASSERT_TRUE(process.sendBytes(bytes)) << "engine no longer reads its input";
}

void EngineProcess::send(const std::string& line) {
    sendRaw(line + "\n");
}

std::optional<std::string> EngineProcess::readLine(int timeoutMs) {
    std::string line;
    if (process.readLine(line, after(timeoutMs)) != ChildProcess::ReadStatus::Line)
        return std::nullopt;
    return line;
}

std::vector<std::string> EngineProcess::readUntil(const std::string& prefix, int timeoutMs) {
    const ChildProcess::Deadline deadline = after(timeoutMs);
    std::vector<std::string> lines;
    while (auto line = readLine(msLeft(deadline))) {
        lines.push_back(*line);
        if (line->compare(0, prefix.size(), prefix) == 0) break;
    }
    return lines;
}

bool EngineProcess::silentFor(int milliseconds) {
    return !process.outputBefore(after(milliseconds));
}

bool EngineProcess::finish(int timeoutMs) {
    process.closeInput();
    const ChildProcess::Deadline deadline = after(timeoutMs);
    process.drain(deadline);
    const std::string rest = process.takeBufferedOutput();
    size_t start = 0;
    for (size_t end; (end = rest.find('\n', start)) != std::string::npos; start = end + 1)
        remainingLines.push_back(rest.substr(start, end - start));
    if (start < rest.size()) remainingLines.push_back(rest.substr(start));  // unterminated tail
    errorText = process.errorText();
    int status = -1;
    if (!process.waitForExit(deadline, status)) return false;
    exitStatus = status;
    return true;
}

void startUci(EngineProcess& engine) {
    engine.send("uci");
    ASSERT_EQ(lastLine(engine.readUntil("uciok")), "uciok");
}

std::string lastLine(const std::vector<std::string>& lines) {
    return lines.empty() ? "(none)" : lines.back();
}

bool isBestMoveLine(const std::string& line) {
    static const std::regex form(
        "bestmove [a-h][1-8][a-h][1-8][nbrq]?( ponder [a-h][1-8][a-h][1-8][nbrq]?)?");
    return std::regex_match(line, form);
}

long long perftTotal(EngineProcess& engine, const std::string& command, int depth) {
    static const std::regex form("info depth (\\d+) time \\d+ nodes (\\d+)");
    engine.send(command);
    const std::string line = engine.readLine(60000).value_or("(none)");
    std::smatch match;
    if (!std::regex_match(line, match, form) || std::stoi(match[1]) != depth) {
        ADD_FAILURE() << command << ": " << line;
        return -1;
    }
    return std::stoll(match[2]);
}
