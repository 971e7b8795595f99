#include "motion/BlockSums.h"

#include <cstddef>

#include "frames/VectorKernels.h"

namespace hdsml {
namespace {

constexpr int kSide = 4;

// One block's three channel sums, pixels row by row.
void sumOneBlock(const uint8_t* block, size_t rowBytes, uint16_t* s0, uint16_t* s1, uint16_t* s2) {
  int sum[3] = {0, 0, 0};
  for (int row = 0; row < kSide; ++row, block += rowBytes)
    for (int col = 0; col < kSide; ++col) {
      sum[0] += block[3 * col];
      sum[1] += block[3 * col + 1];
      sum[2] += block[3 * col + 2];
    }
  *s0 = static_cast<uint16_t>(sum[0]);
  *s1 = static_cast<uint16_t>(sum[1]);
  *s2 = static_cast<uint16_t>(sum[2]);
}

void sumBlocksPlain(const uint8_t* frame, int width, int height, uint16_t* sums) {
  const int cols = width / kSide, rows = height / kSide;
  const size_t cells = size_t(cols) * rows, rowBytes = 3 * size_t(width);
  for (int by = 0; by < rows; ++by)
    for (int bx = 0; bx < cols; ++bx) {
      const size_t cell = size_t(by) * cols + bx;
      sumOneBlock(frame + kSide * by * rowBytes + 3 * kSide * bx, rowBytes, sums + cell,
                  sums + cells + cell, sums + 2 * cells + cell);
    }
}

#if HDSML_VECTOR_KERNELS

// Four side-by-side blocks (16 pixels, 48 bytes a row): channels split, widened
// to 16 bits and summed over the 4 rows (at most 4 * 255 a lane), then lanes
// added pairwise twice. Integer sums: the order does not change them.
void sumQuad(const uint8_t* quad, size_t rowBytes, uint16_t* out[3]) {
  cv::v_uint16x8 acc[3][2];
  for (auto& c : acc) c[0] = c[1] = cv::v_setzero_u16();
  for (int row = 0; row < kSide; ++row, quad += rowBytes) {
    cv::v_uint8x16 ch[3];
    cv::v_load_deinterleave(quad, ch[0], ch[1], ch[2]);
    for (int c = 0; c < 3; ++c) {
      cv::v_uint16x8 low, high;
      cv::v_expand(ch[c], low, high);
      acc[c][0] += low;
      acc[c][1] += high;
    }
  }
  // Pairs of pixel columns to 32 bits, packed back to 16 (at most 2040 each)
  // and paired again: one lane a block.
  const cv::v_int16x8 ones = cv::v_setall_s16(1);
  for (int c = 0; c < 3; ++c) {
    const cv::v_int32x4 low = cv::v_dotprod(cv::v_reinterpret_as_s16(acc[c][0]), ones);
    const cv::v_int32x4 high = cv::v_dotprod(cv::v_reinterpret_as_s16(acc[c][1]), ones);
    const cv::v_int32x4 blocks = cv::v_dotprod(cv::v_pack(low, high), ones);
    cv::v_pack_u_store(out[c], blocks);
  }
}

void sumBlocksVector(const uint8_t* frame, int width, int height, uint16_t* sums) {
  const int cols = width / kSide, rows = height / kSide;
  const size_t cells = size_t(cols) * rows, rowBytes = 3 * size_t(width);
  for (int by = 0; by < rows; ++by) {
    const uint8_t* row = frame + kSide * by * rowBytes;
    const size_t first = size_t(by) * cols;
    int bx = 0;
    for (; bx + 4 <= cols; bx += 4) {
      uint16_t* out[3] = {sums + first + bx, sums + cells + first + bx,
                          sums + 2 * cells + first + bx};
      sumQuad(row + 3 * kSide * bx, rowBytes, out);
    }
    for (; bx < cols; ++bx)
      sumOneBlock(row + 3 * kSide * bx, rowBytes, sums + first + bx, sums + cells + first + bx,
                  sums + 2 * cells + first + bx);
  }
}

#endif  // HDSML_VECTOR_KERNELS

}  // namespace

void sumBlocks(const uint8_t* frame, int width, int height, uint16_t* sums, KernelPath path) {
#if HDSML_VECTOR_KERNELS
  if (path == KernelPath::kVector) return sumBlocksVector(frame, width, height, sums);
#else
  (void)path;
#endif
  sumBlocksPlain(frame, width, height, sums);
}

}  // namespace hdsml
