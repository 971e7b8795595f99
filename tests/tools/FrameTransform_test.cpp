#include "tools/input/FrameTransform.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace hdsreplay {
namespace {

TEST(FrameTransformTest, ProbesApplyFromTheirFrameOnAndNoiseOnlyToTheStillTail) {
  TransformPlan plan;
  plan.ramp = true;
  plan.rampTo = 0.5;
  plan.rampFrames = 11;
  plan.stepFrame = 4;
  plan.stepFactor = 2.0;
  plan.baseExposure = 10000000;
  plan.grayscaleFrame = 8;
  plan.noiseSigma = 2.0;  // only on the still tail
  const FrameTransform t(plan);
  EXPECT_DOUBLE_EQ(t.gain(3), 0.85);
  EXPECT_DOUBLE_EQ(t.gain(4), 1.6);    // ramp times exposure step
  EXPECT_DOUBLE_EQ(t.gain(20), 1.0);   // frames past the ramp keep its last gain
  EXPECT_EQ(t.exposure(3), 10000000);  // the metadata follows the step
  EXPECT_EQ(t.exposure(4), 20000000);

  cv::Mat frame(24, 32, CV_8UC3), out, expected, ch[3];
  cv::randu(frame, 20, 200);
  t.apply(frame, 7, false, out);
  frame.convertTo(expected, CV_8U, 1.3);  // saturates at 255 like a sensor
  EXPECT_EQ(cv::norm(out, expected, cv::NORM_INF), 0.0);
  t.apply(frame, 8, false, out);
  cv::split(out, ch);
  EXPECT_EQ(cv::norm(ch[0], ch[1], cv::NORM_INF) + cv::norm(ch[0], ch[2], cv::NORM_INF), 0.0);
}

}  // namespace
}  // namespace hdsreplay
