// The input probes of a replay, applied to each BGR frame before it is packed
// as YUV: a global brightness ramp, a sudden exposure step (which also scales
// the exposure time reported in the metadata), a switch to monochrome, and the
// sensor noise of the still tail. Deterministic: the noise of frame i is seeded
// by i, so two replays see the same pixels. One thread.
#pragma once

#include <opencv2/core.hpp>

namespace hdsreplay {

struct TransformPlan {
  bool ramp = false;
  double rampFrom = 1.0, rampTo = 1.0;
  long rampFrames = 0;  // frames the ramp spans (the whole replay)
  long stepFrame = -1;  // -1: no exposure step
  double stepFactor = 1.0;
  long grayscaleFrame = -1;  // -1: colour throughout
  double noiseSigma = 0.0;   // applied to still-tail frames only
  int baseExposure = 0;
};

class FrameTransform {
 public:
  explicit FrameTransform(const TransformPlan& plan) : plan_(plan) {}

  // Writes the frame that the detector sees into `out` (never aliasing `in`).
  void apply(const cv::Mat& in, long frameIndex, bool stillTail, cv::Mat& out) const;
  // Brightness gain in force for the frame (ramp times exposure step).
  double gain(long frameIndex) const;
  // exposureTime of the frame's metadata.
  int exposure(long frameIndex) const;

 private:
  TransformPlan plan_;
};

}  // namespace hdsreplay
