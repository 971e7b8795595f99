// Nearest-neighbour shrink of the three strided YUV 4:2:0 planes into the packed
// planar image at the motion resolution, in 1/32-pixel fixed point. Steps,
// accumulators and offsets are 64-bit, so that no size a camera could report
// overflows them.
#include "client/Destride.h"

#include "frames/VectorKernels.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/HDSMLClient.h"

namespace {

// Steps are in 1/32 pixel: the fractional part keeps the sampling even without
// a division per sample.
constexpr int kFractionBits = 5;

// The geometry of one destride call, as both implementations use it.
struct Geometry {
  int64_t stepX = 0;
  int64_t stepY = 0;
};

// False when there is nothing to do: an output size or a step of 0.
bool makeGeometry(int height, int width, int outHeight, int outWidth, Geometry& g) {
  g.stepX = destrideStep(width, outWidth);
  g.stepY = destrideStep(height, outHeight);
  return g.stepX != 0 && g.stepY != 0;
}

// ---------------------------------------------------------------------------
// Plain: one sample at a time, the reference.

// Copies `outCols` samples of one source row, one every `step`/32 samples.
unsigned char* sampleRowPlain(const unsigned char* row, int64_t pixelStride, int64_t step,
                              int outCols, unsigned char* out) {
  int64_t ax = 0;
  for (int c = 0; c < outCols; ++c, ax += step) *out++ = row[pixelStride * (ax >> kFractionBits)];
  return out;
}

// Shrinks one plane and returns the next output position.
unsigned char* samplePlanePlain(const unsigned char* plane, int64_t pixelStride, int64_t rowStride,
                                int64_t stepX, int64_t stepY, int outRows, int outCols,
                                unsigned char* out) {
  int64_t ay = 0;
  for (int r = 0; r < outRows; ++r, ay += stepY)
    out =
        sampleRowPlain(plane + rowStride * (ay >> kFractionBits), pixelStride, stepX, outCols, out);
  return out;
}

void destridePlain(unsigned char* y, unsigned char* u, unsigned char* v, int height, int width,
                   int yPixelStride, int yRowStride, int uPixelStride, int uRowStride,
                   int vPixelStride, int vRowStride, int outHeight, int outWidth,
                   unsigned char* out) {
  Geometry g;
  if (!makeGeometry(height, width, outHeight, outWidth, g)) return;
  // The chroma planes are half the source and the output half the output, so
  // the luma steps apply to them unchanged.
  out = samplePlanePlain(y, yPixelStride, yRowStride, g.stepX, g.stepY, outHeight, outWidth, out);
  out = samplePlanePlain(u, uPixelStride, uRowStride, g.stepX, g.stepY, outHeight >> 1,
                         outWidth >> 1, out);
  samplePlanePlain(v, vPixelStride, vRowStride, g.stepX, g.stepY, outHeight >> 1, outWidth >> 1,
                   out);
}

// ---------------------------------------------------------------------------
// Fast: the same samples. Every row reads through a table of column offsets
// built once per geometry; when the step is a whole number of source samples
// (640, 1280 or 1920 pixels shrunk to 320, say), vector loads pick them instead.

// Source offsets of the output columns of one plane: pixelStride * (c * step >> 5),
// accumulated exactly as the plain loop does. Rebuilt only when asked for a
// different geometry, so a stream of equal frames never allocates.
class ColumnTable {
 public:
  const std::ptrdiff_t* offsets(int64_t pixelStride, int64_t step, int outCols) {
    if (pixelStride != pixelStride_ || step != step_ || outCols != outCols_) {
      offsets_.resize(outCols > 0 ? outCols : 0);
      int64_t ax = 0;
      for (int c = 0; c < outCols; ++c, ax += step)
        offsets_[c] = static_cast<std::ptrdiff_t>(pixelStride * (ax >> kFractionBits));
      pixelStride_ = pixelStride;
      step_ = step;
      outCols_ = outCols;
    }
    return offsets_.data();
  }

 private:
  int64_t pixelStride_ = 0;
  int64_t step_ = 0;
  int outCols_ = -1;
  std::vector<std::ptrdiff_t> offsets_;
};

// Asks for the cache lines of a row that is about to be sampled: a camera frame
// arrives in memory, not in the cache, and the rows a shrink samples lie too far
// apart for the hardware to guess the next one. Only the row's first lines are
// named; from there the hardware follows the row by itself.
void prefetchRowStart(const unsigned char* row) {
  constexpr int kLine = 64, kLines = 8;
  for (int i = 0; i < kLines; ++i) __builtin_prefetch(row + kLine * i, 0, 1);
}

// Rows this far ahead of the one being sampled are prefetched.
constexpr int kPrefetchRows = 8;

// One source row per output row: the row offset for output row r is
// rowStride * (r * stepY >> 5), accumulated as the plain loop does.
class RowWalk {
 public:
  RowWalk(int64_t rowStride, int64_t stepY) : rowStride_(rowStride), stepY_(stepY) {}
  int64_t offset(int r) const { return rowStride_ * ((stepY_ * r) >> kFractionBits); }

