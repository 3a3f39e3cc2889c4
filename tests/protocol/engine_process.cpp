#include "protocol/engine_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// A test that writes to an engine that has gone must fail, not die of the signal.
const bool IgnoreBrokenPipes = [] {
    signal(SIGPIPE, SIG_IGN);
    return true;
}();

}  // namespace

EngineProcess::EngineProcess(const std::vector<std::string>& arguments) {
    static_cast<void>(IgnoreBrokenPipes);
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
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(ZELMARK_BINARY));
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
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

void EngineProcess::closeInput() {
    if (inputFd >= 0) close(inputFd);
    inputFd = -1;
}

bool EngineProcess::pump(int timeoutMs) {
    pollfd fds[2] = {{outputFd, POLLIN, 0}, {errorFd, POLLIN, 0}};
    const int ready = poll(fds, 2, timeoutMs);
    if (ready <= 0) return false;
    char buffer[65536];
    if (outputFd >= 0 && (fds[0].revents & (POLLIN | POLLHUP))) {
        const ssize_t n = read(outputFd, buffer, sizeof buffer);
        if (n > 0) {
            outputBuffer.append(buffer, static_cast<size_t>(n));
        } else {
            close(outputFd);
            outputFd = -1;
        }
    }
    if (errorFd >= 0 && (fds[1].revents & (POLLIN | POLLHUP))) {
        const ssize_t n = read(errorFd, buffer, sizeof buffer);
        if (n > 0) {
            errorText.append(buffer, static_cast<size_t>(n));
        } else {
            close(errorFd);
            errorFd = -1;
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
    closeInput();
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
    const std::vector<std::string> answer = engine.readUntil("uciok");
    ASSERT_FALSE(answer.empty());
    ASSERT_EQ(answer.back(), "uciok");
}

bool isCoordinateMove(const std::string& text) {
    if (text.size() != 4 && text.size() != 5) return false;
    for (int i : {0, 2}) {
        if (text[i] < 'a' || text[i] > 'h' || text[i + 1] < '1' || text[i + 1] > '8') return false;
    }
    return text.size() == 4 || std::strchr("nbrq", text[4]) != nullptr;
}

bool isBestMoveLine(const std::string& line) {
    char best[16] = {}, ponder[16] = {};
    int end = -1;
    if (std::sscanf(line.c_str(), "bestmove %15s ponder %15s%n", best, ponder, &end) == 2) {
        return end == static_cast<int>(line.size()) && isCoordinateMove(best) &&
               isCoordinateMove(ponder) &&
               line == "bestmove " + std::string(best) + " ponder " + ponder;
    }
    end = -1;
    if (std::sscanf(line.c_str(), "bestmove %15s%n", best, &end) != 1) return false;
    return end == static_cast<int>(line.size()) && line == "bestmove " + std::string(best) &&
           isCoordinateMove(best);
}

std::optional<PerftTotal> parsePerftTotal(const std::string& line) {
    PerftTotal total{};
    long long time = -1;
    int end = -1;
    if (std::sscanf(line.c_str(), "info depth %d time %lld nodes %lld%n", &total.depth, &time,
                    &total.nodes, &end) != 3 ||
        end != static_cast<int>(line.size()) || time < 0) {
        return std::nullopt;
    }
    return total;
}

std::optional<DivideLine> parseDivideLine(const std::string& line) {
    char move[16] = {};
    DivideLine divide{};
    long long time = -1;
    int end = -1;
    if (std::sscanf(line.c_str(), "info move %15s depth %d time %lld nodes %lld%n", move,
                    &divide.depth, &time, &divide.nodes, &end) != 4 ||
        end != static_cast<int>(line.size()) || time < 0 || !isCoordinateMove(move)) {
        return std::nullopt;
    }
    divide.move = move;
    return divide;
}
