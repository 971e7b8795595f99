// Stopwatch on the monotonic clock, in nanoseconds. The getters use only the
// two stored instants, so a duration is meaningful after start() then stop().
// A timer belongs to one thread; getCurrentTime() may be called from any.
#pragma once

#include <cstdint>

#include "hdsml_export.h"

namespace Orv {

class HDSML_EXPORT Timer {
 public:
  Timer() = default;

  // Monotonic time in nanoseconds.
  static int64_t getCurrentTime();

  void start();
  void stop();
  void reset();

  // stopTime - startTime, wrapping when stop() was not called after start().
  uint64_t getElapsedTime() const;
  // The same difference read as signed, so a running timer shows a negative span.
  double getElapsedTimeInSeconds() const;
  double getElapsedTimeInMilliSeconds() const;

  uint64_t startTime = 0;
  uint64_t stopTime = 0;
};

}  // namespace Orv
