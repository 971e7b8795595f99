// The fast destride against the plain one: the same bytes for random
// geometries (odd sizes, row padding, planar and interleaved chroma, whole and
// fractional steps), with every source plane ending right before an unmapped
// page, so that a read past the last sample the plain loop takes crashes.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "client/Destride.h"

namespace {

// `size` bytes of random content followed by an inaccessible page.
class GuardedBytes {
 public:
  GuardedBytes(size_t size, std::mt19937& rng) : size_(size) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    mapped_ = (size + page - 1) / page * page + page;
    base_ = static_cast<uint8_t*>(
        mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(base_ + mapped_ - page, page, PROT_NONE);
    data_ = base_ + mapped_ - page - size;
    for (size_t i = 0; i < size; ++i) data_[i] = static_cast<uint8_t>(rng());
  }
  ~GuardedBytes() { munmap(base_, mapped_); }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;
  uint8_t* data() { return data_; }

 private:
  size_t size_, mapped_;
  uint8_t *base_, *data_;
};

enum class Chroma { kI420, kNV21, kNV12, kSeparateStride2 };

struct Geometry {
  int width, height, outWidth, outHeight;
  int yPixelStride, rowPadding;
  Chroma chroma;
};

// One past the last byte the plain loop reads in a plane of outCols x outRows samples.
size_t planeExtent(int64_t pixelStride, int64_t rowStride, int64_t stepX, int64_t stepY,
                   int outCols, int outRows) {
  const int64_t lastCol = (int64_t(outCols - 1) * stepX) >> 5;
  const int64_t lastRow = (int64_t(outRows - 1) * stepY) >> 5;
  return size_t(rowStride * lastRow + pixelStride * lastCol + 1);
}

void expectTwinsAgree(const Geometry& g, std::mt19937& rng) {
  const int outChromaW = g.outWidth >> 1, outChromaH = g.outHeight >> 1;
  const int64_t stepX = (int64_t(g.width) << 5) / g.outWidth;
  const int64_t stepY = (int64_t(g.height) << 5) / g.outHeight;
  const int yRow = g.width * g.yPixelStride + g.rowPadding;
  GuardedBytes y(planeExtent(g.yPixelStride, yRow, stepX, stepY, g.outWidth, g.outHeight), rng);
  const bool interleaved = g.chroma == Chroma::kNV21 || g.chroma == Chroma::kNV12;
  const int cStride = g.chroma == Chroma::kI420 ? 1 : 2;
  const int uRow = (g.width + 1) / 2 * cStride + g.rowPadding;
  const int vRow = g.chroma == Chroma::kSeparateStride2 ? uRow + 6 : uRow;
  auto extent = [&](int row) {
    const bool any = outChromaW > 0 && outChromaH > 0;
    return any ? planeExtent(cStride, row, stepX, stepY, outChromaW, outChromaH) : 1;
  };
  GuardedBytes u(extent(uRow) + (interleaved ? 1 : 0), rng), v(extent(vRow), rng);
  uint8_t* uPlane = g.chroma == Chroma::kNV21 ? u.data() + 1 : u.data();
  uint8_t* vPlane = interleaved ? (g.chroma == Chroma::kNV21 ? u.data() : u.data() + 1) : v.data();

  const size_t outBytes = size_t(g.outWidth) * g.outHeight + 2 * size_t(outChromaW) * outChromaH;
  std::vector<uint8_t> plain(outBytes + 64, 0xA5), fast(outBytes + 64, 0x5A);
  for (KernelPath path : {KernelPath::kPlain, KernelPath::kVector}) {
    destrideWith(path, y.data(), uPlane, vPlane, g.height, g.width, g.yPixelStride, yRow, cStride,
                 uRow, cStride, vRow, g.outHeight, g.outWidth,
                 (path == KernelPath::kPlain ? plain : fast).data());
  }
  ASSERT_TRUE(std::equal(plain.begin(), plain.begin() + outBytes, fast.begin()))
      << g.width << "x" << g.height << " -> " << g.outWidth << "x" << g.outHeight << " layout "
      << int(g.chroma) << " luma stride " << g.yPixelStride << " padding " << g.rowPadding;
  // Neither writes past the packed image.
  EXPECT_EQ(std::count(plain.begin() + outBytes, plain.end(), 0xA5), 64);
  EXPECT_EQ(std::count(fast.begin() + outBytes, fast.end(), 0x5A), 64);
}

TEST(DestrideTwins, FastMatchesPlainOnRandomGeometries) {
  std::mt19937 rng(20240607);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int wholeSteps[] = {1, 2, 3, 4, 6, 8, 12, 16, 5};
  for (int trial = 0; trial < 400; ++trial) {
    Geometry g;
    g.outWidth = pick(1, 360);
    g.outHeight = pick(1, 250);
    if (trial % 2 == 0) {  // a whole-sample step, with a remainder too small to change it
      const int k = wholeSteps[pick(0, 8)];
      g.width = k * g.outWidth + pick(0, (g.outWidth - 1) / 32);
    } else {
      g.width = pick((g.outWidth + 31) / 32, 1400);
    }
    g.height = pick((g.outHeight + 31) / 32, 700);
    g.yPixelStride = pick(0, 5) == 0 ? 2 : 1;
    g.rowPadding = pick(0, 3) * pick(0, 40);
    g.chroma = static_cast<Chroma>(pick(0, 3));
    expectTwinsAgree(g, rng);
  }
}

TEST(DestrideTwins, FastMatchesPlainOnCameraSizes) {
  std::mt19937 rng(7);
  const int sizes[][2] = {{640, 480}, {1280, 720}, {1920, 1080}, {4032, 3024}, {768, 576}};
  for (const auto& size : sizes)
    for (Chroma chroma : {Chroma::kNV21, Chroma::kI420})
      expectTwinsAgree({size[0], size[1], 320, 240, 1, 32, chroma}, rng);
}

}  // namespace
