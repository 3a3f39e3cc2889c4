// A UCI engine of the match: a child process spoken to in lines, with the driver's traffic
// log.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tools/support/child_process.h"

namespace match {

using SteadyClock = std::chrono::steady_clock;
using TimePoint = SteadyClock::time_point;
using ReadStatus = ChildProcess::ReadStatus;

inline int64_t microsecondsBetween(TimePoint from, TimePoint to) {
    return std::chrono::duration_cast<std::chrono::microseconds>(to - from).count();
}

class EngineConnection {
  public:
    // `label` names the engine in the debug log, which goes to standard error when on.
    void setLog(const std::string& label, bool on) {
        label_ = label;
        log_ = on;
    }

    // Starts the command line; single or double quotes group words with blanks in them. The
    // engine's standard error stays ours.
    bool launch(const std::string& command, std::string& error);
    bool running() const { return process_.running(); }
    long residentKiB() const { return process_.residentKiB(); }

    bool send(const std::string& line);
    // The next line before the deadline. While waiting, output of `alsoDrain` (the other
    // engine, perhaps pondering) is taken into its buffer, so that it never blocks on a full
    // pipe.
    ReadStatus readLine(std::string& line, TimePoint deadline,
                        EngineConnection* alsoDrain = nullptr);
    // Discards lines up to the first whose first word is `word`, which it returns in `line`.
    ReadStatus waitFor(const std::string& word, TimePoint deadline, std::string& line,
                       EngineConnection* alsoDrain = nullptr);

    // "quit", a moment to leave, then the hard way.
    void quit(int graceMs);
    void kill() { process_.kill(); }

  private:
    void logLine(const char* direction, const std::string& line) const;

    ChildProcess process_;
    std::string label_;
    bool log_ = false;
};

}  // namespace match
