// The fast destride against the plain one, byte for byte, on random geometries
// (odd sizes, row padding, planar, interleaved and stride-2 chroma, whole and
// fractional steps) and camera sizes. Every source plane ends right before an
// unmapped page, so a read past the last sample the plain loop takes crashes.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "client/Destride.h"

namespace {

std::shared_ptr<uint8_t> guardedRandomBytes(size_t size, std::mt19937& rng) {
  const size_t page = sysconf(_SC_PAGESIZE), mapped = (size + page - 1) / page * page + page;
  auto* base = static_cast<uint8_t*>(
      mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(base + mapped - page, page, PROT_NONE);
  uint8_t* data = base + mapped - page - size;
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<uint8_t>(rng());
  return std::shared_ptr<uint8_t>(data, [base, mapped](uint8_t*) { munmap(base, mapped); });
}

enum Chroma { kI420, kNV21, kNV12, kSeparateStride2 };

// Shrinks width x height to outWidth x outHeight both ways and compares.
void expectTwinsAgree(int width, int height, int outWidth, int outHeight, int yPixelStride,
                      int padding, Chroma chroma, std::mt19937& rng) {
  const int64_t stepX = (int64_t(width) << 5) / outWidth,
                stepY = (int64_t(height) << 5) / outHeight;
  // One past the last byte the plain loop reads in a plane of cols x rows samples.
  auto extent = [&](int64_t pixelStride, int64_t rowStride, int cols, int rows) -> size_t {
    if (cols <= 0 || rows <= 0) return 1;
    return rowStride * (((rows - 1) * stepY) >> 5) + pixelStride * (((cols - 1) * stepX) >> 5) + 1;
  };
  const int yRow = width * yPixelStride + padding, cw = outWidth >> 1, ch = outHeight >> 1;
  const int cStride = chroma == kI420 ? 1 : 2, uRow = (width + 1) / 2 * cStride + padding;
  const int vRow = chroma == kSeparateStride2 ? uRow + 6 : uRow;
  const bool interleaved = chroma == kNV21 || chroma == kNV12;
  auto y = guardedRandomBytes(extent(yPixelStride, yRow, outWidth, outHeight), rng);
  auto u = guardedRandomBytes(extent(cStride, uRow, cw, ch) + interleaved, rng);
  auto v = guardedRandomBytes(extent(cStride, vRow, cw, ch), rng);
  uint8_t* uPlane = u.get() + (chroma == kNV21);
  uint8_t* vPlane = interleaved ? u.get() + (chroma == kNV12) : v.get();

  const size_t bytes = size_t(outWidth) * outHeight + 2 * size_t(cw) * ch;
  std::vector<uint8_t> out[2] = {std::vector<uint8_t>(bytes + 64, 0xA5),
                                 std::vector<uint8_t>(bytes + 64, 0xA5)};
  for (KernelPath path : {KernelPath::kPlain, KernelPath::kVector})
    destrideWith(path, y.get(), uPlane, vPlane, height, width, yPixelStride, yRow, cStride, uRow,
                 cStride, vRow, outHeight, outWidth, out[int(path)].data());
  ASSERT_EQ(out[0], out[1]) << width << "x" << height << " -> " << outWidth << "x" << outHeight
                            << " chroma " << chroma << " luma stride " << yPixelStride;
  EXPECT_EQ(out[0][bytes], 0xA5);  // nothing written past the packed image
}

TEST(DestrideTwins, FastMatchesPlain) {
  std::mt19937 rng(20240607);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int wholeSteps[] = {1, 2, 3, 4, 5, 6, 8, 12, 16};
  for (int trial = 0; trial < 400; ++trial) {
    const int outWidth = pick(1, 360), outHeight = pick(1, 250);
    // Half the widths are a whole number of samples a step, with a remainder too
    // small to change the step.
    const int width = trial % 2 ? pick((outWidth + 31) / 32, 1400)
                                : wholeSteps[pick(0, 8)] * outWidth + pick(0, (outWidth - 1) / 32);
    expectTwinsAgree(width, pick((outHeight + 31) / 32, 700), outWidth, outHeight,
                     pick(0, 5) ? 1 : 2, pick(0, 3) * pick(0, 40), Chroma(pick(0, 3)), rng);
  }
  const std::pair<int, int> cameras[] = {{640, 480}, {1280, 720}, {1920, 1080}, {4032, 3024}};
  for (const auto& [width, height] : cameras)
    for (Chroma chroma : {kNV21, kI420})
      expectTwinsAgree(width, height, 320, 240, 1, 32, chroma, rng);
}

}  // namespace
