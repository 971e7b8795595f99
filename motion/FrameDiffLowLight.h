// Low-light foreground rule: a 4x4 block moves when its summed absolute luma
// change is large; noisy dark frames make colour tests unreliable, so none apply.
// Owned by motionDetector and used by one thread only.
#pragma once

#include <opencv2/core.hpp>

#include "hdsml_export.h"
#include "motion/MotionDiff.h"

class HDSML_EXPORT FrameDiffLowLight : public MotionDiff {
 public:
  FrameDiffLowLight();
  FrameDiffLowLight(int width, int height, int historyLength);

  bool estForegroundMask(unsigned char* current, unsigned char* reference, cv::Mat* mask) override;
  ~FrameDiffLowLight() override;
};
