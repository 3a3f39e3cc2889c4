// The engine binary as a child process behind pipes. Every read has a time limit, so a hang
// fails the test instead of blocking the run.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

class EngineProcess {
  public:
    explicit EngineProcess(const std::vector<std::string>& arguments = {});
    ~EngineProcess();
    EngineProcess(const EngineProcess&) = delete;
    EngineProcess& operator=(const EngineProcess&) = delete;

    void send(const std::string& line);
    void sendRaw(const std::string& bytes);
    void closeInput();

    // The next line of standard output, without its line end; none at the time limit or at
    // the end of the output.
    std::optional<std::string> readLine(int timeoutMs = 10000);
    // Lines up to and including the first that starts with `prefix`; the last element is that
    // line, or the list has no such line if the time ran out.
    std::vector<std::string> readUntil(const std::string& prefix, int timeoutMs = 10000);
    // Output and no more: true if nothing arrived on standard output within the time.
    bool silentFor(int milliseconds);

    // Closes standard input, reads both streams to their end, waits for the exit. False if the
    // process did not end within the time (it is killed then).
    bool finish(int timeoutMs = 10000);

    std::vector<std::string> remainingLines;  // standard output read by finish()
    std::string errorText;                    // all of standard error read so far
    int exitStatus = -1;                      // exit code, or -1 if killed or not ended

  private:
    bool pump(int timeoutMs);  // reads what is available; false at the time limit
    bool takeLine(std::string& line);

    pid_t pid = -1;
    int inputFd = -1;
    int outputFd = -1;
    int errorFd = -1;
    std::string outputBuffer;
};

// The protocol session most tests start with: "uci" and its answer.
void startUci(EngineProcess& engine);

// "e2e4", "e7e8q": the coordinate text of a move.
bool isCoordinateMove(const std::string& text);
// "bestmove <move>" or "bestmove <move> ponder <move>".
bool isBestMoveLine(const std::string& line);

// "info depth D time T nodes N", all of the line.
struct PerftTotal {
    int depth;
    long long nodes;
};
std::optional<PerftTotal> parsePerftTotal(const std::string& line);

// "info move M depth D time T nodes N", all of the line.
struct DivideLine {
    std::string move;
    int depth;
    long long nodes;
};
std::optional<DivideLine> parseDivideLine(const std::string& line);
