// What the replay reads from the client beside the facade's fields: whether
// the motion status was ever written, whether the motion thread is idle, and
// the rectangles of the last analysed frame.
#pragma once

#include <chrono>
#include <vector>

#include <opencv2/core.hpp>

#include "client/HDSMLClient.h"
#include "tests/support/ClientProbe.h"

namespace hdsreplay {

// The motion status starts all zero, so a frame stamped 0 is told apart from
// the initial record by the calendar time that every write sets.
inline bool written(const MotionStatus& status) { return status.wallClockSeconds != 0; }

// Lockstep: waits until the motion thread has released every frame record,
// which it does only after publishing its decision on the frame.
inline bool waitUntilIdle(HDSMLClient* client, double waitMs) {
  return hdsml::waitForIdle(*client, std::chrono::microseconds(static_cast<long>(waitMs * 1000)));
}

// Rectangles of the last analysed frame, which the client keeps. Only valid
// while the motion thread is idle: it rewrites them for every frame.
inline std::vector<cv::Rect> lastRectangles(const HDSMLClient* client) {
  std::vector<cv::Rect> rects;
  for (const auto& region : client->regions) rects.push_back(region.first);
  return rects;
}

}  // namespace hdsreplay
