#include "wrapper/PresenceDetectorWrapper.h"

#include <gtest/gtest.h>

#include "client/HDSMLClient.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"

namespace {

using detector_wrapper::PresenceDetectorWrapper;

class PresenceDetectorWrapperTest : public ::testing::Test {
 protected:
  void SetUp() override {
    facade_ = PresenceDetectorWrapper::initialize(config_.path(), false);
    ASSERT_NE(facade_, nullptr);
  }
  void TearDown() override { PresenceDetectorWrapper::destroy(); }

  // Puts a decision into the client's output record as the motion thread would,
  // then hands the facade a frame.
  void decideThenDetect(PresenceStatus status, float confidence, long long decidedAt,
                        long long timestamp) {
    {
      HDSMLClient& client = *facade_->client;
      std::lock_guard<std::mutex> lock(client.outputMutex);
      client.output = {status, confidence, decidedAt, 1234};
    }
    camera_metadata metadata;
    facade_->detect(frame_.y, frame_.u, frame_.v, frame_.width, frame_.height, frame_.yPixelStride,
                    frame_.yRowStride, frame_.uPixelStride, frame_.uRowStride, frame_.vPixelStride,
                    frame_.vRowStride, timestamp, metadata, 7);
  }

  hdsml::ScopedEnv noAbsenceProperty_{"PERSIST_HDS_CV_ABSENCE", nullptr};
  hdsml::TestConfig config_{160, 120};
  hdsml::YuvFrame frame_ =
      hdsml::packYuv(cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 100, 110)), hdsml::YuvLayout::NV21);
  PresenceDetectorWrapper* facade_ = nullptr;
};

TEST_F(PresenceDetectorWrapperTest,
       CopiesDecisionAndVoteButReportsNoDecisionOlderThanAStateChange) {
  EXPECT_EQ(facade_->status, 5);
  EXPECT_EQ(facade_->detectCount, 1);
  // DETECT_PRESENCE keeps the motion thread away from the output record.
  facade_->stateChange("DETECT_PRESENCE", 30, 1000, nullptr);
  decideThenDetect(PRESENCE_MOTION, 0.9f, 999, 1001);
  EXPECT_EQ(facade_->status, 5);  // older than the state change; the rest is copied
  EXPECT_EQ(facade_->confidence, 0.9f);
  EXPECT_EQ(facade_->outputFrameTimestamp, 999);
  EXPECT_EQ(facade_->outputWallClock, 1234);
  EXPECT_EQ(facade_->detectCount, 2);
  decideThenDetect(PRESENCE_ABSENCE, 1.0f, 1000, 1002);  // same timestamp: reported
  EXPECT_EQ(facade_->status, 2);
  // The vote fields come from the motion status, which moves on with every
  // analysed frame while the last decision stays put (a still scene).
  {
    MotionStatus& vote = *facade_->client->motionStatus;
    std::lock_guard<std::mutex> lock(vote.lock);
    vote.motionDetected = true;
    vote.filterScore = 0.25f;
    vote.frameTimestamp = 1500;
    vote.wallClockSeconds = 4321;
  }
  decideThenDetect(PRESENCE_MOTION, 0.5f, 10, 1003);
  EXPECT_EQ(facade_->status, 2);
  EXPECT_EQ(facade_->outputFrameTimestamp, 10);
  EXPECT_TRUE(facade_->motionDetected);
  EXPECT_EQ(facade_->motionScore, 0.25f);
  EXPECT_EQ(facade_->motionFrameTimestamp, 1500);
  EXPECT_EQ(facade_->motionWallClock, 4321);
}

TEST_F(PresenceDetectorWrapperTest, EveryObjectActsOnTheProcessWideOneEvenWithoutAClient) {
  PresenceDetectorWrapper bystander;
  bystander.stateChange("DETECT_ABSENCE", 15, 77, "test");
  EXPECT_EQ(facade_->state, 2);
  EXPECT_EQ(facade_->stateChangeTimestamp, 77);
  EXPECT_EQ(facade_->client->state, DETECT_ABSENCE);
  EXPECT_EQ(facade_->client->frameRate, 15.0f);

  // Unknown and differently cased names keep the state but still reach the client.
  bystander.stateChange("detect_motion", 24, 78, nullptr);
  EXPECT_EQ(facade_->state, 2);
  EXPECT_EQ(facade_->client->state, DETECT_ABSENCE);
  EXPECT_EQ(facade_->client->frameRate, 24.0f);

  bystander.stateChange("DETECT_PRESENCE", 30, 79, nullptr);
  EXPECT_EQ(facade_->state, 1);
  EXPECT_FALSE(facade_->client->detectionActive);
  facade_->client->lastMotionTimestamp = 50;
  bystander.resume();  // restarts the absence timer
  EXPECT_EQ(facade_->client->lastMotionTimestamp, -1);
  bystander.pause();
  EXPECT_TRUE(facade_->client->paused);

  // A missing configuration installs an object without a client: the calls must
  // not crash, nor may a second destroy and calls after it.
  PresenceDetectorWrapper::destroy();
  EXPECT_EQ(PresenceDetectorWrapper::initialize("/nonexistent/config.json", false), nullptr);
  bystander.pause();
  bystander.resume();
  bystander.stateChange("DETECT_MOTION", 30, 0, nullptr);
  PresenceDetectorWrapper::destroy();
  PresenceDetectorWrapper::destroy();
  bystander.pause();
}

}  // namespace
