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
    for (int k = 0; k < 2; ++k) {
      const unsigned char* row = in.y + sourceRowOffset(in.yRowStride, stepY, r0 + k);
      pair.luma[k] = row;
      if (pair.lumaSpacing == 1) {
        luma_.sample(row, stagedLuma[k], lumaMay[k]);
        pair.luma[k] = stagedLuma[k];
      }
    }
    const bool chromaMay = crRule.allows(j) && cbRule.allows(j);
    pair.cr = stagedCr;
    pair.cb = stagedCb;
    pair.crFirst = crFirst;
    if (interleaved) {
      const unsigned char* pairRow = pairs + sourceRowOffset(in.uRowStride, stepY, j);
      if (pairsInPlace && chromaMay) {
        pair.pairs = pairRow;
        pair.pairSpacing = 2;
      } else if (pairs_.vectorized()) {
        // Whole steps: the vector sampler splits the pairs into the two planes.
        pairs_.sample(pairRow, crFirst ? stagedCr : stagedCb, crFirst ? stagedCb : stagedCr,
                      chromaMay);
      } else {
        pairs_.copyPairs(pairRow, stagedCr);  // stagedCr and stagedCb are one row of pairs
        pair.pairs = stagedCr;
        pair.pairSpacing = 1;
      }
    } else {
      cr_.sample(in.u + sourceRowOffset(in.uRowStride, stepY, j), stagedCr, crRule.allows(j));
      cb_.sample(in.v + sourceRowOffset(in.vRowStride, stepY, j), stagedCb, cbRule.allows(j));
    }
    convert(pair, rgb.ptr(r0), rgb.ptr(r0 + 1), width);
  }
  return true;
}
