#include "tools/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <initializer_list>

namespace {

// Milliseconds to the deadline, rounded up so that waiting reaches it rather than spins
// towards it; 0 once it has passed.
int millisecondsUntil(ChildProcess::Deadline deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline - ChildProcess::Clock::now())
            .count();
    return left > 0 ? static_cast<int>((left + 999) / 1000) : 0;
}

void closeAll(std::initializer_list<int> fds) {
    for (int fd : fds)
        if (fd >= 0) close(fd);
}

}  // namespace

bool ChildProcess::spawn(const std::vector<std::string>& arguments, bool captureErrors,
                         std::string& error) {
    kill();
    // A write to a child that has gone must come back as an error, not end this process.
    signal(SIGPIPE, SIG_IGN);
    if (arguments.empty()) {
        error = "no program to run";
        return false;
    }
    int input[2] = {-1, -1}, output[2] = {-1, -1}, errors[2] = {-1, -1};
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0 ||
        (captureErrors && pipe2(errors, O_CLOEXEC) != 0)) {
        closeAll({input[0], input[1], output[0], output[1], errors[0], errors[1]});
        error = "pipe failed";
        return false;
    }
    // Everything the child needs is made before the fork: it may only call what is safe there.
    std::vector<char*> argv;
    for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const std::string failure = "cannot run " + arguments[0] + "\n";
    pid_ = fork();
    if (pid_ < 0) {
        closeAll({input[0], input[1], output[0], output[1], errors[0], errors[1]});
        error = "fork failed";
        return false;
    }
    if (pid_ == 0) {
        // dup2 clears close-on-exec on the copies, so only these survive the exec.
        dup2(input[0], 0);
        dup2(output[1], 1);
        if (captureErrors) dup2(errors[1], 2);
        execvp(argv[0], argv.data());
        const ssize_t written = write(2, failure.data(), failure.size());
        (void)written;  // nothing more to say if even that fails
        _exit(127);
    }
    closeAll({input[0], output[1], errors[1]});
    inputFd_ = input[1];
    outputFd_ = output[0];
    errorFd_ = errors[0];
    output_.clear();
    errorText_.clear();
    closed_ = false;
    return true;
}

bool ChildProcess::sendBytes(const std::string& bytes) {
    if (inputFd_ < 0) return false;
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(inputFd_, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            closed_ = true;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

void ChildProcess::closeInput() {
    closeAll({inputFd_});
    inputFd_ = -1;
}

ChildProcess::ReadStatus ChildProcess::readLine(std::string& line, Deadline deadline,
                                                ChildProcess* alsoDrain) {
    for (;;) {
        if (takeLine(line)) return ReadStatus::Line;
        if (closed_ || outputFd_ < 0) return ReadStatus::Closed;
        const int ms = millisecondsUntil(deadline);
        if (ms <= 0) return ReadStatus::Timeout;
        if (!pump(ms, alsoDrain)) return ReadStatus::Closed;
    }
}

bool ChildProcess::outputBefore(Deadline deadline) {
    while (output_.empty() && outputFd_ >= 0) {
        const int ms = millisecondsUntil(deadline);
        if (ms <= 0 || !pump(ms, nullptr)) break;
    }
    return !output_.empty();
}

bool ChildProcess::drain(Deadline deadline) {
    while (outputFd_ >= 0 || errorFd_ >= 0) {
        const int ms = millisecondsUntil(deadline);
        if (ms <= 0 || !pump(ms, nullptr)) return false;
    }
    return true;
}

std::string ChildProcess::takeBufferedOutput() {
    std::string text;
    text.swap(output_);
    return text;
}

bool ChildProcess::waitForExit(Deadline deadline, int& status) {
    if (pid_ <= 0) return false;
    for (;;) {
        int raw = 0;
        if (waitpid(pid_, &raw, WNOHANG) == pid_) {
            pid_ = -1;
            status = WIFEXITED(raw) ? WEXITSTATUS(raw) : EndedBySignal;
            return true;
        }
        if (Clock::now() >= deadline) return false;
        usleep(2000);
    }
}

void ChildProcess::kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    closePipes();
    output_.clear();
    closed_ = true;
}

long ChildProcess::residentKiB() const {
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

bool ChildProcess::pump(int timeoutMs, ChildProcess* alsoDrain) {
    pollfd fds[4] = {
        {outputFd_, POLLIN, 0}, {errorFd_, POLLIN, 0}, {-1, POLLIN, 0}, {-1, POLLIN, 0}};
    if (alsoDrain) {
        fds[2].fd = alsoDrain->outputFd_;
        fds[3].fd = alsoDrain->errorFd_;
    }
    const int ready = poll(fds, 4, timeoutMs);
    if (ready < 0) return errno == EINTR;
    if (fds[0].revents) readStream(outputFd_, output_);
    if (fds[1].revents) readStream(errorFd_, errorText_);
    if (alsoDrain && fds[2].revents)
        alsoDrain->readStream(alsoDrain->outputFd_, alsoDrain->output_);
    if (alsoDrain && fds[3].revents)
        alsoDrain->readStream(alsoDrain->errorFd_, alsoDrain->errorText_);
    return true;
}

void ChildProcess::readStream(int& fd, std::string& into) {
    char chunk[65536];
    const ssize_t n = read(fd, chunk, sizeof chunk);
    if (n > 0) {
        into.append(chunk, static_cast<size_t>(n));
    } else if (n == 0 || errno != EINTR) {
        close(fd);
        fd = -1;
        // The end of standard output is the end of the conversation.
        if (&fd == &outputFd_) closed_ = true;
    }
}

bool ChildProcess::takeLine(std::string& line) {
    const size_t end = output_.find('\n');
    if (end == std::string::npos) return false;
    line.assign(output_, 0, end);
    output_.erase(0, end + 1);
    return true;
}

void ChildProcess::closePipes() {
    closeAll({inputFd_, outputFd_, errorFd_});
    inputFd_ = outputFd_ = errorFd_ = -1;
}
