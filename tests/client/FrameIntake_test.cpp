// What intake leaves behind, on both of its paths: the record's colour image
// and, in the client's yuvBuffer, the packed planes exactly as destride writes
// them; a record whose pixels are missing gets them, and a record that could
// not be filled is not queued.
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "client/Destride.h"
#include "client/FusedIntake.h"
#include "client/HDSMLClient.h"
#include "frames/Buffer.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"
#include "tests/support/ClientProbe.h"
#include "tests/support/GuardedMemory.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"
#include "tests/support/YuvPlanes.h"

namespace {

using hdsml::YuvFrame;
using hdsml::YuvLayout;

struct ClientDeleter {
  void operator()(HDSMLClient* c) const { HDSMLClient::destroy(c); }
};
using ClientPtr = std::unique_ptr<HDSMLClient, ClientDeleter>;

constexpr KernelPath kPaths[] = {KernelPath::kPlain, KernelPath::kVector};

bool sameBytes(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() &&
         cv::countNonZero(a.reshape(1) != b.reshape(1)) == 0;
}

// What the plain loop packs from `f` at outWidth x outHeight, and its colour image.
struct Expected {
  std::vector<uint8_t> packed;
  cv::Mat rgb;
};
Expected expectedOf(const YuvFrame& f, int outWidth, int outHeight) {
  Expected e;
  e.packed.assign(size_t(outWidth) * outHeight * 3 / 2, 0);
  destrideWith(KernelPath::kPlain, f.y, f.u, f.v, f.height, f.width, f.yPixelStride, f.yRowStride,
               f.uPixelStride, f.uRowStride, f.vPixelStride, f.vRowStride, outHeight, outWidth,
               e.packed.data());
  cv::cvtColor(cv::Mat(outHeight * 3 / 2, outWidth, CV_8UC1, e.packed.data()), e.rgb,
               cv::COLOR_YUV2RGB_YV12);
  return e;
}

cv::Mat noise(int width, int height, std::mt19937& rng) {
  cv::Mat bgr(height, width, CV_8UC3);
  cv::theRNG().state = rng();
  cv::randu(bgr, 0, 256);
  return bgr;
}

void feed(HDSMLClient& client, const YuvFrame& f, long long timestamp) {
  EXPECT_EQ(client.cameraFrameData(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride,
                                   f.uPixelStride, f.uRowStride, f.vPixelStride, f.vRowStride,
                                   timestamp, nullptr, 0),
            0);
}

// The record queued last, or null. Detection is never activated in these
// tests, so the motion thread takes nothing from the queue.
FrameData* queued(HDSMLClient& client) {
  std::lock_guard<std::mutex> lock(client.frameQueue->mutex);
  return client.frameQueue->queue.empty() ? nullptr : client.frameQueue->queue.front();
}

TEST(FrameIntake, BothPathsLeaveThePackedPlanesInYuvBufferAndTheSameImage) {
  std::mt19937 rng(2207);
  const std::pair<YuvLayout, int> layouts[] = {
      {YuvLayout::NV21, 32}, {YuvLayout::NV12, 7}, {YuvLayout::I420, 0}, {YuvLayout::YV12, 3}};
  // Whole steps read in place (2), whole steps staged (4, 6), fractional
  // steps; widths under one vector block, no multiple of it, and no shrink.
  const cv::Size motions[] = {{320, 240}, {250, 186}, {30, 20}, {64, 2}, {640, 480}};
  const cv::Size cameras[] = {{640, 480}, {1280, 720}, {1920, 1080}, {4032, 3024}};
  for (cv::Size motion : motions) {
    hdsml::TestConfig config(motion.width, motion.height);
    ClientPtr client(HDSMLClient::initialize(config.path(), false, ""));
    ASSERT_NE(client, nullptr);
    long long timestamp = 0;
    for (cv::Size camera : cameras) {
      const cv::Mat bgr = noise(camera.width, camera.height, rng);
      for (const auto& [layout, padding] : layouts) {
        const hdsml::GuardedFrame g =
            hdsml::guardFrame(hdsml::packYuv(bgr, layout, padding), motion.width, motion.height);
        const Expected expected = expectedOf(g.view, motion.width, motion.height);
        for (KernelPath path : kPaths) {
          SCOPED_TRACE(testing::Message()
                       << camera << " -> " << motion << " " << hdsml::layoutName(layout)
                       << (path == KernelPath::kPlain ? " plain" : " fused"));
          client->setIntakeKernelPath(path);
          std::fill(client->yuvBuffer, client->yuvBuffer + expected.packed.size(), 0xAB);
          feed(*client, g.view, ++timestamp);
          EXPECT_TRUE(
              std::equal(expected.packed.begin(), expected.packed.end(), client->yuvBuffer));
          FrameData* frame = queued(*client);
          ASSERT_NE(frame, nullptr);
          EXPECT_EQ(frame->timestamp, timestamp);
          EXPECT_TRUE(sameBytes(frame->image, expected.rgb));
        }
      }
    }
  }
}

// The kernel alone, on random geometries and strides, in guarded memory: the
// packed planes it leaves are the plain loop's, and nothing past them is written.
TEST(FrameIntake, TheFusedKernelPacksWhatDestridePacksOnRandomGeometry) {
  std::mt19937 rng(1122);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const YuvLayout layouts[] = {YuvLayout::NV21, YuvLayout::NV12, YuvLayout::I420, YuvLayout::YV12};
  FusedIntake kernel;
  for (int trial = 0; trial < 120; ++trial) {
    const int outWidth = 2 * pick(1, 100), outHeight = 2 * pick(1, 70);
    // Every third camera is exactly twice the motion size: the rows read in place.
    const int width = trial % 3 == 0 ? 2 * outWidth : 2 * pick((outWidth + 63) / 64, 500);
    const int height = trial % 3 == 0 ? 2 * outHeight : 2 * pick((outHeight + 63) / 64, 300);
    const YuvLayout layout = layouts[pick(0, 3)];
    const hdsml::GuardedFrame g = hdsml::guardFrame(
        hdsml::packYuv(noise(width, height, rng), layout, pick(0, 2) * pick(0, 40)), outWidth,
        outHeight);
    const Expected expected = expectedOf(g.view, outWidth, outHeight);
    std::vector<uint8_t> packed(expected.packed.size() + 64, 0xAB);
    cv::Mat rgb(outHeight, outWidth, CV_8UC3);
    ASSERT_TRUE(kernel.run(hdsml::planesOf(g.view), rgb, packed.data()));
    SCOPED_TRACE(testing::Message() << width << "x" << height << " -> " << outWidth << "x"
                                    << outHeight << " " << hdsml::layoutName(layout));
    EXPECT_TRUE(std::equal(expected.packed.begin(), expected.packed.end(), packed.begin()));
    EXPECT_EQ(packed[expected.packed.size()], 0xAB);
    EXPECT_TRUE(sameBytes(rgb, expected.rgb));
  }
}

// Fails every allocation that cv::Mat makes on one thread, for its lifetime.
class FailingAllocations : public cv::MatAllocator {
 public:
  FailingAllocations() : previous_(cv::Mat::getDefaultAllocator()) {
    cv::Mat::setDefaultAllocator(this);
  }
  ~FailingAllocations() override { cv::Mat::setDefaultAllocator(previous_); }
  int failed() const { return failed_; }

  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step,
                         cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    if (std::this_thread::get_id() == thread_) {
      ++failed_;
      CV_Error(cv::Error::StsNoMem, "allocation failed on purpose");
    }
    return previous_->allocate(dims, sizes, type, data, step, flags, usage);
  }
  bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    return previous_->allocate(data, flags, usage);
  }
  void deallocate(cv::UMatData* data) const override { previous_->deallocate(data); }

 private:
  cv::MatAllocator* previous_;
  std::thread::id thread_ = std::this_thread::get_id();
  mutable int failed_ = 0;
};

