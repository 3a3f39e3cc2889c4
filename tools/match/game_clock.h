// The chess clock of one game.
#pragma once

#include <algorithm>
#include <cstdint>

namespace match {

// Both clocks of a game, in microseconds. A player who overruns its time by more than the
// lag allowance has lost; a smaller overrun stays on the clock as negative time, so the
// allowance is one per game, not one per move.
class GameClock {
  public:
    GameClock(int64_t baseUs, int64_t incrementUs, int64_t lagUs)
        : increment_(incrementUs), lag_(lagUs), left_{baseUs, baseUs} {}

    int64_t left(bool white) const { return left_[white ? 0 : 1]; }
    // What the engine is told, in milliseconds: never zero or less, which engines may misread.
    int64_t reportedMs(bool white) const { return std::max<int64_t>(left(white) / 1000, 1); }
    int64_t incrementMs() const { return increment_ / 1000; }
    // How long the mover may think from the moment it was told to go.
    int64_t allowanceUs(bool white) const { return left(white) + lag_; }

    // Charges a move's thinking time and adds the increment; false if the flag fell.
    bool charge(bool white, int64_t elapsedUs) {
        int64_t& t = left_[white ? 0 : 1];
        t -= elapsedUs;
        if (t < -lag_) return false;
        t += increment_;
        return true;
    }

  private:
    int64_t increment_;
    int64_t lag_;
    int64_t left_[2];
};

}  // namespace match
