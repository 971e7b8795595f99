#include "client/IntakeSelfCheck.h"

#include <opencv2/imgproc.hpp>

#include <atomic>
#include <cstdint>
#include <vector>

#include "client/FusedIntake.h"
#include "client/FusedRows.h"
#include "diagnostics/Log.h"

namespace {

void cvtColorYv12(const cv::Mat& yv12, cv::Mat& rgb) {
  cv::cvtColor(yv12, rgb, cv::COLOR_YUV2RGB_YV12);
}

std::atomic<Yv12ToRgb> gReference{cvtColorYv12};

// A 64 x 32 frame in blocks of 2 x 2 pixels that share one chroma pair; small
// enough that cv::cvtColor converts it on the calling thread.
constexpr int kWidth = 64, kHeight = 32, kBlocksPerRow = kWidth / 2;
constexpr int kBlocks = kBlocksPerRow * kHeight / 2;
constexpr int kCoverageBlocks = 256;

struct Pattern {
  std::vector<uint8_t> packed = std::vector<uint8_t>(kWidth * kHeight * 3 / 2);
  uint8_t* y() { return packed.data(); }
  uint8_t* cr() { return packed.data() + kWidth * kHeight; }
  uint8_t* cb() { return cr() + kWidth * kHeight / 4; }
  void setBlock(int b, const int (&luma)[4], int cr, int cb) {
    const int row = 2 * (b / kBlocksPerRow), col = 2 * (b % kBlocksPerRow);
    for (int k = 0; k < 4; ++k) y()[(row + k / 2) * kWidth + col + k % 2] = uint8_t(luma[k]);
    this->cr()[b] = uint8_t(cr);
    this->cb()[b] = uint8_t(cb);
  }
};

// The chroma term of channel `ch` (0 red, 1 green, 2 blue).
int32_t chromaTerm(int ch, int cr, int cb) {
  return ch == 0 ? fused::redTerm(cr) : ch == 1 ? fused::greenTerm(cr, cb) : fused::blueTerm(cb);
}

// The luma values whose sum with `chroma` lies nearest above and nearest below
// a multiple of 2^20, among sums that do not saturate either way by one: a
// conversion that rounds otherwise, or has a coefficient a little off, moves
// these first.
void nearestEdges(int32_t chroma, int& above, int& below) {
  constexpr int32_t kMask = (1 << fused::kShift) - 1;
  int32_t least = kMask + 1, most = -1;
  above = below = 16;
  for (int y = 16; y < 256; ++y) {
    const int32_t sum = fused::lumaTerm(y) + chroma, value = sum >> fused::kShift;
    if (value < 1 || value > 254) continue;
    const int32_t fraction = sum & kMask;
    if (fraction < least) least = fraction, above = y;
    if (fraction > most) most = fraction, below = y;
  }
}

Pattern makePattern() {
  Pattern p;
  // Every luma value four times, every Cr value and every Cb value, with luma
  // spread over each block so that blocks of extreme chroma saturate.
  for (int b = 0; b < kCoverageBlocks; ++b) {
    const int luma[4] = {b, (b + 64) & 255, (b + 128) & 255, (b + 192) & 255};
    p.setBlock(b, luma, b, (b * 167 + 91) & 255);
  }
  // Rounding edges of each channel, in turn, for scattered chroma; with them
  // a luma value under 16, which must count as 16, and a high one.
  for (int b = kCoverageBlocks; b < kBlocks; ++b) {
    const int e = b - kCoverageBlocks, cr = (e * 97 + 11) & 255, cb = (e * 53 + 200) & 255;
    int above, below;
    nearestEdges(chromaTerm(e % 3, cr, cb), above, below);
    const int luma[4] = {above, below, e % 16, 255 - e % 32};
    p.setBlock(b, luma, cr, cb);
  }
  return p;
}

}  // namespace

Yv12ToRgb replaceIntakeReferenceForTesting(Yv12ToRgb reference) {
  return gReference.exchange(reference);
}

bool fusedIntakeMatchesReference() {
  static Pattern pattern = makePattern();
  const YuvPlanes planes{
      pattern.y(), pattern.cr(), pattern.cb(), kWidth, kHeight, 1, kWidth, 1, kWidth / 2,
      1,           kWidth / 2};
  cv::Mat fast(kHeight, kWidth, CV_8UC3), reference;
  FusedIntake kernel;
  if (!kernel.run(planes, fast)) return false;
  const cv::Mat yv12(kHeight * 3 / 2, kWidth, CV_8UC1, pattern.packed.data());
  gReference.load()(yv12, reference);
  return reference.size() == fast.size() && reference.type() == fast.type() &&
         cv::countNonZero(fast.reshape(1) != reference.reshape(1)) == 0;
}

KernelPath chooseIntakePath(KernelPath wanted, bool debug) {
  if (wanted == KernelPath::kPlain || !FusedIntake::vectorized()) return KernelPath::kPlain;
  if (fusedIntakeMatchesReference()) return KernelPath::kVector;
  if (debug)
    hdsml::logPrintf(
        "[HDSMLClient] The fast intake kernel differs from this OpenCV's cvtColor; "
        "intake uses destride and cvtColor\n");
  return KernelPath::kPlain;
}
