#include "motion/MotionDiff.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "motion/FrameDiff.h"
#include "motion/FrameDiffLowLight.h"

namespace {

using Pairs = std::vector<std::pair<int, int>>;  // (current frame, reference frame)

// Frames are uniform and filled with their number. Records which frames each
// comparison receives and answers with a mask that has `paint` set, so the ring and
// the contour stage can be checked on their own.
struct RecordingDiff : MotionDiff {
  RecordingDiff(int historyLength, int minArea) : MotionDiff(333, 188, historyLength) {
    minRegionArea = minArea;
  }
  bool estForegroundMask(unsigned char* current, unsigned char* reference, cv::Mat* out) override {
    compared.emplace_back(current[0], reference[0]);
    out->setTo(cv::Scalar(0));
    for (const cv::Rect& area : paint) (*out)(area).setTo(255);
    return answer;
  }
  void feed(int number, bool detect = true) {
    cv::Mat frame(188, 333, CV_8UC3, cv::Scalar::all(number));
    processImage(frame, detect);
  }
  Pairs compared;
  std::vector<cv::Rect> paint;
  bool answer = true;
};

TEST(MotionDiffTest, TwoFrameRingKeepsRectanglesLargerThanMinRegionArea) {
  RecordingDiff diff(2, 192);
  // 16x12 has area 192 exactly and is dropped; 16x13 (208) and 20x10 (200) stay.
  diff.paint = {cv::Rect(10, 10, 16, 12), cv::Rect(100, 50, 16, 13), cv::Rect(200, 150, 20, 10)};
  for (int frame = 1; frame <= 3; ++frame) diff.feed(frame);
  EXPECT_EQ((Pairs{{2, 1}, {3, 2}}), diff.compared);
  std::vector<cv::Rect> found = diff.regions;
  std::sort(found.begin(), found.end(), [](cv::Rect a, cv::Rect b) { return a.x < b.x; });
  EXPECT_EQ((std::vector<cv::Rect>{cv::Rect(100, 50, 16, 13), cv::Rect(200, 150, 20, 10)}), found);

  diff.clear();  // the ring refills before the next comparison
  diff.feed(4);
  diff.answer = false;  // a failed mask vote skips the contour stage
  diff.feed(5);
  EXPECT_EQ((Pairs{{2, 1}, {3, 2}, {5, 4}}), diff.compared);
  EXPECT_TRUE(diff.regions.empty());
}

TEST(MotionDiffTest, FifteenFrameRingFillsEvenWhenNotDetecting) {
  RecordingDiff diff(15, 163);
  for (int frame = 1; frame <= 14; ++frame) diff.feed(frame, frame % 2 == 0);
  for (int frame = 15; frame <= 17; ++frame) diff.feed(frame, frame != 16);
  EXPECT_EQ((Pairs{{15, 1}, {17, 3}}), diff.compared);
}

// Paints the 4x4 blocks set in `blocks` (one byte a block) and, like the real
// rules, declares its masks whole-block: the vector path then finds the regions
// on the grid of blocks, the plain one on the mask.
struct PaintedBlocks : MotionDiff {
  PaintedBlocks(cv::Size size, int minArea) : MotionDiff(size.width, size.height, 2) {
    minRegionArea = minArea;
    masksAreWholeBlocks_ = true;
    processImage(frame, false);  // fills the ring: every later call compares
  }
  bool estForegroundMask(unsigned char*, unsigned char*, cv::Mat* out) override {
    *out = cv::Scalar(0);
    cv::resize(blocks, (*out)(cv::Rect(0, 0, 4 * blocks.cols, 4 * blocks.rows)), cv::Size(), 4, 4,
               cv::INTER_NEAREST);
    out->copyTo(painted);
    return true;
  }
  std::vector<cv::Rect> regionsOn(KernelPath path) {
    setKernelPath(path);
    processImage(frame, true);
    return regions;
  }
  cv::Mat frame = cv::Mat::zeros(height, width, CV_8UC3), painted;
  cv::Mat blocks = cv::Mat::zeros(height / 4, width / 4, CV_8UC1);
};

// The regions found on the block grid against the bounding boxes of
// cv::findContours on the full mask: shapes one character a block (rows split
// at '|') drawn at the grid's top-left and bottom-right corners, then random
// masks; without partial blocks (96 x 64) and with a strip of 2 columns and 3
// rows (98 x 63); with no minimum area and with the default, one block.
TEST(MotionDiffTest, BlockGridFindsTheRegionsOfTheFullMask) {
  const std::string kShapes[] = {
      // holes in holes: a ring in a ring's hole, a block in the inner hole
      "#########|#.......#|#.#####.#|#.#...#.#|#.#.#.#.#|#.#...#.#|#.#####.#|#.......#|#########",
      "#.#.#.#|.#.#.#.|#.#.#.#|.#.#.#.",  // a checkerboard: corners join every block
      "#...#|.#.#.|..#..|##.##|#...#",    // corner contacts only
      "##..|##..|..##|..##|#...",         // squares meeting at one corner, a lone block
      "####|#...|#.##|#...|####"};        // a C with a block in its mouth
  cv::RNG rng(4242);
  for (cv::Size size : {cv::Size(96, 64), cv::Size(98, 63)}) {
    for (int minArea : {0, size.area() / 384}) {
      PaintedBlocks diff(size, minArea);
      cv::Mat& grid = diff.blocks;
      for (size_t trial = 0; trial < std::size(kShapes) + 200; ++trial) {
        if (trial < std::size(kShapes)) {
          const std::string& shape = kShapes[trial];
          const int cols = int(shape.find('|')), rows = int(shape.size() + 1) / (cols + 1);
          grid = cv::Scalar(0);
          for (int i = 0; i < rows * cols; ++i) {
            const uchar on = shape[i / cols * (cols + 1) + i % cols] == '#' ? 255 : 0;
            grid.at<uchar>(i / cols, i % cols) = on;
            grid.at<uchar>(grid.rows - rows + i / cols, grid.cols - cols + i % cols) = on;
          }
        } else {
          cv::randu(grid, 0, 100);
          grid = grid < rng.uniform(10, 90);
        }
        const std::vector<cv::Rect> onGrid = diff.regionsOn(KernelPath::kVector);
        std::vector<std::vector<cv::Point>> contours;
        cv::findContours(diff.painted, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
        std::vector<cv::Rect> expected;
        for (const auto& contour : contours)
          if (cv::boundingRect(contour).area() > minArea)
            expected.push_back(cv::boundingRect(contour));
        ASSERT_EQ(onGrid, expected) << size << ", minimum area " << minArea << ", blocks\n" << grid;
        ASSERT_EQ(diff.regionsOn(KernelPath::kPlain), expected);
      }
    }
  }
}

TEST(MotionDiffTest, ResizeAndCopySamplesInThirtySecondsOfAPixel) {
  FrameDiff diff;  // the default: the normal-light rule at 333 x 188
  EXPECT_EQ(cv::Vec3i(163, 652, 15),
            cv::Vec3i(diff.minRegionArea, FrameDiffLowLight().minRegionArea,
                      static_cast<int>(diff.history.size())));
  cv::Mat source(720, 1280, CV_8UC3), target(188, 333, CV_8UC3);
  cv::randu(source, 0, 256);
  diff.resizeAndCopy(source, target);
  // Steps 1280 * 32 / 333 = 123 and 720 * 32 / 188 = 122.
  for (int y = 0; y < 188; ++y)
    for (int x = 0; x < 333; ++x)
      ASSERT_EQ(source.at<cv::Vec3b>((y * 122) >> 5, (x * 123) >> 5), target.at<cv::Vec3b>(y, x))
          << x << "," << y;
  // A step that would be 0 (5 rows: 160 / 188) leaves the target as it was.
  const cv::Mat before = target.clone();
  cv::Mat tiny(5, 400, CV_8UC3, cv::Scalar::all(9)), empty;
  diff.resizeAndCopy(tiny, target);
  EXPECT_EQ(0, cv::norm(target, before, cv::NORM_INF));
  diff.resizeAndCopy(tiny, empty);
  EXPECT_TRUE(empty.empty());
}

}  // namespace
