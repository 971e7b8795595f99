// The input probes of a replay, applied to each frame before detect() sees it:
// a global brightness ramp, a sudden exposure step (which also scales the
// exposure time reported in the metadata), a switch to monochrome, and the
// sensor noise of held frames. They work on the YUV samples that detect() gets
// (a video's frames once packed, a camera dump's as they are), in steps that
// give the same bytes on every CPU, so that a dump replays as the video it was
// made from, probes included. Deterministic: the noise of frame i is seeded by
// i, so two replays see the same pixels. One thread.
#pragma once

#include "tests/support/YuvFrame.h"

namespace hdsreplay {

struct TransformPlan {
  bool ramp = false;
  double rampFrom = 1.0, rampTo = 1.0;
  long rampFrames = 0;  // frames the ramp spans (the whole replay)
  long stepFrame = -1;  // -1: no exposure step
  double stepFactor = 1.0;
  long grayscaleFrame = -1;  // -1: colour throughout
  double noiseSigma = 0.0;   // applied to held frames only
  int baseExposure = 0;
};

class FrameTransform {
 public:
  explicit FrameTransform(const TransformPlan& plan) : plan_(plan) {}

  // Writes the frame that the detector sees into `out`, a copy of `in` with the
  // probes applied: the gain scales luma and the chroma's distance from grey,
  // the infrared switch turns the chroma grey, noise goes on every sample.
  // False, leaving `out` alone, when no probe changes the frame, which then
  // goes to detect() as it is.
  bool apply(const hdsml::YuvFrame& in, long frameIndex, bool held, hdsml::YuvFrame& out) const;
  // Brightness gain in force for the frame (ramp times exposure step).
  double gain(long frameIndex) const;
  // exposureTime of the frame's metadata, from the plan's base exposure or
  // the one the camera logged.
  int exposure(long frameIndex) const { return exposure(frameIndex, plan_.baseExposure); }
  int exposure(long frameIndex, int base) const;

 private:
  TransformPlan plan_;
};

}  // namespace hdsreplay
