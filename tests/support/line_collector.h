// Collects the output lines of an in-process engine session instead of printing them.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "frontend/reporter.h"

class LineCollector : public OutputSink {
  public:
    void writeLine(const char* text) override {
        std::lock_guard<std::mutex> guard(linesLock);
        lines.emplace_back(text);
    }
    // The lines written since the last call.
    std::vector<std::string> take() {
        std::lock_guard<std::mutex> guard(linesLock);
        std::vector<std::string> taken;
        taken.swap(lines);
        return taken;
    }

  private:
    std::mutex linesLock;
    std::vector<std::string> lines;
};
