#include "motion/BlockRules.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "frames/VectorKernels.h"

namespace hdsml {
namespace {

constexpr int kBlockSide = 4;
constexpr int kBlockBytes = 3 * kBlockSide;  // one row of a block
constexpr int kPixelsPerBlock = kBlockSide * kBlockSide;

// ---------------------------------------------------------------------------
// Decisions, shared by both paths so that they cannot drift apart.

// A block whose channel sum over its 16 pixels is at or beyond these is treated
// as near black or near white in that channel (a mean of about 10 or 240).
constexpr int kDarkChannelSum = 160;
constexpr int kBrightChannelSum = 3840;
// Below this colour distance no case of the normal-light rule can hold, whatever
// the chromaticity and the channel sums.
constexpr int kSsdFloor = 16000;

bool outOfRange(int sum) { return sum <= kDarkChannelSum || sum >= kBrightChannelSum; }

// `sums` holds the current block's three channel sums, then the reference's.
bool isFrameDiffForeground(int ssd, float chroma, const int sums[6]) {
  if (ssd > 800000) return true;
  bool extreme = false;
  for (int c = 0; c < 6; ++c) extreme = extreme || outOfRange(sums[c]);
  const double chromaDistance = chroma;
  if (!extreme) return ssd > kSsdFloor && chromaDistance > 0.08;
  // Near black or white the chromaticity of sensor noise swings widely, hence the
  // tenfold chromaticity and doubled colour thresholds.
  return ssd > 2 * kSsdFloor && chromaDistance > 0.8;
}

// 320 is an average absolute luma change of 20 over the 16 pixels.
bool isLowLightForeground(float lumaSum) { return lumaSum > 320.0; }

// ---------------------------------------------------------------------------
// Plain per-block rules: the reference the vector kernels are held to.

// Decides whether the 4x4 block starting at `current` differs from the one at
// `reference`; `rowBytes` is the distance between pixel rows of both frames.
bool isFrameDiffForegroundBlock(const uint8_t* current, const uint8_t* reference, int rowBytes) {
  int ssd = 0;
  float chroma = 0.0f;
  int sums[6] = {0, 0, 0, 0, 0, 0};
  for (int row = 0; row < kBlockSide; ++row) {
    const uint8_t* a = current + row * rowBytes;
    const uint8_t* b = reference + row * rowBytes;
    for (int col = 0; col < kBlockSide; ++col, a += 3, b += 3) {
      const int a0 = a[0], a1 = a[1], a2 = a[2];
      const int b0 = b[0], b1 = b[1], b2 = b[2];
      ssd += (a2 - b2) * (a2 - b2) + (a1 - b1) * (a1 - b1) + (a0 - b0) * (a0 - b0);

      // Red and blue chromaticity differences, a0/sa - b0/sb and a2/sa - b2/sb,
      // over the common denominator; +1 keeps black pixels defined.
      const int sa = a0 + a1 + a2 + 1;
      const int sb = b0 + b1 + b2 + 1;
      const float p = static_cast<float>(sb * a0 - sa * b0);
      const float q = static_cast<float>(sb * a2 - sa * b2);
      const float r = static_cast<float>(sb * sa);
      chroma += (p * p + q * q) / (r * r);

      sums[0] += a0;
      sums[1] += a1;
      sums[2] += a2;
      sums[3] += b0;
      sums[4] += b1;
      sums[5] += b2;
    }
  }
  return isFrameDiffForeground(ssd, chroma, sums);
}

// Decides whether the 4x4 block starting at `current` differs in luma from the
// one at `reference`; `rowBytes` is the distance between pixel rows of both.
bool isLowLightForegroundBlock(const uint8_t* current, const uint8_t* reference, int rowBytes) {
  float lumaSum = 0.0f;
  for (int row = 0; row < kBlockSide; ++row) {
    const uint8_t* a = current + row * rowBytes;
    const uint8_t* b = reference + row * rowBytes;
    for (int col = 0; col < kBlockSide; ++col, a += 3, b += 3) {
      const double d0 = static_cast<float>(a[0] - b[0]);
      const double d1 = static_cast<float>(a[1] - b[1]);
      const double d2 = static_cast<float>(a[2] - b[2]);
      // The heavier weight sits on byte 2 by design of the tuned rule, even though
      // byte 2 holds blue in the frames this library produces.
      const double luma = 0.299 * d2 + 0.587 * d1 + 0.114 * d0;
      lumaSum = static_cast<float>(lumaSum + std::fabs(luma));
    }
  }
  return isLowLightForeground(lumaSum);
}

using BlockRule = bool (*)(const uint8_t* current, const uint8_t* reference, int rowBytes);

void paintBlock(uint8_t* mask, int width) {
  for (int row = 0; row < kBlockSide; ++row, mask += width) std::memset(mask, 255, kBlockSide);
}

// The plain walk: blocks column by column, each decided on its own. The rule is
// a template argument so that it is inlined rather than called per block.
template <BlockRule isForeground>
int markBlocksPlain(const uint8_t* current, const uint8_t* reference, uint8_t* mask, int width,
                    int height) {
  const int rowBytes = 3 * width;
  int counter = 0;
  for (int cx = 2; cx < width - 2; cx += 4) {
    for (int cy = 2; cy < height - 2; cy += 4) {
      const size_t pixel = static_cast<size_t>(cy - 2) * width + (cx - 2);
      if (!isForeground(current + 3 * pixel, reference + 3 * pixel, rowBytes)) continue;
      counter += kPixelsPerBlock;
      paintBlock(mask + pixel, width);
    }
  }
  return counter;
}

// Blocks in one row of blocks, counted with the plain walk's own bound.
int blocksPerRow(int width) {
  int blocks = 0;
  for (int cx = 2; cx < width - 2; cx += 4) ++blocks;
  return blocks;
}

#if HDSML_VECTOR_KERNELS

// ---------------------------------------------------------------------------
// Vector kernels. A "quad" is four side-by-side blocks: 16 pixels, 48 bytes of
// each of the quad's 4 rows. Every kernel leaves block k of the quad in lane k.

using cv::v_float32x4;
using cv::v_float64x2;
using cv::v_int16x8;
using cv::v_int32x4;
using cv::v_uint16x8;
using cv::v_uint32x4;
using cv::v_uint8x16;

constexpr int kQuadBlocks = 4;
constexpr int kQuadBytes = kQuadBlocks * kBlockBytes;

// Weight of every byte of a quad row, 8 bytes a vector: `weights[k]` covers
// bytes 8k .. 8k + 7, whose channel is the byte's position modulo 3.
struct ByteWeights {
  v_int16x8 weights[6];
};

ByteWeights byteWeights(short w0, short w1, short w2) {
  const short perChannel[3] = {w0, w1, w2};
  short all[kQuadBytes];
  for (int i = 0; i < kQuadBytes; ++i) all[i] = perChannel[i % 3];
  ByteWeights result;
  for (int k = 0; k < 6; ++k) result.weights[k] = cv::v_load(all + 8 * k);
  return result;
}

// Turns six per-byte-pair accumulators of a quad into one sum per block. Lane i
// of `pairs[k]` holds bytes 8k + 2i and 8k + 2i + 1 of the rows; block b spans
// bytes 12b .. 12b + 11, that is pairs 6b .. 6b + 5.
v_int32x4 sumPairsPerBlock(const v_int32x4 (&pairs)[6]) {
  const v_int32x4 zero = cv::v_setzero_s32();
  const v_int32x4 b0 = pairs[0] + cv::v_combine_low(pairs[1], zero);
  const v_int32x4 b1 = pairs[2] + cv::v_combine_high(pairs[1], zero);
  const v_int32x4 b2 = pairs[3] + cv::v_combine_low(pairs[4], zero);
  const v_int32x4 b3 = pairs[5] + cv::v_combine_high(pairs[4], zero);
  v_int32x4 t0, t1, t2, t3;
  cv::v_transpose4x4(b0, b1, b2, b3, t0, t1, t2, t3);
  return t0 + t1 + t2 + t3;
}

// Per block of a quad: the sum over its 48 byte pairs of |a - b| * weight, or,
// without weights, of (a - b)^2, the colour distance `ssd`. Exact integers:
// the largest, 16 * 3 * 255^2, is far from 2^31.
v_int32x4 quadByteSums(const uint8_t* current, const uint8_t* reference, int rowBytes,
                       const ByteWeights* weights) {
  v_int32x4 pairs[6];
  for (v_int32x4& p : pairs) p = cv::v_setzero_s32();
  for (int row = 0; row < kBlockSide; ++row, current += rowBytes, reference += rowBytes) {
    for (int part = 0; part < 3; ++part) {
      const v_uint8x16 d =
          cv::v_absdiff(cv::v_load(current + 16 * part), cv::v_load(reference + 16 * part));
      v_uint16x8 low, high;
      cv::v_expand(d, low, high);
      const v_int16x8 dl = cv::v_reinterpret_as_s16(low), dh = cv::v_reinterpret_as_s16(high);
      const v_int16x8 wl = weights ? weights->weights[2 * part] : dl;
      const v_int16x8 wh = weights ? weights->weights[2 * part + 1] : dh;
      pairs[2 * part] += cv::v_dotprod(dl, wl);
      pairs[2 * part + 1] += cv::v_dotprod(dh, wh);
    }
  }
  return sumPairsPerBlock(pairs);
}

// One quad row of one frame, deinterleaved: channel c of pixel 4k + j sits in
// bits 8j .. 8j + 7 of lane k of `channels[c]`.
struct QuadRow {
  v_uint32x4 channels[3];
};

QuadRow loadQuadRow(const uint8_t* row) {
  v_uint8x16 c0, c1, c2;
  cv::v_load_deinterleave(row, c0, c1, c2);
  return {
      {cv::v_reinterpret_as_u32(c0), cv::v_reinterpret_as_u32(c1), cv::v_reinterpret_as_u32(c2)}};
}

// Channel c of pixel column `column` of each of the quad's blocks, lane = block.
template <int column>
v_int32x4 columnOf(const QuadRow& row, int c) {
  const v_uint32x4 lanes = row.channels[c];
  if constexpr (column == 0) return cv::v_reinterpret_as_s32(lanes & cv::v_setall_u32(0xFF));
  if constexpr (column == 3) return cv::v_reinterpret_as_s32(cv::v_shr<24>(lanes));
  if constexpr (column == 1 || column == 2) {
    return cv::v_reinterpret_as_s32(cv::v_shr<8 * column>(lanes) & cv::v_setall_u32(0xFF));
  }
}

// The normal-light statistics of a quad that the colour distance alone cannot
// decide: chromaticity distance and channel sums, one block per lane.
struct QuadChroma {
  v_float32x4 chroma = cv::v_setzero_f32();
  v_int32x4 sums[6] = {cv::v_setzero_s32(), cv::v_setzero_s32(), cv::v_setzero_s32(),
                       cv::v_setzero_s32(), cv::v_setzero_s32(), cv::v_setzero_s32()};
};

// Adds one pixel column of one row to every block of the quad, with the plain
// rule's arithmetic. sa, sb, the channels and the products sb * a0 and so on are
// integers below 2^24 (at most 766 * 255), which single precision holds exactly,
// so p, q and r come out as the plain rule's integer formulas before their
// conversion; the squares, sum and quotient then round exactly as there.
template <int column>
void addChromaColumn(const QuadRow& cur, const QuadRow& ref, QuadChroma& q) {
  const v_int32x4 a0 = columnOf<column>(cur, 0), a1 = columnOf<column>(cur, 1),
                  a2 = columnOf<column>(cur, 2);
  const v_int32x4 b0 = columnOf<column>(ref, 0), b1 = columnOf<column>(ref, 1),
                  b2 = columnOf<column>(ref, 2);
  const v_int32x4 one = cv::v_setall_s32(1);
  const v_float32x4 sa = cv::v_cvt_f32(a0 + a1 + a2 + one);
  const v_float32x4 sb = cv::v_cvt_f32(b0 + b1 + b2 + one);
  const v_float32x4 p = sb * cv::v_cvt_f32(a0) - sa * cv::v_cvt_f32(b0);
  const v_float32x4 qq = sb * cv::v_cvt_f32(a2) - sa * cv::v_cvt_f32(b2);
  const v_float32x4 r = sb * sa;
  q.chroma = q.chroma + (p * p + qq * qq) / (r * r);
  q.sums[0] += a0;
  q.sums[1] += a1;
  q.sums[2] += a2;
  q.sums[3] += b0;
  q.sums[4] += b1;
  q.sums[5] += b2;
}

// Rows top to bottom, columns left to right: the plain order of the float sum.
QuadChroma quadChroma(const uint8_t* current, const uint8_t* reference, int rowBytes) {
  QuadChroma q;
  for (int row = 0; row < kBlockSide; ++row, current += rowBytes, reference += rowBytes) {
    const QuadRow cur = loadQuadRow(current), ref = loadQuadRow(reference);
    addChromaColumn<0>(cur, ref, q);
    addChromaColumn<1>(cur, ref, q);
    addChromaColumn<2>(cur, ref, q);
    addChromaColumn<3>(cur, ref, q);
  }
  return q;
}

// Bit k set when block k of the quad is foreground under the normal-light rule.
unsigned frameDiffQuad(const uint8_t* current, const uint8_t* reference, int rowBytes) {
  const v_int32x4 ssd = quadByteSums(current, reference, rowBytes, nullptr);
  // Most blocks of a frame do not move; they fail the integer floor, and the
  // chromaticity, which costs a division per pixel, is never needed for them.
  if (!cv::v_check_any(ssd > cv::v_setall_s32(kSsdFloor))) return 0;
  const QuadChroma q = quadChroma(current, reference, rowBytes);
  int ssdLanes[4], sumLanes[6][4];
  float chromaLanes[4];
  cv::v_store(ssdLanes, ssd);
  cv::v_store(chromaLanes, q.chroma);
  for (int c = 0; c < 6; ++c) cv::v_store(sumLanes[c], q.sums[c]);
  unsigned foreground = 0;
  for (int k = 0; k < kQuadBlocks; ++k) {
    const int sums[6] = {sumLanes[0][k], sumLanes[1][k], sumLanes[2][k],
                         sumLanes[3][k], sumLanes[4][k], sumLanes[5][k]};
    if (isFrameDiffForeground(ssdLanes[k], chromaLanes[k], sums)) foreground |= 1u << k;
  }
  return foreground;
}

// Low light. Screen: W = sum over the block of 114|d0| + 587|d1| + 299|d2|, an
// exact integer. With u = 2^-53 and v = 2^-24, each pixel's computed |L| is at
// most (W_pixel / 1000)(1 + u)^4 (the three double constants are within u of
// 0.299, 0.587 and 0.114, and each of the three products and two sums rounds
// by at most u), and each of the 16 accumulation steps, a double sum rounded to
// float, grows the running total by at most (1 + u)(1 + v). So lumaSum <=
// (W / 1000)(1 + 1e-6), and a block with W <= 319000 has lumaSum < 320: it is
// background, and only blocks above the screen need the floating-point sum.
constexpr int kLowLightScreen = 319000;

template <int column>
void addLumaColumn(const QuadRow& cur, const QuadRow& ref, v_float32x4& lumaSum) {
  // Integer differences, then single precision (exact), then double, as plain.
  const v_float32x4 d0 = cv::v_cvt_f32(columnOf<column>(cur, 0) - columnOf<column>(ref, 0));
  const v_float32x4 d1 = cv::v_cvt_f32(columnOf<column>(cur, 1) - columnOf<column>(ref, 1));
  const v_float32x4 d2 = cv::v_cvt_f32(columnOf<column>(cur, 2) - columnOf<column>(ref, 2));
  const v_float64x2 w0 = cv::v_setall_f64(0.114), w1 = cv::v_setall_f64(0.587),
                    w2 = cv::v_setall_f64(0.299);
  // Blocks 0 and 1 in the low half, 2 and 3 in the high half.
  const v_float64x2 lumaLow =
      w2 * cv::v_cvt_f64(d2) + w1 * cv::v_cvt_f64(d1) + w0 * cv::v_cvt_f64(d0);
  const v_float64x2 lumaHigh =
      w2 * cv::v_cvt_f64_high(d2) + w1 * cv::v_cvt_f64_high(d1) + w0 * cv::v_cvt_f64_high(d0);
  lumaSum = cv::v_cvt_f32(cv::v_cvt_f64(lumaSum) + cv::v_abs(lumaLow),
                          cv::v_cvt_f64_high(lumaSum) + cv::v_abs(lumaHigh));
}

unsigned lowLightQuad(const uint8_t* current, const uint8_t* reference, int rowBytes,
                      const ByteWeights& lumaWeights) {
  const v_int32x4 screen = quadByteSums(current, reference, rowBytes, &lumaWeights);
  if (!cv::v_check_any(screen > cv::v_setall_s32(kLowLightScreen))) return 0;
  v_float32x4 lumaSum = cv::v_setzero_f32();
  for (int row = 0; row < kBlockSide; ++row, current += rowBytes, reference += rowBytes) {
    const QuadRow cur = loadQuadRow(current), ref = loadQuadRow(reference);
    addLumaColumn<0>(cur, ref, lumaSum);
    addLumaColumn<1>(cur, ref, lumaSum);
    addLumaColumn<2>(cur, ref, lumaSum);
    addLumaColumn<3>(cur, ref, lumaSum);
  }
  float lanes[4];
  cv::v_store(lanes, lumaSum);
  unsigned foreground = 0;
  for (int k = 0; k < kQuadBlocks; ++k)
    if (isLowLightForeground(lanes[k])) foreground |= 1u << k;
  return foreground;
}

// The vector walk: row of blocks by row of blocks, four blocks at a time; the
// blocks left at the end of a row whose quad would reach past the row's end go
// through the plain rule.
// It visits exactly the plain walk's blocks, and the order of the visits changes
// neither the mask nor the count.
template <typename QuadRule, BlockRule isForeground>
int markBlocksVector(const uint8_t* current, const uint8_t* reference, uint8_t* mask, int width,
                     int height, const QuadRule& quadRule) {
  const int rowBytes = 3 * width;
  const int blocks = blocksPerRow(width);
  int counter = 0;
  for (int cy = 2; cy < height - 2; cy += 4) {
    const size_t top = static_cast<size_t>(cy - 2) * width;
    const uint8_t* a = current + 3 * top;
    const uint8_t* b = reference + 3 * top;
    uint8_t* m = mask + top;
    int block = 0;
    for (; block < blocks; block += kQuadBlocks) {
      // A last, partial quad is still read whole when its 16 pixels lie within
      // the row; its lanes past the last visited block are ignored.
      const int inQuad = std::min(kQuadBlocks, blocks - block);
      if (inQuad < kQuadBlocks && kBlockSide * (block + kQuadBlocks) > width) break;
      const unsigned foreground =
          quadRule(a + kBlockBytes * block, b + kBlockBytes * block, rowBytes);
      for (int k = 0; k < inQuad; ++k) {
        if ((foreground >> k & 1u) == 0) continue;
        counter += kPixelsPerBlock;
        paintBlock(m + kBlockSide * (block + k), width);
      }
    }
    for (; block < blocks; ++block) {
      if (!isForeground(a + kBlockBytes * block, b + kBlockBytes * block, rowBytes)) continue;
      counter += kPixelsPerBlock;
      paintBlock(m + kBlockSide * block, width);
    }
  }
  return counter;
}

#endif  // HDSML_VECTOR_KERNELS

}  // namespace

int markFrameDiffBlocks(const uint8_t* current, const uint8_t* reference, uint8_t* mask, int width,
                        int height, KernelPath path) {
#if HDSML_VECTOR_KERNELS
  if (path == KernelPath::kVector) {
    auto quadRule = [](const uint8_t* a, const uint8_t* b, int rowBytes) {
      return frameDiffQuad(a, b, rowBytes);
    };
    return markBlocksVector<decltype(quadRule), isFrameDiffForegroundBlock>(
        current, reference, mask, width, height, quadRule);
  }
#else
  (void)path;
#endif
  return markBlocksPlain<isFrameDiffForegroundBlock>(current, reference, mask, width, height);
}

int markLowLightBlocks(const uint8_t* current, const uint8_t* reference, uint8_t* mask, int width,
                       int height, KernelPath path) {
#if HDSML_VECTOR_KERNELS
  if (path == KernelPath::kVector) {
    // Weights of bytes 0, 1 and 2 scaled by 1000: 0.114, 0.587 and 0.299.
    static const ByteWeights lumaWeights = byteWeights(114, 587, 299);
    auto quadRule = [](const uint8_t* a, const uint8_t* b, int rowBytes) {
      return lowLightQuad(a, b, rowBytes, lumaWeights);
    };
    return markBlocksVector<decltype(quadRule), isLowLightForegroundBlock>(current, reference, mask,
                                                                           width, height, quadRule);
  }
#else
  (void)path;
#endif
  return markBlocksPlain<isLowLightForegroundBlock>(current, reference, mask, width, height);
}

}  // namespace hdsml
