#include "client/HDSMLClient.h"

#include <gtest/gtest.h>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <stdexcept>

#include "client/camera_metadata.h"
#include "conditioning/Filter.h"
#include "conditioning/LightEstimator.h"
#include "frames/Buffer.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"
#include "motion/motionDetector.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"

namespace {

using hdsml::ScopedEnv;
using hdsml::TestConfig;
using namespace std::chrono_literals;

struct ClientDeleter {
  void operator()(HDSMLClient* c) const { HDSMLClient::destroy(c); }
};
using ClientPtr = std::unique_ptr<HDSMLClient, ClientDeleter>;

class HDSMLClientTest : public ::testing::Test {
 protected:
  ClientPtr makeClient(int w = 320, int h = 240) {
    config_ = std::make_unique<TestConfig>(w, h);
    return ClientPtr(HDSMLClient::initialize(config_->path(), false, "/data/logs/unused.txt"));
  }

  // Hands a uniform 640x480 NV21 frame of the given BGR colour to the client.
  void feed(HDSMLClient& client, long long timestamp, camera_metadata* metadata,
            cv::Scalar bgr = cv::Scalar(128, 128, 128)) {
    const hdsml::YuvFrame f =
        hdsml::packYuv(cv::Mat(480, 640, CV_8UC3, bgr), hdsml::YuvLayout::NV21);
    EXPECT_EQ(client.cameraFrameData(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride,
                                     f.uPixelStride, f.uRowStride, f.vPixelStride, f.vRowStride,
                                     timestamp, metadata, 0),
              0);
  }

  template <typename Error>
  void expectErrorNaming(const TestConfig& config, const char* key) {
    try {
      ClientPtr client(HDSMLClient::initialize(config.path(), false, ""));
      ADD_FAILURE() << "accepted " << key;
    } catch (const Error& e) {
      EXPECT_NE(std::strstr(e.what(), key), nullptr) << e.what();
    }
  }

  int heldRecords(HDSMLClient& client) {
    int held = 0;
    for (FrameData* f : client.framePool->frames) held += f->getRef() != 0;
    return held;
  }

  ScopedEnv noAbsenceProperty_{"PERSIST_HDS_CV_ABSENCE", nullptr};
  std::unique_ptr<TestConfig> config_;
};

TEST_F(HDSMLClientTest, ConstructorSizesEveryPartFromTheConfiguration) {
  testing::internal::CaptureStdout();
  ClientPtr client = makeClient(320, 240);
  fflush(stdout);
  const std::string path = config_->path();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[HDSMLClient] Loaded Config file: " + path + "\n[HDSMLClient] Reading config " + path +
                "\nThreshold for absence detection is 5000\n[HDSMLClient] Read config\n"
                "[HDSMLClient] Initialized motion detector\nLight estimation buffer size: 30\n"
                "Filter length for motion detector is 12\n");
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->absenceThreshold, 5000);
  EXPECT_EQ(client->yuvImage.size(), cv::Size(320, 360));
  EXPECT_EQ(client->yuvImage.total(), 115200u);
  EXPECT_EQ(client->yuvImage.data, client->yuvBuffer);
  ASSERT_EQ(client->framePool->frames.size(), 2u);
  for (FrameData* f : client->framePool->frames) EXPECT_EQ(f->image.size(), cv::Size(320, 240));
  EXPECT_STREQ(client->detector->getAlgoType(), "FrameDiff");
  EXPECT_EQ(client->motionFilter->length, 12);
  EXPECT_EQ(client->lightEstimator->capacity, 30);
  EXPECT_FALSE(client->detectionActive);
}

