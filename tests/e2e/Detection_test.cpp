// Whole-system behaviour through the exported facade: camera-layout YUV frames
// in, the real motion thread, decisions read back as the host reads them. Each
// frame is handed over only after the motion thread has finished the previous
// one, so the outcome is deterministic.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <tuple>

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
using namespace std::chrono_literals;

constexpr int kCameraWidth = 640, kCameraHeight = 480;
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

  // Hands one frame to the host facade without waiting.
  void send(const cv::Mat& bgr, long long timestamp) {
    const hdsml::YuvFrame f = hdsml::packYuv(bgr, layout_, rowPadding_);
    facade_->detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                    f.uRowStride, f.vPixelStride, f.vRowStride, timestamp, metadata_, 0);
  }
  // Hands one frame over and waits until the motion thread is done with it.
  void step(const cv::Mat& bgr, long long timestamp) {
    send(bgr, timestamp);
    ASSERT_TRUE(hdsml::waitForIdle(client())) << "motion thread stuck at " << timestamp;
  }

  PresenceOutput output() {
    std::lock_guard<std::mutex> lock(client().outputMutex);
    return client().output;
  }

  // Feeds moving frames until the filtered vote says motion; returns the number
  // of frames it took, or -1 within `limit` frames.
  int framesUntilMotion(int limit, long long firstTimestamp, int step_px = 8) {
    for (int i = 0; i < limit; ++i) {
      step(scene_.moving(i, 64, step_px), firstTimestamp + 33 * i);
      if (client().queryMotionDetector().motionDetected) return i;
    }
    return -1;
  }

  hdsml::ScopedEnv absence_{"PERSIST_HDS_CV_ABSENCE", "1000"};
  hdsml::TestConfig config_{320, 240};
  hdsml::SyntheticScene scene_{kCameraWidth, kCameraHeight};
  hdsml::YuvLayout layout_ = hdsml::YuvLayout::NV21;
  int rowPadding_ = 0;
  camera_metadata metadata_;
  PresenceDetectorWrapper* facade_ = nullptr;
};

class LayoutTest : public DetectionTest,
                   public ::testing::WithParamInterface<std::tuple<hdsml::YuvLayout, int>> {
 protected:
  void SetUp() override {
    std::tie(layout_, rowPadding_) = GetParam();
    DetectionTest::SetUp();
  }
};

// Votes start with the 15th frame (the ring compares frames 14 apart); the 12-vote
// window then needs 10 motion votes, so the 24th frame is the first to report.
TEST_P(LayoutTest, MovingObjectIsReportedOnceTheFilterFills) {
  facade_->stateChange("DETECT_MOTION", 30, 0, nullptr);
  EXPECT_EQ(framesUntilMotion(40, 0), 23);
  EXPECT_EQ(output().status, PRESENCE_MOTION);
  EXPECT_EQ(output().frameTimestamp, 23 * 33);
  EXPECT_FALSE(client().regions.empty());

  // The host reads the decision through the facade with its next frame.
  send(scene_.moving(24), 24 * 33);
  EXPECT_EQ(facade_->status, 0);
  EXPECT_GT(facade_->confidence, 0.8f);
  EXPECT_GE(facade_->outputFrameTimestamp, 23 * 33);
  EXPECT_TRUE(facade_->motionDetected);
  EXPECT_GT(facade_->motionScore, 0.8f);
  EXPECT_GE(facade_->motionFrameTimestamp, 23 * 33);
  EXPECT_GT(facade_->motionWallClock, 0);
}

INSTANTIATE_TEST_SUITE_P(CameraLayouts, LayoutTest,
                         ::testing::Combine(::testing::Values(hdsml::YuvLayout::NV21,
                                                              hdsml::YuvLayout::NV12,
                                                              hdsml::YuvLayout::I420),
                                            ::testing::Values(0, 48)),
                         [](const auto& info) {
                           return std::string(hdsml::layoutName(std::get<0>(info.param))) + "_pad" +
                                  std::to_string(std::get<1>(info.param));
                         });

TEST_F(DetectionTest, StillSceneReportsAbsenceOnlyPastTheThreshold) {
  facade_->stateChange("DETECT_ABSENCE", 30, 0, nullptr);
  const cv::Mat still = scene_.still();
  for (long long t = 0; t <= 1000; t += 100) {
    step(still, t);
    ASSERT_EQ(output().status, PRESENCE_NONE) << "absence reported at " << t;
  }
  step(still, 1100);
  EXPECT_EQ(output().status, PRESENCE_ABSENCE);
  EXPECT_EQ(output().frameTimestamp, 1100);
  send(still, 1200);
  EXPECT_EQ(facade_->status, 2);
  EXPECT_EQ(facade_->confidence, 1.0f);
  ASSERT_TRUE(hdsml::waitForIdle(client()));

  // Pause and resume restart the timer from the next analysed frame.
  facade_->pause();
  facade_->resume();
  for (long long t = 5000; t <= 6000; t += 100) step(still, t);
  EXPECT_EQ(output().frameTimestamp, 1200);
  step(still, 6100);
  EXPECT_EQ(output().frameTimestamp, 6100);
}

