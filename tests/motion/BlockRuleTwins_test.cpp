// The vector block rules against their plain twins: the same votes, masks,
// foreground pixel counts and region lists, byte for byte.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "frames/KernelPath.h"
#include "motion/FrameDiff.h"
#include "motion/FrameDiffLowLight.h"
#include "tests/support/SampleVideo.h"

namespace {

enum class Rule { kNormalLight, kLowLight };

// One rule on both paths, with a ring of 2 so that processImage(reference, false),
// processImage(current) compares the two.
struct Twins {
  Twins(Rule rule, int width, int height) {
    for (KernelPath path : {KernelPath::kPlain, KernelPath::kVector}) {
      std::unique_ptr<MotionDiff> d;
      if (rule == Rule::kNormalLight) d = std::make_unique<FrameDiff>(width, height, 2);
      if (rule == Rule::kLowLight) d = std::make_unique<FrameDiffLowLight>(width, height, 2);
      d->setKernelPath(path);
      (path == KernelPath::kPlain ? plain : vector) = std::move(d);
    }
  }
  // Expects equal votes, masks and regions; returns the plain foreground pixels.
  int compare(const cv::Mat& current, const cv::Mat& reference) {
    cv::Mat a = current.clone(), b = reference.clone(), masks[2];
    bool votes[2];
    for (int i = 0; i < 2; ++i) {
      MotionDiff& d = i == 0 ? *plain : *vector;
      d.mask.setTo(77 + i);  // dirty, so that a missed clear shows
      votes[i] = d.estForegroundMask(a.data, b.data, &d.mask);
      masks[i] = d.mask.clone();
      d.processImage(b, false);  // only fills the ring
      d.processImage(a, true);
    }
    EXPECT_EQ(votes[0], votes[1]);
    EXPECT_EQ(cv::norm(masks[0], masks[1], cv::NORM_INF), 0);
    EXPECT_EQ(plain->regions, vector->regions);
    return cv::countNonZero(masks[0]);
  }
  std::unique_ptr<MotionDiff> plain, vector;
};

// Blocks of random level (near black to near white) with random change; with
// `like`, that frame's blocks plus noise of a random spread.
cv::Mat randomFrame(cv::Size size, cv::RNG& rng, const cv::Mat* like = nullptr) {
  const int levels[] = {3, 12, 60, 128, 200, 243, 252}, spreads[] = {0, 2, 8, 30, 90, 255};
  cv::Mat frame(size, CV_8UC3);
  for (int y = 0; y < size.height; y += 4) {
    for (int x = 0; x < size.width; x += 4) {
      const int spread = spreads[rng.uniform(0, 6)];
      const cv::Vec3i level(levels[rng.uniform(0, 7)], levels[rng.uniform(0, 7)],
                            levels[rng.uniform(0, 7)]);
      for (int py = y; py < std::min(y + 4, size.height); ++py)
        for (int px = x; px < std::min(x + 4, size.width); ++px)
          for (int c = 0; c < 3; ++c)
            frame.at<cv::Vec3b>(py, px)[c] =
                cv::saturate_cast<uchar>((like ? like->at<cv::Vec3b>(py, px)[c] : level[c]) +
                                         rng.uniform(-spread, spread + 1));
    }
  }
  return frame;
}

// Sizes that are not multiples of 4 or of the lane count, and one that is.
TEST(RandomFrames, VectorRulesMatchPlainRules) {
  for (Rule rule : {Rule::kNormalLight, Rule::kLowLight}) {
    for (cv::Size size : {cv::Size(318, 238), cv::Size(162, 122), cv::Size(100, 76), cv::Size(2, 2),
                          cv::Size(6, 6), cv::Size(21, 9), cv::Size(336, 188)}) {
      Twins twins(rule, size.width, size.height);
      cv::RNG rng(size.width * 1000 + size.height);
      for (int trial = 0; trial < 40; ++trial) {
        const cv::Mat reference = randomFrame(size, rng);
        twins.compare(randomFrame(size, rng, &reference), reference);
      }
    }
  }
}

// Blocks (16 pixels of current r, g, b and reference r, g, b, in hex) whose
// plain-order chromaticity or luma sum is the smallest float above the rule's
// threshold, found by search: the same 16 terms summed with any two neighbouring
// columns swapped, in reverse or column by column land at or below it in one of
// a rule's two blocks, so a vector rule that sums in another order misses it.
// clang-format off
const char* const kKnifeEdges[2][2] = {
    {"725f6e724c48a05cbb8d72ae5b8e95648792905823a3724cc79c959ba87bb8ba"
     "c99d93b3a678b27d73ae774b5ca3468c407e55596b5a8f64548f5f5e472f5d48"
     "595c6c669192849d3c4a4758554f6b4d657f5947bbb47bad86767870578e6978",
     "3e5c6746787ca672758275806564386b6a59667fd94f76b097bc8c9ea491803a"
     "a47e51b09468a18f868e7d1d2fa4506681546f8b5c5bb39f78afa36d7e682ab2"
     "8b4d77a39f979fac7a7779684f52737b9247556099a36da57f48dca367a1a970"},
    {"d6976ab2738e545d607b597f52b87b5ca96dd77761ae4b4f736e89994867b3a3"
     "57a6a16b53765c7c68468c6968aa934e5c7a63738d686f7b3582a5498e364199"
     "4a5aa8d05ea8a54659c2956fad769e7ba3af9c903b7a6c5e8d903d6740676d71",
     "553b8f5565ae7653ae6755a6d37a5cab8c705b417b57598f5dbcaf6b9485b898"
     "319e9a5578888e9facada57ba5b16b87bda656a27f5636a67e48a0888ece678e"
     "a34a767242736f6890b4986e8b9a27568b49727b75cf5362b2504d9a5a779f8c"}};
// clang-format on

TEST(KnifeEdgeBlocks, VectorRuleSumsInThePlainOrder) {
  for (Rule rule : {Rule::kNormalLight, Rule::kLowLight}) {
    for (const char* hex : kKnifeEdges[int(rule)]) {
      for (int lane = 0; lane < 4; ++lane) {  // a frame of one quad, the block in each lane
        cv::Mat current(8, 20, CV_8UC3, cv::Scalar::all(128)), reference = current.clone();
        for (int i = 0; i < 96; ++i) {
          const int byte = std::stoi(std::string(hex + 2 * i, 2), nullptr, 16), pixel = i / 6;
          cv::Mat& frame = i % 6 < 3 ? current : reference;
          frame.at<cv::Vec3b>(pixel / 4, 4 * lane + pixel % 4)[i % 3] = uchar(byte);
        }
        EXPECT_EQ(Twins(rule, 20, 8).compare(current, reference), 16) << hex << " lane " << lane;
      }
    }
  }
}

// Blocks just above and just below the integer screens with which the vector
// rules pass over still quads (normal light: ssd 16000; low light: W, the sum of
// 114|d0| + 587|d1| + 299|d2|, 319000), each alone in a frame, at every block
// position: every lane of whole quads, a last quad read whole with a lane past
// the visited blocks (32 wide), the plain tail (42 wide), unvisited blocks.
TEST(ScreenBoundaryBlocks, DecidedAlikeInEveryLaneAndInTheTail) {
  const struct {
    const char* what;
    Rule rule;
    cv::Vec3b reference, first, rest;  // the block's first pixel, its other 15
    int foregroundPixels;
  } kCases[] = {
      // Chromaticity 0.74, channel sums in range: only ssd decides.
      {"ssd 16001", Rule::kNormalLight, {29, 100, 11}, {11, 101, 37}, {11, 100, 37}, 16},
      {"ssd 16000", Rule::kNormalLight, {29, 100, 11}, {11, 100, 37}, {11, 100, 37}, 0},
      // Differences of one sign: the luma sum is W / 1000, to float precision.
      {"W 320029", Rule::kLowLight, {100, 100, 100}, {101, 135, 100}, {100, 134, 100}, 16},
      {"W 319915", Rule::kLowLight, {100, 100, 100}, {100, 135, 100}, {100, 134, 100}, 0}};
  for (const auto& c : kCases) {
    for (cv::Size size : {cv::Size(32, 12), cv::Size(42, 12)}) {
      Twins twins(c.rule, size.width, size.height);
      const cv::Mat reference(size, CV_8UC3, cv::Scalar(c.reference));
      for (int x = 0; x + 4 <= size.width; x += 4) {
        for (int y = 0; y + 4 <= size.height; y += 4) {
          cv::Mat current = reference.clone();
          current(cv::Rect(x, y, 4, 4)).setTo(cv::Scalar(c.rest));
          current.at<cv::Vec3b>(y, x) = c.first;
          const bool visited = x + 2 < size.width - 2 && y + 2 < size.height - 2;
          EXPECT_EQ(twins.compare(current, reference), visited ? c.foregroundPixels : 0)
              << c.what << " at " << x << "," << y << " of " << size;
        }
      }
    }
  }
}

// The first frames of OpenCV's sample recording (people walking) at 320x240 in
// red, green, blue order; empty when the file is missing. A third as many under
// ThreadSanitizer: the comparison runs on one thread, so there it would only
// repeat the other builds' work, at twenty times the cost.
#if defined(__SANITIZE_THREAD__)
constexpr size_t kSampleFrames = 100;
#else
constexpr size_t kSampleFrames = 300;
#endif
const std::vector<cv::Mat>& sampleFrames() {
  static const std::vector<cv::Mat> frames = [] {
    std::vector<cv::Mat> decoded;
    cv::VideoCapture video(HDSML_SAMPLE_VIDEO);
    for (cv::Mat frame, small; decoded.size() < kSampleFrames && video.read(frame);) {
      cv::resize(frame, small, cv::Size(320, 240), 0, 0, cv::INTER_AREA);
      cv::cvtColor(small, small, cv::COLOR_BGR2RGB);
      decoded.push_back(small.clone());
    }
    return decoded;
  }();
  return frames;
}

// The twins prove nothing where the vector path falls back to the plain loops:
// the workstation (SSE2) and the phone (NEON) must build it.
#if defined(__x86_64__) || defined(__aarch64__)
TEST(KernelPath, VectorKernelsAreBuiltOnX86AndArm64) { EXPECT_TRUE(vectorKernelsBuilt()); }
#endif

// In normal light and darkened to a quarter (low light), each frame against
// the one the rule's ring compares it with.
TEST(RealFrames, VectorRulesMatchPlainRules) {
  HDSML_REQUIRE_SAMPLE(sampleFrames().size() == kSampleFrames, HDSML_SAMPLE_VIDEO);
  for (Rule rule : {Rule::kNormalLight, Rule::kLowLight}) {
    for (double gain : {1.0, 0.25}) {
      std::vector<cv::Mat> frames(sampleFrames().size());
      for (size_t i = 0; i < frames.size(); ++i) sampleFrames()[i].convertTo(frames[i], -1, gain);
      Twins twins(rule, 320, 240);
      const size_t gap = rule == Rule::kNormalLight ? 14 : 4;
      int moving = 0;
      for (size_t i = gap; i < frames.size(); ++i)
        moving += twins.compare(frames[i], frames[i - gap]) > 0;
      EXPECT_GT(moving, int(kSampleFrames / 3));  // motion seen, not only still blocks
    }
  }
}

}  // namespace
