#include "motion/motionDetector.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

namespace {

using RegionList = std::vector<std::pair<cv::Rect, float>>;

// Drives the detector the way the detection client does: through the runner
// interface, with camera frames twice the 333 x 188 motion resolution.
class MotionDetectorTest : public ::testing::Test {
 protected:
  void choose(const char* name) { runner_->setAlgoType(name, 333, 188); }

  // Runs `frame`, by default one of fresh noise unlike every other frame, and reads
  // the regions as the detection client does: a bad_cast fails the test, and getList
  // must replace the placeholder rather than append to it.
  RegionList run(bool detect = true, cv::Mat frame = cv::Mat()) {
    if (frame.empty()) cv::randu(frame = cv::Mat(376, 666, CV_8UC3), 0, 256);
    runner_->setImage(frame);
    runner_->runAlgo(detect);
    vantorData* data = nullptr;
    runner_->getAlgoOutput(data);
    RegionList regions{{cv::Rect(), 1.0f}};
    dynamic_cast<vantorList<std::pair<cv::Rect, float>>&>(*data).getList(regions);
    return regions;
  }

  // After a (re)start, frames 1 to n - 1 find nothing and frame n does.
  void expectFirstDetectionAt(int n) {
    for (int frame = 1; frame < n; ++frame) EXPECT_TRUE(run().empty()) << "frame " << frame;
    EXPECT_FALSE(run().empty()) << "frame " << n;
  }

  std::unique_ptr<imageAlgoRunner> runner_ = std::make_unique<motionDetector>();
  motionDetector& detector_ = static_cast<motionDetector&>(*runner_);
};

TEST_F(MotionDetectorTest, ReportsRectanglesInMotionFrameCoordinates) {
  choose("SingleFrameDiff");
  cv::Mat frame(376, 666, CV_8UC3, cv::Scalar(100, 100, 100));
  EXPECT_TRUE(run(true, frame).empty());
  frame(cv::Rect(80, 40, 80, 80)).setTo(cv::Scalar(200, 60, 30));
  EXPECT_EQ((RegionList{{cv::Rect(40, 20, 40, 40), 0.0f}}), run(true, frame));
  EXPECT_EQ(cv::Rect(0, 0, 666, 376), runner_->imageRect);
  EXPECT_EQ(frame.data, runner_->getImage()->data);  // shared, not copied
}

TEST_F(MotionDetectorTest, NamedRuleDetectsFromTheFrameThatFillsItsRing) {
  const struct {
    const char* name;
    int historyLength, minRegionArea;
  } kRules[] = {{"SingleFrameDiff", 2, 163}, {"FrameDiffLowLight", 5, 652}, {"FrameDiff", 15, 163}};
  for (const auto& rule : kRules) {
    SCOPED_TRACE(rule.name);
    choose(rule.name);
    ASSERT_NE(nullptr, detector_.algorithm);
    EXPECT_EQ(rule.minRegionArea, detector_.algorithm->minRegionArea);
    expectFirstDetectionAt(rule.historyLength);
    EXPECT_TRUE(run(false).empty());  // a run without detection empties the output
    EXPECT_FALSE(run().empty());
    detector_.clear();
    expectFirstDetectionAt(rule.historyLength);
    choose(rule.name);  // choosing again discards the ring and the output
    EXPECT_EQ(0, detector_.algorithm->frameCount);
    EXPECT_TRUE(detector_.output->list.empty());
  }
}

TEST_F(MotionDetectorTest, UnknownNameLeavesNoAlgorithmAndNullNameRebuildsTheStoredOne) {
  choose("SingleFrameDiff");
  choose("MOG2");
  EXPECT_EQ(nullptr, detector_.algorithm);
  EXPECT_TRUE(run().empty());
  detector_.clear();
  choose("FrameDiffLowLight");
  run();
  runner_->setAlgoType(nullptr, 333, 188);
  ASSERT_NE(nullptr, detector_.algorithm);
  EXPECT_EQ(0, detector_.algorithm->frameCount);
  EXPECT_EQ(5, detector_.algorithm->historyLength);
}

}  // namespace