TEST_F(HDSMLClientTest, ConfigurationErrors) {
  EXPECT_EQ(HDSMLClient::initialize("/nonexistent/hdsml.json", false, ""), nullptr);
  EXPECT_EQ(HDSMLClient::initialize(nullptr, false, ""), nullptr);

  TestConfig missingHeight(R"({"vantor": {"motionResW": 320}})");
  EXPECT_THROW(HDSMLClient::initialize(missingHeight.path(), false, ""),
               boost::property_tree::ptree_bad_path);
  TestConfig notANumber(R"({"vantor": {"motionResW": "wide", "motionResH": 240}})");
  expectErrorNaming<boost::property_tree::ptree_bad_data>(notANumber, "vantor.motionResW");
  TestConfig badJson(R"({"vantor": {"motionResW": 320,)");
  EXPECT_THROW(HDSMLClient::initialize(badJson.path(), false, ""),
               boost::property_tree::json_parser_error);
  TestConfig array("[320, 240]");
  EXPECT_THROW(HDSMLClient::initialize(array.path(), false, ""),
               boost::property_tree::ptree_bad_path);

  for (const char* bad : {"0", "-320", "321", "8192"}) {
    TestConfig config(std::string(R"({"vantor": {"motionResW": )") + bad +
                      R"(, "motionResH": 240}})");
    expectErrorNaming<std::invalid_argument>(config, "vantor.motionResW");
  }
}

TEST_F(HDSMLClientTest, AbsencePropertyIsParsedWithoutDigitChecks) {
  EXPECT_EQ(getPropValForAbsence(), -1);
  {
    ScopedEnv empty("PERSIST_HDS_CV_ABSENCE", "");
    EXPECT_EQ(getPropValForAbsence(), -1);
  }
  {
    ScopedEnv value("PERSIST_HDS_CV_ABSENCE", "12a");
    EXPECT_EQ(getPropValForAbsence(), 169);  // '1','2','a' -> (1*10+2)*10+49
  }
  ScopedEnv value("PERSIST_HDS_CV_ABSENCE", "7000");
  EXPECT_EQ(getPropValForAbsence(), 7000);
  ClientPtr client = makeClient();
  EXPECT_EQ(client->absenceThreshold, 7000);
}

TEST_F(HDSMLClientTest, DestroyReturnsWhileMotionThreadWaits) {
  // Asleep before activation.
  ClientPtr idle = makeClient();
  auto first = std::async(std::launch::async, [&] { idle.reset(); });
  ASSERT_EQ(first.wait_for(10s), std::future_status::ready);

  // Blocked on the empty queue after activation.
  ClientPtr active = makeClient();
  active->stateChange(DETECT_MOTION, nullptr, 30);
  auto second = std::async(std::launch::async, [&] { active.reset(); });
  ASSERT_EQ(second.wait_for(10s), std::future_status::ready);
}

TEST_F(HDSMLClientTest, IntakeKeepsOnlyTheNewestFrameQueued) {
  // Detection is not active, so the motion thread never takes a frame.
  ClientPtr client = makeClient();
  feed(*client, 100, nullptr);
  EXPECT_EQ(heldRecords(*client), 1);
  feed(*client, 200, nullptr);
  EXPECT_EQ(heldRecords(*client), 1);  // the first record was released by the clear

  FrameData* queued = client->frameQueue->pop_front();
  ASSERT_NE(queued, nullptr);
  EXPECT_EQ(queued->timestamp, 200);
  EXPECT_EQ(queued->lightMode, 1);

  // The record popped above is still held and the other one is taken here and
  // kept by the queue, so the next frame finds no free record and is dropped.
  feed(*client, 300, nullptr);
  FrameData* second = client->frameQueue->pop_front();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->timestamp, 300);
  feed(*client, 400, nullptr);
  EXPECT_EQ(heldRecords(*client), 2);
  client->frameQueue->stopWait();
  EXPECT_EQ(client->frameQueue->pop_front(), nullptr);
  queued->decRef();
  second->decRef();
}

TEST_F(HDSMLClientTest, IntakeConvertsWithoutReorderingChroma) {
  ClientPtr client = makeClient();
  camera_metadata metadata;
  metadata.word3 = 42;
  // Pure blue in BGR: high Cb. The first chroma plane lands where the colour
  // conversion expects Cr, so the record sees it as red in byte 0.
  feed(*client, 1, &metadata, cv::Scalar(255, 0, 0));
  FrameData* frame = client->frameQueue->pop_front();
  ASSERT_NE(frame, nullptr);
  const cv::Vec3b pixel = frame->image.at<cv::Vec3b>(120, 160);
  EXPECT_GT(pixel[0], 200);
  EXPECT_LT(pixel[2], 60);
  EXPECT_EQ(frame->metadata.word3, 42);
  frame->decRef();
}

