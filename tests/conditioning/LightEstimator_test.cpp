#include "conditioning/LightEstimator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <future>
#include <limits>

namespace {

float above(float x) { return std::nextafter(x, std::numeric_limits<float>::infinity()); }

class LightEstimatorTest : public testing::Test {
 protected:
  // Refills the window with 29 zeros and `total`, which still gives mode 2, then
  // `extra`, which pushes a zero out; checks that the window holds 30 samples whose
  // single-precision sum comes to `total` and returns the mode.
  int modeAt(float total, float extra = 0.0f) {
    estimator_.clear();
    for (int i = 0; i < 29; ++i) estimator_.estimate(0.0f);
    estimator_.estimate(total);
    EXPECT_EQ(estimator_.getLightMode(), 2);
    estimator_.estimate(extra);
    EXPECT_EQ(estimator_.sum, total);
    EXPECT_EQ(estimator_.samples.size(), 30u);
    return estimator_.getLightMode();
  }
  const float high_ = 14.99f * 30.0f, low_ = 13.4f * 30.0f;  // thresholds x N, as computed
  LightEstimator estimator_{30, 14.99f, 13.4f};
};

TEST_F(LightEstimatorTest, HysteresisSwitchesAboveHighAndAtOrBelowLowInSinglePrecision) {
  // The first decision looks at the low threshold only, strictly.
  EXPECT_EQ(modeAt(above(low_)), 1);
  LightEstimator fresh(30, 14.99f, 13.4f);
  for (int i = 0; i <= 30; ++i) fresh.estimate(i == 30 ? low_ : 0.0f);
  EXPECT_EQ(fresh.getLightMode(), 0);

  // A clear keeps the mode, so each window below is judged against the last one.
  EXPECT_EQ(modeAt(low_), 0);
  EXPECT_EQ(modeAt(14.0f * 30.0f), 0);  // inside the band
  EXPECT_EQ(modeAt(high_), 0);
  EXPECT_EQ(modeAt(above(high_)), 1);
  EXPECT_EQ(modeAt(14.0f * 30.0f), 1);
  EXPECT_EQ(modeAt(above(low_)), 1);
  // low_ plus a quarter of its last bit: the float sum rounds back to low_, where
  // normal light ends; a wider sum would stay above it.
  EXPECT_EQ(modeAt(low_, (above(low_) - low_) / 4.0f), 0);
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
}

}  // namespace
