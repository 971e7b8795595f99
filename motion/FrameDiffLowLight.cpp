#include "motion/FrameDiffLowLight.h"

#include <cmath>

namespace {

// Decides whether the 4x4 block starting at `current` differs in luma from the one
// at `reference`; `rowBytes` is the distance between pixel rows of both frames.
bool isLowLightForegroundBlock(const unsigned char* current, const unsigned char* reference,
                               int rowBytes) {
  float lumaSum = 0.0f;
  for (int row = 0; row < 4; ++row) {
    const unsigned char* a = current + row * rowBytes;
    const unsigned char* b = reference + row * rowBytes;
    for (int col = 0; col < 4; ++col, a += 3, b += 3) {
      const double d0 = static_cast<float>(a[0] - b[0]);
      const double d1 = static_cast<float>(a[1] - b[1]);
      const double d2 = static_cast<float>(a[2] - b[2]);
      // The heavier weight sits on byte 2 by design of the tuned rule, even though
      // byte 2 holds blue in the frames this library produces.
      const double luma = 0.299 * d2 + 0.587 * d1 + 0.114 * d0;
      lumaSum = static_cast<float>(lumaSum + std::fabs(luma));
    }
  }
  // 320 is an average absolute luma change of 20 over the 16 pixels.
  return lumaSum > 320.0;
}

}  // namespace

FrameDiffLowLight::FrameDiffLowLight() : MotionDiff() { minRegionArea = (height * width) / 96; }

FrameDiffLowLight::FrameDiffLowLight(int width, int height, int historyLength)
    : MotionDiff(width, height, historyLength) {
  minRegionArea = (this->height * this->width) / 96;
}

FrameDiffLowLight::~FrameDiffLowLight() {}

bool FrameDiffLowLight::estForegroundMask(unsigned char* current, unsigned char* reference,
                                          cv::Mat* mask) {
  return markForegroundBlocks<isLowLightForegroundBlock>(current, reference, mask);
}
