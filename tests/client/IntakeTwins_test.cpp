// Intake's fast kernels against the plain ones, byte for byte: destride's
// faster kernel against its plain loop, and the fused kernel (shrink and
// colour conversion in one pass) against the plain loop followed by
// cv::cvtColor. On random geometries (odd sizes, row padding, planar,
// interleaved and stride-2 chroma, rows stored bottom-up, whole and
// fractional steps), on every (Y, Cr, Cb) triple, and on real frames of every
// sample video at the camera sizes. Every source plane ends right after the
// last byte the plain loop reads, before an unmapped page, so a read past it
// crashes.
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "client/Destride.h"
#include "client/FusedIntake.h"
#include "tests/support/GuardedMemory.h"
#include "tests/support/YuvFrame.h"
#include "tests/support/YuvPlanes.h"

namespace {

using hdsml::planesOf;
using hdsml::YuvFrame;
using hdsml::YuvLayout;

bool sameBytes(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() &&
         cv::countNonZero(a.reshape(1) != b.reshape(1)) == 0;
}

// The fused kernel against cv::cvtColor of destride's packed image `packed`.
void expectFusedMatches(const YuvFrame& f, int outWidth, int outHeight,
                        std::vector<uint8_t>& packed) {
  cv::Mat reference, fused(outHeight, outWidth, CV_8UC3);
  cv::cvtColor(cv::Mat(outHeight * 3 / 2, outWidth, CV_8UC1, packed.data()), reference,
               cv::COLOR_YUV2RGB_YV12);
  FusedIntake kernel;
  ASSERT_TRUE(kernel.run(planesOf(f), fused));
  EXPECT_TRUE(sameBytes(fused, reference))
      << f.width << "x" << f.height << " -> " << outWidth << "x" << outHeight << " strides "
      << f.yPixelStride << " " << f.uPixelStride << " " << f.uRowStride;
}

enum Chroma { kI420, kNV21, kNV12, kSeparateStride2 };

// Shrinks width x height to outWidth x outHeight every way and compares.
void expectTwinsAgree(int width, int height, int outWidth, int outHeight, int yPixelStride,
                      int padding, Chroma chroma, bool bottomUp, std::mt19937& rng) {
  const int64_t sx = (int64_t(width) << 5) / outWidth, sy = (int64_t(height) << 5) / outHeight;
  const int yRow = width * yPixelStride + padding, cw = outWidth >> 1, ch = outHeight >> 1;
  const int cStride = chroma == kI420 ? 1 : 2, uRow = (width + 1) / 2 * cStride + padding;
  const int vRow = chroma == kSeparateStride2 ? uRow + 6 : uRow;
  const bool interleaved = chroma == kNV21 || chroma == kNV12;
  // Random bytes in guarded memory; bottom-up, the first row is the last one.
  auto plane = [&](int pixelStride, int& rowStride, int cols, int rows, size_t extra) {
    const size_t size = hdsml::sampledExtent(pixelStride, rowStride, cols, rows, sx, sy) + extra;
    auto bytes = hdsml::guardedBytes(size);
    for (size_t i = 0; i < size; ++i) bytes.get()[i] = static_cast<uint8_t>(rng());
    uint8_t* first = bytes.get();
    if (bottomUp && cols > 0 && rows > 0) {
      first += rowStride * (((rows - 1) * sy) >> 5);
      rowStride = -rowStride;
    }
    return std::make_pair(bytes, first);
  };
  YuvFrame f;
  f.width = width, f.height = height, f.yPixelStride = yPixelStride, f.yRowStride = yRow;
  f.uPixelStride = f.vPixelStride = cStride, f.uRowStride = uRow, f.vRowStride = vRow;
  auto [y, yFirst] = plane(yPixelStride, f.yRowStride, outWidth, outHeight, 0);
  auto [u, uFirst] = plane(cStride, f.uRowStride, cw, ch, interleaved);
  auto [v, vFirst] = plane(cStride, f.vRowStride, cw, ch, 0);
  f.y = yFirst;
  f.u = uFirst + (chroma == kNV21);
  f.v = interleaved ? uFirst + (chroma == kNV12) : vFirst;
  if (interleaved) f.vRowStride = f.uRowStride;

  const size_t bytes = size_t(outWidth) * outHeight + 2 * size_t(cw) * ch;
  std::vector<uint8_t> out[2] = {std::vector<uint8_t>(bytes + 64, 0xA5),
                                 std::vector<uint8_t>(bytes + 64, 0xA5)};
  for (KernelPath path : {KernelPath::kPlain, KernelPath::kVector})
    destrideWith(path, f.y, f.u, f.v, height, width, yPixelStride, f.yRowStride, cStride,
                 f.uRowStride, cStride, f.vRowStride, outHeight, outWidth, out[int(path)].data());
  ASSERT_EQ(out[0], out[1]) << width << "x" << height << " -> " << outWidth << "x" << outHeight
                            << " chroma " << chroma << " luma stride " << yPixelStride
                            << (bottomUp ? " bottom-up" : "");
  EXPECT_EQ(out[0][bytes], 0xA5);  // nothing written past the packed image
  if (outWidth % 2 == 0 && outHeight % 2 == 0) expectFusedMatches(f, outWidth, outHeight, out[0]);
}

TEST(IntakeTwins, FastMatchesPlainOnRandomGeometry) {
  std::mt19937 rng(20240607);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int wholeSteps[] = {1, 2, 3, 4, 5, 6, 8, 12, 16};
  for (int trial = 0; trial < 400; ++trial) {
    // Even sizes four times in five, which the fused kernel also takes.
    const int outWidth = pick(1, 180) * 2 - (pick(0, 4) == 0);
    const int outHeight = pick(1, 125) * 2 - (pick(0, 4) == 0);
    // Half the widths are a whole number of samples a step, with a remainder too
    // small to change the step.
    const int width = trial % 2 ? pick((outWidth + 31) / 32, 1400)
                                : wholeSteps[pick(0, 8)] * outWidth + pick(0, (outWidth - 1) / 32);
    expectTwinsAgree(width, pick((outHeight + 31) / 32, 700), outWidth, outHeight,
                     pick(0, 5) ? 1 : 2, pick(0, 3) * pick(0, 40), Chroma(pick(0, 3)),
                     pick(0, 4) == 0, rng);
  }
  const std::pair<int, int> cameras[] = {{640, 480}, {1280, 720}, {1920, 1080}, {4032, 3024}};
  for (const auto& [width, height] : cameras)
    for (Chroma chroma : {kNV21, kI420})
      expectTwinsAgree(width, height, 320, 240, 1, 32, chroma, false, rng);
}

// One Cr value at a time: 256 Cb values across, and down the frame 64 rows of
// 2x2 blocks whose four luma values run through 0 .. 255.
TEST(IntakeTwins, FusedConvertsEveryYCrCbTripleAsCvtColorDoes) {
#if defined(__aarch64__)
  EXPECT_TRUE(FusedIntake::vectorized());  // NEON is always there: its converter must be used
#elif defined(__x86_64__)
  __builtin_cpu_init();
  EXPECT_EQ(FusedIntake::vectorized(), bool(__builtin_cpu_supports("avx2")));
#endif
  constexpr int kW = 512, kH = 128;
  std::vector<uint8_t> packed(kW * kH * 3 / 2);
  uint8_t *y = packed.data(), *cr = y + kW * kH, *cb = cr + kW * kH / 4;
  for (int r = 0; r < kH; ++r)
    for (int c = 0; c < kW; ++c) y[r * kW + c] = uint8_t(4 * (r / 2) + 2 * (r % 2) + c % 2);
  for (int i = 0; i < kW * kH / 4; ++i) cb[i] = uint8_t(i % (kW / 2));
  const YuvPlanes planes{y, cr, cb, kW, kH, 1, kW, 1, kW / 2, 1, kW / 2};
  const cv::Mat yv12(kH * 3 / 2, kW, CV_8UC1, packed.data());
  FusedIntake kernel;
  cv::Mat fused(kH, kW, CV_8UC3), reference;
  for (int v = 0; v < 256; ++v) {
    std::fill(cr, cr + kW * kH / 4, uint8_t(v));
    ASSERT_TRUE(kernel.run(planes, fused));
    cv::cvtColor(yv12, reference, cv::COLOR_YUV2RGB_YV12);
    ASSERT_TRUE(sameBytes(fused, reference)) << "Cr " << v;
  }
}

// Frame 30 (or the last) of each of OpenCV's sample recordings beside the
// configured one; empty when none is there.
std::vector<cv::Mat> sampleVideoFrames() {
  const std::string first = HDSML_SAMPLE_VIDEO, dir = first.substr(0, first.rfind('/') + 1);
  std::vector<cv::Mat> frames;
  for (const char* name : {"vtest.avi", "Megamind.avi", "tree.avi"}) {
    cv::VideoCapture video(dir + name);
    cv::Mat frame, last;
    for (int i = 0; i <= 30 && video.read(frame); ++i) last = frame;
    if (!last.empty()) frames.push_back(last.clone());
  }
  return frames;
}

TEST(IntakeTwins, FusedMatchesDestrideAndCvtColorOnRealFramesAtCameraSizes) {
  const std::vector<cv::Mat> frames = sampleVideoFrames();
  if (frames.size() < 3) GTEST_SKIP() << "sample videos missing beside " << HDSML_SAMPLE_VIDEO;
  const std::pair<YuvLayout, int> layouts[] = {
      {YuvLayout::NV21, 32}, {YuvLayout::NV12, 7}, {YuvLayout::I420, 0}};
  for (const cv::Mat& frame : frames)
    for (cv::Size camera :
         {cv::Size(640, 480), cv::Size(1280, 720), cv::Size(1920, 1080), cv::Size(4032, 3024)}) {
      cv::Mat scaled;
      cv::resize(frame, scaled, camera, 0, 0, cv::INTER_LINEAR);
      // The usual motion size; one whose width is no multiple of the vector
      // block and whose chroma rows are odd in number; one narrower than a block;
      // at VGA also no shrink at all and a slight enlargement.
      std::vector<cv::Size> motion = {{320, 240}, {250, 186}, {30, 20}};
      if (camera.width == 640) motion.insert(motion.end(), {{640, 480}, {642, 482}});
      for (const auto& [layout, padding] : layouts) {
        const YuvFrame packed = hdsml::packYuv(scaled, layout, padding);
        for (cv::Size out : motion) {
          const hdsml::GuardedFrame g = hdsml::guardFrame(packed, out.width, out.height);
          const YuvFrame& f = g.view;
          std::vector<uint8_t> plain(size_t(out.area()) * 3 / 2);
          destrideWith(KernelPath::kPlain, f.y, f.u, f.v, f.height, f.width, f.yPixelStride,
                       f.yRowStride, f.uPixelStride, f.uRowStride, f.vPixelStride, f.vRowStride,
                       out.height, out.width, plain.data());
          SCOPED_TRACE(hdsml::layoutName(layout));
          expectFusedMatches(f, out.width, out.height, plain);
        }
      }
    }
}

}  // namespace
