// The replay's clock, started with the first frame. Under --pace realtime it
// holds each frame back until its time, as a live camera delivers them. One
// thread.
#pragma once

#include <chrono>
#include <thread>

#include "tools/options/ReplayOptions.h"

namespace hdsreplay {

class Pacer {
 public:
  using Clock = std::chrono::steady_clock;

  Pacer(Pace pace, double fps) : realtime_(pace == Pace::Realtime), periodUs_(1e6 / fps) {}

  void waitForFrame(long i) const {
    if (!realtime_) return;
    std::this_thread::sleep_until(start_ +
                                  std::chrono::microseconds(static_cast<long long>(i * periodUs_)));
  }
  double elapsedSeconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
  }

 private:
  const bool realtime_;
  const double periodUs_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace hdsreplay
