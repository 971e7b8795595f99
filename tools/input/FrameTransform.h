// The input probes of a replay, applied to each frame before detect() sees it:
// a global brightness ramp, a sudden exposure step or auto-exposure settling
// over several frames (both also scale the exposure time reported in the
// metadata), a room light switched on or off (brightness only), a switch to
// monochrome, and sensor noise on held frames or on every frame. They work on
// the YUV samples that detect() gets (a video's frames once packed, a camera
// dump's as they are), in steps that give the same bytes on every CPU, so that
// a dump replays as the video it was made from, probes included.
// Deterministic: the noise of frame i is seeded by i, so two replays see the
// same pixels. One thread.
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
  long settleFrame = -1;  // -1: no auto-exposure settling
  double settleFactor = 1.0;
  long settleFrames = 1;  // frames the settling takes to reach its factor
  long lightFrame = -1;   // -1: the room's light never changes
  double lightFactor = 1.0;
  double sensorNoise = -1.0;  // >= 0: noise on every frame, held ones included
};

// A copy of `in`'s bytes with the planes at the same offsets and strides.
void copyFrame(const hdsml::YuvFrame& in, hdsml::YuvFrame& out);

class FrameTransform {
 public:
  explicit FrameTransform(const TransformPlan& plan) : plan_(plan) {}

  // Writes the frame that the detector sees into `out`, a copy of `in` with the
  // probes applied: the gain scales luma and the chroma's distance from grey,
  // the infrared switch turns the chroma grey, noise goes on every sample.
  // False, leaving `out` alone, when no probe changes the frame, which then
  // goes to detect() as it is.
  bool apply(const hdsml::YuvFrame& in, long frameIndex, bool held, hdsml::YuvFrame& out) const;
  // Brightness gain in force for the frame: ramp, room light, and the
  // exposure's change (step and settling).
  double gain(long frameIndex) const;
  // exposureTime of the frame's metadata, from the plan's base exposure or
  // the one the camera logged.
  int exposure(long frameIndex) const { return exposure(frameIndex, plan_.baseExposure); }
  int exposure(long frameIndex, int base) const;

 private:
  // How far exposure time has moved from the base at the frame (step times
  // settling), and whether it moved at all.
  double exposureFactor(long frameIndex, bool& moved) const;
  double noiseSigma(bool held) const;

  TransformPlan plan_;
};

}  // namespace hdsreplay
