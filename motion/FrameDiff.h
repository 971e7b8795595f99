// Normal-light foreground rule: a 4x4 block moves when its colour distance is
// large, or moderately large together with a change of red/blue chromaticity, with
// stricter thresholds for blocks near black or white. Owned by motionDetector and
// used by one thread only.
#pragma once

#include <opencv2/core.hpp>

#include "hdsml_export.h"
#include "motion/MotionDiff.h"

class HDSML_EXPORT FrameDiff : public MotionDiff {
 public:
  FrameDiff();
  FrameDiff(int width, int height, int historyLength);

  bool estForegroundMask(unsigned char* current, unsigned char* reference, cv::Mat* mask) override;
  ~FrameDiff() override;
};
