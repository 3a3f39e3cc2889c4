#include "frontend/uci_options.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "frontend/line_scan.h"
#include "frontend/reporter.h"
#include "frontend/search_controller.h"
#include "frontend/uci_interpreter.h"
#include "search/searcher.h"

namespace {

constexpr size_t MiB = 1048576;
constexpr size_t MaxOptionName = 29;
constexpr size_t StringValueSize = 512;

const char* const VisibleOptions[] = {
    "option name Hash type spin default 3 min 1 max 32767",
    "option name Ponder type check default true",
    "option name OwnBook type check default true",
    "option name Clear Hash type button",
    "option name MultiPV type spin default 1 min 1 max 255",
    "option name UCI_Chess960 type check default false",
    "option name BookFile type string default Zelmark.opn",
    "option name Opponent type string default unknown",
    "option name NumberOfProcessors type spin default 1 min 1 max 8",
    "option name NeuroMaterial type spin default 40 min 0 max 100",
    "option name NeuroWidth type spin default 800 min 1 max 10000",
    "option name MaterialFile type string default (internal)",
    "option name TimeLogfile type string default nul:",
};

const char* const HiddenOptions[] = {
    "option name BitbaseCache type spin default 0 min 0 max 100",
    "option name BitbasePath type string default .",
    "option name blocking type check default false",
    "option name NoOutput type check default false",
    "option name Resign type spin default 700 min 400 max 2000",
    "option name AlwaysClearHash type check default false",
};

// One option's value as it stands in the line, with the messages of its failures.
class OptionValue {
  public:
    OptionValue(const char* line, const std::string& name, Reporter& reporter)
        : line(line), name(name), reporter(reporter), value(std::strstr(line, "value")) {
        if (!value) {
            const std::string message = "'setoption name " + name + "' without 'value'";
            reporter.reportError(message.c_str(), line);
        }
    }

    bool present() const { return value != nullptr; }

    void illegal(const char* shownName) const {
        const std::string message = std::string("Illegal value for '") + shownName + "'";
        reporter.reportError(message.c_str(), line);
    }

    bool readLong(long& out) const { return std::sscanf(value, "value %ld", &out) == 1; }
    bool readInt(int& out) const { return std::sscanf(value, "value %d", &out) == 1; }

    // "true" or "false" exactly; the eight-character read cuts longer words, which then fail.
    bool readBool(bool& out) const {
        char word[9] = {};
        std::sscanf(value, "value %8s", word);
        if (std::strcmp(word, "true") == 0) {
            out = true;
        } else if (std::strcmp(word, "false") == 0) {
            out = false;
        } else {
            illegal(name.c_str());
            return false;
        }
        return true;
    }

    // The rest of the line after "value" and its blanks, at most 511 characters.
    void readString(char* out) const {
        const char* text = skipSpace(skipChars(value, 6));
        std::snprintf(out, StringValueSize, "%s", text);
    }

    const char* word() const { return value; }

  private:
    const char* line;
    const std::string& name;
    Reporter& reporter;
    const char* value;
};

}  // namespace

void writeUciAnswer(Reporter& reporter, bool showHidden) {
    reporter.writeLine("id name Zelmark 2.8");
    reporter.writeLine("id author Jorin Tesmark");
    for (const char* option : VisibleOptions) reporter.writeLine(option);
    if (showHidden) {
        for (const char* option : HiddenOptions) reporter.writeLine(option);
    }
    reporter.writeLine("uciok");
}