TEST_F(HDSMLClientTest, PresenceStateFeedsLightButQueuesNothing) {
  ClientPtr client = makeClient();
  client->stateChange(DETECT_PRESENCE, nullptr, 30);
  camera_metadata metadata;
  metadata.exposureTime = 33333333;  // ns: about 30 samples a second of light level 30

  testing::internal::CaptureStdout();
  feed(*client, 1, &metadata);
  feed(*client, 2, &metadata);
  fflush(stdout);
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(heldRecords(*client), 0);
  EXPECT_EQ(client->lightEstimator->samples.size(), 2u);
  // A changed exposure is printed once, not for every frame.
  const std::string line = "Camera exposure time in microseconds 33333333\n";
  ASSERT_NE(printed.find(line), std::string::npos) << printed;
  EXPECT_EQ(printed.find(line, printed.find(line) + 1), std::string::npos) << printed;

  // An exposure of 0 carries no light sample.
  metadata.exposureTime = 0;
  feed(*client, 3, &metadata);
  EXPECT_EQ(client->lightEstimator->samples.size(), 2u);
}

class SaveOutputTest : public HDSMLClientTest {
 protected:
  void SetUp() override { client_ = makeClient(); }

  PresenceOutput output() {
    std::lock_guard<std::mutex> lock(client_->outputMutex);
    return client_->output;
  }
  void save(PresenceStatus status, long long timestamp, float score = 0.9f) {
    HDSMLClient::RegionList regions;
    client_->saveOutput(status, score, timestamp, regions, nullptr);
  }

  ClientPtr client_;
};

TEST_F(SaveOutputTest, MotionIsReportedOnlyInMotionState) {
  client_->state = DETECT_MOTION;
  save(PRESENCE_NO_MOTION, 10);
  EXPECT_EQ(output().status, PRESENCE_NONE);
  save(PRESENCE_MOTION, 20, 0.75f);
  PresenceOutput out = output();
  EXPECT_EQ(out.status, PRESENCE_MOTION);
  EXPECT_EQ(out.confidence, 0.75f);
  EXPECT_EQ(out.frameTimestamp, 20);
  EXPECT_GT(out.wallClockSeconds, 0);
  EXPECT_EQ(client_->lastMotionTimestamp, 20);
  save(PRESENCE_NO_MOTION, 30);
  EXPECT_EQ(output().frameTimestamp, 20);  // the host keeps seeing the last motion

  client_->state = DETECT_PRESENCE;
  save(PRESENCE_MOTION, 40);
  EXPECT_EQ(output().frameTimestamp, 20);
  EXPECT_EQ(client_->lastMotionTimestamp, 40);
}

TEST_F(SaveOutputTest, AbsenceNeedsMoreThanTheThresholdSinceTheTimerStarted) {
  client_->state = DETECT_ABSENCE;
  save(PRESENCE_NO_MOTION, 1000);  // starts the timer
  EXPECT_EQ(client_->lastMotionTimestamp, 1000);
  save(PRESENCE_NO_MOTION, 6000);  // exactly 5000 later: not yet
  EXPECT_EQ(output().status, PRESENCE_NONE);
  save(PRESENCE_NO_MOTION, 6001);
  PresenceOutput out = output();
  EXPECT_EQ(out.status, PRESENCE_ABSENCE);
  EXPECT_EQ(out.confidence, 1.0f);
  EXPECT_EQ(out.frameTimestamp, 6001);

  // Motion restarts the timer and leaves the absence report in place.
  save(PRESENCE_MOTION, 7000);
  out = output();
  EXPECT_EQ(out.status, PRESENCE_ABSENCE);
  EXPECT_EQ(out.frameTimestamp, 6001);
  save(PRESENCE_NO_MOTION, 12000);
  EXPECT_EQ(output().frameTimestamp, 6001);
  save(PRESENCE_NO_MOTION, 12001);  // absence is not latched: reported again
  EXPECT_EQ(output().frameTimestamp, 12001);
}

}  // namespace
