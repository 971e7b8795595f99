#include "tools/input/FrameTransform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include <opencv2/core.hpp>

#include "tests/support/YuvFrame.h"

namespace hdsreplay {
namespace {

// Every sample of a plane, through its strides.
std::vector<int> samples(const uint8_t* plane, int w, int h, int pixelStride, int rowStride) {
  std::vector<int> out;
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) out.push_back(plane[r * rowStride + c * pixelStride]);
  return out;
}

TEST(FrameTransformTest, ProbesApplyFromTheirFrameOnAndNoiseOnlyToHeldFrames) {
  TransformPlan plan;
  plan.ramp = true;
  plan.rampTo = 0.5;
  plan.rampFrames = 11;
  plan.stepFrame = 4;
  plan.stepFactor = 2.0;
  plan.baseExposure = 10000000;
  plan.grayscaleFrame = 8;
  plan.noiseSigma = 2.0;  // only on held frames
  const FrameTransform t(plan);
  EXPECT_DOUBLE_EQ(t.gain(3), 0.85);
  EXPECT_DOUBLE_EQ(t.gain(4), 1.6);    // ramp times exposure step
  EXPECT_DOUBLE_EQ(t.gain(20), 1.0);   // frames past the ramp keep its last gain
  EXPECT_EQ(t.exposure(3), 10000000);  // the metadata follows the step
  EXPECT_EQ(t.exposure(4), 20000000);
  EXPECT_EQ(t.exposure(4, 333), 666);  // also an exposure the camera logged

  // Frame 7 has a gain of 1.3: luma scales and saturates like a sensor, the
  // chroma's distance from grey (128) scales with it. Padded NV12 rows.
  cv::Mat bgr(8, 12, CV_8UC3);
  cv::randu(bgr, 0, 256);
  const hdsml::YuvFrame in = hdsml::packYuv(bgr, hdsml::YuvLayout::NV12, 5);
  hdsml::YuvFrame out;
  ASSERT_TRUE(t.apply(in, 7, false, out));
  const auto inY = samples(in.y, 12, 8, 1, in.yRowStride), outY = samples(out.y, 12, 8, 1, 17);
  const auto inU = samples(in.u, 6, 4, 2, in.uRowStride), outU = samples(out.u, 6, 4, 2, 17);
  for (size_t i = 0; i < inY.size(); ++i)
    EXPECT_EQ(outY[i], std::min(255L, std::lround(inY[i] * 1.3)));
  for (size_t i = 0; i < inU.size(); ++i)
    EXPECT_EQ(outU[i], std::max(0L, std::min(255L, std::lround((inU[i] - 128) * 1.3) + 128)));
  // From frame 8 on the chroma is grey, luma untouched by it.
  ASSERT_TRUE(t.apply(in, 8, false, out));
  for (int v : samples(out.v, 6, 4, 2, 17)) EXPECT_EQ(v, 128);

  // Without a probe the frame goes on as it is; held frames get noise of about
  // sigma, the same for the same frame index.
  TransformPlan noisy;
  noisy.noiseSigma = 4.0;
  const FrameTransform n(noisy);
  const hdsml::YuvFrame grey =
      hdsml::packYuv(cv::Mat(64, 64, CV_8UC3, cv::Scalar::all(120)), hdsml::YuvLayout::I420);
  EXPECT_FALSE(n.apply(grey, 3, false, out));
  hdsml::YuvFrame again;
  ASSERT_TRUE(n.apply(grey, 3, true, out));
  ASSERT_TRUE(n.apply(grey, 3, true, again));
  EXPECT_EQ(out.bytes, again.bytes);
  double sum = 0, squares = 0;
  const auto y0 = samples(grey.y, 64, 64, 1, 64), y1 = samples(out.y, 64, 64, 1, 64);
  for (size_t i = 0; i < y0.size(); ++i) {
    sum += y1[i] - y0[i];
    squares += (y1[i] - y0[i]) * (y1[i] - y0[i]);
  }
  EXPECT_NEAR(sum / y0.size(), 0.0, 0.2);
  EXPECT_NEAR(std::sqrt(squares / y0.size()), 4.0, 0.3);
}

}  // namespace
}  // namespace hdsreplay
