// The run-time check of the fused intake kernel against the process's OpenCV:
// it catches conversions that differ from cv::cvtColor the way another build
// could, and a client that meets one takes destride and cv::cvtColor, says so
// once when its debug flag is set, and fills its records with cvtColor's bytes
// all the same.
#include "client/IntakeSelfCheck.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/Destride.h"
#include "client/FusedIntake.h"
#include "client/HDSMLClient.h"
#include "frames/Buffer.h"
#include "frames/FrameData.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"

namespace {

// A YUV-to-RGB arithmetic in the form of OpenCV's: coefficients with `shift`
// fraction bits, a rounding constant, luma clamped at 16 or not.
struct Arithmetic {
  const char* name;
  int shift, y, crToR, crToG, cbToG, cbToB, round;
  bool clampLuma = true, swapChroma = false;
};
const Arithmetic kOpenCv = {"OpenCV's", 20, 1220542, 1673527, -852492, -409993, 2116026, 1 << 19};
const Arithmetic* gArithmetic = &kOpenCv;

void convertWith(const cv::Mat& yv12, cv::Mat& rgb) {
  const Arithmetic& a = *gArithmetic;
  const int w = yv12.cols, h = yv12.rows * 2 / 3;
  const uint8_t *y = yv12.data, *first = y + w * h, *second = first + w * h / 4;
  if (a.swapChroma) std::swap(first, second);
  rgb.create(h, w, CV_8UC3);
  auto sat = [&](int64_t v) { return uint8_t(std::clamp<int64_t>(v >> a.shift, 0, 255)); };
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      const int j = (r / 2) * (w / 2) + c / 2, cr = first[j] - 128, cb = second[j] - 128;
      const int64_t luma =
          int64_t(a.clampLuma ? std::max(0, y[r * w + c] - 16) : y[r * w + c] - 16) * a.y;
      uint8_t* px = rgb.ptr(r) + 3 * c;
      px[0] = sat(luma + a.round + int64_t(a.crToR) * cr);
      px[1] = sat(luma + a.round + int64_t(a.crToG) * cr + int64_t(a.cbToG) * cb);
      px[2] = sat(luma + a.round + int64_t(a.cbToB) * cb);
    }
}

// Sets the reference to convertWith(`a`) for the object's lifetime.
class ScopedReference {
 public:
  explicit ScopedReference(const Arithmetic& a)
      : previous_(replaceIntakeReferenceForTesting(convertWith)) {
    gArithmetic = &a;
  }
  ~ScopedReference() { replaceIntakeReferenceForTesting(previous_); }

 private:
  Yv12ToRgb previous_;
};

TEST(IntakeSelfCheck, CatchesConversionsThatDifferFromTheProcesssOpenCv) {
  EXPECT_TRUE(fusedIntakeMatchesReference());  // against cv::cvtColor itself
  {
    ScopedReference same(kOpenCv);  // the arithmetic as written here gives cvtColor's bytes
    EXPECT_TRUE(fusedIntakeMatchesReference());
  }
  Arithmetic coarse = {"coefficients to 14 bits", 14, 19071, 26149, -13320, -6406, 33063, 1 << 13};
  Arithmetic truncating = kOpenCv, unclamped = kOpenCv, swapped = kOpenCv;
  truncating.name = "truncating", truncating.round = 0;
  unclamped.name = "luma under 16 not clamped", unclamped.clampLuma = false;
  swapped.name = "Cr and Cb swapped", swapped.swapChroma = true;
  std::vector<Arithmetic> others = {coarse, truncating, unclamped, swapped};
  // Each coefficient 8 higher, then 8 lower (20 parts in a million at most):
  // only the pattern's sums nearest a rounding boundary, from above or below, move.
  for (int k = 0; k < 10; ++k) {
    Arithmetic a = kOpenCv;
    int* coefficient[5] = {&a.y, &a.crToR, &a.crToG, &a.cbToG, &a.cbToB};
    *coefficient[k / 2] += k % 2 ? -8 : 8;
    a.name = k % 2 ? "a coefficient 8 lower" : "a coefficient 8 higher";
    others.push_back(a);
  }
  for (size_t i = 0; i < others.size(); ++i) {
    ScopedReference other(others[i]);
    EXPECT_FALSE(fusedIntakeMatchesReference()) << others[i].name << ", case " << i;
  }
}

// Whether a new client checks the fused kernel and takes it. Where the plain
// path is the default (HDSML_PLAIN_KERNELS) or there is no vector converter
// (x86-64 without AVX2), the plain path is taken unchecked.
bool clientsTryTheFusedKernel() {
  return FusedIntake::vectorized() && defaultKernelPath() == KernelPath::kVector;
}

