#include "motion/FrameDiffLowLight.h"

#include "motion/BlockRules.h"

FrameDiffLowLight::FrameDiffLowLight() : MotionDiff() {
  minRegionArea = (height * width) / 96;
  masksAreWholeBlocks_ = true;
}

FrameDiffLowLight::FrameDiffLowLight(int width, int height, int historyLength)
    : MotionDiff(width, height, historyLength) {
  minRegionArea = (this->height * this->width) / 96;
  masksAreWholeBlocks_ = true;
}

FrameDiffLowLight::~FrameDiffLowLight() {}

bool FrameDiffLowLight::estForegroundMask(unsigned char* current, unsigned char* reference,
                                          cv::Mat* mask) {
  clearMask(*mask);
  const int counter =
      hdsml::markLowLightBlocks(current, reference, mask->data, width, height, kernelPath());
  return (minRegionArea / 3) < counter;
}
