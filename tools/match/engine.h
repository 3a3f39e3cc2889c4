// A UCI engine as a child process behind two pipes. Every read has a deadline, so a hung
// engine costs the driver a timeout, never the whole match.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace match {

using SteadyClock = std::chrono::steady_clock;
using TimePoint = SteadyClock::time_point;

inline int64_t microsecondsBetween(TimePoint from, TimePoint to) {
    return std::chrono::duration_cast<std::chrono::microseconds>(to - from).count();
}

// Splits a command line at blanks; single or double quotes group words.
inline std::vector<std::string> splitCommand(const std::string& command) {
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

enum class ReadStatus { Line, Timeout, Closed };

class EngineProcess {
  public:
    EngineProcess() = default;
    ~EngineProcess() { kill(); }
    EngineProcess(const EngineProcess&) = delete;
    EngineProcess& operator=(const EngineProcess&) = delete;

    // `label` names the engine in the debug log, which goes to standard error when on.
    void setLog(const std::string& label, bool on) {
        label_ = label;
        log_ = on;
    }

    bool launch(const std::string& command, std::string& error) {
        kill();
        // A write to an engine that has died must come back as an error, not end the driver.
        signal(SIGPIPE, SIG_IGN);
        const std::vector<std::string> words = splitCommand(command);
        if (words.empty()) {
            error = "empty engine command";
            return false;
        }
        int input[2], output[2];
        if (pipe2(input, O_CLOEXEC) != 0) {
            error = "pipe failed";
            return false;
        }
        if (pipe2(output, O_CLOEXEC) != 0) {
            close(input[0]);
            close(input[1]);
            error = "pipe failed";
            return false;
        }
        std::vector<char*> argv;
        for (const std::string& w : words) argv.push_back(const_cast<char*>(w.c_str()));
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ < 0) {
            for (int fd : {input[0], input[1], output[0], output[1]}) close(fd);
            error = "fork failed";
            return false;
        }
        if (pid_ == 0) {
            // dup2 clears close-on-exec on the copies, so only these two survive the exec.
            dup2(input[0], 0);
            dup2(output[1], 1);
            execvp(argv[0], argv.data());
            std::fprintf(stderr, "match: cannot run %s\n", argv[0]);
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        inputFd_ = input[1];
        outputFd_ = output[0];
        buffer_.clear();
        closed_ = false;
        return true;
    }

    bool running() const { return pid_ > 0 && !closed_; }

    // The process's resident memory in KiB, from /proc; 0 if it cannot be read.
    long residentKiB() const {
        if (pid_ <= 0) return 0;
        std::FILE* status = std::fopen(("/proc/" + std::to_string(pid_) + "/status").c_str(), "r");
        if (!status) return 0;
        long kib = 0;
        char line[256];
        while (std::fgets(line, sizeof line, status))
            if (std::sscanf(line, "VmRSS: %ld", &kib) == 1) break;
        std::fclose(status);
        return kib;
    }
    int outputFd() const { return outputFd_; }

    bool send(const std::string& line) {
        if (log_) logLine(">", line);
        if (inputFd_ < 0) return false;
        const std::string text = line + "\n";
        size_t done = 0;
        while (done < text.size()) {
            const ssize_t n = write(inputFd_, text.data() + done, text.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                closed_ = true;
                return false;
            }
            done += static_cast<size_t>(n);
        }
        return true;
    }

    // Reads whatever is waiting without blocking; false once the output has ended.
    bool absorb() {
        char chunk[4096];
        for (;;) {
            pollfd p{outputFd_, POLLIN, 0};
            if (outputFd_ < 0 || poll(&p, 1, 0) <= 0) return !closed_;
            const ssize_t n = read(outputFd_, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                closed_ = true;
                return false;
            }
            buffer_.append(chunk, static_cast<size_t>(n));
        }
    }

    // The next line (without its line end) before the deadline. While waiting, output of
    // `alsoDrain` (the other engine, perhaps pondering) is taken into its buffer, so that it
    // never blocks on a full pipe.
    ReadStatus readLine(std::string& line, TimePoint deadline, EngineProcess* alsoDrain = nullptr) {
        for (;;) {
            if (takeLine(line)) {
                if (log_) logLine("<", line);
                return ReadStatus::Line;
            }
            if (closed_ || outputFd_ < 0) return ReadStatus::Closed;
            const int64_t left = microsecondsBetween(SteadyClock::now(), deadline);
            if (left <= 0) return ReadStatus::Timeout;
            pollfd fds[2] = {{outputFd_, POLLIN, 0}, {-1, POLLIN, 0}};
            if (alsoDrain && alsoDrain->running()) fds[1].fd = alsoDrain->outputFd_;
            // Round up, so that the deadline is reached rather than spun towards.
            const int ms = static_cast<int>((left + 999) / 1000);
            const int ready = poll(fds, 2, ms);
            if (ready < 0 && errno != EINTR) return ReadStatus::Closed;
            if (alsoDrain && fds[1].revents) alsoDrain->absorb();
            if (fds[0].revents) absorb();
        }
    }

    // Discards lines up to the first whose first word is `word`, which it returns in `line`.
    ReadStatus waitFor(const std::string& word, TimePoint deadline, std::string& line,
                       EngineProcess* alsoDrain = nullptr) {
        for (;;) {
            const ReadStatus s = readLine(line, deadline, alsoDrain);
            if (s != ReadStatus::Line) return s;
            if (line.compare(0, word.size(), word) == 0 &&
                (line.size() == word.size() || line[word.size()] == ' '))
                return s;
        }
    }

    // "quit", a moment to leave, then the hard way.
    void quit(int graceMs) {
        if (pid_ <= 0) return;
        send("quit");
        const TimePoint deadline = SteadyClock::now() + std::chrono::milliseconds(graceMs);
        while (SteadyClock::now() < deadline) {
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                break;
            }
            usleep(2000);
        }
        kill();
    }

    void kill() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
        for (int* fd : {&inputFd_, &outputFd_}) {
            if (*fd >= 0) close(*fd);
            *fd = -1;
        }
        buffer_.clear();
        closed_ = true;
    }

  private:
    bool takeLine(std::string& line) {
        const size_t end = buffer_.find('\n');
        if (end == std::string::npos) return false;
        line.assign(buffer_, 0, end);
        buffer_.erase(0, end + 1);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        return true;
    }

    void logLine(const char* direction, const std::string& line) const {
        static const TimePoint origin = SteadyClock::now();
        std::fprintf(stderr, "%9.3f %s%s %s\n",
                     microsecondsBetween(origin, SteadyClock::now()) / 1e6, label_.c_str(),
                     direction, line.c_str());
    }

    pid_t pid_ = -1;
    int inputFd_ = -1;
    int outputFd_ = -1;
    std::string buffer_;
    bool closed_ = true;
    std::string label_;
    bool log_ = false;
};

}  // namespace match
