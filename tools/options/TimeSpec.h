// A point or a span on the replay's time line, written by the user either as a
// time ("12s", "1.5s", "800ms", "2min") or as a frame count/index ("120").
// Resolved to frame indices once the frame rate is known. Plain value type.
#pragma once

#include <string>

#include "tools/options/FrameClock.h"

namespace hdsreplay {

struct TimeSpec {
  bool isFrames = true;  // true: `value` counts frames; false: milliseconds
  double value = 0.0;

  // Throws std::invalid_argument naming `what` when `text` is not a time or frame count.
  static TimeSpec parse(const std::string& text, const std::string& what);

  // Index of the first frame whose timestamp is at or after this point.
  long frameIndex(double fps) const;
  long frameIndex(const FrameClock& clock) const;
  // Number of frames this span covers at `fps` (rounded to the nearest frame).
  long frameCount(double fps) const;
  // Milliseconds from the first frame to this point.
  double ms(const FrameClock& clock) const;
};

// Timestamp, in milliseconds, that the replay gives frame `index` at `fps`.
long long frameTimestampMs(long index, double fps);

}  // namespace hdsreplay
