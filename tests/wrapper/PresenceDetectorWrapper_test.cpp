#include "wrapper/PresenceDetectorWrapper.h"

#include <gtest/gtest.h>

#include "client/HDSMLClient.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"

namespace {

using detector_wrapper::PresenceDetectorWrapper;

class PresenceDetectorWrapperTest : public ::testing::Test {
 protected:
  void TearDown() override { PresenceDetectorWrapper::destroy(); }

  void detect(PresenceDetectorWrapper& facade, long long timestamp) {
    camera_metadata metadata;
    facade.detect(frame_.y, frame_.u, frame_.v, frame_.width, frame_.height, frame_.yPixelStride,
                  frame_.yRowStride, frame_.uPixelStride, frame_.uRowStride, frame_.vPixelStride,
                  frame_.vRowStride, timestamp, metadata, 7);
  }

  // Puts a decision into the client's output record as the motion thread would.
  void decide(PresenceDetectorWrapper& facade, PresenceStatus status, float confidence,
              long long timestamp) {
    HDSMLClient& client = *facade.client;
    std::lock_guard<std::mutex> lock(client.outputMutex);
    client.output.status = status;
    client.output.confidence = confidence;
    client.output.frameTimestamp = timestamp;
    client.output.wallClockSeconds = 1234;
  }

  hdsml::ScopedEnv noAbsenceProperty_{"PERSIST_HDS_CV_ABSENCE", nullptr};
  hdsml::TestConfig config_{160, 120};
  hdsml::YuvFrame frame_ =
      hdsml::packYuv(cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 100, 110)), hdsml::YuvLayout::NV21);
};

TEST_F(PresenceDetectorWrapperTest, FreshObjectAndCounting) {
  PresenceDetectorWrapper* facade = PresenceDetectorWrapper::initialize(config_.path(), false);
  ASSERT_NE(facade, nullptr);
  ASSERT_NE(facade->client, nullptr);
  EXPECT_EQ(facade->status, 5);
  EXPECT_EQ(facade->detectCount, 1);
  EXPECT_EQ(facade->state, 0);
  EXPECT_EQ(facade->outputFrameTimestamp, 0);

  detect(*facade, 10);
  EXPECT_EQ(facade->detectCount, 2);
  EXPECT_EQ(facade->frameResult, 0);
  EXPECT_GE(facade->detectTimeMs, 0.0f);
  detect(*facade, 20);
  EXPECT_EQ(facade->detectCount, 3);
}

TEST_F(PresenceDetectorWrapperTest, MissingConfigurationAndRepeatedDestroy) {
  EXPECT_EQ(PresenceDetectorWrapper::initialize("/nonexistent/config.json", false), nullptr);
  // The object is installed without a client; the calls below must not crash.
  PresenceDetectorWrapper other;
  other.pause();
  other.resume();
  other.stateChange("DETECT_MOTION", 30, 0, nullptr);
  PresenceDetectorWrapper::destroy();
  PresenceDetectorWrapper::destroy();
  other.pause();  // never initialised: nothing happens
}

TEST_F(PresenceDetectorWrapperTest, ActsOnTheProcessWideObject) {
  PresenceDetectorWrapper* facade = PresenceDetectorWrapper::initialize(config_.path(), false);
  ASSERT_NE(facade, nullptr);
  PresenceDetectorWrapper bystander;
  bystander.stateChange("DETECT_ABSENCE", 15, 77, "test");
  EXPECT_EQ(facade->state, 2);
  EXPECT_EQ(facade->stateChangeTimestamp, 77);
  EXPECT_EQ(facade->client->state, DETECT_ABSENCE);
  EXPECT_EQ(facade->client->frameRate, 15.0f);
  EXPECT_EQ(bystander.state, 0);

  // Unknown and differently cased names keep the state but still reach the client.
  facade->client->frameRate = 0;
  bystander.stateChange("detect_motion", 24, 78, nullptr);
  EXPECT_EQ(facade->state, 2);
  EXPECT_EQ(facade->client->state, DETECT_ABSENCE);
  EXPECT_EQ(facade->client->frameRate, 24.0f);

  bystander.stateChange("DETECT_PRESENCE", 30, 79, nullptr);
  EXPECT_EQ(facade->state, 1);
  EXPECT_FALSE(facade->client->detectionActive);
  bystander.resume();
  EXPECT_EQ(facade->client->lastMotionTimestamp, -1);
  bystander.pause();
  EXPECT_TRUE(facade->client->paused);
}

TEST_F(PresenceDetectorWrapperTest, DecisionsOlderThanTheStateChangeAreNotReported) {
  PresenceDetectorWrapper* facade = PresenceDetectorWrapper::initialize(config_.path(), false);
  ASSERT_NE(facade, nullptr);
  // DETECT_PRESENCE keeps the motion thread away from the output record.
  facade->stateChange("DETECT_PRESENCE", 30, 1000, nullptr);

  decide(*facade, PRESENCE_MOTION, 0.9f, 999);
  detect(*facade, 1001);
  EXPECT_EQ(facade->status, 5);
  EXPECT_EQ(facade->confidence, 0.9f);
  EXPECT_EQ(facade->outputFrameTimestamp, 999);
  EXPECT_EQ(facade->outputWallClock, 1234);

  decide(*facade, PRESENCE_ABSENCE, 1.0f, 1000);  // same timestamp: reported
  detect(*facade, 1002);
  EXPECT_EQ(facade->status, 2);
  decide(*facade, PRESENCE_MOTION, 0.5f, 10);
  detect(*facade, 1003);
  EXPECT_EQ(facade->status, 2);
  EXPECT_EQ(facade->outputFrameTimestamp, 10);
}

}  // namespace
