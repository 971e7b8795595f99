#include "client/FusedIntake.h"

#include <algorithm>
#include <cstdint>

#include "client/Destride.h"
#include "client/FusedRows.h"

namespace fused {

void convertRowPairPortable(const RowPairInput& in, unsigned char* rgb0, unsigned char* rgb1,
                            int width) {
  for (int c = 0; c < width; c += 2) {
    const int j = c / 2;
    int cr = in.pairs == nullptr ? in.cr[j] : in.pairs[2 * in.pairSpacing * j + !in.crFirst];
    int cb = in.pairs == nullptr ? in.cb[j] : in.pairs[2 * in.pairSpacing * j + in.crFirst];
    const int32_t r = redTerm(cr), g = greenTerm(cr, cb), b = blueTerm(cb);
    if (in.pairs != nullptr && in.pairSpacing == 2) {
      in.packedCr[j] = static_cast<unsigned char>(cr);
      in.packedCb[j] = static_cast<unsigned char>(cb);
    }
    for (int k = 0; k < 2; ++k) {
      unsigned char* rgb = (k == 0 ? rgb0 : rgb1) + 3 * c;
      for (int d = 0; d < 2; ++d, rgb += 3) {
        const unsigned char sample = in.luma[k][in.lumaSpacing * (c + d)];
        if (in.lumaSpacing == 2) in.packedLuma[k][c + d] = sample;
        const int32_t y = lumaTerm(sample);
        rgb[0] = channel(y, r);
        rgb[1] = channel(y, g);
        rgb[2] = channel(y, b);
      }
    }
  }
}

}  // namespace fused

namespace {

// The samples of a row pair where no vector load serves (fractional steps,
// 4032 pixels to 320 say): both rows' luma and their row of chroma pairs in one
// pass through the column tables, each luma offset loaded once for both rows,
// and the reads of the three source rows overlapping in memory. Each pair's
// first byte goes to `low`, its second to `high`.
__attribute__((noinline)) void gatherRowPair(
    const std::ptrdiff_t* lumaOffsets, const std::ptrdiff_t* pairOffsets,
    const unsigned char* const (&rows)[2], const unsigned char* pairRow,
    unsigned char* __restrict luma0, unsigned char* __restrict luma1, unsigned char* __restrict low,
    unsigned char* __restrict high, int chromaCols) {
  // Held in registers: the byte stores below could otherwise alias them.
  const unsigned char *row0 = rows[0], *row1 = rows[1];
#pragma GCC unroll 4
  for (int j = 0; j < chromaCols; ++j) {
    const std::ptrdiff_t even = lumaOffsets[2 * j], odd = lumaOffsets[2 * j + 1];
    luma0[2 * j] = row0[even];
    luma0[2 * j + 1] = row0[odd];
    luma1[2 * j] = row1[even];
    luma1[2 * j + 1] = row1[odd];
    const unsigned char* pair = pairRow + pairOffsets[j];
    low[j] = pair[0];
    high[j] = pair[1];
  }
}

fused::RowPairConverter vectorConverter() {
  static const fused::RowPairConverter converter = [] {
    const fused::RowPairConverter neon = fused::neonRowPairConverter();
    return neon != nullptr ? neon : fused::avx2RowPairConverter();
  }();
  return converter;
}

}  // namespace

bool FusedIntake::vectorized() { return vectorConverter() != nullptr; }

// What one run() works with: the frame's geometry and the choices it allows.
struct FusedIntake::Plan {
  const YuvPlanes& in;
  int width, height, rows, chromaCols;
  int64_t stepY;
  bool interleaved, crFirst;
  const unsigned char* pairs;  // interleaved: the lower of the two chroma pointers
  bool lumaInPlace, pairsInPlace, gather;
  OverreadRule lumaRule, crRule, cbRule;
  // The packed image's planes: luma, the plane read as Cr (the host's `u`),
  // the plane read as Cb.
  unsigned char *packedLuma, *packedCr, *packedCb;
};

bool FusedIntake::run(const YuvPlanes& in, cv::Mat& rgb) {
  packed_.resize(size_t(std::max(rgb.cols, 0)) * size_t(std::max(rgb.rows, 0)) * 3 / 2);
  return run(in, rgb, packed_.data());
}

