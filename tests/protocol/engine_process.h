// The engine binary as a child process, with the conveniences of the protocol tests. Every
// read has a time limit, so a hang fails the test instead of blocking the run.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/support/child_process.h"

class EngineProcess {
  public:
    explicit EngineProcess(const std::vector<std::string>& arguments = {});

    void send(const std::string& line);
    void sendRaw(const std::string& bytes);

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
    std::string errorText;                    // all of standard error, read by finish()
    // The exit code, ChildProcess::EndedBySignal, or -1 if it did not end.
    int exitStatus = -1;

  private:
    ChildProcess process;
};

// The protocol session most tests start with: "uci" and its answer.
void startUci(EngineProcess& engine);

// The last of the lines, "(none)" if there are none.
std::string lastLine(const std::vector<std::string>& lines);

// "bestmove <move>" or "bestmove <move> ponder <move>".
bool isBestMoveLine(const std::string& line);

// Sends a perft command and reads its total, "info depth D time T nodes N"; -1 (and a test
// failure) for any other answer.
long long perftTotal(EngineProcess& engine, const std::string& command, int depth);
