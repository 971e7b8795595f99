#include "motion/FrameDiffLowLight.h"

#include <gtest/gtest.h>

namespace {

// Runs the rule on an 8x8 frame pair whose only examined block (the top-left
// one) has the uniform byte difference `difference` (current minus reference),
// with pixel (0, 0) instead differing by `firstDifference`.
class FrameDiffLowLightTest : public ::testing::Test {
 protected:
  bool blockMoves(cv::Vec3i difference, cv::Vec3i firstDifference) {
    cv::Mat current(8, 8, CV_8UC3, cv::Scalar(0, 0, 0));
    cv::Mat reference(8, 8, CV_8UC3, cv::Scalar(0, 0, 0));
    for (int i = 0; i < 16; ++i) {
      const cv::Vec3i d = i == 0 ? firstDifference : difference;
      for (int byte = 0; byte < 3; ++byte) {
        // A negative difference darkens the current frame against a bright reference.
        current.at<cv::Vec3b>(i / 4, i % 4)[byte] = static_cast<uchar>(d[byte] > 0 ? d[byte] : 0);
        reference.at<cv::Vec3b>(i / 4, i % 4)[byte] =
            static_cast<uchar>(d[byte] < 0 ? -d[byte] : 0);
      }
    }
    cv::Mat mask(8, 8, CV_8UC1, cv::Scalar(77));
    const bool moved = rule_.estForegroundMask(current.data, reference.data, &mask);
    EXPECT_EQ(moved ? 16 : 0, cv::countNonZero(mask));
    return moved;
  }

  FrameDiffLowLight rule_{8, 8, 5};  // minRegionArea 0: the block alone decides
};

TEST_F(FrameDiffLowLightTest, BlockMovesOnlyWhenLumaSumExceeds320) {
  // |L| = 20.000000000000004 a pixel: the single-precision sum lands on 320
  // exactly, while a double-precision sum would reach 320.00000000000006.
  const cv::Vec3i exact(-254, 116, -64);
  EXPECT_FALSE(blockMoves(exact, exact));
  EXPECT_FALSE(blockMoves(-exact, -exact));
  EXPECT_TRUE(blockMoves(exact, cv::Vec3i(-254, 117, -64)));
}

TEST_F(FrameDiffLowLightTest, HeavyWeightIsOnByteTwo) {
  // 16 x 0.299 x 70 = 334.9 but 16 x 0.114 x 70 = 127.7.
  EXPECT_TRUE(blockMoves(cv::Vec3i(0, 0, 70), cv::Vec3i(0, 0, 70)));
  EXPECT_FALSE(blockMoves(cv::Vec3i(70, 0, 0), cv::Vec3i(70, 0, 0)));
  EXPECT_TRUE(blockMoves(cv::Vec3i(0, -35, 0), cv::Vec3i(0, -35, 0)));  // 16 x 0.587 x 35 = 328.7
}

}  // namespace
