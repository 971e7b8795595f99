#include "motion/motionDetector.h"

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "motion/FrameDiff.h"
#include "motion/FrameDiffLowLight.h"

namespace {

using RegionList = std::vector<std::pair<cv::Rect, float>>;

// Drives the detector the way the detection client does: through the runner
// interface, with camera frames twice the 333 x 188 motion resolution.
class MotionDetectorTest : public ::testing::Test {
 protected:
  void choose(const char* name) { runner_->setAlgoType(name, 333, 188); }

  // Runs one frame of fresh noise (different from every other frame) and returns
  // the regions handed out.
  RegionList runNoise(bool detect = true) {
    cv::Mat frame(376, 666, CV_8UC3);
    cv::randu(frame, 0, 256);
    return run(frame, detect);
  }

  RegionList run(const cv::Mat& frame, bool detect = true) {
    runner_->setImage(frame);
    runner_->runAlgo(detect);
    return published();
  }

  // The regions currently handed out, read as the detection client reads them.
  RegionList published() {
    vantorData* data = nullptr;
    runner_->getAlgoOutput(data);
    auto* list = dynamic_cast<vantorList<std::pair<cv::Rect, float>>*>(data);
    RegionList regions;
    if (list == nullptr) {
      ADD_FAILURE() << "output is not a list of motion regions";
    } else {
      list->getList(regions);
    }
    return regions;
  }

  std::unique_ptr<imageAlgoRunner> runner_ = std::make_unique<motionDetector>();
  motionDetector& detector_ = static_cast<motionDetector&>(*runner_);
};

TEST_F(MotionDetectorTest, ReportsRectanglesInMotionFrameCoordinates) {
  choose("SingleFrameDiff");
  cv::Mat frame(376, 666, CV_8UC3, cv::Scalar(100, 100, 100));
  EXPECT_TRUE(run(frame).empty());
  frame(cv::Rect(80, 40, 80, 80)).setTo(cv::Scalar(200, 60, 30));
  EXPECT_EQ((RegionList{{cv::Rect(40, 20, 40, 40), 0.0f}}), run(frame));
  EXPECT_EQ(cv::Rect(0, 0, 666, 376), runner_->imageRect);
  EXPECT_EQ(frame.data, runner_->getImage()->data);  // shared, not copied
}

struct AlgorithmCase {
  const char* name;
  int historyLength;
  int minRegionArea;
  bool lowLight;
};

void PrintTo(const AlgorithmCase& algorithm, std::ostream* os) { *os << algorithm.name; }

class MotionDetectorAlgorithms : public MotionDetectorTest,
                                 public ::testing::WithParamInterface<AlgorithmCase> {};

TEST_P(MotionDetectorAlgorithms, BuildsTheNamedRule) {
  choose(GetParam().name);
  EXPECT_STREQ(GetParam().name, runner_->getAlgoType());
  ASSERT_NE(nullptr, detector_.algorithm);
  EXPECT_EQ(GetParam().lowLight, dynamic_cast<FrameDiffLowLight*>(detector_.algorithm) != nullptr);
  EXPECT_EQ(GetParam().historyLength, detector_.algorithm->historyLength);
  EXPECT_EQ(GetParam().minRegionArea, detector_.algorithm->minRegionArea);
}

TEST_P(MotionDetectorAlgorithms, DetectsFromTheFrameThatFillsTheRing) {
  choose(GetParam().name);
  for (int frame = 1; frame < GetParam().historyLength; ++frame) {
    EXPECT_TRUE(runNoise().empty()) << "frame " << frame;
  }
  EXPECT_FALSE(runNoise().empty());
  EXPECT_FALSE(runNoise().empty());
}

TEST_P(MotionDetectorAlgorithms, ChoosingAgainDiscardsTheRing) {
  choose(GetParam().name);
  for (int frame = 1; frame < GetParam().historyLength; ++frame) runNoise();
  ASSERT_FALSE(runNoise().empty());
  choose(GetParam().name);
  EXPECT_EQ(0, detector_.algorithm->frameCount);
  EXPECT_TRUE(published().empty());
  for (int frame = 1; frame < GetParam().historyLength; ++frame) {
    EXPECT_TRUE(runNoise().empty()) << "frame " << frame;
  }
  EXPECT_FALSE(runNoise().empty());
}

TEST_P(MotionDetectorAlgorithms, RunWithoutDetectionEmptiesOutputButFillsRing) {
  choose(GetParam().name);
  for (int frame = 1; frame < GetParam().historyLength; ++frame) runNoise(false);
  EXPECT_TRUE(runNoise(false).empty());
  EXPECT_FALSE(runNoise(true).empty());
  EXPECT_TRUE(runNoise(false).empty());
}

TEST_P(MotionDetectorAlgorithms, ClearRestartsTheRing) {
  choose(GetParam().name);
  for (int frame = 1; frame <= GetParam().historyLength; ++frame) runNoise();
  detector_.clear();
  for (int frame = 1; frame < GetParam().historyLength; ++frame) {
    EXPECT_TRUE(runNoise().empty()) << "frame " << frame;
  }
  EXPECT_FALSE(runNoise().empty());
}

INSTANTIATE_TEST_SUITE_P(ByName, MotionDetectorAlgorithms,
                         ::testing::Values(AlgorithmCase{"SingleFrameDiff", 2, 163, false},
                                           AlgorithmCase{"FrameDiffLowLight", 5, 652, true},
                                           AlgorithmCase{"FrameDiff", 15, 163, false}),
                         [](const ::testing::TestParamInfo<AlgorithmCase>& info) {
                           return info.param.name;
                         });

TEST_F(MotionDetectorTest, UnknownNameLeavesNoAlgorithmAndIsHarmless) {
  choose("SingleFrameDiff");
  choose("MOG2");
  EXPECT_STREQ("MOG2", runner_->getAlgoType());
  EXPECT_EQ(nullptr, detector_.algorithm);
  EXPECT_TRUE(runNoise().empty());
  detector_.clear();

  runner_->setAlgoType(nullptr, 333, 188);  // reuses the stored name
  EXPECT_EQ(nullptr, detector_.algorithm);
  choose("SingleFrameDiff");
  runner_->setAlgoType(nullptr, 333, 188);
  ASSERT_NE(nullptr, detector_.algorithm);
  EXPECT_EQ(2, detector_.algorithm->historyLength);
}

TEST_F(MotionDetectorTest, ProfilingSumsRestartAfterFiveHundredRuns) {
  runner_->setAlgoType("SingleFrameDiff", 32, 16);
  cv::Mat frame(16, 32, CV_8UC3, cv::Scalar::all(0));
  runner_->setImage(frame);
  runner_->runAlgo(true);
  EXPECT_EQ(0, runner_->runCount);  // off by default

  runner_->profiling = true;
  for (int i = 0; i < 499; ++i) runner_->runAlgo(true);
  EXPECT_EQ(499, runner_->runCount);
  EXPECT_GT(runner_->totalMs, 0.0);
  runner_->runAlgo(true);
  EXPECT_EQ(0, runner_->runCount);
  EXPECT_EQ(0.0, runner_->totalMs);
  runner_->runAlgo(true);
  EXPECT_EQ(1, runner_->runCount);

  runner_->spareCount = 3;
  runner_->spareTicks = 4;
  runner_->setAlgoType("SingleFrameDiff", 32, 16);
  EXPECT_EQ(0, runner_->runCount);
  EXPECT_EQ(0.0, runner_->totalMs);
  EXPECT_EQ(0, runner_->spareCount);
  EXPECT_EQ(0, runner_->spareTicks);
}

}  // namespace
