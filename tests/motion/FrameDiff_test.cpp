#include "motion/FrameDiff.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "motion/FrameDiffLowLight.h"

namespace {

std::unique_ptr<MotionDiff> makeRule(const std::string& name, int width, int height) {
  if (name == "FrameDiff") return std::make_unique<FrameDiff>(width, height, 2);
  return std::make_unique<FrameDiffLowLight>(width, height, 2);
}

// A colour change both rules call foreground: ssd 264000 with a large red/blue
// chromaticity shift, and a luma change of 33 a pixel.
const cv::Scalar kGrey(100, 100, 100);
const cv::Scalar kMoved(200, 60, 30);

// Two frames and a mask for one estForegroundMask call. The mask starts dirty so
// that a rule which does not clear it first is caught.
struct Comparison {
  Comparison(int width, int height, cv::Scalar fill = kGrey)
      : current(height, width, CV_8UC3, fill),
        reference(height, width, CV_8UC3, fill),
        mask(height, width, CV_8UC1, cv::Scalar(77)) {}
  bool run(MotionDiff& rule) { return rule.estForegroundMask(current.data, reference.data, &mask); }
  // True when the mask is 255 exactly on `blocks` and 0 elsewhere.
  bool maskIs(std::initializer_list<cv::Rect> blocks) const {
    cv::Mat expected = cv::Mat::zeros(mask.size(), CV_8UC1);
    for (const cv::Rect& block : blocks) expected(block).setTo(255);
    return cv::norm(mask, expected, cv::NORM_INF) == 0;
  }
  cv::Mat current, reference, mask;
};

class ForegroundRules : public ::testing::TestWithParam<const char*> {};

TEST_P(ForegroundRules, IdenticalFramesGiveEmptyMask) {
  auto rule = makeRule(GetParam(), 64, 48);
  Comparison c(64, 48);
  cv::randu(c.current, 0, 256);
  c.current.copyTo(c.reference);
  EXPECT_FALSE(c.run(*rule));
  EXPECT_TRUE(c.maskIs({}));
}

TEST_P(ForegroundRules, EightByEightFrameVisitsOnlyTopLeftBlock) {
  auto rule = makeRule(GetParam(), 8, 8);
  Comparison c(8, 8);
  c.current.setTo(kMoved);
  EXPECT_TRUE(c.run(*rule));  // minRegionArea is 0: one block is enough
  EXPECT_TRUE(c.maskIs({cv::Rect(0, 0, 4, 4)}));
}

TEST_P(ForegroundRules, LastWholeColumnAndRowOfBlocksAreNeverExamined) {
  auto rule = makeRule(GetParam(), 336, 8);
  Comparison c(336, 8);
  c.current.colRange(332, 336).setTo(kMoved);
  c.current.rowRange(4, 8).setTo(kMoved);
  EXPECT_FALSE(c.run(*rule));
  EXPECT_TRUE(c.maskIs({}));

  c.current(cv::Rect(328, 0, 4, 4)).setTo(kMoved);  // the last block that is examined
  EXPECT_TRUE(c.run(*rule));
  EXPECT_TRUE(c.maskIs({cv::Rect(328, 0, 4, 4)}));
}

TEST_P(ForegroundRules, VoteNeedsMoreThanAThirdOfMinRegionAreaInBlocks) {
  const std::string name = GetParam();
  auto rule = makeRule(name, 333, 188);
  EXPECT_EQ(name == "FrameDiff" ? 163 : 652, rule->minRegionArea);
  const int needed = name == "FrameDiff" ? 4 : 14;  // 64 > 54, 224 > 217

  Comparison c(333, 188);
  for (int block = 0; block < needed - 1; ++block) {
    c.current(cv::Rect(8 * block, 8, 4, 4)).setTo(kMoved);
  }
  EXPECT_FALSE(c.run(*rule));
  EXPECT_EQ(16 * (needed - 1), cv::countNonZero(c.mask));

  c.current(cv::Rect(200, 100, 4, 4)).setTo(kMoved);
  EXPECT_TRUE(c.run(*rule));
  EXPECT_EQ(16 * needed, cv::countNonZero(c.mask));
}

INSTANTIATE_TEST_SUITE_P(BothRules, ForegroundRules,
                         ::testing::Values("FrameDiff", "FrameDiffLowLight"));

// One 4x4 block at the top-left of an 8x8 frame (the only block examined), every
// pixel `current` against `reference` except pixel (0, 0), which is
// `firstCurrent` against `firstReference`. Outside the block both frames are black.
struct BlockCase {
  const char* what;
  cv::Vec3b current, reference, firstCurrent, firstReference;
  int ssd;
  bool foreground;
};

cv::Scalar toScalar(cv::Vec3b pixel) { return cv::Scalar(pixel[0], pixel[1], pixel[2]); }

int blockSsd(const cv::Mat& a, const cv::Mat& b) {
  cv::Mat diff;
  cv::subtract(a(cv::Rect(0, 0, 4, 4)), b(cv::Rect(0, 0, 4, 4)), diff, cv::noArray(), CV_32SC3);
  return static_cast<int>(diff.dot(diff));
}

TEST(FrameDiffTest, ThresholdsAreStrictAndRangeDependent) {
  const cv::Vec3b k0(0, 0, 0);
  const BlockCase cases[] = {
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
      {"chroma 0.8f", k0, k0, {248, 30, 31}, {0, 0, 1}, 63304, true},
      {"chroma 0.79999995f", k0, k0, {236, 15, 13}, {0, 45, 7}, 56632, false},
      // Sixteen terms of 0.049999997 sum to 0.80000007 in single precision (0.79999995
      // in double).
      {"16 x chroma 0.05", {43, 5, 166}, {0, 10, 75}, {43, 5, 166}, {0, 10, 75}, 162480, true},
  };
  FrameDiff rule(8, 8, 2);
  for (const BlockCase& bc : cases) {
    SCOPED_TRACE(bc.what);
    Comparison c(8, 8, cv::Scalar(0, 0, 0));
    c.current(cv::Rect(0, 0, 4, 4)).setTo(toScalar(bc.current));
    c.reference(cv::Rect(0, 0, 4, 4)).setTo(toScalar(bc.reference));
    c.current.at<cv::Vec3b>(0, 0) = bc.firstCurrent;
    c.reference.at<cv::Vec3b>(0, 0) = bc.firstReference;
    ASSERT_EQ(bc.ssd, blockSsd(c.current, c.reference));
    EXPECT_EQ(bc.foreground, c.run(rule));
  }
}

TEST(FrameDiffTest, VeryLargeChangeWinsEvenWithoutChromaticityChange) {
  // Only green changes on a black reference, so the chromaticity distance is exactly 0.
  const unsigned char green[16] = {255, 255, 255, 255, 255, 255, 255, 255,
                                   255, 255, 255, 255, 140, 10,  0,   0};
  FrameDiff rule(8, 8, 2);
  Comparison c(8, 8, cv::Scalar(0, 0, 0));
  for (int i = 0; i < 16; ++i) c.current.at<cv::Vec3b>(i / 4, i % 4)[1] = green[i];
  ASSERT_EQ(800000, blockSsd(c.current, c.reference));
  EXPECT_FALSE(c.run(rule));

  c.current.at<cv::Vec3b>(3, 3)[1] = 1;
  ASSERT_EQ(800001, blockSsd(c.current, c.reference));
  EXPECT_TRUE(c.run(rule));
}

}  // namespace
