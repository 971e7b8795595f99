// The guarded analysis at its thresholds: each guard just below and just above
// the value at which it acts, on synthetic frames whose block statistics are
// known exactly.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "conditioning/Filter.h"
#include "motion/SceneGuards.h"

namespace {

using hdsml::GuardReport;
using hdsml::GuardSettings;
using hdsml::SceneGuards;
using Regions = std::vector<std::pair<cv::Rect, float>>;

constexpr int kW = 320, kH = 240;

struct Frame {
  explicit Frame(uint8_t r = 40, uint8_t g = 40, uint8_t b = 40) : bytes(3 * kW * kH) {
    paint({0, 0, kW, kH}, r, g, b);
  }
  Frame& paint(cv::Rect area, uint8_t r, uint8_t g, uint8_t b) {
    for (int y = area.y; y < area.y + area.height; ++y)
      for (int x = area.x; x < area.x + area.width; ++x) {
        uint8_t* p = &bytes[3 * (size_t(y) * kW + x)];
        p[0] = r, p[1] = g, p[2] = b;
      }
    return *this;
  }
  std::vector<uint8_t> bytes;
};

// A 16 x 16 patch whose red moved by `delta`: 16 blocks, each with energy
// 16 delta^2 and a chromaticity change well above 0.08 on the grey of 40.
Frame redPatch(int delta, cv::Rect area = {64, 64, 16, 16}) {
  return Frame().paint(area, static_cast<uint8_t>(40 + delta), 40, 40);
}

struct Replay {
  explicit Replay(GuardSettings s = {}) : guards(s, kW, kH) {}
  SceneGuards::Verdict feed(const Frame& f, int exposure = 10000000, bool lowLight = false) {
    return guards.analyse(f.bytes.data(), exposure, ++ts, lowLight, regions);
  }
  SceneGuards guards;
  Regions regions;
  int64_t ts = 0;
};

TEST(SceneGuardsTest, FirstFrameHasNothingToCompareAndCastsNoVote) {
  Replay run;
  EXPECT_FALSE(run.feed(Frame()).voted);
  EXPECT_FALSE(run.guards.report().compared);
  const SceneGuards::Verdict second = run.feed(Frame());
  EXPECT_TRUE(second.voted);
  EXPECT_FALSE(second.vote);
  EXPECT_EQ(run.guards.report().lag, 1);
}

TEST(SceneGuardsTest, BlockThresholdIsEnergy8000AtSensitivity50) {
  for (const auto& [delta, moving] : {std::pair{22, false}, std::pair{23, true}}) {
    Replay run;
    run.feed(Frame());
    EXPECT_EQ(run.feed(redPatch(delta)).vote, moving) << delta;
    EXPECT_EQ(run.guards.report().movedArea, moving ? 256 : 0);
  }
}

TEST(SceneGuardsTest, SensitivityHalvesTheThresholdEvery25Points) {
  GuardSettings s;
  s.sensitivity = 75;  // 4000: 16 * 15^2 = 3600 below, 16 * 16^2 = 4096 above
  for (const auto& [delta, moving] : {std::pair{15, false}, std::pair{16, true}}) {
    Replay run(s);
    run.feed(Frame());
    EXPECT_EQ(run.feed(redPatch(delta)).vote, moving) << delta;
  }
}

TEST(SceneGuardsTest, RegionMustBeLargerThanTheMinimumArea) {
  GuardSettings s;
  s.minRegionArea = 255.0 / (kW * kH) * 100.0 + 1e-9;  // 255 pixels: a 16 x 16 box passes
  Replay passes(s);
  passes.feed(Frame());
  EXPECT_TRUE(passes.feed(redPatch(40)).vote);
  s.minRegionArea = 256.0 / (kW * kH) * 100.0 + 1e-9;  // 256: it does not
  Replay fails(s);
  fails.feed(Frame());
  EXPECT_FALSE(fails.feed(redPatch(40)).vote);
  EXPECT_EQ(fails.guards.report().largestRegion, 256);
  EXPECT_EQ(fails.guards.report().neededArea, 256);
}

TEST(SceneGuardsTest, MaskedBlocksNeverVote) {
  GuardSettings s;
  // Covers the patch at 64..79 exactly: x 0.2..0.25, y 64/240..80/240.
  s.masks = {{{0.2, 64.0 / kH}, {0.25, 64.0 / kH}, {0.25, 80.0 / kH}, {0.2, 80.0 / kH}}};
  Replay run(s);
  run.feed(Frame());
  EXPECT_FALSE(run.feed(redPatch(60)).vote);
  EXPECT_TRUE(run.guards.report().acted & hdsml::kGuardMask);
  EXPECT_TRUE(run.feed(redPatch(60, {160, 64, 16, 16})).vote) << "outside the mask";
}

TEST(SceneGuardsTest, LowLightNeedsLumaChange320AndNightRule96) {
  // Blue (byte 2, weight 0.299) moved by delta on every pixel of a 32 x 32
  // patch: luma change 16 * 0.299 * delta per block.
  const auto bluePatch = [](int delta) {
    return Frame().paint({64, 64, 32, 32}, 40, 40, static_cast<uint8_t>(40 + delta));
  };
  for (const auto& [night, delta, moving] :
       {std::tuple{false, 66, false}, std::tuple{false, 67, true}, std::tuple{true, 20, false},
        std::tuple{true, 21, true}}) {
    GuardSettings s;
    s.night = night;
    Replay run(s);
    run.feed(Frame(), 100000000, true);
    EXPECT_EQ(run.feed(bluePatch(delta), 100000000, true).vote, moving) << night << " " << delta;
  }
}

// Sensor noise on every sample of both frames, the same seed each run.
Frame noisy(const Frame& f, double sigma, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> n(0.0, sigma);
  Frame out = f;
  for (uint8_t& v : out.bytes)
    v = static_cast<uint8_t>(std::clamp(v + std::lround(n(random)), 0L, 255L));
  return out;
}

TEST(SceneGuardsTest, NoiseGuardRaisesTheThresholdAboveMeasuredNoise) {
  GuardSettings s;
  s.noise = true;
  Replay quiet(s), loud(s);
  for (unsigned k = 0; k < 4; ++k) {
    quiet.feed(noisy(Frame(100, 100, 100), 2, k));
    loud.feed(noisy(Frame(100, 100, 100), 20, k));
  }
  EXPECT_FALSE(quiet.guards.report().acted & hdsml::kGuardNoise);
  EXPECT_FLOAT_EQ(quiet.guards.report().threshold, 8000.0f);
  const GuardReport r = loud.guards.report();
  EXPECT_TRUE(r.acted & hdsml::kGuardNoise);
  EXPECT_GT(r.threshold, 8000.0f);
  EXPECT_NEAR(r.noise, 20.0f, 4.0f);
  EXPECT_FALSE(r.vote) << "noise alone casts no motion vote";
}

TEST(SceneGuardsTest, LostColourIsAWholePictureChangeAndTheNextFrameComparesAfterIt) {
  GuardSettings s;
  s.globalChange = true;
  Replay run(s);
  run.feed(Frame(120, 60, 40));
  EXPECT_TRUE(run.feed(Frame(120, 60, 40)).voted);
  const SceneGuards::Verdict across = run.feed(Frame(73, 73, 73));  // infrared: grey
  EXPECT_FALSE(across.voted);
  EXPECT_TRUE(run.guards.report().acted & hdsml::kGuardGlobalChange);
  EXPECT_TRUE(run.feed(Frame(73, 73, 73)).voted);
  EXPECT_EQ(run.guards.report().lag, 1) << "re-armed on the frame after the change";
  // Then 2, 3, 4 frames back, and no further until 14 back lies past the
  // first 4 frames after the change.
  for (int lag = 2; lag <= 17; ++lag) {
    run.feed(Frame(73, 73, 73));
    EXPECT_EQ(run.guards.report().lag, std::min(lag, 4)) << lag;
  }
  run.feed(Frame(73, 73, 73));
  EXPECT_EQ(run.guards.report().lag, 14);
}

TEST(SceneGuardsTest, APictureTooDarkToHaveColourCannotLoseIt) {
  // A film's first frame after black, or a lens uncovered: the near-black
  // picture's saturation is noise. Its mean channel value is 9 against the
  // 10 of a block that sinks into black; at 10 the loss counts.
  GuardSettings s;
  s.globalChange = true;
  for (const auto& [dark, expectVote] : {std::pair{Frame(13, 7, 7), true},      // mean 9
                                         std::pair{Frame(14, 8, 8), false}}) {  // mean 10
    Replay run(s);
    run.feed(dark);
    EXPECT_TRUE(run.feed(dark).voted);
    EXPECT_EQ(run.feed(Frame(73, 73, 73)).voted, expectVote);
    EXPECT_EQ((run.guards.report().acted & hdsml::kGuardGlobalChange) != 0, !expectVote);
  }
}

TEST(SceneGuardsTest, ExposureChangeMatchesBrightnessSoAPersonStillVotes) {
  GuardSettings s;
  s.globalChange = true;
  Replay run(s);
  run.feed(Frame(60, 50, 40), 10000000);
  // Twice the exposure, twice the brightness, and someone red in view.
  const SceneGuards::Verdict v =
      run.feed(Frame(120, 100, 80).paint({64, 64, 16, 16}, 200, 100, 80), 20000000);
  EXPECT_TRUE(v.voted);
  EXPECT_TRUE(v.vote);
  EXPECT_NEAR(run.guards.report().gain, 2.0f, 0.01f);  // the person brightens it a little
  EXPECT_EQ(run.guards.report().movedArea, 256);
}

TEST(SceneGuardsTest, GainIgnoresWhatChangedOtherwiseAndExposureJitter) {
  GuardSettings s;
  s.globalChange = true;
  Replay run(s);
  run.feed(Frame(80, 70, 60), 10000000);
  // Half again the exposure and the light, and a dark coat over a third of
  // the frame: the gain is the background's.
  run.feed(Frame(120, 105, 90).paint({0, 0, kW, 80}, 40, 30, 30), 15000000);
  EXPECT_NEAR(run.guards.report().gain, 1.5f, 0.01f);
  // An exposure 1 % off and the pixels 2 % brighter: both within their
  // tolerance, no matching.
  Replay jitter(s);
  jitter.feed(Frame(80, 70, 60), 10000000);
  jitter.feed(Frame(82, 71, 61), 10100000);
  EXPECT_FLOAT_EQ(jitter.guards.report().gain, 1.0f);
  EXPECT_FALSE(jitter.guards.report().acted & hdsml::kGuardGainMatched);
  // 3 % more exposure and light: too little for the pixels alone (4 %), but
  // the exposure says the light changed.
  jitter.feed(Frame(83, 72, 62), 10300000);
  EXPECT_TRUE(jitter.guards.report().acted & hdsml::kGuardGainMatched);
  EXPECT_NEAR(jitter.guards.report().gain, 1.03f, 0.01f);
}

TEST(SceneGuardsTest, ChangeOfOverAThirdOfTheBlocksCastsNoVoteOnlyWhenTheLightChanged) {
  GuardSettings s;
  s.globalChange = true;
  // Red moved on a third and on 36 % of the rows while the exposure moved by
  // 3 %: only the second is the picture's. The scene has colour, which the red
  // barely changes.
  for (const auto& [rows, voted] : {std::pair{80, true}, std::pair{88, false}}) {
    Replay run(s);
    run.feed(Frame(70, 40, 40));
    EXPECT_EQ(run.feed(Frame(70, 40, 40).paint({0, 0, kW, rows}, 100, 40, 40), 10300000).voted,
              voted)
        << rows;
  }
  // The same 36 % under the same light is something big moving, and it votes.
  Replay run(s);
  run.feed(Frame(70, 40, 40));
  const SceneGuards::Verdict big = run.feed(Frame(70, 40, 40).paint({0, 0, kW, 88}, 100, 40, 40));
  EXPECT_TRUE(big.voted);
  EXPECT_TRUE(big.vote);
}

TEST(SceneGuardsTest, RefillHandsANewFilterTheLatestVotesOldestFirst) {
  Replay run;
  run.feed(Frame());
  // Five frames without motion, then three with: the last five votes are
  // no, no, yes, yes, yes.
  for (int k = 0; k < 8; ++k) run.feed(k < 5 ? Frame() : redPatch(60));
  Filter filter(5);
  run.guards.refill(filter);
  EXPECT_TRUE(filter.full);
  EXPECT_EQ(filter.sum, 3);
  // The next vote replaces the oldest, a no: oldest first, the sum stays.
  filter.updateBuffer(false);
  EXPECT_EQ(filter.sum, 3);
}

TEST(SceneGuardsTest, BrightnessAloneIsNoMotionInNormalLight) {
  // Every channel of the patch 60 brighter: a large energy, but the same
  // chromaticity, as a shadow or a lamp leaves it.
  Replay run;
  run.feed(Frame());
  EXPECT_FALSE(run.feed(Frame().paint({64, 64, 32, 32}, 100, 100, 100)).vote);
  EXPECT_EQ(run.guards.report().movedArea, 0);
}

}  // namespace
