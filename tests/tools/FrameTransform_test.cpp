#include "tools/FrameTransform.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace hdsreplay {
namespace {

class FrameTransformTest : public ::testing::Test {
 protected:
  void SetUp() override {
    frame_.create(24, 32, CV_8UC3);
    cv::randu(frame_, 20, 200);
  }
  cv::Mat apply(const TransformPlan& plan, long index, bool tail = false) {
    cv::Mat out;
    FrameTransform(plan).apply(frame_, index, tail, out);
    return out;
  }
  cv::Mat frame_;
};

TEST_F(FrameTransformTest, NoProbesLeaveFramesUntouched) {
  TransformPlan plan;
  plan.noiseSigma = 3.0;  // noise belongs to the still tail only
  EXPECT_EQ(cv::norm(apply(plan, 5), frame_, cv::NORM_INF), 0.0);
}

TEST_F(FrameTransformTest, RampRunsLinearlyFromFirstToLastFrame) {
  TransformPlan plan;
  plan.ramp = true;
  plan.rampFrom = 1.0;
  plan.rampTo = 0.5;
  plan.rampFrames = 11;
  const FrameTransform t(plan);
  EXPECT_DOUBLE_EQ(t.gain(0), 1.0);
  EXPECT_DOUBLE_EQ(t.gain(5), 0.75);
  EXPECT_DOUBLE_EQ(t.gain(10), 0.5);
  EXPECT_DOUBLE_EQ(t.gain(20), 0.5);  // frames past the plan keep the last gain
  cv::Mat expected;
  frame_.convertTo(expected, CV_8U, 0.5);
  EXPECT_EQ(cv::norm(apply(plan, 10), expected, cv::NORM_INF), 0.0);
}

TEST_F(FrameTransformTest, ExposureStepScalesPixelsAndMetadataFromItsFrameOn) {
  TransformPlan plan;
  plan.stepFrame = 4;
  plan.stepFactor = 2.0;
  plan.baseExposure = 10000000;
  const FrameTransform t(plan);
  EXPECT_EQ(t.exposure(3), 10000000);
  EXPECT_EQ(t.exposure(4), 20000000);
  EXPECT_EQ(cv::norm(apply(plan, 3), frame_, cv::NORM_INF), 0.0);
  cv::Mat expected;
  frame_.convertTo(expected, CV_8U, 2.0);  // saturates at 255 like a sensor
  EXPECT_EQ(cv::norm(apply(plan, 4), expected, cv::NORM_INF), 0.0);
}

TEST_F(FrameTransformTest, GrayscaleFromItsFrameOnMakesChannelsEqual) {
  TransformPlan plan;
  plan.grayscaleFrame = 2;
  const cv::Mat before = apply(plan, 1), after = apply(plan, 2);
  cv::Mat ch[3];
  cv::split(before, ch);
  EXPECT_GT(cv::norm(ch[0], ch[2], cv::NORM_INF), 0.0);
  cv::split(after, ch);
  EXPECT_EQ(cv::norm(ch[0], ch[1], cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(ch[0], ch[2], cv::NORM_INF), 0.0);
}

TEST_F(FrameTransformTest, TailNoiseIsMildAndRepeatablePerFrame) {
  TransformPlan plan;
  plan.noiseSigma = 2.0;
  const cv::Mat a = apply(plan, 7, true), b = apply(plan, 7, true), c = apply(plan, 8, true);
  EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0.0);
  EXPECT_GT(cv::norm(a, c, cv::NORM_INF), 0.0);
  EXPECT_GT(cv::norm(a, frame_, cv::NORM_INF), 0.0);
  // Mean absolute deviation of N(0, 2) is about 1.6 grey levels.
  const double mad = cv::norm(a, frame_, cv::NORM_L1) / (frame_.total() * 3);
  EXPECT_GT(mad, 1.0);
  EXPECT_LT(mad, 2.2);
}

}  // namespace
}  // namespace hdsreplay
