#include "motion/MotionDiff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "motion/FrameDiff.h"
#include "motion/FrameDiffLowLight.h"

namespace {

// Records which ring slots each comparison receives and answers with a mask that
// has `paint` set, so the ring and the contour stage can be checked on their own.
class RecordingDiff : public MotionDiff {
 public:
  RecordingDiff(int width, int height, int historyLength, int minArea)
      : MotionDiff(width, height, historyLength) {
    minRegionArea = minArea;
  }

  bool estForegroundMask(unsigned char* current, unsigned char* reference, cv::Mat* out) override {
    compared.emplace_back(slotOf(current), slotOf(reference));
    out->setTo(cv::Scalar(0));
    for (const cv::Rect& area : paint) (*out)(area).setTo(255);
    return answer;
  }

  int slotOf(const unsigned char* data) const {
    for (size_t i = 0; i < history.size(); ++i) {
      if (history[i].data == data) return static_cast<int>(i);
    }
    return -1;
  }

  std::vector<std::pair<int, int>> compared;  // (current slot, reference slot)
  std::vector<cv::Rect> paint;
  bool answer = true;
};

cv::Mat frameOf(int value) { return cv::Mat(188, 333, CV_8UC3, cv::Scalar::all(value)); }

using Slots = std::vector<std::pair<int, int>>;

TEST(MotionDiffTest, TwoFrameRingComparesNewestWithPrevious) {
  RecordingDiff diff(333, 188, 2, 163);
  cv::Mat frame = frameOf(1);
  diff.processImage(frame, true);
  EXPECT_TRUE(diff.compared.empty());
  diff.processImage(frame, true);
  diff.processImage(frame, true);
  EXPECT_EQ((Slots{{1, 0}, {0, 1}}), diff.compared);
  EXPECT_EQ(3, diff.frameCount);
}

TEST(MotionDiffTest, FifteenFrameRingFillsEvenWhenNotDetecting) {
  RecordingDiff diff(333, 188, 15, 163);
  for (int call = 1; call <= 14; ++call) {
    cv::Mat frame = frameOf(call);
    diff.processImage(frame, call % 2 == 0);
    // The frame is stored whether or not it is compared.
    EXPECT_EQ(call, diff.history[call - 1].at<cv::Vec3b>(100, 100)[0]);
  }
  EXPECT_TRUE(diff.compared.empty());
  cv::Mat frame = frameOf(15);
  diff.processImage(frame, true);
  diff.processImage(frame, false);
  diff.processImage(frame, true);
  EXPECT_EQ((Slots{{14, 0}, {1, 2}}), diff.compared);
}

TEST(MotionDiffTest, ClearRestartsFillingButKeepsFrameCount) {
  RecordingDiff diff(333, 188, 2, 163);
  diff.paint = {cv::Rect(40, 20, 16, 12)};
  cv::Mat frame = frameOf(1);
  diff.processImage(frame, true);
  diff.processImage(frame, true);
  ASSERT_EQ(1u, diff.regions.size());

  diff.clear();
  EXPECT_TRUE(diff.regions.empty());
  EXPECT_EQ(-1, diff.currentIndex);
  EXPECT_EQ(-2, diff.referenceIndex);
  EXPECT_EQ(2, diff.frameCount);
  diff.processImage(frame, true);
  EXPECT_EQ(1u, diff.compared.size());
  diff.processImage(frame, true);
  EXPECT_EQ((Slots{{1, 0}, {1, 0}}), diff.compared);
}

TEST(MotionDiffTest, KeepsRectanglesStrictlyLargerThanMinRegionArea) {
  RecordingDiff diff(333, 188, 2, 192);
  // 16x12 has area 192 exactly and is dropped; 16x13 (208) and 20x10 (200) stay.
  diff.paint = {cv::Rect(10, 10, 16, 12), cv::Rect(100, 50, 16, 13), cv::Rect(200, 150, 20, 10)};
  cv::Mat frame = frameOf(1);
  diff.processImage(frame, true);
  diff.processImage(frame, true);
  std::vector<cv::Rect> found = diff.regions;
  std::sort(found.begin(), found.end(),
            [](const cv::Rect& a, const cv::Rect& b) { return a.x < b.x; });
  EXPECT_EQ((std::vector<cv::Rect>{cv::Rect(100, 50, 16, 13), cv::Rect(200, 150, 20, 10)}), found);

  diff.answer = false;  // a failed mask vote skips the contour stage
  diff.processImage(frame, true);
  EXPECT_TRUE(diff.regions.empty());
}

TEST(MotionDiffTest, FrameDiffKeepsAMovingAreaButNotASingleBlock) {
  FrameDiff diff(333, 188, 2);
  cv::Mat still = frameOf(100);
  cv::Mat moved = still.clone();
  moved(cv::Rect(40, 20, 4, 4)).setTo(cv::Scalar(200, 60, 30));
  diff.processImage(still, true);
  diff.processImage(moved, true);
  EXPECT_TRUE(diff.regions.empty());  // 16 pixels do not pass the vote (54)

  diff.processImage(still, true);
  moved(cv::Rect(40, 20, 16, 12)).setTo(cv::Scalar(200, 60, 30));
  diff.processImage(moved, true);
  EXPECT_EQ(std::vector<cv::Rect>{cv::Rect(40, 20, 16, 12)}, diff.regions);
}

// Source pixels carry their own coordinates: column in bytes 0 and 1 (low 3 bits),
// row in the rest.
cv::Mat coordinateImage(int width, int height) {
  cv::Mat image(height, width, CV_8UC3);
  for (int r = 0; r < height; ++r) {
    for (int c = 0; c < width; ++c) {
      image.at<cv::Vec3b>(r, c) = cv::Vec3b(c & 255, (c >> 8) | ((r & 31) << 3), r >> 5);
    }
  }
  return image;
}

cv::Point sourceOf(const cv::Vec3b& p) { return {p[0] | (p[1] & 7) << 8, (p[1] >> 3) | p[2] << 5}; }

TEST(MotionDiffTest, ResizeAndCopySamplesInThirtySecondsOfAPixel) {
  FrameDiff diff(333, 188, 2);
  cv::Mat target(188, 333, CV_8UC3);
  for (const cv::Size source : {cv::Size(1280, 720), cv::Size(200, 100)}) {
    SCOPED_TRACE(source);
    cv::Mat image = coordinateImage(source.width, source.height);
    diff.resizeAndCopy(image, target);
    const int xStep = source.width * 32 / 333, yStep = source.height * 32 / 188;
    for (int y = 0; y < 188; ++y) {
      for (int x = 0; x < 333; ++x) {
        ASSERT_EQ(cv::Point((x * xStep) >> 5, (y * yStep) >> 5),
                  sourceOf(target.at<cv::Vec3b>(y, x)))
            << x << "," << y;
      }
    }
  }
  cv::Mat camera = coordinateImage(1280, 720);
  diff.resizeAndCopy(camera, target);
  EXPECT_EQ(cv::Point(1276, 712), sourceOf(target.at<cv::Vec3b>(187, 332)));
}

TEST(MotionDiffTest, ResizeAndCopyLeavesTargetWhenAStepWouldBeZero) {
  FrameDiff diff(333, 188, 2);
  cv::Mat target(188, 333, CV_8UC3, cv::Scalar::all(7));
  cv::Mat tiny(5, 400, CV_8UC3, cv::Scalar::all(9));  // 5 rows: yStep 160 / 188 = 0
  diff.resizeAndCopy(tiny, target);
  EXPECT_EQ(0, cv::norm(target, cv::Mat(188, 333, CV_8UC3, cv::Scalar::all(7)), cv::NORM_INF));
  cv::Mat empty;
  diff.resizeAndCopy(tiny, empty);
  EXPECT_TRUE(empty.empty());
}

TEST(MotionDiffTest, DefaultConstructionUsesNormalLightRing) {
  EXPECT_EQ(652, FrameDiffLowLight().minRegionArea);
  FrameDiff diff;
  EXPECT_EQ(163, diff.minRegionArea);
  EXPECT_EQ(333, diff.width);
  EXPECT_EQ(188, diff.height);
  EXPECT_EQ(15, diff.historyLength);
  EXPECT_EQ(-1, diff.currentIndex);
  EXPECT_EQ(-15, diff.referenceIndex);
  ASSERT_EQ(15u, diff.history.size());
  for (const cv::Mat& slot : diff.history) {
    EXPECT_EQ(CV_8UC3, slot.type());
    EXPECT_EQ(cv::Size(333, 188), slot.size());
    EXPECT_EQ(0, cv::countNonZero(slot.reshape(1)));
  }
  EXPECT_EQ(CV_8UC1, diff.mask.type());
  EXPECT_EQ(cv::Size(333, 188), diff.mask.size());
}

}  // namespace
