// Whole-system behaviour through the exported facade: camera-layout YUV frames
// in, the real motion thread, decisions read back as the host reads them. Each
// frame is handed over only after the motion thread has finished the previous
// one, so the outcome is deterministic.
#include <gtest/gtest.h>

#include "client/HDSMLClient.h"
#include "conditioning/Filter.h"
#include "motion/motionDetector.h"
#include "tests/support/ClientProbe.h"
#include "tests/support/SyntheticScene.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace {

using detector_wrapper::PresenceDetectorWrapper;

constexpr int kNormalExposureNs = 10000000;  // 1/100 s: light level 100
constexpr int kDarkExposureNs = 100000000;   // 1/10 s: light level 10

class DetectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    facade_ = PresenceDetectorWrapper::initialize(config_.path(), false);
    ASSERT_NE(facade_, nullptr);
    metadata_.exposureTime = kNormalExposureNs;
  }
  void TearDown() override { PresenceDetectorWrapper::destroy(); }

  HDSMLClient& client() { return *facade_->client; }

  // Hands one NV21 frame with padded rows to the facade and waits until the motion
  // thread is done with it. hds-replay's tests cover the other layouts.
  void step(const cv::Mat& bgr, long long timestamp) {
    const hdsml::YuvFrame f = hdsml::packYuv(bgr, hdsml::YuvLayout::NV21, 48);
    facade_->detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                    f.uRowStride, f.vPixelStride, f.vRowStride, timestamp, metadata_, 0);
    ASSERT_TRUE(hdsml::waitForIdle(client())) << "motion thread stuck at " << timestamp;
  }

  PresenceOutput output() {
    std::lock_guard<std::mutex> lock(client().outputMutex);
    return client().output;
  }

  // Feeds moving frames until the filtered vote says motion; returns the number
  // of frames it took, or -1 within `limit` frames.
  int framesUntilMotion(int limit, long long firstTimestamp, int stepPx = 8) {
    for (int i = 0; i < limit; ++i) {
      step(scene_.moving(i, 64, stepPx), firstTimestamp + 33 * i);
      if (client().queryMotionDetector().motionDetected) return i;
    }
    return -1;
  }

  hdsml::TestConfig config_{320, 240};
  hdsml::SyntheticScene scene_{640, 480};
  camera_metadata metadata_;
  PresenceDetectorWrapper* facade_ = nullptr;
};

// Votes start with the 15th frame (the ring compares frames 14 apart); the 12-vote
// window then needs 10 motion votes, so the 24th frame is the first to report.
TEST_F(DetectionTest, MotionIsReportedOnceTheFilterFillsAndAfterAPauseOnlyOnceItFillsAgain) {
  facade_->stateChange("DETECT_MOTION", 30, 0, nullptr);
  ASSERT_EQ(framesUntilMotion(40, 0), 23);
  EXPECT_EQ(output().status, PRESENCE_MOTION);
  EXPECT_EQ(output().frameTimestamp, 23 * 33);
  EXPECT_FALSE(client().regions.empty());

  // The host reads the decision through the facade with its next frame.
  step(scene_.moving(24), 24 * 33);
  EXPECT_EQ(facade_->status, 0);
  EXPECT_GT(facade_->confidence, 0.8f);
  EXPECT_GE(facade_->outputFrameTimestamp, 23 * 33);
  EXPECT_TRUE(facade_->motionDetected);
  EXPECT_GT(facade_->motionScore, 0.8f);
  EXPECT_GE(facade_->motionFrameTimestamp, 23 * 33);
  EXPECT_GT(facade_->motionWallClock, 0);

  // A pause restarts ring and votes; frames taken while the lens moves cast no
  // vote and do not enter the ring. So the warm-up is that of a cold start.
  facade_->pause();
  facade_->resume();
  metadata_.lensMoving = 1;
  for (int i = 0; i < 5; ++i) step(scene_.moving(i), 10000 + 33 * i);
  EXPECT_EQ(client().queryMotionDetector().frameTimestamp, 24 * 33);
  metadata_.lensMoving = 0;
  EXPECT_EQ(framesUntilMotion(40, 20000), 23);
}

TEST_F(DetectionTest, LowLightSwitchesToItsOwnRuleAndBack) {
  facade_->stateChange("DETECT_MOTION", 30, 0, nullptr);
  metadata_.exposureTime = kDarkExposureNs;
  const cv::Mat still = scene_.still();
  // The estimator decides from the 31st sample on.
  for (int i = 0; i < 30; ++i) step(still, 100 * i);
  EXPECT_STREQ(client().detector->getAlgoType(), "FrameDiff");
  step(still, 3000);
  EXPECT_STREQ(client().detector->getAlgoType(), "FrameDiffLowLight");
  EXPECT_EQ(client().motionFilter->length, 5);
  EXPECT_EQ(client().normalLight, 0);

  // Ring of 5 and a window of 5: four motion votes out of five already count.
  EXPECT_EQ(framesUntilMotion(12, 10000, 24), 6);
  EXPECT_FLOAT_EQ(client().queryMotionDetector().filterScore, 0.8f);

  // Two bright samples lift the mean of 30 above 14.99 again.
  metadata_.exposureTime = kNormalExposureNs;
  step(still, 20000);
  EXPECT_EQ(client().normalLight, 0);
  step(still, 20100);
  EXPECT_STREQ(client().detector->getAlgoType(), "FrameDiff");
  EXPECT_EQ(client().motionFilter->length, 12);
  EXPECT_EQ(client().normalLight, 1);
}

}  // namespace
