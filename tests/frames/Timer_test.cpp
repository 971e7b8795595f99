#include "frames/Timer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace {

TEST(TimerTest, ReadsTheMonotonicClockAndConvertsTheSpanReadAsSigned) {
  // steady_clock is the same monotonic clock, so it brackets each reading.
  const auto now = [] {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
  };
  const int64_t before = now();
  Orv::Timer timer;
  timer.start();
  timer.stop();
  const int64_t after = now();
  EXPECT_LE(before, static_cast<int64_t>(timer.startTime));
  EXPECT_LE(timer.startTime, timer.stopTime);
  EXPECT_LE(static_cast<int64_t>(timer.stopTime), after);

  // Stopped before it started: the raw span wraps, the converted ones go negative.
  timer.startTime = 5000;
  timer.stopTime = 2000;
  EXPECT_EQ(timer.getElapsedTime(), UINT64_MAX - 2999);
  EXPECT_NEAR(timer.getElapsedTimeInMilliSeconds(), -0.003, 1e-15);
  EXPECT_NEAR(timer.getElapsedTimeInSeconds(), -3e-6, 1e-18);
  timer.reset();
  EXPECT_EQ(timer.getElapsedTime(), 0u);
}

}  // namespace
