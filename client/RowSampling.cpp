#include "client/RowSampling.h"

#include "frames/VectorKernels.h"

#include <cstring>

namespace {

// Output samples a vector block produces.
constexpr int kBlock = 16;

// Offsets pixelStride * (c * step >> 5) of the output columns, accumulated
// exactly as the plain loop accumulates them.
void fillOffsets(std::vector<std::ptrdiff_t>& offsets, int64_t pixelStride, int64_t step,
                 int outCols) {
  offsets.resize(outCols > 0 ? outCols : 0);
  int64_t ax = 0;
  for (int c = 0; c < outCols; ++c, ax += step)
    offsets[c] = static_cast<std::ptrdiff_t>(pixelStride * (ax >> kStepFractionBits));
}

// Where the vector blocks of a row stop: a block that starts at c reads up to
// the end of its last group, past that group's sample, so without leave to
// overread the blocks stop before the row's last output.
int vectorEnd(int outCols, bool mayOverread) { return mayOverread ? outCols : outCols - 1; }

// Eight samples a turn: the loop is a load of the offset, a load and a store of
// the byte, and its own counting would otherwise cost as much again.
void sampleTable(const unsigned char* row, const std::ptrdiff_t* offsets, int c, int outCols,
                 unsigned char* __restrict out) {
  for (; c + 8 <= outCols; c += 8)
    for (int i = 0; i < 8; ++i) out[c + i] = row[offsets[c + i]];
  for (; c < outCols; ++c) out[c] = row[offsets[c]];
}

void sampleRowTable(const unsigned char* row, const std::ptrdiff_t* offsets, int outCols,
                    bool /*mayOverread*/, unsigned char* out) {
  sampleTable(row, offsets, 0, outCols, out);
}

void samplePairsTable(const unsigned char* pairs, const std::ptrdiff_t* offsets, int c, int outCols,
                      unsigned char* __restrict outLow, unsigned char* __restrict outHigh) {
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

void samplePairRowTable(const unsigned char* pairs, const std::ptrdiff_t* offsets, int outCols,
                        bool /*mayOverread*/, unsigned char* outLow, unsigned char* outHigh) {
  samplePairsTable(pairs, offsets, 0, outCols, outLow, outHigh);
}

#if HDSML_VECTOR_KERNELS

using cv::v_int32x4;
using cv::v_uint16x8;
using cv::v_uint32x4;
using cv::v_uint8x16;

// The first byte of each of 16 groups of m bytes (NEON: one structure load).
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
  if constexpr (m == 1) a = cv::v_load(q);
  if constexpr (m == 3) cv::v_load_deinterleave(q, a, b, c);
  if constexpr (m == 4) {
    v_uint32x4 d;
    cv::v_load_deinterleave(q, a, b, c, d);
  }
  return a;
}

// Lanes narrowed to their lower half (the byte or 16 bits at the lower address).
// The narrowing packs saturate, so the lanes are first brought into the packs'
// range, where they saturate nothing: SSE2 has only signed packs from 32 bits
// and its unsigned pack from 16 bits takes signed input.
v_uint8x16 lowBytes(const v_uint16x8& a, const v_uint16x8& b) {
  const v_uint16x8 low = cv::v_setall_u16(0xFF);
  return cv::v_pack_u(cv::v_reinterpret_as_s16(a & low), cv::v_reinterpret_as_s16(b & low));
}
v_uint8x16 highBytes(const v_uint16x8& a, const v_uint16x8& b) {
  return cv::v_pack_u(cv::v_reinterpret_as_s16(cv::v_shr<8>(a)),
                      cv::v_reinterpret_as_s16(cv::v_shr<8>(b)));
}
v_uint16x8 lowHalves(const v_uint32x4& a, const v_uint32x4& b) {
#if CV_NEON
  const v_uint32x4 low = cv::v_setall_u32(0xFFFF);
  return cv::v_pack(a & low, b & low);
#else
  // Sign-extended from 16 bits, each lane packs to its own low half.
  const auto extend = [](const v_uint32x4& x) {
    return cv::v_shr<16>(cv::v_shl<16>(cv::v_reinterpret_as_s32(x)));
  };
  return cv::v_reinterpret_as_u16(cv::v_pack(extend(a), extend(b)));
#endif
}
// The lowest byte of each 32-bit lane of a, b, c, d: signed packs, which SSE2
// has, narrow lanes that are known to be below 256 exactly.
v_uint8x16 lowBytes32(const v_uint32x4& a, const v_uint32x4& b, const v_uint32x4& c,
                      const v_uint32x4& d) {
  const v_uint32x4 low = cv::v_setall_u32(0xFF);
  return cv::v_pack_u(
      cv::v_pack(cv::v_reinterpret_as_s32(a & low), cv::v_reinterpret_as_s32(b & low)),
      cv::v_pack(cv::v_reinterpret_as_s32(c & low), cv::v_reinterpret_as_s32(d & low)));
}

// 16 samples one every k bytes: bytes 0, k, 2k, ... 15k of `p`. It reads 16k
// bytes, k - 1 of them past the last sample.
template <int k>
v_uint8x16 sixteenSamples(const unsigned char* p) {
#if CV_NEON
  constexpr bool structureLoads = true;
#else
  constexpr bool structureLoads = false;
#endif
  if constexpr (k == 1 || k == 3 || (structureLoads && k <= 4)) {
    return groupHeads8<k>(p);
  } else if constexpr (k == 2) {
    return lowBytes(groupHeads16<1>(p), groupHeads16<1>(p + 16));
  } else if constexpr (k == 4) {
    return lowBytes32(groupHeads32<1>(p), groupHeads32<1>(p + 16), groupHeads32<1>(p + 32),
                      groupHeads32<1>(p + 48));
  } else if constexpr (k == 6 || k == 8) {
    return lowBytes(groupHeads16<k / 2>(p), groupHeads16<k / 2>(p + 8 * k));
  } else {
    static_assert(k == 12 || k == 16, "no vector form for this step");
    return lowBytes(lowHalves(groupHeads32<k / 4>(p), groupHeads32<k / 4>(p + 4 * k)),
                    lowHalves(groupHeads32<k / 4>(p + 8 * k), groupHeads32<k / 4>(p + 12 * k)));
  }
}

// 16 byte pairs one every 2k bytes, as two sets of 8 lanes; reads 32k bytes.
template <int k>
void sixteenPairs(const unsigned char* p, v_uint16x8& first, v_uint16x8& second) {
#if !CV_NEON
  if constexpr (k == 2) {
    first = lowHalves(groupHeads32<1>(p), groupHeads32<1>(p + 16));
    second = lowHalves(groupHeads32<1>(p + 32), groupHeads32<1>(p + 48));
    return;
  }
#endif
  if constexpr (k <= 4) {
    first = groupHeads16<k>(p);
    second = groupHeads16<k>(p + 16 * k);
  } else {
    static_assert(k == 6 || k == 8, "no vector form for this step");
    first = lowHalves(groupHeads32<k / 2>(p), groupHeads32<k / 2>(p + 8 * k));
    second = lowHalves(groupHeads32<k / 2>(p + 16 * k), groupHeads32<k / 2>(p + 24 * k));
  }
}

// One row of samples one every k bytes (pixel stride 1, step k samples). With
// leave to overread, a last block that overlaps the one before it ends the row.
template <int k>
void sampleRowVector(const unsigned char* row, const std::ptrdiff_t* offsets, int outCols,
                     bool mayOverread, unsigned char* out) {
  const int end = vectorEnd(outCols, mayOverread);
  int c = 0;
  for (; c + kBlock <= end; c += kBlock) cv::v_store(out + c, sixteenSamples<k>(row + k * c));
  if (mayOverread && c < outCols && outCols >= kBlock) {
    c = outCols - kBlock;
    cv::v_store(out + c, sixteenSamples<k>(row + k * c));
    return;
  }
  sampleTable(row, offsets, c, outCols, out);
}

template <int k>
void samplePairRowVector(const unsigned char* pairs, const std::ptrdiff_t* offsets, int outCols,
                         bool mayOverread, unsigned char* outLow, unsigned char* outHigh) {
  auto block = [&](int c) {
    v_uint16x8 first, second;
    sixteenPairs<k>(pairs + 2 * k * c, first, second);
    cv::v_store(outLow + c, lowBytes(first, second));
    cv::v_store(outHigh + c, highBytes(first, second));
  };
  const int end = vectorEnd(outCols, mayOverread);
  int c = 0;
  for (; c + kBlock <= end; c += kBlock) block(c);
  if (mayOverread && c < outCols && outCols >= kBlock) {
    block(outCols - kBlock);
    return;
  }
  samplePairsTable(pairs, offsets, c, outCols, outLow, outHigh);
}

#endif  // HDSML_VECTOR_KERNELS

// The vector row function for a step of k whole samples, its overread, or the
// table's.
RowSampler::RowFn rowFnFor(int64_t pixelStride, int64_t step, int64_t& overread) {
  overread = 0;
#if HDSML_VECTOR_KERNELS
  if (pixelStride == 1 && step % (1 << kStepFractionBits) == 0) {
    const int64_t k = step >> kStepFractionBits;
    overread = k - 1;
    switch (k) {
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
        overread = 0;
        break;
    }
  }
#endif
  (void)pixelStride;
  (void)step;
  return sampleRowTable;
}

PairSampler::RowFn pairFnFor(int64_t step, int64_t& overread) {
  overread = 0;
#if HDSML_VECTOR_KERNELS
  if (step % (1 << kStepFractionBits) == 0) {
    const int64_t k = step >> kStepFractionBits;
    overread = 2 * k - 2;
    switch (k) {
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
        overread = 0;
        break;
    }
  }
#endif
  (void)step;
  return samplePairRowTable;
}

}  // namespace

