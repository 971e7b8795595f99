#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "client/HDSMLClient.h"

namespace {

constexpr uint8_t kSentinel = 0xEE;

// A plane whose every sample names its position, so a wrong read shows up as a
// wrong value rather than a coincidentally equal one.
std::vector<uint8_t> positionPlane(int cols, int rows, int pixelStride, int rowStride,
                                   uint8_t filler = kSentinel) {
  std::vector<uint8_t> plane(static_cast<size_t>(rowStride) * rows, filler);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c)
      plane[static_cast<size_t>(r) * rowStride + c * pixelStride] =
          static_cast<uint8_t>((c * 7 + r * 13) % 251);
  return plane;
}

uint8_t at(int c, int r) { return static_cast<uint8_t>((c * 7 + r * 13) % 251); }

TEST(Destride, QuarterSizeTakesEveryFourthSampleOfEveryFourthRow) {
  const int w = 1280, h = 960, ow = 320, oh = 240;
  auto y = positionPlane(w, h, 1, w);
  auto u = positionPlane(w / 2, h / 2, 1, w / 2);
  auto v = positionPlane(w / 2, h / 2, 1, w / 2);
  std::vector<uint8_t> out(ow * oh * 3 / 2 + 16, kSentinel);

  destride(y.data(), u.data(), v.data(), h, w, 1, w, 1, w / 2, 1, w / 2, oh, ow, out.data());

  for (int r = 0; r < oh; ++r)
    for (int c = 0; c < ow; ++c) ASSERT_EQ(out[r * ow + c], at(4 * c, 4 * r)) << c << "," << r;
  const uint8_t* chroma = out.data() + ow * oh;
  for (int r = 0; r < oh / 2; ++r)
    for (int c = 0; c < ow / 2; ++c) {
      ASSERT_EQ(chroma[r * (ow / 2) + c], at(4 * c, 4 * r));
      ASSERT_EQ(chroma[ow * oh / 4 + r * (ow / 2) + c], at(4 * c, 4 * r));
    }
  // Exactly W*H + 2*(W/2)*(H/2) bytes are written.
  for (size_t i = ow * oh * 3 / 2; i < out.size(); ++i) EXPECT_EQ(out[i], kSentinel);
}

TEST(Destride, RowPaddingAndInterleavedChromaAreSkipped) {
  // 640x480 at the same size: steps of exactly 32 copy every sample once.
  const int w = 640, h = 480, rowStride = 704;
  auto y = positionPlane(w, h, 1, rowStride);
  // NV21-style chroma: one plane, V then U, pixel stride 2, row stride 704.
  std::vector<uint8_t> vu(static_cast<size_t>(rowStride) * (h / 2), kSentinel);
  for (int r = 0; r < h / 2; ++r)
    for (int c = 0; c < w / 2; ++c) {
      vu[r * rowStride + 2 * c] = 200;           // V
      vu[r * rowStride + 2 * c + 1] = at(c, r);  // U
    }
  std::vector<uint8_t> out(w * h * 3 / 2, 0);

  destride(y.data(), vu.data() + 1, vu.data(), h, w, 1, rowStride, 2, rowStride, 2, rowStride, h, w,
           out.data());

  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) ASSERT_EQ(out[r * w + c], at(c, r));
  const uint8_t* first = out.data() + w * h;
  const uint8_t* second = first + (w / 2) * (h / 2);
  for (int i = 0; i < (w / 2) * (h / 2); ++i) {
    ASSERT_EQ(first[i], at(i % (w / 2), i / (w / 2)));
    ASSERT_EQ(second[i], 200);
  }
}

TEST(Destride, OddOutputSizeRoundsChromaDown) {
  const int w = 64, h = 48, ow = 5, oh = 3;
  auto y = positionPlane(w, h, 1, w);
  auto u = positionPlane(w / 2, h / 2, 1, w / 2);
  auto v = positionPlane(w / 2, h / 2, 1, w / 2);
  std::vector<uint8_t> out(64, kSentinel);

  destride(y.data(), u.data(), v.data(), h, w, 1, w, 1, w / 2, 1, w / 2, oh, ow, out.data());

  // sx = 64*32/5 = 409, sy = 48*32/3 = 512: columns 0,12,25,38,51 and rows 0,16,32.
  const int cols[] = {0, 12, 25, 38, 51}, rows[] = {0, 16, 32};
  for (int r = 0; r < oh; ++r)
    for (int c = 0; c < ow; ++c) EXPECT_EQ(out[r * ow + c], at(cols[c], rows[r]));
  // 2 x 1 samples from each chroma plane, then nothing.
  EXPECT_EQ(out[15], at(0, 0));
  EXPECT_EQ(out[16], at(12, 0));
  EXPECT_EQ(out[17], at(0, 0));
  EXPECT_EQ(out[18], at(12, 0));
  EXPECT_EQ(out[19], kSentinel);
}

TEST(Destride, ZeroSizeOrZeroStepWritesNothing) {
  std::vector<uint8_t> plane(64, 1);
  std::vector<uint8_t> out(4096, kSentinel);
  destride(plane.data(), plane.data(), plane.data(), 8, 8, 1, 8, 1, 4, 1, 4, 0, 8, out.data());
  destride(plane.data(), plane.data(), plane.data(), 8, 8, 1, 8, 1, 4, 1, 4, 8, 0, out.data());
  // 8 * 32 / 257 == 0: more than 32 times larger than the source.
  destride(plane.data(), plane.data(), plane.data(), 8, 8, 1, 8, 1, 4, 1, 4, 8, 257, out.data());
  for (uint8_t b : out) ASSERT_EQ(b, kSentinel);
}

}  // namespace
