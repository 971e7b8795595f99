// The vector block sums against the plain loop, number for number, on frames
// whose rows end where an unmapped page begins, and on sizes with blocks left
// over after the last group of four.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "motion/BlockSums.h"
#include "tests/support/GuardedMemory.h"

namespace {

TEST(BlockSumsTest, VectorKernelGivesThePlainSums) {
  std::mt19937 random(7);
  for (const cv::Size size : {cv::Size(320, 240), cv::Size(333, 188), cv::Size(68, 10),
                              cv::Size(16, 4), cv::Size(4, 4), cv::Size(6, 3)}) {
    const size_t bytes = 3 * size_t(size.width) * size.height;
    auto frame = hdsml::guardedBytes(bytes);
    for (size_t i = 0; i < bytes; ++i) frame.get()[i] = static_cast<uint8_t>(random());
    const size_t cells = size_t(size.width / 4) * (size.height / 4);
    std::vector<uint16_t> plain(3 * cells + 1, 7), vector(3 * cells + 1, 7);
    hdsml::sumBlocks(frame.get(), size.width, size.height, plain.data(), KernelPath::kPlain);
    hdsml::sumBlocks(frame.get(), size.width, size.height, vector.data(), KernelPath::kVector);
    EXPECT_EQ(plain, vector) << size;
    EXPECT_EQ(plain.back(), 7) << "wrote past the last block";
  }
}

TEST(BlockSumsTest, PlanesHoldEachChannelsSumOverTheBlock) {
  // 8 x 4 pixels: two blocks; byte c of pixel (x, y) = 10 c + x + y.
  std::vector<uint8_t> frame(3 * 8 * 4);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x)
      for (int c = 0; c < 3; ++c) frame[3 * (8 * y + x) + c] = static_cast<uint8_t>(10 * c + x + y);
  for (KernelPath path : {KernelPath::kPlain, KernelPath::kVector}) {
    std::vector<uint16_t> sums(6);
    hdsml::sumBlocks(frame.data(), 8, 4, sums.data(), path);
    // Block 0: x + y over 0..3 twice = 48; block 1 adds 4 per pixel.
    EXPECT_EQ(sums, (std::vector<uint16_t>{48, 112, 208, 272, 368, 432}));
  }
}

}  // namespace