class FrameIntakeWithoutPixels : public testing::TestWithParam<KernelPath> {
 protected:
  void SetUp() override {
    client_.reset(HDSMLClient::initialize(config_.path(), false, ""));
    ASSERT_NE(client_, nullptr);
    client_->setIntakeKernelPath(GetParam());
    // Both records as a failed allocation of their pixels leaves them when the
    // pool is made (FrameData's own test shows that state).
    for (FrameData* frame : client_->framePool->frames) frame->image.release();
  }

  hdsml::TestConfig config_{320, 240};
  ClientPtr client_;
  std::mt19937 rng_{4};
  const YuvFrame frame_ = hdsml::packYuv(noise(640, 480, rng_), YuvLayout::NV21, 32);
};

TEST_P(FrameIntakeWithoutPixels, ARecordGetsItsImageAtIntakeAsTheConversionWouldMakeIt) {
  const Expected expected = expectedOf(frame_, 320, 240);
  for (long long timestamp : {10, 20, 30}) {
    feed(*client_, frame_, timestamp);
    FrameData* frame = queued(*client_);
    ASSERT_NE(frame, nullptr) << timestamp;
    EXPECT_EQ(frame->timestamp, timestamp);
    EXPECT_TRUE(sameBytes(frame->image, expected.rgb)) << timestamp;
  }
}

