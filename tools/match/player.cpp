#include "player.h"

#include <chrono>

namespace match {

bool Player::start(std::string& error) {
    if (!process.launch(settings_.command, error)) {
        lastFault = Ending::Crash;
        ++counters.crashes;
        return false;
    }
    if (settings_.xboard) return startXboard(error);
    if (!process.send("uci")) return fail(ReadStatus::Closed, "uci", error);
    std::string line;
    for (;;) {
        const ReadStatus s = process.readLine(line, deadline());
        if (s != ReadStatus::Line) return fail(s, "uciok", error);
        if (line == "uciok") break;
        if (line.compare(0, 8, "id name ") == 0) idName = line.substr(8);
        if (line.compare(0, 12, "option name ") == 0) {
            const size_t type = line.find(" type ");
            declared.insert(line.substr(12, type == std::string::npos ? type : type - 12));
        }
    }
    // The driver decides when to ponder, so the engine's Ponder option follows that
    // decision, whatever its default.
    if (settings_.ponder || declared.count("Ponder"))
        setOption("Ponder", settings_.ponder ? "true" : "false");
    if (settings_.threads > 0) {
        const bool oldName = declared.count("NumberOfProcessors") && !declared.count("Threads");
        setOption(oldName ? "NumberOfProcessors" : "Threads", std::to_string(settings_.threads));
    }
    if (chess960_) setOption("UCI_Chess960", "true");
    for (const auto& option : settings_.options) setOption(option.first, option.second);
    return synchronise(error);
}

bool Player::startXboard(std::string& error) {
    if (!process.send("xboard") || !process.send("protover 2"))
        return fail(ReadStatus::Closed, "protover", error);
    std::string line;
    for (;;) {
        const ReadStatus s = process.readLine(line, deadline());
        if (s != ReadStatus::Line) return fail(s, "feature done=1", error);
        if (line.compare(0, 8, "feature ") != 0) continue;
        const size_t name = line.find("myname=\"");
        if (name != std::string::npos) {
            const size_t end = line.find('"', name + 8);
            idName = line.substr(name + 8, end == std::string::npos ? end : end - name - 8);
        }
        if (line.find("done=1") != std::string::npos) break;
        // Every feature is welcome.
        const size_t eq = line.find('=');
        if (eq != std::string::npos && line.find("done=") == std::string::npos)
            process.send("accepted " + line.substr(8, eq - 8));
    }
    return synchronise(error);
}

bool Player::synchronise(std::string& error, EngineConnection* other) {
    std::string line;
    if (settings_.xboard) {
        const std::string ping = std::to_string(++pings_);
        if (!process.send("ping " + ping)) return fail(ReadStatus::Closed, "ping", error);
        for (;;) {
            const ReadStatus s = process.waitFor("pong", deadline(), line, other);
            if (s != ReadStatus::Line) return fail(s, "pong " + ping, error);
            if (line == "pong " + ping) return true;
        }
    }
    if (!process.send("isready")) return fail(ReadStatus::Closed, "isready", error);
    const ReadStatus s = process.waitFor("readyok", deadline(), line);
    return s == ReadStatus::Line || fail(s, "readyok", error);
}

bool Player::stopSearch(std::string& error, EngineConnection* other) {
    std::string line;
    if (settings_.xboard) {
        moving = false;
        return process.send("force") ? synchronise(error, other)
                                     : fail(ReadStatus::Closed, "force", error);
    }
    if (!process.send("stop")) return fail(ReadStatus::Closed, "stop", error);
    const ReadStatus s = process.waitFor("bestmove", deadline(), line, other);
    return s == ReadStatus::Line || fail(s, "bestmove after stop", error);
}

bool Player::fail(ReadStatus status, const std::string& awaited, std::string& error) {
    lastFault = status == ReadStatus::Timeout ? Ending::Hang : Ending::Crash;
    if (status == ReadStatus::Timeout) {
        ++counters.hangs;
        error = "no " + awaited + " within " + std::to_string(timeoutMs_) + " ms";
    } else {
        ++counters.crashes;
        error = "the engine ended while the driver waited for " + awaited;
    }
    process.kill();
    return false;
}

TimePoint Player::deadline() const {
    return SteadyClock::now() + std::chrono::milliseconds(timeoutMs_);
}

void Player::setOption(const std::string& option, const std::string& value) {
    if (!declared.count(option) && std::find(undeclaredOptions.begin(), undeclaredOptions.end(),
                                             option) == undeclaredOptions.end())
        undeclaredOptions.push_back(option);
    process.send("setoption name " + option + " value " + value);
}

}  // namespace match
