#include "client/HDSMLClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <utility>
#include <vector>

#include "client/camera_metadata.h"
#include "conditioning/LightEstimator.h"
#include "frames/Buffer.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"
#include "tests/support/ClientProbe.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"

namespace {

using hdsml::heldRecords;
using hdsml::ScopedEnv;
using hdsml::TestConfig;
using hdsml::YuvLayout;
using namespace std::chrono_literals;

struct ClientDeleter {
  void operator()(HDSMLClient* c) const { HDSMLClient::destroy(c); }
};
using ClientPtr = std::unique_ptr<HDSMLClient, ClientDeleter>;

class HDSMLClientTest : public ::testing::Test {
 protected:
  ClientPtr makeClient() {
    return ClientPtr(HDSMLClient::initialize(config_.path(), false, "/data/logs/unused.txt"));
  }

  // Hands a uniform 640x480 NV21 frame of the given BGR colour to the client.
  void feed(HDSMLClient& client, long long timestamp, camera_metadata* metadata,
            cv::Scalar bgr = cv::Scalar(128, 128, 128)) {
    const hdsml::YuvFrame f = hdsml::packYuv(cv::Mat(480, 640, CV_8UC3, bgr), YuvLayout::NV21);
    EXPECT_EQ(client.cameraFrameData(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride,
                                     f.uPixelStride, f.uRowStride, f.vPixelStride, f.vRowStride,
                                     timestamp, metadata, 0),
              0);
  }

  ScopedEnv noAbsenceProperty_{"PERSIST_HDS_CV_ABSENCE", nullptr};
  TestConfig config_{320, 240};
};

TEST_F(HDSMLClientTest, ConstructorSizesEveryPartFromTheConfiguration) {
  ClientPtr client = makeClient();
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->yuvImage.size(), cv::Size(320, 360));
  ASSERT_EQ(client->framePool->frames.size(), 2u);
  for (FrameData* f : client->framePool->frames) EXPECT_EQ(f->image.size(), cv::Size(320, 240));
}

TEST_F(HDSMLClientTest, DestroyReturnsWhateverTheMotionThreadIsDoing) {
  // Asleep before activation, blocked on the empty queue, busy with frames.
  for (int setup = 0; setup < 3; ++setup) {
    ClientPtr client = makeClient();
    if (setup > 0) client->stateChange(DETECT_MOTION, nullptr, 30);
    for (int i = 0; setup == 2 && i < 40; ++i) feed(*client, 33 * i, nullptr);
    auto destroyed = std::async(std::launch::async, [&] { client.reset(); });
    ASSERT_EQ(destroyed.wait_for(10s), std::future_status::ready) << "set-up " << setup;
  }
}

TEST_F(HDSMLClientTest, IntakeFeedsLightAlwaysButQueuesOnlyTheNewestFrameOutsidePresence) {
  ClientPtr client = makeClient();
  client->state = DETECT_PRESENCE;  // set directly: the motion thread stays asleep throughout
  camera_metadata metadata;
  metadata.exposureTime = 33333333;  // ns: a light level of 30
  metadata.word3 = 42;
  testing::internal::CaptureStdout();
  feed(*client, 1, &metadata);
  feed(*client, 2, &metadata);
  metadata.exposureTime = 0;  // carries no light sample
  feed(*client, 3, &metadata);
  fflush(stdout);
  EXPECT_EQ(heldRecords(*client), 0);
  EXPECT_EQ(client->lightEstimator->samples.size(), 2u);
  // A changed exposure is printed once, not for every frame.
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Camera exposure time in microseconds 33333333\n"
            "Camera exposure time in microseconds 0\n");

  client->state = DETECT_MOTION;
  feed(*client, 100, nullptr);
  client->pause();  // drops the frame not taken yet and the light samples
  EXPECT_EQ(heldRecords(*client), 0);
  EXPECT_TRUE(client->lightEstimator->samples.empty());
  feed(*client, 200, nullptr);
  // Pure blue in BGR: high Cb. The first chroma plane lands where the colour
  // conversion expects Cr, so the record sees it as red in byte 0.
  feed(*client, 300, &metadata, cv::Scalar(255, 0, 0));
  ASSERT_EQ(heldRecords(*client), 1);  // the frame at 200 was released by the clear
  FrameData* queued = client->frameQueue->pop_front();
  ASSERT_NE(queued, nullptr);
  EXPECT_EQ(queued->timestamp, 300);
  EXPECT_EQ(queued->lightMode, 2);  // the estimator's, whose window is not full
  EXPECT_EQ(queued->metadata.word3, 42);
  const cv::Vec3b pixel = queued->image.at<cv::Vec3b>(120, 160);
  EXPECT_GT(pixel[0], 200);
  EXPECT_LT(pixel[2], 60);

  // The record popped above is still held and the other one is taken here and
  // kept by the queue, so the next frame finds no free record and is dropped.
  feed(*client, 400, nullptr);
  feed(*client, 500, nullptr);
  EXPECT_EQ(heldRecords(*client), 2);
  FrameData* second = client->frameQueue->pop_front();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->timestamp, 400);
  EXPECT_EQ(second->lightMode, 1);  // without metadata, the client's own
  queued->decRef();
  second->decRef();
}