void prefetchRowStart(const unsigned char* row) {
  // Only the row's first lines are named; from there the hardware follows the
  // row by itself.
  constexpr int kLine = 64, kLines = 8;
  for (int i = 0; i < kLines; ++i) __builtin_prefetch(row + kLine * i, 0, 1);
}

void RowSampler::configure(int64_t pixelStride, int64_t step, int outCols) {
  if (pixelStride == pixelStride_ && step == step_ && outCols == outCols_) return;
  fillOffsets(offsets_, pixelStride, step, outCols);
  row_ = rowFnFor(pixelStride, step, overread_);
  vectorized_ = row_ != sampleRowTable;
  pixelStride_ = pixelStride;
  step_ = step;
  outCols_ = outCols;
}

void RowSampler::sample(const unsigned char* row, unsigned char* out, bool mayOverread) const {
  row_(row, offsets_.data(), outCols_, mayOverread, out);
}

void PairSampler::configure(int64_t step, int outCols) {
  if (step == step_ && outCols == outCols_) return;
  fillOffsets(offsets_, 2, step, outCols);
  row_ = pairFnFor(step, overread_);
  vectorized_ = row_ != samplePairRowTable;
  step_ = step;
  outCols_ = outCols;
}

void PairSampler::sample(const unsigned char* pairs, unsigned char* outLow, unsigned char* outHigh,
                         bool mayOverread) const {
  row_(pairs, offsets_.data(), outCols_, mayOverread, outLow, outHigh);
}

OverreadRule::OverreadRule(int64_t rowStride, int64_t stepY, int outRows, int64_t overread)
    : rowStride_(rowStride),
      stepY_(stepY),
      overread_(overread),
      highestRow_(outRows < 1      ? 0
                  : rowStride >= 0 ? sourceRowOffset(rowStride, stepY, outRows - 1)
                                   : 0) {}
