#include "frames/Timer.h"

#include <time.h>

namespace Orv {

int64_t Timer::getCurrentTime() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000LL + static_cast<int64_t>(now.tv_nsec);
}

void Timer::start() { startTime = getCurrentTime(); }

void Timer::stop() { stopTime = getCurrentTime(); }

void Timer::reset() {
  stopTime = 0;
  startTime = stopTime;
}

uint64_t Timer::getElapsedTime() const { return stopTime - startTime; }

double Timer::getElapsedTimeInSeconds() const {
  return static_cast<double>(static_cast<int64_t>(stopTime - startTime)) * 1e-9;
}

double Timer::getElapsedTimeInMilliSeconds() const {
  return static_cast<double>(static_cast<int64_t>(stopTime - startTime)) * 1e-6;
}

}  // namespace Orv