// The motion thread's outcomes, frame after frame, and the output record the host
// then reads. The absence threshold is 5000.
TEST_F(HDSMLClientTest, SaveOutputReportsMotionInMotionStateAndAbsencePastTheThreshold) {
  ClientPtr client = makeClient();
  const struct {
    HDSState state;
    PresenceStatus outcome;
    long long timestamp;
    PresenceStatus reported;  // the output record afterwards
    long long reportedAt;
    float confidence;
    long long lastMotion;
  } kSteps[] = {
      {DETECT_ABSENCE, PRESENCE_NO_MOTION, 1000, PRESENCE_NONE, 0, 0.0f, 1000},  // timer starts
      {DETECT_ABSENCE, PRESENCE_NO_MOTION, 6000, PRESENCE_NONE, 0, 0.0f, 1000},  // 5000 later
      {DETECT_ABSENCE, PRESENCE_NO_MOTION, 6001, PRESENCE_ABSENCE, 6001, 1.0f, 1000},
      {DETECT_ABSENCE, PRESENCE_MOTION, 7000, PRESENCE_ABSENCE, 6001, 1.0f, 7000},
      {DETECT_ABSENCE, PRESENCE_NO_MOTION, 12000, PRESENCE_ABSENCE, 6001, 1.0f, 7000},
      {DETECT_ABSENCE, PRESENCE_NO_MOTION, 12001, PRESENCE_ABSENCE, 12001, 1.0f, 7000},
      {DETECT_MOTION, PRESENCE_NO_MOTION, 12100, PRESENCE_ABSENCE, 12001, 1.0f, 7000},
      {DETECT_MOTION, PRESENCE_MOTION, 12200, PRESENCE_MOTION, 12200, 0.75f, 12200},
      {DETECT_MOTION, PRESENCE_NO_MOTION, 12300, PRESENCE_MOTION, 12200, 0.75f, 12200},
      {DETECT_PRESENCE, PRESENCE_MOTION, 12400, PRESENCE_MOTION, 12200, 0.75f, 12400},
  };
  HDSMLClient::RegionList regions;
  for (const auto& s : kSteps) {
    SCOPED_TRACE(s.timestamp);
    client->state = s.state;
    client->saveOutput(s.outcome, 0.75f, s.timestamp, regions, nullptr);
    std::lock_guard<std::mutex> lock(client->outputMutex);
    EXPECT_EQ(client->output.status, s.reported);
    EXPECT_EQ(client->output.frameTimestamp, s.reportedAt);
    EXPECT_EQ(client->output.confidence, s.confidence);
    EXPECT_EQ(client->output.wallClockSeconds > 0, s.reported != PRESENCE_NONE);
    EXPECT_EQ(client->lastMotionTimestamp, s.lastMotion);
  }
}

// A camera image in one layout, the output size asked for and the steps (in 1/32
// sample) that the output must be sampled at.
struct DestrideCase {
  const char* what;
  YuvLayout layout;
  int width, height, rowPadding, outWidth, outHeight, stepX, stepY;
};

TEST(Destride, SamplesEveryPlaneThroughItsStridesAtFixedPointSteps) {
  constexpr uint8_t kSentinel = 0xEE;
  const DestrideCase cases[] = {
      {"every 4th sample of every 4th row", YuvLayout::I420, 1280, 960, 0, 320, 240, 128, 128},
      {"padded NV21 at the same size", YuvLayout::NV21, 640, 480, 64, 640, 480, 32, 32},
      {"odd output, chroma rounds down", YuvLayout::I420, 64, 48, 3, 5, 5, 409, 307}};
  for (const DestrideCase& k : cases) {
    SCOPED_TRACE(k.what);
    cv::Mat bgr(k.height, k.width, CV_8UC3);
    cv::randu(bgr, 0, 256);  // every sample differs from most others
    const hdsml::YuvFrame f = hdsml::packYuv(bgr, k.layout, k.rowPadding);
    const int ow = k.outWidth, oh = k.outHeight;
    std::vector<uint8_t> out(ow * oh + 2 * (ow / 2) * (oh / 2) + 16, kSentinel);

    destride(f.y, f.u, f.v, f.height, f.width, f.yPixelStride, f.yRowStride, f.uPixelStride,
             f.uRowStride, f.vPixelStride, f.vRowStride, oh, ow, out.data());

    // Luma, then the plane of the second pointer, then that of the third, packed.
    const uint8_t* planes[] = {f.y, f.u, f.v};
    const int pixelStrides[] = {f.yPixelStride, f.uPixelStride, f.vPixelStride};
    const int rowStrides[] = {f.yRowStride, f.uRowStride, f.vRowStride};
    const uint8_t* o = out.data();
    for (int p = 0; p < 3; ++p) {
      for (int r = 0; r < (p == 0 ? oh : oh >> 1); ++r)
        for (int c = 0; c < (p == 0 ? ow : ow >> 1); ++c, ++o)
          ASSERT_EQ(*o, planes[p][((r * k.stepY) >> 5) * rowStrides[p] +
                                  ((c * k.stepX) >> 5) * pixelStrides[p]])
              << p << ":" << c << "," << r;
    }
    for (; o < out.data() + out.size(); ++o) ASSERT_EQ(*o, kSentinel);  // nothing more written
  }

  // A zero output size, or a step of 0 (output over 32 times the source), writes nothing.
  std::vector<uint8_t> plane(64, 1), out(4096, kSentinel);
  const int outSizes[][2] = {{0, 8}, {8, 0}, {8, 257}};  // height, width
  for (const auto& s : outSizes)
    destride(plane.data(), plane.data(), plane.data(), 8, 8, 1, 8, 1, 4, 1, 4, s[0], s[1],
             out.data());
  for (uint8_t b : out) ASSERT_EQ(b, kSentinel);
}

}  // namespace
