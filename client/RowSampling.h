// The samples of one output row of a shrunk plane, picked from one source row
// by the nearest-neighbour rule of destride: output column c takes the source
// sample at (c * step) >> 5, steps in 1/32 sample. A table of column offsets
// serves every geometry; vector loads serve whole-sample steps. Shared by
// destride's faster kernel and the fused intake kernel.
//
// A vector load reads whole groups of bytes, so it can read a few bytes past a
// row's last sample. The caller says, row by row, whether that is allowed: it is
// for every row but the one that ends highest in memory, whose last sample may
// be the last byte of the plane. Not thread-safe: one object a plane and thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Steps are in 1/32 sample: the fractional part keeps the sampling even without
// a division per sample.
constexpr int kStepFractionBits = 5;

// The offset, in bytes, of output row `r`'s source row: rowStride * (r * step >> 5),
// in 64-bit arithmetic as the plain loop accumulates it.
inline int64_t sourceRowOffset(int64_t rowStride, int64_t stepY, int r) {
  return rowStride * ((stepY * r) >> kStepFractionBits);
}

// Whether the two chroma planes are interleaved (NV21, NV12): pixel stride 2,
// one row stride, the planes one byte apart.
inline bool chromaAreInterleaved(const unsigned char* u, const unsigned char* v,
                                 int64_t uPixelStride, int64_t uRowStride, int64_t vPixelStride,
                                 int64_t vRowStride) {
  return uPixelStride == 2 && vPixelStride == 2 && uRowStride == vRowStride &&
         (u + 1 == v || v + 1 == u);
}

// Asks for the first cache lines of a row that is about to be sampled: camera
// frames arrive in memory, not in the cache, and the rows a shrink samples lie
// too far apart for the hardware to guess the next one.
void prefetchRowStart(const unsigned char* row);

// Rows this far ahead of the one being sampled are prefetched.
constexpr int kPrefetchRows = 8;

// One plane's rows: outCols samples, one every step/32 samples of pixelStride bytes.
class RowSampler {
 public:
  // Cheap when the geometry is the one of the last call: a stream of equal
  // frames never allocates.
  void configure(int64_t pixelStride, int64_t step, int outCols);
  // Bytes past a row's last sample that sample() may read when allowed.
  int64_t overread() const { return overread_; }
  void sample(const unsigned char* row, unsigned char* out, bool mayOverread) const;
  // Two rows at once: through the table, each column offset is loaded once for
  // both, and the two rows' reads from memory overlap.
  void sampleTwo(const unsigned char* const (&rows)[2], unsigned char* const (&out)[2],
                 const bool (&mayOverread)[2]) const;

  using RowFn = void (*)(const unsigned char* row, const std::ptrdiff_t* offsets, int outCols,
                         bool mayOverread, unsigned char* out);

  // Whether sample() uses vector loads (whole-sample steps), and the column
  // offsets it reads through otherwise.
  bool vectorized() const { return vectorized_; }
  const std::ptrdiff_t* offsets() const { return offsets_.data(); }

 private:
  bool vectorized_ = false;
  int64_t pixelStride_ = 0, step_ = 0;
  int outCols_ = -1;
  int64_t overread_ = 0;
  RowFn row_ = nullptr;
  std::vector<std::ptrdiff_t> offsets_;
};

// Both chroma planes of interleaved chroma (NV21, NV12: pixel stride 2, the two
// planes one byte apart, one row stride) in one pass over the pairs: `pairs` is
// the lower of the two plane pointers, and each pair's first byte goes to
// `outLow`, its second to `outHigh`.
class PairSampler {
 public:
  void configure(int64_t step, int outCols);
  int64_t overread() const { return overread_; }
  // Whether sample() uses vector loads (whole-sample steps).
  bool vectorized() const { return vectorized_; }
  void sample(const unsigned char* pairs, unsigned char* outLow, unsigned char* outHigh,
              bool mayOverread) const;
  const std::ptrdiff_t* offsets() const { return offsets_.data(); }

  using RowFn = void (*)(const unsigned char* pairs, const std::ptrdiff_t* offsets, int outCols,
                         bool mayOverread, unsigned char* outLow, unsigned char* outHigh);

 private:
  int64_t step_ = 0;
  bool vectorized_ = false;
  int outCols_ = -1;
  int64_t overread_ = 0;
  RowFn row_ = nullptr;
  std::vector<std::ptrdiff_t> offsets_;
};

// Whether output row `r` of a plane may be read with overreads: true unless its
// source row is the one that ends highest in memory (the last sampled row, or
// the first when rows are stored bottom-up), or lies within `overread` bytes
// below it.
class OverreadRule {
 public:
  OverreadRule(int64_t rowStride, int64_t stepY, int outRows, int64_t overread);
  bool allows(int r) const {
    return sourceRowOffset(rowStride_, stepY_, r) + overread_ <= highestRow_;
  }

 private:
  int64_t rowStride_, stepY_, overread_, highestRow_;
};