 private:
  int64_t rowStride_;
  int64_t stepY_;
};

#if HDSML_VECTOR_KERNELS

using cv::v_uint16x8;
using cv::v_uint32x4;
using cv::v_uint8x16;

// The first byte of each of 16 groups of m bytes.
template <int m>
v_uint8x16 groupHeads8(const unsigned char* p) {
  v_uint8x16 a, b, c, d;
  if constexpr (m == 1) a = cv::v_load(p);
  if constexpr (m == 2) cv::v_load_deinterleave(p, a, b);
  if constexpr (m == 3) cv::v_load_deinterleave(p, a, b, c);
  if constexpr (m == 4) cv::v_load_deinterleave(p, a, b, c, d);
  return a;
}

// The first two bytes of each of 8 groups of 2m bytes, as 16-bit lanes.
template <int m>
v_uint16x8 groupHeads16(const unsigned char* p) {
  const ushort* q = reinterpret_cast<const ushort*>(p);
  v_uint16x8 a, b, c, d;
  if constexpr (m == 1) a = cv::v_load(q);
  if constexpr (m == 2) cv::v_load_deinterleave(q, a, b);
  if constexpr (m == 3) cv::v_load_deinterleave(q, a, b, c);
  if constexpr (m == 4) cv::v_load_deinterleave(q, a, b, c, d);
  return a;
}

// The first four bytes of each of 4 groups of 4m bytes, as 32-bit lanes.
template <int m>
v_uint32x4 groupHeads32(const unsigned char* p) {
  const unsigned* q = reinterpret_cast<const unsigned*>(p);
  v_uint32x4 a, b, c;
  if constexpr (m == 3) cv::v_load_deinterleave(q, a, b, c);
  if constexpr (m == 4) {
    v_uint32x4 d;
    cv::v_load_deinterleave(q, a, b, c, d);
  }
  return a;
}

// Lanes narrowed to their lower half (the byte or 16 bits at the lower address).
v_uint8x16 lowBytes(const v_uint16x8& a, const v_uint16x8& b) {
  const v_uint16x8 low = cv::v_setall_u16(0xFF);
  return cv::v_pack(a & low, b & low);  // every lane fits: the pack saturates nothing
}
v_uint8x16 highBytes(const v_uint16x8& a, const v_uint16x8& b) {
  return cv::v_pack(cv::v_shr<8>(a), cv::v_shr<8>(b));
}
v_uint16x8 lowHalves(const v_uint32x4& a, const v_uint32x4& b) {
  const v_uint32x4 low = cv::v_setall_u32(0xFFFF);
  return cv::v_pack(a & low, b & low);
}

// 16 samples one every k bytes: bytes 0, k, 2k, ... 15k of `p`.
template <int k>
v_uint8x16 sixteenSamples(const unsigned char* p) {
  if constexpr (k <= 4) {
    return groupHeads8<k>(p);
  } else if constexpr (k == 6 || k == 8) {
    return lowBytes(groupHeads16<k / 2>(p), groupHeads16<k / 2>(p + 8 * k));
  } else {
    static_assert(k == 12 || k == 16, "no vector form for this step");
    return lowBytes(lowHalves(groupHeads32<k / 4>(p), groupHeads32<k / 4>(p + 4 * k)),
                    lowHalves(groupHeads32<k / 4>(p + 8 * k), groupHeads32<k / 4>(p + 12 * k)));
  }
}

// 16 byte pairs one every 2k bytes (interleaved chroma), as two sets of 8 lanes.
template <int k>
void sixteenPairs(const unsigned char* p, v_uint16x8& first, v_uint16x8& second) {
  if constexpr (k <= 4) {
    first = groupHeads16<k>(p);
    second = groupHeads16<k>(p + 16 * k);
  } else {
    static_assert(k == 6 || k == 8, "no vector form for this step");
    first = lowHalves(groupHeads32<k / 2>(p), groupHeads32<k / 2>(p + 8 * k));
    second = lowHalves(groupHeads32<k / 2>(p + 16 * k), groupHeads32<k / 2>(p + 24 * k));
  }
}

// A vector block of 16 outputs reads up to the end of its last group, which
// lies past that group's sample: blocks stop before the row's last output, so
// that no read goes beyond the last byte the plain loop reads.
constexpr int kBlock = 16;

// One row of samples one every k bytes (pixel stride 1, step k pixels).
template <int k>
void sampleRowVector(const unsigned char* row, const std::ptrdiff_t* offsets, int outCols,
                     unsigned char* out) {
  int c = 0;
  for (; c + kBlock < outCols; c += kBlock) cv::v_store(out + c, sixteenSamples<k>(row + k * c));
  for (; c < outCols; ++c) out[c] = row[offsets[c]];
}

// One row of interleaved chroma: pairs one every 2k bytes from `pairs`, the
// lower of the two plane pointers; `lowIsU` tells which plane's sample comes
// first in a pair.
template <int k>
void samplePairRowVector(const unsigned char* pairs, bool lowIsU, const std::ptrdiff_t* offsets,
                         int outCols, unsigned char* outU, unsigned char* outV) {
  unsigned char* outLow = lowIsU ? outU : outV;
  unsigned char* outHigh = lowIsU ? outV : outU;
  int c = 0;
  for (; c + kBlock < outCols; c += kBlock) {
    v_uint16x8 first, second;
    sixteenPairs<k>(pairs + 2 * k * c, first, second);
    cv::v_store(outLow + c, lowBytes(first, second));
    cv::v_store(outHigh + c, highBytes(first, second));
  }
  for (; c < outCols; ++c) {
    outLow[c] = pairs[offsets[c]];
    outHigh[c] = pairs[offsets[c] + 1];
  }
}

#endif  // HDSML_VECTOR_KERNELS

// How one plane's rows are sampled.
using RowSampler = void (*)(const unsigned char* row, const std::ptrdiff_t* offsets, int outCols,
                            unsigned char* out);
using PairRowSampler = void (*)(const unsigned char* pairs, bool lowIsU,
                                const std::ptrdiff_t* offsets, int outCols, unsigned char* outU,
                                unsigned char* outV);

// Four samples a turn: the loop is a load of the offset, a load and a store of
// the byte, and its own counting would otherwise cost as much again.
void sampleRowTable(const unsigned char* row, const std::ptrdiff_t* offsets, int outCols,
                    unsigned char* __restrict out) {
  int c = 0;
  for (; c + 4 <= outCols; c += 4) {
    out[c] = row[offsets[c]];
    out[c + 1] = row[offsets[c + 1]];
    out[c + 2] = row[offsets[c + 2]];
    out[c + 3] = row[offsets[c + 3]];
  }
  for (; c < outCols; ++c) out[c] = row[offsets[c]];
}

void samplePairRowTable(const unsigned char* pairs, bool lowIsU, const std::ptrdiff_t* offsets,
                        int outCols, unsigned char* __restrict outU,
                        unsigned char* __restrict outV) {
  unsigned char* outLow = lowIsU ? outU : outV;
  unsigned char* outHigh = lowIsU ? outV : outU;
  int c = 0;
  for (; c + 2 <= outCols; c += 2) {
    const unsigned char* first = pairs + offsets[c];
    const unsigned char* second = pairs + offsets[c + 1];
    outLow[c] = first[0];
    outHigh[c] = first[1];
    outLow[c + 1] = second[0];
    outHigh[c + 1] = second[1];
  }
  for (; c < outCols; ++c) {
    outLow[c] = pairs[offsets[c]];
    outHigh[c] = pairs[offsets[c] + 1];
  }
}

// The vector row sampler for a step of `k` whole samples, or the table one.
RowSampler rowSamplerFor(int64_t pixelStride, int64_t stepX) {
#if HDSML_VECTOR_KERNELS
  if (pixelStride == 1 && stepX % (1 << kFractionBits) == 0) {
    switch (stepX >> kFractionBits) {
      case 1:
        return sampleRowVector<1>;
      case 2:
        return sampleRowVector<2>;
      case 3:
        return sampleRowVector<3>;
      case 4:
        return sampleRowVector<4>;
      case 6:
        return sampleRowVector<6>;
      case 8:
        return sampleRowVector<8>;
      case 12:
        return sampleRowVector<12>;
      case 16:
        return sampleRowVector<16>;
      default:
        break;
    }
  }
#endif
  (void)pixelStride;
  (void)stepX;
  return sampleRowTable;
}

PairRowSampler pairRowSamplerFor(int64_t stepX) {
#if HDSML_VECTOR_KERNELS
  if (stepX % (1 << kFractionBits) == 0) {
    switch (stepX >> kFractionBits) {
      case 1:
        return samplePairRowVector<1>;
      case 2:
        return samplePairRowVector<2>;
      case 3:
        return samplePairRowVector<3>;
      case 4:
        return samplePairRowVector<4>;
      case 6:
        return samplePairRowVector<6>;
      case 8:
        return samplePairRowVector<8>;
      default:
        break;
    }
  }
#endif
  (void)stepX;
  return samplePairRowTable;
}

// Shrinks one plane and returns the next output position.
unsigned char* samplePlaneFast(const unsigned char* plane, int64_t pixelStride, int64_t rowStride,
                               const Geometry& g, int outRows, int outCols, ColumnTable& columns,
                               unsigned char* out) {
  if (outRows <= 0 || outCols <= 0) return out;
  const std::ptrdiff_t* offsets = columns.offsets(pixelStride, g.stepX, outCols);
  const RowSampler sampleRow = rowSamplerFor(pixelStride, g.stepX);
  const RowWalk rows(rowStride, g.stepY);
  for (int r = 0; r < outRows; ++r, out += outCols) {
    if (r + kPrefetchRows < outRows) prefetchRowStart(plane + rows.offset(r + kPrefetchRows));
    sampleRow(plane + rows.offset(r), offsets, outCols, out);
  }
  return out;
}

// Both chroma planes in one pass over interleaved chroma (NV21, NV12: pixel
// stride 2, the planes one byte apart, the same row stride): each pair of
// samples is read once instead of each plane's row being walked on its own.
void sampleInterleavedChromaFast(const unsigned char* u, const unsigned char* v, int64_t rowStride,
                                 const Geometry& g, int outRows, int outCols, ColumnTable& columns,
                                 unsigned char* outU) {
  if (outRows <= 0 || outCols <= 0) return;
  const bool lowIsU = u < v;
  const unsigned char* pairs = lowIsU ? u : v;
  const std::ptrdiff_t* offsets = columns.offsets(2, g.stepX, outCols);
  const PairRowSampler sampleRow = pairRowSamplerFor(g.stepX);
  const RowWalk rows(rowStride, g.stepY);
  unsigned char* outV = outU + static_cast<std::ptrdiff_t>(outRows) * outCols;
  for (int r = 0; r < outRows; ++r, outU += outCols, outV += outCols) {
    if (r + kPrefetchRows < outRows) prefetchRowStart(pairs + rows.offset(r + kPrefetchRows));
    sampleRow(pairs + rows.offset(r), lowIsU, offsets, outCols, outU, outV);
  }
}

void destrideFast(unsigned char* y, unsigned char* u, unsigned char* v, int height, int width,
                  int yPixelStride, int yRowStride, int uPixelStride, int uRowStride,
                  int vPixelStride, int vRowStride, int outHeight, int outWidth,
                  unsigned char* out) {
  Geometry g;
  if (!makeGeometry(height, width, outHeight, outWidth, g)) return;
  // Per thread, so that concurrent callers never share a table.
  thread_local ColumnTable lumaColumns, uColumns, vColumns;
  out = samplePlaneFast(y, yPixelStride, yRowStride, g, outHeight, outWidth, lumaColumns, out);
  const int chromaRows = outHeight >> 1, chromaCols = outWidth >> 1;
  const bool interleaved = uPixelStride == 2 && vPixelStride == 2 && uRowStride == vRowStride &&
                           (u + 1 == v || v + 1 == u);
  if (interleaved) {
    sampleInterleavedChromaFast(u, v, uRowStride, g, chromaRows, chromaCols, uColumns, out);
    return;
  }
  out = samplePlaneFast(u, uPixelStride, uRowStride, g, chromaRows, chromaCols, uColumns, out);
  samplePlaneFast(v, vPixelStride, vRowStride, g, chromaRows, chromaCols, vColumns, out);
}

}  // namespace