struct ClientDeleter {
  void operator()(HDSMLClient* c) const { HDSMLClient::destroy(c); }
};

// The image of the record that `client` queued for a noisy 640x480 NV21 frame.
cv::Mat intake(HDSMLClient& client, const hdsml::YuvFrame& f, long long timestamp) {
  client.cameraFrameData(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride,
                         f.uPixelStride, f.uRowStride, f.vPixelStride, f.vRowStride, timestamp,
                         nullptr, 0);
  std::lock_guard<std::mutex> lock(client.frameQueue->mutex);
  EXPECT_EQ(client.frameQueue->queue.size(), 1u);
  return client.frameQueue->queue.front()->image.clone();
}

// What a client created while the reference disagrees prints.
std::string startUpLinesFacingAnotherOpenCv(bool debug,
                                            std::unique_ptr<HDSMLClient, ClientDeleter>& client,
                                            const hdsml::TestConfig& config) {
  Arithmetic truncating = kOpenCv;
  truncating.round = 0;
  testing::internal::CaptureStdout();
  {
    ScopedReference other(truncating);
    client.reset(HDSMLClient::initialize(config.path(), debug, ""));
  }
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST(IntakeSelfCheck, AClientFacingAnotherOpenCvUsesCvtColorAndSaysSoOnceOnlyInDebug) {
  const std::string message =
      "[HDSMLClient] The fast intake kernel differs from this OpenCV's cvtColor; intake uses "
      "destride and cvtColor\n";
  hdsml::TestConfig config(320, 240);
  std::unique_ptr<HDSMLClient, ClientDeleter> client;
  const std::string debugLines = startUpLinesFacingAnotherOpenCv(true, client, config);
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->intakeKernelPath(), KernelPath::kPlain);
  const size_t first = debugLines.find(message);
  if (clientsTryTheFusedKernel()) {
    EXPECT_NE(first, std::string::npos) << debugLines;
    EXPECT_EQ(debugLines.find(message, first + 1), std::string::npos) << debugLines;
  } else {
    EXPECT_EQ(first, std::string::npos) << debugLines;
  }

  // Without the debug flag the fallback is silent: the usual start-up lines only.
  const std::string quietLines = startUpLinesFacingAnotherOpenCv(false, client, config);
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->intakeKernelPath(), KernelPath::kPlain);
  EXPECT_EQ(quietLines.find("intake"), std::string::npos) << quietLines;
  EXPECT_NE(quietLines.find("Filter length for motion detector is 12\n"), std::string::npos);

  cv::Mat bgr(480, 640, CV_8UC3);
  cv::randu(bgr, 0, 256);
  const hdsml::YuvFrame f = hdsml::packYuv(bgr, hdsml::YuvLayout::NV21, 32);
  std::vector<uint8_t> packed(320 * 240 * 3 / 2);
  destride(f.y, f.u, f.v, f.height, f.width, f.yPixelStride, f.yRowStride, f.uPixelStride,
           f.uRowStride, f.vPixelStride, f.vRowStride, 240, 320, packed.data());
  cv::Mat expected;
  cv::cvtColor(cv::Mat(360, 320, CV_8UC1, packed.data()), expected, cv::COLOR_YUV2RGB_YV12);
  // Either path, set by hand, gives the record cvtColor's bytes and leaves
  // destride's packed planes in yuvBuffer.
  for (KernelPath path : {KernelPath::kVector, KernelPath::kPlain}) {
    client->setIntakeKernelPath(path);
    client->yuvImage.setTo(0);
    const cv::Mat image = intake(*client, f, 33 * (2 - int(path)));
    EXPECT_EQ(cv::countNonZero(image.reshape(1) != expected.reshape(1)), 0) << int(path);
    EXPECT_TRUE(std::equal(packed.begin(), packed.end(), client->yuvBuffer)) << int(path);
  }
}

TEST(IntakeSelfCheck, AClientTakesTheFusedKernelWhereItIsVectorised) {
  hdsml::TestConfig config(320, 240);
  std::unique_ptr<HDSMLClient, ClientDeleter> client(
      HDSMLClient::initialize(config.path(), false, ""));
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->intakeKernelPath(),
            clientsTryTheFusedKernel() ? KernelPath::kVector : KernelPath::kPlain);
  EXPECT_EQ(chooseIntakePath(KernelPath::kPlain, true),
            KernelPath::kPlain);  // HDSML_PLAIN_KERNELS set
}

}  // namespace
