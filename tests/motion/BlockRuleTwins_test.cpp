// The vector block rules against their plain twins: the same masks, foreground
// pixel counts, votes and region lists, byte for byte.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "motion/FrameDiff.h"
#include "motion/FrameDiffLowLight.h"

namespace {

enum class Rule { kNormalLight, kLowLight };

std::unique_ptr<MotionDiff> makeRule(Rule rule, int width, int height, KernelPath path) {
  std::unique_ptr<MotionDiff> diff;
  if (rule == Rule::kNormalLight)
    diff = std::make_unique<FrameDiff>(width, height, 15);
  else
    diff = std::make_unique<FrameDiffLowLight>(width, height, 5);
  diff->setKernelPath(path);
  return diff;
}

// Runs one rule on both paths; the masks start dirty so a missed clear shows.
struct Twins {
  Twins(Rule rule, int width, int height)
      : plain(makeRule(rule, width, height, KernelPath::kPlain)),
        vector(makeRule(rule, width, height, KernelPath::kVector)) {}
  // Asserts equal votes and masks; returns the number of foreground pixels.
  int compare(cv::Mat& current, cv::Mat& reference) {
    plain->mask.setTo(77);
    vector->mask.setTo(99);
    const bool plainVote = plain->estForegroundMask(current.data, reference.data, &plain->mask);
    const bool vectorVote = vector->estForegroundMask(current.data, reference.data, &vector->mask);
    EXPECT_EQ(plainVote, vectorVote);
    EXPECT_EQ(cv::norm(plain->mask, vector->mask, cv::NORM_INF), 0);
    return cv::countNonZero(plain->mask);
  }
  std::unique_ptr<MotionDiff> plain, vector;
};

// Blocks of random level and random change, so that every case of both rules
// comes up: still, noisy, moving, near black and near white. With `like`, each
// block is that frame's block plus noise of a random spread.
cv::Mat randomFrame(int width, int height, cv::RNG& rng, const cv::Mat* like = nullptr) {
  static const int kLevels[] = {3, 12, 60, 128, 200, 243, 252};
  static const int kSpreads[] = {0, 2, 8, 30, 90, 255};
  cv::Mat frame(height, width, CV_8UC3);
  for (int y = 0; y < height; y += 4) {
    for (int x = 0; x < width; x += 4) {
      const int spread = kSpreads[rng.uniform(0, 6)];
      int level[3];
      for (int& l : level) l = kLevels[rng.uniform(0, 7)];
      for (int py = y; py < std::min(y + 4, height); ++py) {
        for (int px = x; px < std::min(x + 4, width); ++px) {
          for (int c = 0; c < 3; ++c) {
            const int base = like ? like->at<cv::Vec3b>(py, px)[c] : level[c];
            frame.at<cv::Vec3b>(py, px)[c] =
                cv::saturate_cast<uchar>(base + rng.uniform(-spread, spread + 1));
          }
        }
      }
    }
  }
  return frame;
}

class RandomFrames : public ::testing::TestWithParam<std::tuple<Rule, cv::Size>> {};

TEST_P(RandomFrames, VectorRuleMatchesPlainRule) {
  const auto [rule, size] = GetParam();
  Twins twins(rule, size.width, size.height);
  cv::RNG rng(size.width * 1000 + size.height);
  for (int trial = 0; trial < 40; ++trial) {
    cv::Mat reference = randomFrame(size.width, size.height, rng);
    cv::Mat current = randomFrame(size.width, size.height, rng, &reference);
    twins.compare(current, reference);
  }
}

INSTANTIATE_TEST_SUITE_P(
    SizesNotMultiplesOfFourOrOfTheLanes, RandomFrames,
    ::testing::Combine(::testing::Values(Rule::kNormalLight, Rule::kLowLight),
                       ::testing::Values(cv::Size(318, 238), cv::Size(162, 122), cv::Size(100, 76),
                                         cv::Size(2, 2), cv::Size(6, 6), cv::Size(21, 9),
                                         cv::Size(336, 188))));

// Random block masks, sparse to dense (many components, holes, components in
// holes, blocks touching by a corner): the regions found on the block grid are
// those found on the pixel mask, in the same order.
TEST(BlockGridRegions, MatchThoseOfThePixelMask) {
  cv::RNG rng(4242);
  for (cv::Size size :
       {cv::Size(320, 240), cv::Size(318, 238), cv::Size(100, 76), cv::Size(21, 9)}) {
    for (int trial = 0; trial < 60; ++trial) {
      const cv::Mat still(size, CV_8UC3, cv::Scalar::all(100));
      cv::Mat moved = still.clone();
      const double density = rng.uniform(0.05, 0.8);
      for (int y = 0; y + 4 <= size.height; y += 4)
        for (int x = 0; x + 4 <= size.width; x += 4)
          if (rng.uniform(0.0, 1.0) < density)
            moved(cv::Rect(x, y, 4, 4)).setTo(cv::Scalar::all(255));
      FrameDiff plain(size.width, size.height, 2), vector(size.width, size.height, 2);
      plain.setKernelPath(KernelPath::kPlain);
      vector.setKernelPath(KernelPath::kVector);
      for (MotionDiff* diff :
           {static_cast<MotionDiff*>(&plain), static_cast<MotionDiff*>(&vector)}) {
        cv::Mat first = still.clone(), second = moved.clone();
        diff->processImage(first, true);
        diff->processImage(second, true);
      }
      ASSERT_EQ(plain.regions, vector.regions) << size << " trial " << trial;
    }
  }
}

// The people walking through OpenCV's sample recording, at 320x240 in red,
// green, blue order, in normal light and darkened to a quarter (low light).
class RealFrames : public ::testing::TestWithParam<std::tuple<Rule, double>> {};

// The first 300 frames, decoded once for all parameters; empty when missing.
const std::vector<cv::Mat>& sampleFrames() {
  static const std::vector<cv::Mat> frames = [] {
    std::vector<cv::Mat> decoded;
    cv::VideoCapture video(HDSML_SAMPLE_VIDEO);
    for (cv::Mat frame; decoded.size() < 300 && video.read(frame);) {
      cv::Mat small;
      cv::resize(frame, small, cv::Size(320, 240), 0, 0, cv::INTER_AREA);
      cv::cvtColor(small, small, cv::COLOR_BGR2RGB);
      decoded.push_back(small);
    }
    return decoded;
  }();
  return frames;
}

TEST_P(RealFrames, VectorRuleMatchesPlainRuleAndFindsTheSameRegions) {
  const auto [rule, gain] = GetParam();
  if (sampleFrames().empty()) GTEST_SKIP() << HDSML_SAMPLE_VIDEO << " missing (scripts/samples)";
  std::vector<cv::Mat> frames;
  for (const cv::Mat& frame : sampleFrames()) {
    frames.emplace_back();
    frame.convertTo(frames.back(), CV_8UC3, gain);
  }
  ASSERT_GE(frames.size(), 200u);

  Twins twins(rule, 320, 240);
  const size_t gap = rule == Rule::kNormalLight ? 14 : 4;  // ring distance
  int framesMoving = 0;
  for (size_t i = gap; i < frames.size(); ++i)
    framesMoving += twins.compare(frames[i], frames[i - gap]) > 0;
  EXPECT_GT(framesMoving, 100);  // the comparison saw motion, not only still blocks

  size_t regions = 0;
  for (cv::Mat& frame : frames) {
    twins.plain->processImage(frame, true);
    twins.vector->processImage(frame, true);
    ASSERT_EQ(twins.plain->regions, twins.vector->regions);
    regions += twins.plain->regions.size();
  }
  EXPECT_GT(regions, 0u);
}

INSTANTIATE_TEST_SUITE_P(SampleVideo, RealFrames,
                         ::testing::Combine(::testing::Values(Rule::kNormalLight, Rule::kLowLight),
                                            ::testing::Values(1.0, 0.25)));

}  // namespace