TEST_F(DetectionTest, PresenceStateAnalysesNothing) {
  facade_->stateChange("DETECT_PRESENCE", 30, 0, nullptr);
  for (int i = 0; i < 30; ++i) step(scene_.moving(i), 33 * i);
  EXPECT_EQ(client().queryMotionDetector().frameTimestamp, 0);
  EXPECT_EQ(client().motionFilter->updates, 0);
  EXPECT_EQ(output().status, PRESENCE_NONE);
  EXPECT_EQ(facade_->status, 5);
}

TEST_F(DetectionTest, PauseAndResumeResetDetectorAndFilter) {
  facade_->stateChange("DETECT_MOTION", 30, 0, nullptr);
  ASSERT_EQ(framesUntilMotion(40, 0), 23);
  facade_->pause();
  facade_->resume();
  // The ring and the votes start over: the same warm-up as from a cold start.
  EXPECT_EQ(framesUntilMotion(40, 10000), 23);
}

TEST_F(DetectionTest, LensMovingFramesCastNoVote) {
  facade_->stateChange("DETECT_MOTION", 30, 0, nullptr);
  for (int i = 0; i < 5; ++i) step(scene_.moving(i), 33 * i);
  ASSERT_EQ(client().motionFilter->updates, 5);
  metadata_.lensMoving = 1;
  for (int i = 5; i < 10; ++i) step(scene_.moving(i), 33 * i);
  EXPECT_EQ(client().motionFilter->updates, 5);
  EXPECT_EQ(client().queryMotionDetector().frameTimestamp, 33 * 4);
  metadata_.lensMoving = 0;
  step(scene_.moving(10), 330);
  EXPECT_EQ(client().motionFilter->updates, 6);
}

TEST_F(DetectionTest, LowLightSwitchesToItsOwnRuleAndBack) {
  facade_->stateChange("DETECT_MOTION", 30, 0, nullptr);
  metadata_.exposureTime = kDarkExposureNs;
  const cv::Mat still = scene_.still();
  long long t = 0;
  // The estimator decides from the 31st sample on.
  for (int i = 0; i < 30; ++i, t += 100) step(still, t);
  EXPECT_STREQ(client().detector->getAlgoType(), "FrameDiff");
  step(still, t += 100);
  EXPECT_STREQ(client().detector->getAlgoType(), "FrameDiffLowLight");
  EXPECT_EQ(client().motionFilter->length, 5);
  EXPECT_EQ(client().normalLight, 0);

  // Ring of 5 and a window of 5: four motion votes out of five already count.
  int firstMotion = -1;
  for (int m = 0; m < 12 && firstMotion < 0; ++m) {
    step(scene_.moving(m, 64, 24), t += 100);
    const MotionStatus status = client().queryMotionDetector();
    if (status.motionDetected) {
      firstMotion = m;
      EXPECT_FLOAT_EQ(status.filterScore, 0.8f);
    }
  }
  EXPECT_EQ(firstMotion, 6);

  // Two bright samples lift the mean of 30 above 14.99 again.
  metadata_.exposureTime = kNormalExposureNs;
  step(still, t += 100);
  EXPECT_EQ(client().normalLight, 0);
  step(still, t += 100);
  EXPECT_STREQ(client().detector->getAlgoType(), "FrameDiff");
  EXPECT_EQ(client().motionFilter->length, 12);
  EXPECT_EQ(client().normalLight, 1);
}

TEST_F(DetectionTest, DestroyReturnsWhileWaitingOrWhileFramesFlow) {
  facade_->stateChange("DETECT_MOTION", 30, 0, nullptr);
  // The motion thread is now blocked on the empty queue.
  auto idle = std::async(std::launch::async, [] { PresenceDetectorWrapper::destroy(); });
  ASSERT_EQ(idle.wait_for(10s), std::future_status::ready);

  facade_ = PresenceDetectorWrapper::initialize(config_.path(), false);
  ASSERT_NE(facade_, nullptr);
  facade_->stateChange("DETECT_MOTION", 30, 0, nullptr);
  for (int i = 0; i < 40; ++i) send(scene_.moving(i), 33 * i);  // no waiting: frames drop
  auto busy = std::async(std::launch::async, [] { PresenceDetectorWrapper::destroy(); });
  ASSERT_EQ(busy.wait_for(10s), std::future_status::ready);
}

}  // namespace
