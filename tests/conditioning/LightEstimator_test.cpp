#include "conditioning/LightEstimator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <future>
#include <limits>

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

class LightEstimatorTest : public testing::Test {
 protected:
  void feed(float sample, int times) {
    for (int i = 0; i < times; ++i) estimator_.estimate(sample);
  }

  // Refills the window so that its single-precision sum is exactly total: 30
  // zeros and then total, which pushes out one zero. The mode is kept.
  void loadWindow(float total) {
    estimator_.clear();
    feed(0.0f, 30);
    estimator_.estimate(total);
    ASSERT_TRUE(estimator_.full);
    ASSERT_EQ(estimator_.sum, total);
  }

  // Mode thresholds times N, as the estimator computes them.
  const float high_ = 14.99f * 30.0f;
  const float low_ = 13.4f * 30.0f;
  LightEstimator estimator_{30, 14.99f, 13.4f};
};

TEST_F(LightEstimatorTest, ReportsUnknownUntilMoreThanThirtySamples) {
  for (int i = 0; i < 30; ++i) {
    estimator_.estimate(14.0f);
    EXPECT_EQ(estimator_.getLightMode(), 2) << "after sample " << i + 1;
  }
  EXPECT_FALSE(estimator_.full);
  EXPECT_EQ(estimator_.mode, 2);

  estimator_.estimate(14.0f);
  EXPECT_TRUE(estimator_.full);
  EXPECT_EQ(estimator_.samples.size(), 30u);
  EXPECT_EQ(estimator_.getLightMode(), 1);  // 14.0 lies above 13.4: normal light first
  feed(14.0f, 100);
  EXPECT_EQ(estimator_.getLightMode(), 1);
  EXPECT_EQ(estimator_.samples.size(), 30u);

  // After a clear the window refills before any mode is reported; the old
  // mode is kept for the hysteresis.
  estimator_.clear();
  EXPECT_EQ(estimator_.sum, 0.0f);
  feed(14.0f, 30);
  EXPECT_EQ(estimator_.getLightMode(), 2);
  EXPECT_EQ(estimator_.mode, 1);
  estimator_.estimate(14.0f);
  EXPECT_EQ(estimator_.getLightMode(), 1);
}

TEST_F(LightEstimatorTest, FirstDecisionUsesTheLowThresholdStrictly) {
  loadWindow(low_);
  EXPECT_EQ(estimator_.getLightMode(), 0);

  LightEstimator fresh(30, 14.99f, 13.4f);
  for (int i = 0; i < 30; ++i) fresh.estimate(0.0f);
  fresh.estimate(std::nextafter(low_, kInf));
  EXPECT_EQ(fresh.getLightMode(), 1);
}

TEST_F(LightEstimatorTest, LowLightNeedsSumAboveHighThreshold) {
  feed(10.0f, 31);
  ASSERT_EQ(estimator_.getLightMode(), 0);

  loadWindow(14.0f * 30.0f);  // inside the band
  EXPECT_EQ(estimator_.getLightMode(), 0);
  loadWindow(high_);
  EXPECT_EQ(estimator_.getLightMode(), 0);
  loadWindow(std::nextafter(high_, kInf));
  EXPECT_EQ(estimator_.getLightMode(), 1);
}

TEST_F(LightEstimatorTest, NormalLightSwitchesAtLowThresholdInclusive) {
  feed(20.0f, 31);
  ASSERT_EQ(estimator_.getLightMode(), 1);

  loadWindow(14.0f * 30.0f);  // inside the band
  EXPECT_EQ(estimator_.getLightMode(), 1);
  loadWindow(std::nextafter(low_, kInf));
  EXPECT_EQ(estimator_.getLightMode(), 1);
  loadWindow(low_);
  EXPECT_EQ(estimator_.getLightMode(), 0);
}

TEST_F(LightEstimatorTest, SumIsKeptInSinglePrecision) {
  feed(20.0f, 31);
  ASSERT_EQ(estimator_.getLightMode(), 1);

  // low_ plus a quarter of its last bit: the float sum rounds back to low_
  // exactly, a wider sum would stay above it.
  estimator_.clear();
  feed(0.0f, 29);
  estimator_.estimate(low_);
  estimator_.estimate((std::nextafter(low_, kInf) - low_) / 4.0f);
  ASSERT_EQ(estimator_.sum, low_);
  EXPECT_EQ(estimator_.getLightMode(), 0);
}

TEST(LightEstimatorEdgeTest, AnnouncesWindowAndComparesCountUnsigned) {
  testing::internal::CaptureStdout();
  LightEstimator negative(-1, 14.99f, 13.4f);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Light estimation buffer size: -1\n");

  // A negative capacity reads as a huge unsigned bound: the window never fills.
  for (int i = 0; i < 100; ++i) negative.estimate(20.0f);
  EXPECT_FALSE(negative.full);
  EXPECT_EQ(negative.getLightMode(), 2);
}

// pause() clears the estimator on the control thread while the camera thread
// keeps feeding it; ThreadSanitizer checks that the two never overlap.
TEST_F(LightEstimatorTest, ClearMayRaceWithFeeding) {
  auto camera = std::async(std::launch::async, [this] {
    for (int i = 0; i < 20000; ++i) {
      estimator_.estimate(20.0f);
      estimator_.getLightMode();
    }
  });
  for (int i = 0; i < 2000; ++i) estimator_.clear();
  ASSERT_EQ(camera.wait_for(std::chrono::seconds(10)), std::future_status::ready);

  EXPECT_LE(estimator_.samples.size(), 30u);
  EXPECT_EQ(estimator_.sum, 20.0f * estimator_.samples.size());
  feed(20.0f, 31);
  EXPECT_EQ(estimator_.getLightMode(), 1);
}

}  // namespace
