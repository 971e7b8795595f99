#include "tools/input/FrameTransform.h"

#include <climits>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace hdsreplay {

double FrameTransform::gain(long frameIndex) const {
  double g = 1.0;
  if (plan_.ramp) {
    const double t =
        plan_.rampFrames > 1 ? static_cast<double>(frameIndex) / (plan_.rampFrames - 1) : 0.0;
    g = plan_.rampFrom + (plan_.rampTo - plan_.rampFrom) * std::min(1.0, std::max(0.0, t));
  }
  if (plan_.stepFrame >= 0 && frameIndex >= plan_.stepFrame) g *= plan_.stepFactor;
  return g;
}

int FrameTransform::exposure(long frameIndex) const {
  if (plan_.stepFrame >= 0 && frameIndex >= plan_.stepFrame) {
    const double e = std::round(plan_.baseExposure * plan_.stepFactor);
    return e >= INT_MAX ? INT_MAX : (e < 1 ? 1 : static_cast<int>(e));
  }
  return plan_.baseExposure;
}

void FrameTransform::apply(const cv::Mat& in, long frameIndex, bool stillTail, cv::Mat& out) const {
  const double g = gain(frameIndex);
  if (g != 1.0)
    in.convertTo(out, CV_8U, g);  // saturates, as a sensor clips
  else
    in.copyTo(out);
  if (plan_.grayscaleFrame >= 0 && frameIndex >= plan_.grayscaleFrame) {
    cv::Mat gray;
    cv::cvtColor(out, gray, cv::COLOR_BGR2GRAY);
    cv::cvtColor(gray, out, cv::COLOR_GRAY2BGR);
  }
  if (stillTail && plan_.noiseSigma > 0.0) {
    cv::Mat noise(out.size(), CV_16SC3);
    cv::RNG rng(0x9e3779b97f4a7c15ULL ^ static_cast<uint64_t>(frameIndex));
    rng.fill(noise, cv::RNG::NORMAL, 0.0, plan_.noiseSigma);
    cv::Mat wide;
    out.convertTo(wide, CV_16SC3);
    wide += noise;
    wide.convertTo(out, CV_8UC3);
  }
}

}  // namespace hdsreplay
