#include "protocol/engine_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <regex>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

EngineProcess::EngineProcess(const std::vector<std::string>& arguments) {
    signal(SIGPIPE, SIG_IGN);  // a write to an engine that has gone must fail, not kill the test
    int input[2], output[2], error[2];
    if (pipe(input) != 0 || pipe(output) != 0 || pipe(error) != 0) {
        throw std::runtime_error("pipe failed");
    }
    pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        dup2(input[0], 0);
        dup2(output[1], 1);
        dup2(error[1], 2);
        for (int fd : {input[0], input[1], output[0], output[1], error[0], error[1]}) close(fd);
        std::vector<char*> argv = {const_cast<char*>(ZELMARK_BINARY)};
        for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(ZELMARK_BINARY, argv.data());
        _exit(127);
    }
    close(input[0]);
    close(output[1]);
    close(error[1]);
    inputFd = input[1];
    outputFd = output[0];
    errorFd = error[0];
}

EngineProcess::~EngineProcess() {
    if (pid > 0 && exitStatus == -1) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    for (int fd : {inputFd, outputFd, errorFd}) {
        if (fd >= 0) close(fd);
    }
}

void EngineProcess::sendRaw(const std::string& bytes) {
    ASSERT_GE(inputFd, 0) << "input already closed";
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(inputFd, bytes.data() + done, bytes.size() - done);
        ASSERT_GT(n, 0) << "engine no longer reads its input";
        done += static_cast<size_t>(n);
    }
}

void EngineProcess::send(const std::string& line) {
    sendRaw(line + "\n");
}

bool EngineProcess::pump(int timeoutMs) {
    pollfd fds[2] = {{outputFd, POLLIN, 0}, {errorFd, POLLIN, 0}};
    if (poll(fds, 2, timeoutMs) <= 0) return false;
    int* streams[2] = {&outputFd, &errorFd};
    std::string* texts[2] = {&outputBuffer, &errorText};
    for (int i = 0; i < 2; ++i) {
        if (*streams[i] < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
        char buffer[65536];
        const ssize_t n = read(*streams[i], buffer, sizeof buffer);
        if (n > 0) {
            texts[i]->append(buffer, static_cast<size_t>(n));
        } else {
            close(*streams[i]);
            *streams[i] = -1;
        }
    }
    return true;
}

bool EngineProcess::takeLine(std::string& line) {
    const size_t end = outputBuffer.find('\n');
    if (end == std::string::npos) return false;
    line = outputBuffer.substr(0, end);
    outputBuffer.erase(0, end + 1);
    return true;
}

std::optional<std::string> EngineProcess::readLine(int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string line;
    while (!takeLine(line)) {
        if (outputFd < 0 || !pump(msLeft(deadline))) return std::nullopt;
    }
    return line;
}

std::vector<std::string> EngineProcess::readUntil(const std::string& prefix, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::vector<std::string> lines;
    while (auto line = readLine(msLeft(deadline))) {
        lines.push_back(*line);
        if (line->compare(0, prefix.size(), prefix) == 0) break;
    }
    return lines;
}

bool EngineProcess::silentFor(int milliseconds) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (outputBuffer.empty() && outputFd >= 0 && msLeft(deadline) > 0) pump(msLeft(deadline));
    return outputBuffer.empty();
}

bool EngineProcess::finish(int timeoutMs) {
    if (inputFd >= 0) close(inputFd);
    inputFd = -1;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while ((outputFd >= 0 || errorFd >= 0) && msLeft(deadline) > 0) pump(msLeft(deadline));
    std::string line;
    while (takeLine(line)) remainingLines.push_back(line);
    if (!outputBuffer.empty()) remainingLines.push_back(outputBuffer);  // unterminated tail
    outputBuffer.clear();
    while (msLeft(deadline) > 0) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            if (exitStatus == -1) exitStatus = -2;  // killed by a signal: never a clean end
            return true;
        }
        usleep(5000);
    }
    return false;
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
