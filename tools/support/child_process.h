// A program run as a child process behind pipes: lines go to its standard input, lines come
// back from its standard output. Every read has a deadline, so a child that hangs costs the
// caller a timeout, never the whole run.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

class ChildProcess {
  public:
    using Clock = std::chrono::steady_clock;
    using Deadline = Clock::time_point;
    enum class ReadStatus { Line, Timeout, Closed };
    // The exit status of a child that a signal ended.
    static constexpr int EndedBySignal = -2;

    ChildProcess() = default;
    ~ChildProcess() { kill(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Runs arguments[0], looked up on the PATH, with the rest as its arguments; a child still
    // running from an earlier call is killed first. With `captureErrors` its standard error is
    // collected in errorText(), otherwise it shares ours. False, with the reason in `error`,
    // if no process could be started. A program that cannot be run still starts: it says so on
    // standard error and exits with 127.
    bool spawn(const std::vector<std::string>& arguments, bool captureErrors, std::string& error);

    // A child has been started and not yet reaped or killed.
    bool spawned() const { return pid_ > 0; }
    // Started, and neither has its output ended nor has a write to it failed.
    bool running() const { return pid_ > 0 && !closed_; }

    // False once the child no longer reads its input.
    bool sendBytes(const std::string& bytes);
    bool sendLine(const std::string& line) { return sendBytes(line + "\n"); }
    // The child sees the end of its input.
    void closeInput();

    // The next line of standard output, without its '\n', before the deadline. While waiting,
    // the output of `alsoDrain` (another child, perhaps busy) is taken into its buffer, so that
    // it never blocks on a full pipe.
    ReadStatus readLine(std::string& line, Deadline deadline, ChildProcess* alsoDrain = nullptr);
    // Whether any output, a whole line or not, is waiting or arrives before the deadline.
    bool outputBefore(Deadline deadline);
    // Reads standard output and error to their end; false if the deadline came first.
    bool drain(Deadline deadline);
    // The output read but not yet taken as lines, an unterminated last line included.
    std::string takeBufferedOutput();
    // Standard error so far, when captured.
    const std::string& errorText() const { return errorText_; }

    // Waits for the child to end and reaps it; `status` is its exit code or EndedBySignal.
    // False if it is still running at the deadline.
    bool waitForExit(Deadline deadline, int& status);
    // Ends the child the hard way, if it still runs, and closes the pipes.
    void kill();

    // The child's resident memory in KiB, from /proc; 0 if it cannot be read.
    long residentKiB() const;

  private:
    // Waits up to `timeoutMs` for output of this child or of `alsoDrain` and reads it; false
    // if waiting failed.
    bool pump(int timeoutMs, ChildProcess* alsoDrain);
    // One read from a ready stream; the end of the stream closes it.
    void readStream(int& fd, std::string& into);
    bool takeLine(std::string& line);
    void closePipes();

    pid_t pid_ = -1;
    int inputFd_ = -1;
    int outputFd_ = -1;
    int errorFd_ = -1;
    std::string output_;
    std::string errorText_;
    bool closed_ = true;
};
