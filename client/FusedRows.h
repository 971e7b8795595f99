// The row-pair converters behind FusedIntake: two output rows of RGB from two
// rows of luma samples and the one row of chroma samples they share, with the
// arithmetic of OpenCV's COLOR_YUV2RGB_YV12 (BT.601, 20 fraction bits) given
// byte for byte. One portable converter, and vector ones for the machines that
// have them (NEON on arm64, AVX2 on x86-64). Stateless and thread-safe.
#pragma once

#include <algorithm>
#include <cstdint>

namespace fused {

// OpenCV's fixed-point coefficients: luma above 16 is stretched by 255/219, and
// each chroma sample's offset from 128 adds its share to the channels.
constexpr int kShift = 20;
constexpr int32_t kHalf = 1 << (kShift - 1);
constexpr int32_t kY = 1220542;
constexpr int32_t kCrToR = 1673527, kCrToG = -852492, kCbToG = -409993, kCbToB = 2116026;

// A channel before the shift: the luma term plus the chroma term, which holds
// the rounding half.
inline int32_t lumaTerm(int y) { return std::max(0, y - 16) * kY; }
inline int32_t redTerm(int cr) { return kHalf + kCrToR * (cr - 128); }
inline int32_t greenTerm(int cr, int cb) {
  return kHalf + kCrToG * (cr - 128) + kCbToG * (cb - 128);
}
inline int32_t blueTerm(int cb) { return kHalf + kCbToB * (cb - 128); }
inline uint8_t channel(int32_t luma, int32_t chroma) {
  return static_cast<uint8_t>(std::clamp((luma + chroma) >> kShift, 0, 255));
}

// What a row pair reads. Luma: the samples of the two rows, one every
// `lumaSpacing` bytes (1: staged samples; 2: a source row shrunk 2:1, read in
// place). Chroma: with `pairs` null, consecutive samples of the plane read as
// Cr (the plane of the host's `u` pointer, which the packed image holds where
// YV12 keeps V) and of the plane read as Cb; otherwise interleaved pairs, one
// every `pairSpacing` pairs (1: staged pairs; 2: a source row shrunk 2:1), Cr
// first in a pair when `crFirst`. Samples read in place (spacing 2) are also
// written, consecutively, to `packedLuma` (the two rows' luma) and to `packedCr`
// and `packedCb` (the row of each chroma plane): the rows of the packed image
// that staged samples were written to.
struct RowPairInput {
  const unsigned char* luma[2];
  int lumaSpacing;
  const unsigned char* cr;
  const unsigned char* cb;
  const unsigned char* pairs;
  int pairSpacing;
  bool crFirst;
  unsigned char* packedLuma[2];
  unsigned char* packedCr;
  unsigned char* packedCb;
};

// The vector converters run in blocks of this many pixels. Reading a source
// row in place, they read past its last sample: luma by 1 byte, pairs by 2.
constexpr int kBlockPixels = 32;
constexpr int64_t kLumaSpacing2Overread = 1;
constexpr int64_t kPairSpacing2Overread = 2;

// Writes `width` RGB pixels (even) to each of rgb0 and rgb1.
using RowPairConverter = void (*)(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1,
                                  int width);

// Any even width, any input.
void convertRowPairPortable(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1,
                            int width);
// Null when this machine has no vector converter. Widths of kBlockPixels or more.
RowPairConverter neonRowPairConverter();
RowPairConverter avx2RowPairConverter();

}  // namespace fused