int64_t destrideStep(int size, int outSize) {
  // A multiplication, not a shift: a negative size stays defined behaviour.
  return outSize == 0 ? 0 : static_cast<int64_t>(size) * (1 << kFractionBits) / outSize;
}

void destrideWith(KernelPath path, unsigned char* y, unsigned char* u, unsigned char* v, int height,
                  int width, int yPixelStride, int yRowStride, int uPixelStride, int uRowStride,
                  int vPixelStride, int vRowStride, int outHeight, int outWidth,
                  unsigned char* out) {
  if (path == KernelPath::kPlain) {
    destridePlain(y, u, v, height, width, yPixelStride, yRowStride, uPixelStride, uRowStride,
                  vPixelStride, vRowStride, outHeight, outWidth, out);
  } else {
    destrideFast(y, u, v, height, width, yPixelStride, yRowStride, uPixelStride, uRowStride,
                 vPixelStride, vRowStride, outHeight, outWidth, out);
  }
}

void destride(unsigned char* y, unsigned char* u, unsigned char* v, int height, int width,
              int yPixelStride, int yRowStride, int uPixelStride, int uRowStride, int vPixelStride,
              int vRowStride, int outHeight, int outWidth, unsigned char* out) {
  destrideWith(defaultKernelPath(), y, u, v, height, width, yPixelStride, yRowStride, uPixelStride,
               uRowStride, vPixelStride, vRowStride, outHeight, outWidth, out);
}