TEST_P(FrameIntakeWithoutPixels, AFailedAllocationDropsThatFrameAndNotTheNext) {
  {
    FailingAllocations failing;
    feed(*client_, frame_, 10);
    EXPECT_EQ(failing.failed(), 1);
  }
  EXPECT_EQ(queued(*client_), nullptr);
  EXPECT_EQ(hdsml::heldRecords(*client_), 0);  // the record went back to the pool
  EXPECT_TRUE(client_->framePool->frames[0]->image.empty());

  feed(*client_, frame_, 20);
  FrameData* frame = queued(*client_);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->timestamp, 20);
  EXPECT_TRUE(sameBytes(frame->image, expectedOf(frame_, 320, 240).rgb));
}

INSTANTIATE_TEST_SUITE_P(BothPaths, FrameIntakeWithoutPixels, testing::ValuesIn(kPaths),
                         [](const testing::TestParamInfo<KernelPath>& info) {
                           return info.param == KernelPath::kPlain ? "Plain" : "Fused";
                         });

// A record the fused kernel refuses (an image it cannot fill) would still hold
// the previous frame: it is not queued, and goes back to the pool. The plain
// path, set by hand, converts into it all the same (cvtColor makes the image
// anew): the path set is the path taken.
TEST(FrameIntake, ARecordTheFusedKernelRefusesIsNotQueuedWhereCvtColorFillsIt) {
  hdsml::TestConfig config(320, 240);
  ClientPtr client(HDSMLClient::initialize(config.path(), false, ""));
  ASSERT_NE(client, nullptr);
  std::mt19937 rng(5);
  const YuvFrame f = hdsml::packYuv(noise(640, 480, rng), YuvLayout::NV21);
  for (FrameData* frame : client->framePool->frames) {
    frame->image = cv::Mat(240, 320, CV_8UC1, cv::Scalar(7));
    frame->timestamp = 1;
  }
  client->setIntakeKernelPath(KernelPath::kVector);
  feed(*client, f, 2);
  EXPECT_EQ(queued(*client), nullptr);
  EXPECT_EQ(hdsml::heldRecords(*client), 0);

  client->setIntakeKernelPath(KernelPath::kPlain);
  feed(*client, f, 3);
  FrameData* frame = queued(*client);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->timestamp, 3);
  EXPECT_TRUE(sameBytes(frame->image, expectedOf(f, 320, 240).rgb));
}

}  // namespace