bool FusedIntake::run(const YuvPlanes& in, cv::Mat& rgb, unsigned char* packed) {
  const int width = rgb.cols, height = rgb.rows;
  if (rgb.type() != CV_8UC3 || width < 2 || height < 2 || width % 2 != 0 || height % 2 != 0)
    return false;
  const int64_t stepX = destrideStep(in.width, width), stepY = destrideStep(in.height, height);
  if (stepX == 0 || stepY == 0) return false;
  const int chromaCols = width / 2, rows = height / 2;

  // Narrow images are converted by the portable loop; the vector converters
  // also read steps of 2 whole samples (640 pixels to 320, say) straight from
  // the source rows, and write the samples to the packed image as they go.
  const fused::RowPairConverter vector = width >= fused::kBlockPixels ? vectorConverter() : nullptr;
  const fused::RowPairConverter convert =
      vector != nullptr ? vector : fused::convertRowPairPortable;
  const bool step2 = vector != nullptr && stepX == 2 << kStepFractionBits;
  const bool interleaved = chromaAreInterleaved(in.u, in.v, in.uPixelStride, in.uRowStride,
                                                in.vPixelStride, in.vRowStride);
  const bool lumaInPlace = step2 && in.yPixelStride == 1, pairsInPlace = step2 && interleaved;

  luma_.configure(in.yPixelStride, stepX, width);
  if (interleaved) {
    pairs_.configure(stepX, chromaCols);
  } else {
    cr_.configure(in.uPixelStride, stepX, chromaCols);
    cb_.configure(in.vPixelStride, stepX, chromaCols);
  }
  const int64_t chromaOverread =
      interleaved ? std::max(pairs_.overread(), pairsInPlace ? fused::kPairSpacing2Overread : 0)
                  : std::max(cr_.overread(), cb_.overread());
  const int64_t lumaOverread =
      std::max(luma_.overread(), lumaInPlace ? fused::kLumaSpacing2Overread : 0);
  const size_t lumaBytes = size_t(width) * size_t(height), chromaBytes = size_t(chromaCols) * rows;
  // Interleaved planes share one row stride, and so one rule.
  const Plan plan{in,
                  width,
                  height,
                  rows,
                  chromaCols,
                  stepY,
                  interleaved,
                  in.u < in.v,
                  in.u < in.v ? in.u : in.v,
                  lumaInPlace,
                  pairsInPlace,
                  interleaved && !luma_.vectorized() && !pairs_.vectorized(),
                  OverreadRule(in.yRowStride, stepY, height, lumaOverread),
                  OverreadRule(in.uRowStride, stepY, rows, chromaOverread),
                  OverreadRule(in.vRowStride, stepY, rows, chromaOverread),
                  packed,
                  packed + lumaBytes,
                  packed + lumaBytes + chromaBytes};
  for (int j = 0; j < rows; ++j) {
    prefetchAhead(plan, j);
    fused::RowPairInput pair{};
    stageRowPair(plan, j, pair);
    convert(pair, rgb.ptr(2 * j), rgb.ptr(2 * j + 1), width);
  }
  return true;
}

void FusedIntake::prefetchAhead(const Plan& p, int j) const {
  const YuvPlanes& in = p.in;
  if (2 * j + 1 + kPrefetchRows < p.height)
    for (int k = 0; k < 2; ++k)
      prefetchRowStart(in.y + sourceRowOffset(in.yRowStride, p.stepY, 2 * j + k + kPrefetchRows));
  if (j + kPrefetchRows / 2 < p.rows) {
    prefetchRowStart(in.u + sourceRowOffset(in.uRowStride, p.stepY, j + kPrefetchRows / 2));
    if (!p.interleaved)
      prefetchRowStart(in.v + sourceRowOffset(in.vRowStride, p.stepY, j + kPrefetchRows / 2));
  }
}

void FusedIntake::stageRowPair(const Plan& p, int j, fused::RowPairInput& pair) {
  const YuvPlanes& in = p.in;
  const int r0 = 2 * j;
  const bool lumaMay[2] = {p.lumaRule.allows(r0), p.lumaRule.allows(r0 + 1)};
  const bool chromaMay = p.crRule.allows(j) && p.cbRule.allows(j);
  unsigned char* const packedLuma[2] = {p.packedLuma + std::ptrdiff_t(r0) * p.width,
                                        p.packedLuma + std::ptrdiff_t(r0 + 1) * p.width};
  unsigned char* const packedCr = p.packedCr + std::ptrdiff_t(j) * p.chromaCols;
  unsigned char* const packedCb = p.packedCb + std::ptrdiff_t(j) * p.chromaCols;
  for (int k = 0; k < 2; ++k) {
    pair.luma[k] = in.y + sourceRowOffset(in.yRowStride, p.stepY, r0 + k);
    pair.packedLuma[k] = packedLuma[k];
  }
  const unsigned char* pairRow =
      p.interleaved ? p.pairs + sourceRowOffset(in.uRowStride, p.stepY, j) : nullptr;
  pair.lumaSpacing = p.lumaInPlace && lumaMay[0] && lumaMay[1] ? 2 : 1;
  // Staged chroma is read from the packed planes; chroma read in place is
  // written there by the converter.
  pair.cr = pair.packedCr = packedCr;
  pair.cb = pair.packedCb = packedCb;
  pair.crFirst = p.crFirst;
  if (p.gather) {
    gatherRowPair(luma_.offsets(), pairs_.offsets(), pair.luma, pairRow, packedLuma[0],
                  packedLuma[1], p.crFirst ? packedCr : packedCb, p.crFirst ? packedCb : packedCr,
                  p.chromaCols);
    pair.luma[0] = packedLuma[0];
    pair.luma[1] = packedLuma[1];
    return;
  }
  if (pair.lumaSpacing == 1)
    for (int k = 0; k < 2; ++k) {
      luma_.sample(pair.luma[k], packedLuma[k], lumaMay[k]);
      pair.luma[k] = packedLuma[k];
    }
  if (p.interleaved && p.pairsInPlace && chromaMay) {
    pair.pairs = pairRow;
    pair.pairSpacing = 2;
  } else if (p.interleaved) {
    pairs_.sample(pairRow, p.crFirst ? packedCr : packedCb, p.crFirst ? packedCb : packedCr,
                  chromaMay);
  } else {
    cr_.sample(in.u + sourceRowOffset(in.uRowStride, p.stepY, j), packedCr, p.crRule.allows(j));
    cb_.sample(in.v + sourceRowOffset(in.vRowStride, p.stepY, j), packedCb, p.cbRule.allows(j));
  }
}