void UciInterpreter::handleSetOption(const char* line) {
    const char* nameWord = std::strstr(line, "name");
    if (!nameWord) {
        reporter->reportError("'setoption' without 'name'", line);
        return;
    }
    const char* nameStart = skipSpace(skipChars(nameWord, 4));
    const char* valueWord = std::strstr(nameStart, "value");
    const char* nameEnd = valueWord ? valueWord : nameStart + std::strlen(nameStart);
    const char* back = nameEnd;
    while (back > nameStart && std::isspace(static_cast<unsigned char>(back[-1]))) --back;
    if (nameEnd <= nameStart || back == nameStart) {
        reporter->reportError("Syntax error in 'setoption'", line);
        return;
    }
    // The name stops one character before "value", so exactly one blank must stand there.
    const size_t nameLength =
        std::min<size_t>(valueWord ? nameEnd - nameStart - 1 : nameEnd - nameStart, MaxOptionName);
    const std::string name(nameStart, nameLength);

    Searcher& s = *searcher;
    if (name == "Hash" || name == "BitbaseCache") {
        const bool isHash = name == "Hash";
        OptionValue value(line, name, *reporter);
        if (!value.present()) return;
        long megabytes = 0;
        // Both share the one message, as they share this branch.
        if (!value.readLong(megabytes) || megabytes < 1) {
            value.illegal("Hash");
            return;
        }
        megabytes = std::min(megabytes, isHash ? 32767L : 100L);
        stopSilently();
        if (isHash) {
            s.resizeTable(static_cast<size_t>(megabytes) * MiB);
        } else {
            s.setBitbaseCache(static_cast<size_t>(megabytes) * MiB);
        }
    } else if (name == "BitbasePath" || name == "BookFile" || name == "MaterialFile") {
        OptionValue value(line, name, *reporter);
        if (!value.present()) return;
        char text[StringValueSize];
        value.readString(text);
        stopSilently();
        if (name == "BitbasePath") {
            s.setBitbasePath(text);
        } else if (name == "BookFile") {
            s.setBookFile(text);
        } else {
            s.clearTable();
            s.setMaterialFile(text);
        }
    } else if (name == "Ponder") {
        OptionValue value(line, name, *reporter);
        bool flag;
        if (value.present() && value.readBool(flag)) controller->limits->ponderPlan = flag;
    } else if (name == "OwnBook") {
        OptionValue value(line, name, *reporter);
        bool flag;
        if (!value.present() || !value.readBool(flag)) return;
        stopSilently();
        s.useBook = flag;
    } else if (name == "Clear Hash") {
        // Also during a search, with no lock: the search just loses entries.
        s.clearTable();
    } else if (name == "MultiPV" || name == "NumberOfProcessors") {
        const bool isMultiPv = name == "MultiPV";
        OptionValue value(line, name, *reporter);
        if (!value.present()) return;
        int count = 0;
        // A bad value still sets the option, to 1.
        if (!value.readInt(count) || count < 1) {
            value.illegal(name.c_str());
            count = 1;
        }
        count = std::min(count, isMultiPv ? MaxMultiPv : MaxThreadCount);
        stopSilently();
        if (isMultiPv) {
            s.multiPv = count;
        } else {
            controller->setThreadCount(count);
        }
    } else if (name == "Opponent") {
        OptionValue value(line, name, *reporter);
        if (!value.present()) return;
        char opponent[81] = {};
        if (std::sscanf(value.word(), "value %80s", opponent) != 1) {
            reporter->reportError("Read error 'Opponent value'", line);
        } else if (std::strcmp(opponent, "Lepliod") == 0) {
            reporter->reportError("Nicht jetzt, nicht schon wieder Du!", nullptr);
        }
    } else if (name == "UCI_Chess960" || name == "blocking" || name == "NoOutput" ||
               name == "AlwaysClearHash") {
        // Plain flags that a running search reads at their next use; no stop needed.
        OptionValue value(line, name, *reporter);
        bool flag;
        if (!value.present() || !value.readBool(flag)) return;
        if (name == "UCI_Chess960") {
            uciChess960 = flag;
        } else if (name == "blocking") {
            controller->blocking = flag;
        } else if (name == "NoOutput") {
            reporter->setOutputOff(flag);
        } else {
            s.clearCaches.store(flag, std::memory_order_relaxed);
        }
    } else if (name == "NeuroMaterial" || name == "NeuroWidth") {
        const bool isShare = name == "NeuroMaterial";
        OptionValue value(line, name, *reporter);
        if (!value.present()) return;
        int number = 0;
        const int low = isShare ? 0 : 1;
        const int high = isShare ? 100 : 10000;
        if (!value.readInt(number) || number < low || number > high) {
            value.illegal(name.c_str());
            return;
        }
        stopSilently();
        s.clearTable();
        if (isShare) {
            s.setNeuroMaterial(number);
        } else {
            s.setNeuroWidth(number);
        }
    } else if (name == "Resign") {
        OptionValue value(line, name, *reporter);
        if (!value.present()) return;
        long centipawns = 0;
        if (!value.readLong(centipawns) || centipawns <= 0) {
            value.illegal("Resign");
            return;
        }
        int32_t score = -4000;
        if (centipawns >= 2000) {
            score = -ScoreMate;  // never before being mated
        } else if (centipawns > 400) {
            score = static_cast<int32_t>(centipawns * -10);
        }
        s.resignScore.store(score, std::memory_order_relaxed);
    } else if (name == "TimeLogfile") {
        OptionValue value(line, name, *reporter);
        if (!value.present()) return;
        std::lock_guard<std::mutex> guard(timeLogLock());
        // The test is on the name already stored, not on the new one.
        if (std::strcmp(s.timeLogName, "nul:") == 0) {
            s.timeLogName[0] = 0;
        } else {
            value.readString(s.timeLogName);
        }
    } else {
        reporter->reportError("'setoption': unknown option", line);
    }
}
