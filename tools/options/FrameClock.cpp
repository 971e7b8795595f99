#include "tools/options/FrameClock.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tools/options/TimeSpec.h"

namespace hdsreplay {

FrameClock::FrameClock(double fps) : fps_(fps) {}

FrameClock::FrameClock(std::vector<int64_t> loggedMs, long lead, int64_t intervalMs)
    : fps_(1000.0 / static_cast<double>(intervalMs)),
      logged_(std::move(loggedMs)),
      lead_(lead),
      intervalMs_(intervalMs) {}

int64_t FrameClock::timestampMs(long frame) const {
  if (logged_.empty()) return frameTimestampMs(frame, fps_);
  const long last = lead_ + static_cast<long>(logged_.size()) - 1;
  if (frame < lead_) return logged_.front() - (lead_ - frame) * intervalMs_;
  if (frame > last) return logged_.back() + (frame - last) * intervalMs_;
  return logged_[static_cast<size_t>(frame - lead_)];
}

long FrameClock::frameAt(double ms) const {
  // Start from the estimate at the nominal rate, then step to the first frame
  // at or after `ms`; timestamps increase, so both loops end.
  long frame = std::max(0L, static_cast<long>(std::floor(ms * fps_ / 1000.0)));
  while (frame > 0 && relativeMs(frame - 1) >= ms) --frame;
  while (relativeMs(frame) < ms) ++frame;
  return frame;
}

}  // namespace hdsreplay
