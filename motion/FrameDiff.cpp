#include "motion/FrameDiff.h"

#include "motion/BlockRules.h"

FrameDiff::FrameDiff() : MotionDiff() {
  minRegionArea = (height * width) / 384;
  masksAreWholeBlocks_ = true;
}

FrameDiff::FrameDiff(int width, int height, int historyLength)
    : MotionDiff(width, height, historyLength) {
  minRegionArea = (this->height * this->width) / 384;
  masksAreWholeBlocks_ = true;
}

FrameDiff::~FrameDiff() {}

bool FrameDiff::estForegroundMask(unsigned char* current, unsigned char* reference, cv::Mat* mask) {
  clearMask(*mask);
  const int counter =
      hdsml::markFrameDiffBlocks(current, reference, mask->data, width, height, kernelPath());
  return (minRegionArea / 3) < counter;
}
