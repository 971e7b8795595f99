#include "frames/Timer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

namespace {

int64_t steadyNanos() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

TEST(TimerTest, FreshAndResetTimersReportZero) {
  Orv::Timer timer;
  EXPECT_EQ(timer.getElapsedTime(), 0u);
  EXPECT_EQ(timer.getElapsedTimeInSeconds(), 0.0);
  EXPECT_EQ(timer.getElapsedTimeInMilliSeconds(), 0.0);

  timer.start();
  timer.stop();
  timer.reset();
  EXPECT_EQ(timer.startTime, 0u);
  EXPECT_EQ(timer.stopTime, 0u);
  EXPECT_EQ(timer.getElapsedTime(), 0u);
}

TEST(TimerTest, GettersConvertTheStoredSpan) {
  Orv::Timer timer;
  timer.startTime = 7000000000ULL;
  timer.stopTime = 7002500000ULL;
  EXPECT_EQ(timer.getElapsedTime(), 2500000u);
  EXPECT_NEAR(timer.getElapsedTimeInMilliSeconds(), 2.5, 1e-12);
  EXPECT_NEAR(timer.getElapsedTimeInSeconds(), 0.0025, 1e-15);
}

TEST(TimerTest, RunningTimerReadsAsNegativeOrWrappedSpan) {
  Orv::Timer timer;
  timer.startTime = 5000;
  timer.stopTime = 2000;
  EXPECT_EQ(timer.getElapsedTime(), UINT64_MAX - 2999);
  EXPECT_NEAR(timer.getElapsedTimeInMilliSeconds(), -0.003, 1e-15);
  EXPECT_NEAR(timer.getElapsedTimeInSeconds(), -3e-6, 1e-18);
}

TEST(TimerTest, ReadsTheMonotonicClockInNanoseconds) {
  // steady_clock is the same monotonic clock, so it brackets each reading.
  const int64_t before = steadyNanos();
  const int64_t now = Orv::Timer::getCurrentTime();
  const int64_t after = steadyNanos();
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);

  Orv::Timer sinceBoot;
  sinceBoot.stop();
  EXPECT_EQ(sinceBoot.getElapsedTime(), sinceBoot.stopTime);
  EXPECT_GE(static_cast<int64_t>(sinceBoot.stopTime), after);
}

TEST(TimerTest, MeasuresAtLeastTheTimeSlept) {
  Orv::Timer timer;
  timer.start();
  std::this_thread::sleep_for(std::chrono::microseconds(2500));
  timer.stop();
  EXPECT_GE(timer.getElapsedTime(), 2500000u);
  EXPECT_GE(timer.getElapsedTimeInMilliSeconds(), 2.5 - 1e-9);
  EXPECT_LT(timer.getElapsedTimeInSeconds(), 60.0);
}

}  // namespace
