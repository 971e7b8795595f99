#include "motion/FrameDiff.h"

namespace {

// A block whose channel sum over its 16 pixels is at or beyond these is treated as
// near black or near white in that channel (a mean of about 10 or 240).
constexpr int kDarkChannelSum = 160;
constexpr int kBrightChannelSum = 3840;

bool outOfRange(int sum) { return sum <= kDarkChannelSum || sum >= kBrightChannelSum; }

// Decides whether the 4x4 block starting at `current` differs from the one at
// `reference`; `rowBytes` is the distance between pixel rows of both frames.
bool isFrameDiffForegroundBlock(const unsigned char* current, const unsigned char* reference,
                                int rowBytes) {
  int ssd = 0;
  float chroma = 0.0f;
  int currentSum0 = 0, currentSum1 = 0, currentSum2 = 0;
  int referenceSum0 = 0, referenceSum1 = 0, referenceSum2 = 0;
  for (int row = 0; row < 4; ++row) {
    const unsigned char* a = current + row * rowBytes;
    const unsigned char* b = reference + row * rowBytes;
    for (int col = 0; col < 4; ++col, a += 3, b += 3) {
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

      currentSum0 += a0;
      currentSum1 += a1;
      currentSum2 += a2;
      referenceSum0 += b0;
      referenceSum1 += b1;
      referenceSum2 += b2;
    }
  }

  if (ssd > 800000) return true;
  const bool extreme = outOfRange(currentSum0) || outOfRange(currentSum1) ||
                       outOfRange(currentSum2) || outOfRange(referenceSum0) ||
                       outOfRange(referenceSum1) || outOfRange(referenceSum2);
  const double chromaDistance = chroma;
  if (!extreme) return ssd > 16000 && chromaDistance > 0.08;
  // Near black or white the chromaticity of sensor noise swings widely, hence the
  // tenfold chromaticity and doubled colour thresholds.
  return ssd > 32000 && chromaDistance > 0.8;
}

}  // namespace

FrameDiff::FrameDiff() : MotionDiff() { minRegionArea = (height * width) / 384; }

FrameDiff::FrameDiff(int width, int height, int historyLength)
    : MotionDiff(width, height, historyLength) {
  minRegionArea = (this->height * this->width) / 384;
}

FrameDiff::~FrameDiff() {}

bool FrameDiff::estForegroundMask(unsigned char* current, unsigned char* reference, cv::Mat* mask) {
  return markForegroundBlocks<isFrameDiffForegroundBlock>(current, reference, mask);
}
