#include "motion/FrameDiff.h"

#include <gtest/gtest.h>

#include <vector>

#include "motion/FrameDiffLowLight.h"

namespace {

// Two frames and the mask of one estForegroundMask call. The mask starts dirty so
// that a rule which does not clear it first is caught.
struct Comparison {
  Comparison(int width, int height, cv::Scalar fill)
      : current(height, width, CV_8UC3, fill), reference(current.clone()) {}
  bool run(MotionDiff& rule) {
    mask.create(current.size(), CV_8UC1);
    mask.setTo(77);
    return rule.estForegroundMask(current.data, reference.data, &mask);
  }
  // True when the mask is 255 exactly on `blocks` and 0 elsewhere.
  bool maskIs(const std::vector<cv::Rect>& blocks) const {
    cv::Mat expected = cv::Mat::zeros(mask.size(), CV_8UC1);
    for (const cv::Rect& block : blocks) expected(block).setTo(255);
    return cv::norm(mask, expected, cv::NORM_INF) == 0;
  }
  cv::Mat current, reference, mask;
};

// A colour change FrameDiff calls foreground: ssd 264000, chromaticity 2.9.
const cv::Scalar kGrey(100, 100, 100), kMoved(200, 60, 30);

TEST(FrameDiffTest, SkipsLastWholeColumnAndRowOfBlocksAndVotesOnAThirdOfMinRegionArea) {
  FrameDiff rule(336, 188, 2);  // minRegionArea 164: more than 54 pixels must move
  Comparison c(336, 188, kGrey);
  c.current.colRange(332, 336).setTo(kMoved);  // never examined
  c.current.rowRange(184, 188).setTo(kMoved);
  std::vector<cv::Rect> moved{{0, 8, 4, 4}, {8, 8, 4, 4}, {16, 8, 4, 4}};  // 48 pixels
  for (const cv::Rect& block : moved) c.current(block).setTo(kMoved);
  EXPECT_FALSE(c.run(rule));
  EXPECT_TRUE(c.maskIs(moved));

  moved.emplace_back(328, 180, 4, 4);  // the last block that is examined
  c.current(moved.back()).setTo(kMoved);
  EXPECT_TRUE(c.run(rule));
  EXPECT_TRUE(c.maskIs(moved));
}

// One 4x4 block at the top-left of an 8x8 frame (the only block examined), every
// pixel `current` against `reference` except pixel (0, 0), which is `firstCurrent`
// against `firstReference`. Outside the block both frames are black.
struct BlockCase {
  const char* what;
  cv::Vec3b current, reference, firstCurrent, firstReference;
  int ssd;
  bool foreground;
};

void expectBlockRule(MotionDiff& rule, const std::vector<BlockCase>& cases) {
  const cv::Rect block(0, 0, 4, 4);
  for (const BlockCase& bc : cases) {
    SCOPED_TRACE(bc.what);
    Comparison c(8, 8, cv::Scalar::all(0));
    c.current(block).setTo(cv::Scalar(bc.current));
    c.reference(block).setTo(cv::Scalar(bc.reference));
    c.current.at<cv::Vec3b>(0, 0) = bc.firstCurrent;
    c.reference.at<cv::Vec3b>(0, 0) = bc.firstReference;
    ASSERT_EQ(bc.ssd, cv::norm(c.current(block), c.reference(block), cv::NORM_L2SQR));
    EXPECT_EQ(bc.foreground, c.run(rule));
  }
}

TEST(FrameDiffTest, ThresholdsAreStrictAndRangeDependent) {
  FrameDiff rule(8, 8, 2);
  const std::vector<BlockCase> cases = {
      // Ordinary blocks: ssd > 16000 with chromaticity 0.74.
      {"ssd 16000", {11, 100, 37}, {29, 100, 11}, {11, 100, 37}, {29, 100, 11}, 16000, false},
      {"ssd 16001", {11, 100, 37}, {29, 100, 11}, {11, 101, 37}, {29, 100, 11}, 16001, true},
      // Reference green sum 160 makes the block dark: ssd > 32000 with chromaticity 6.7.
      {"dark, ssd 32000", {12, 10, 51}, {32, 10, 11}, {12, 10, 51}, {32, 10, 11}, 32000, false},
      {"dark, ssd 32001", {12, 10, 51}, {32, 10, 11}, {12, 11, 51}, {32, 10, 11}, 32001, true},
      // ssd 20000 with chromaticity about 0.5 (0.4 in the bright pair): only in range.
      {"green sums 160", {14, 10, 176}, {39, 10, 151}, {14, 10, 176}, {39, 10, 151}, 20000, false},
      {"green sums 161", {14, 10, 176}, {39, 10, 151}, {14, 11, 176}, {39, 11, 151}, 20000, true},
      {"ref red sum 160", {45, 23, 188}, {10, 23, 193}, {45, 23, 188}, {10, 23, 193}, 20000, false},
      {"ref red sum 161", {45, 23, 188}, {10, 23, 193}, {46, 23, 188}, {11, 23, 193}, 20000, true},
      {"blue sum 3840", {12, 11, 240}, {47, 11, 235}, {12, 11, 240}, {47, 11, 235}, 20000, false},
      {"blue sum 3839", {12, 11, 240}, {47, 11, 235}, {12, 11, 239}, {47, 11, 234}, 20000, true},
      // A single changed pixel in a black block whose float chromaticity is exactly
      // 0.8f: above the double 0.8, and exactly 0.8 when computed in double; the
      // next one is 0.79999995f, but 0.8f when computed in double.
      {"chroma 0.8f", {}, {}, {248, 30, 31}, {0, 0, 1}, 63304, true},
      {"chroma 0.79999995f", {}, {}, {236, 15, 13}, {0, 45, 7}, 56632, false},
      // Sixteen terms of 0.049999997 sum to 0.80000007 in single precision
      // (0.79999995 in double).
      {"16 x chroma 0.05", {43, 5, 166}, {0, 10, 75}, {43, 5, 166}, {0, 10, 75}, 162480, true},
      // Chromaticity below 0.02 on a black reference: only ssd > 800000 moves the block.
      {"ssd 800000", {0, 225, 0}, {}, {25, 200, 0}, {}, 800000, false},
      {"ssd 800001", {0, 225, 0}, {}, {15, 201, 0}, {}, 800001, true},
  };
  expectBlockRule(rule, cases);
}

TEST(FrameDiffLowLightTest, BlockMovesWhenSinglePrecisionLumaSumExceeds320) {
  FrameDiffLowLight rule(8, 8, 5);  // minRegionArea 0: the block alone decides
  const std::vector<BlockCase> cases = {
      // Byte differences (-254, 116, -64), |L| = 20.000000000000004 a pixel: the single-
      // precision sum lands on 320 exactly, a double one on 320.00000000000006.
      {"luma sum 320", {0, 116, 0}, {254, 0, 64}, {0, 116, 0}, {254, 0, 64}, 1313088, false},
      {"luma sum > 320", {0, 116, 0}, {254, 0, 64}, {0, 117, 0}, {254, 0, 64}, 1313321, true},
      // The heavy weight is on byte 2: 16 x 0.299 x 70 = 334.9, 16 x 0.114 x 70 =
      // 127.7, 16 x 0.587 x 35 = 328.7.
      {"byte 2 + 70", {0, 0, 70}, {}, {0, 0, 70}, {}, 78400, true},
      {"byte 0 + 70", {70, 0, 0}, {}, {70, 0, 0}, {}, 78400, false},
      {"byte 1 - 35", {}, {0, 35, 0}, {}, {0, 35, 0}, 19600, true},
  };
  expectBlockRule(rule, cases);
}

}  // namespace
