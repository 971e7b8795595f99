#include "client/FusedIntake.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

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
    for (int k = 0; k < 2; ++k) {
      unsigned char* rgb = (k == 0 ? rgb0 : rgb1) + 3 * c;
      for (int d = 0; d < 2; ++d, rgb += 3) {
        const int32_t y = lumaTerm(in.luma[k][in.lumaSpacing * (c + d)]);
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
// and the reads of the three source rows overlapping in memory.
void gatherRowPair(const std::ptrdiff_t* lumaOffsets, const std::ptrdiff_t* pairOffsets,
                   const unsigned char* const (&rows)[2], const unsigned char* pairRow,
                   unsigned char* __restrict luma0, unsigned char* __restrict luma1,
                   unsigned char* __restrict pairs, int chromaCols) {
  for (int j = 0; j < chromaCols; ++j) {
    const std::ptrdiff_t even = lumaOffsets[2 * j], odd = lumaOffsets[2 * j + 1];
    luma0[2 * j] = rows[0][even];
    luma0[2 * j + 1] = rows[0][odd];
    luma1[2 * j] = rows[1][even];
    luma1[2 * j + 1] = rows[1][odd];
    std::memcpy(pairs + 2 * j, pairRow + pairOffsets[j], 2);
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

bool FusedIntake::run(const YuvPlanes& in, cv::Mat& rgb) {
  const int width = rgb.cols, height = rgb.rows;
  if (rgb.type() != CV_8UC3 || width < 2 || height < 2 || width % 2 != 0 || height % 2 != 0)
    return false;
  const int64_t stepX = destrideStep(in.width, width), stepY = destrideStep(in.height, height);
  if (stepX == 0 || stepY == 0) return false;
  const int chromaCols = width / 2, rows = height / 2;

  // Narrow images are converted by the portable loop; the vector converters
  // also read steps of 2 whole samples (640 pixels to 320, say) straight from
  // the source rows, without staging the samples.
  const fused::RowPairConverter vector = width >= fused::kBlockPixels ? vectorConverter() : nullptr;
  const fused::RowPairConverter convert =
      vector != nullptr ? vector : fused::convertRowPairPortable;
  const bool step2 = vector != nullptr && stepX == 2 << kStepFractionBits;
  const bool interleaved = chromaAreInterleaved(in.u, in.v, in.uPixelStride, in.uRowStride,
                                                in.vPixelStride, in.vRowStride);
  const bool crFirst = in.u < in.v;
  const unsigned char* pairs = crFirst ? in.u : in.v;
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
  const OverreadRule lumaRule(
      in.yRowStride, stepY, height,
      std::max(luma_.overread(), lumaInPlace ? fused::kLumaSpacing2Overread : 0));
  // Interleaved planes share one row stride, and so one rule.
  const OverreadRule crRule(in.uRowStride, stepY, rows, chromaOverread);
  const OverreadRule cbRule(in.vRowStride, stepY, rows, chromaOverread);

  staging_.resize(2 * size_t(width) + 2 * size_t(chromaCols));
  unsigned char* stagedLuma[2] = {staging_.data(), staging_.data() + width};
  unsigned char* stagedCr = staging_.data() + 2 * size_t(width);
  unsigned char* stagedCb = stagedCr + chromaCols;

  for (int j = 0; j < rows; ++j) {
    const int r0 = 2 * j;
    if (r0 + 1 + kPrefetchRows < height)
      for (int k = 0; k < 2; ++k)
        prefetchRowStart(in.y + sourceRowOffset(in.yRowStride, stepY, r0 + k + kPrefetchRows));
    if (j + kPrefetchRows / 2 < rows) {
      prefetchRowStart(in.u + sourceRowOffset(in.uRowStride, stepY, j + kPrefetchRows / 2));
      if (!interleaved)
        prefetchRowStart(in.v + sourceRowOffset(in.vRowStride, stepY, j + kPrefetchRows / 2));
    }

    fused::RowPairInput pair{};
    const bool lumaMay[2] = {lumaRule.allows(r0), lumaRule.allows(r0 + 1)};
    pair.lumaSpacing = lumaInPlace && lumaMay[0] && lumaMay[1] ? 2 : 1;
    for (int k = 0; k < 2; ++k) pair.luma[k] = in.y + sourceRowOffset(in.yRowStride, stepY, r0 + k);
    const bool chromaMay = crRule.allows(j) && cbRule.allows(j);
    const unsigned char* pairRow =
        interleaved ? pairs + sourceRowOffset(in.uRowStride, stepY, j) : nullptr;
    pair.cr = stagedCr;
    pair.cb = stagedCb;
    pair.crFirst = crFirst;
    if (interleaved && !luma_.vectorized() && !pairs_.vectorized()) {
      // stagedCr and stagedCb are one row of pairs.
      gatherRowPair(luma_.offsets(), pairs_.offsets(), pair.luma, pairRow, stagedLuma[0],
                    stagedLuma[1], stagedCr, chromaCols);
      pair.luma[0] = stagedLuma[0];
      pair.luma[1] = stagedLuma[1];
      pair.pairs = stagedCr;
      pair.pairSpacing = 1;
      convert(pair, rgb.ptr(r0), rgb.ptr(r0 + 1), width);
      continue;
    }
    if (pair.lumaSpacing == 1)
      for (int k = 0; k < 2; ++k) {
        luma_.sample(pair.luma[k], stagedLuma[k], lumaMay[k]);
        pair.luma[k] = stagedLuma[k];
      }
    if (interleaved && pairsInPlace && chromaMay) {
      pair.pairs = pairRow;
      pair.pairSpacing = 2;
    } else if (interleaved) {
      pairs_.sample(pairRow, crFirst ? stagedCr : stagedCb, crFirst ? stagedCb : stagedCr,
                    chromaMay);
    } else {
      cr_.sample(in.u + sourceRowOffset(in.uRowStride, stepY, j), stagedCr, crRule.allows(j));
      cb_.sample(in.v + sourceRowOffset(in.vRowStride, stepY, j), stagedCb, cbRule.allows(j));
    }
    convert(pair, rgb.ptr(r0), rgb.ptr(r0 + 1), width);
  }
  return true;
}
