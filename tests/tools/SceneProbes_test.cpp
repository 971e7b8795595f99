// The probes that stage a room: auto-exposure settling, a light switch, noise
// on every frame and a screen in view, from their options to the samples.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tests/support/YuvFrame.h"
#include "tools/input/CameraDumpWriter.h"
#include "tools/input/FrameTransform.h"
#include "tools/input/ScreenOverlay.h"
#include "tools/options/ReplayOptions.h"
#include "tools/options/SceneOptions.h"

namespace hdsreplay {
namespace {

namespace fs = std::filesystem;

ReplayOptions parse(std::vector<std::string> args) {
  args.insert(args.begin(), "hds-replay");
  args.push_back("in.avi");
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  return parseReplayOptions(static_cast<int>(argv.size()), argv.data());
}

std::string usageError(const std::vector<std::string>& args) {
  try {
    parse(args);
  } catch (const UsageError& e) {
    return e.what();
  }
  return "(accepted)";
}

hdsml::YuvFrame grey(int w, int h, int level, hdsml::YuvLayout layout = hdsml::YuvLayout::NV21,
                     int padding = 0) {
  return hdsml::packYuv(cv::Mat(h, w, CV_8UC3, cv::Scalar::all(level)), layout, padding);
}

TEST(SceneOptionsTest, ProbesParseAndBadValuesNameTheOption) {
  const ReplayOptions o =
      parse({"--exposure-settle", "2s:0.5:8", "--light-switch", "30:4", "--sensor-noise", "8",
             "--screen-raw", "720x528", "--screen", "films/a:b.nv21:0.05,0.6,0.3,0.25"});
  ASSERT_TRUE(o.scene.settle && o.scene.lightSwitch && o.scene.screen);
  EXPECT_FALSE(o.scene.settle->at.isFrames);
  EXPECT_DOUBLE_EQ(o.scene.settle->at.value, 2000.0);
  EXPECT_DOUBLE_EQ(o.scene.settle->factor, 0.5);
  EXPECT_EQ(o.scene.settle->frames, 8);
  EXPECT_DOUBLE_EQ(o.scene.lightSwitch->at.value, 30.0);
  EXPECT_DOUBLE_EQ(o.scene.lightSwitch->factor, 4.0);
  EXPECT_DOUBLE_EQ(o.scene.sensorNoise, 8.0);
  EXPECT_EQ(o.scene.screen->source, "films/a:b.nv21");  // split at the last colon
  EXPECT_DOUBLE_EQ(o.scene.screen->rect.h, 0.25);
  EXPECT_EQ(o.scene.screen->rawWidth, 720);  // --screen-raw before --screen is kept
  EXPECT_DOUBLE_EQ(parse({}).scene.sensorNoise, -1.0);

  EXPECT_NE(usageError({"--exposure-settle", "2s:0.5"}).find("T:FACTOR:FRAMES"), std::string::npos);
  EXPECT_NE(usageError({"--exposure-settle", "2s:0.5:2.5"}).find("whole number"),
            std::string::npos);
  EXPECT_NE(usageError({"--exposure-settle", "2s:0:8"}).find("out of range"), std::string::npos);
  EXPECT_NE(usageError({"--light-switch", "x:4"}).find("--light-switch: 'x'"), std::string::npos);
  EXPECT_NE(usageError({"--light-switch", "3:4:5"}).find("T:FACTOR"), std::string::npos);
  EXPECT_NE(usageError({"--sensor-noise", "-1"}).find("out of range"), std::string::npos);
  EXPECT_NE(usageError({"--screen", "a.avi"}).find("SOURCE:X,Y,W,H"), std::string::npos);
  EXPECT_NE(usageError({"--screen", "a.avi:0.1,0.1,0.2"}).find("SOURCE:X,Y,W,H"),
            std::string::npos);
  EXPECT_NE(usageError({"--screen", "a.avi:0.8,0.1,0.3,0.2"}).find("reaches past the frame"),
            std::string::npos);
  EXPECT_NE(usageError({"--screen", "a.avi:0.1,0.1,0,0.2"}).find("width and a height"),
            std::string::npos);
  EXPECT_NE(usageError({"--screen-raw", "720x528"}).find("give --screen"), std::string::npos);
}

TEST(SceneProbesTest, SettlingMovesExposureAndBrightnessInEqualStopsThenHolds) {
  TransformPlan plan;
  plan.baseExposure = 10000000;
  plan.settleFrame = 10;
  plan.settleFactor = 0.5;
  plan.settleFrames = 4;
  const FrameTransform t(plan);
  EXPECT_EQ(t.exposure(9), 10000000);  // untouched before
  EXPECT_DOUBLE_EQ(t.gain(9), 1.0);
  for (long k = 0; k < 4; ++k) {
    const double f = std::pow(0.5, (k + 1) / 4.0);
    EXPECT_NEAR(t.gain(10 + k), f, 1e-12) << k;
    EXPECT_EQ(t.exposure(10 + k), std::lround(10000000 * f)) << k;
  }
  EXPECT_EQ(t.exposure(13), 5000000);  // the last step lands on the factor exactly
  EXPECT_EQ(t.exposure(500), 5000000);
  EXPECT_EQ(t.exposure(11, 40000000), std::lround(40000000 * std::pow(0.5, 0.5)));  // a logged one
  plan.settleFrames = 1;  // one frame: a step
  EXPECT_DOUBLE_EQ(FrameTransform(plan).gain(10), 0.5);

  // With an exposure step too, both act on the exposure and on the picture.
  plan.stepFrame = 0;
  plan.stepFactor = 4.0;
  EXPECT_EQ(FrameTransform(plan).exposure(20), 20000000);
  EXPECT_DOUBLE_EQ(FrameTransform(plan).gain(20), 2.0);
}

TEST(SceneProbesTest, ALightSwitchChangesThePictureButNotTheExposure) {
  TransformPlan plan;
  plan.baseExposure = 16000000;
  plan.ramp = true;  // a dark room: 40 % of the light throughout
  plan.rampFrom = plan.rampTo = 0.4;
  plan.rampFrames = 100;
  plan.lightFrame = 20;
  plan.lightFactor = 4.0;
  plan.settleFrame = 21;  // the camera answers on the next frame
  plan.settleFactor = 0.625;
  plan.settleFrames = 8;
  const FrameTransform t(plan);
  EXPECT_DOUBLE_EQ(t.gain(19), 0.4);
  EXPECT_DOUBLE_EQ(t.gain(20), 1.6);  // overexposed when the lamp comes on
  EXPECT_EQ(t.exposure(20), 16000000);
  EXPECT_NEAR(t.gain(28), 1.0, 1e-12);  // settled back to the full picture
  EXPECT_EQ(t.exposure(28), 10000000);

  const hdsml::YuvFrame in = grey(16, 8, 100);
  hdsml::YuvFrame out;
  ASSERT_TRUE(t.apply(in, 20, false, out));
  EXPECT_EQ(out.y[0], std::lround(in.y[0] * 1.6));
  ASSERT_TRUE(t.apply(in, 19, false, out));
  EXPECT_EQ(out.y[0], std::lround(in.y[0] * 0.4));
}

TEST(SceneProbesTest, SensorNoiseReachesEveryFrameAndEqualsHeldNoiseOnHeldOnes) {
  const hdsml::YuvFrame in = grey(64, 64, 120, hdsml::YuvLayout::NV12, 3);
  TransformPlan held;
  held.noiseSigma = 8.0;
  TransformPlan every;
  every.noiseSigma = 2.0;  // replaced
  every.sensorNoise = 8.0;
  hdsml::YuvFrame a, b, walking;
  ASSERT_TRUE(FrameTransform(held).apply(in, 7, true, a));
  ASSERT_TRUE(FrameTransform(every).apply(in, 7, true, b));
  EXPECT_EQ(a.bytes, b.bytes);  // a still scene under --sensor-noise is one under --noise
  EXPECT_FALSE(FrameTransform(held).apply(in, 7, false, walking));
  ASSERT_TRUE(FrameTransform(every).apply(in, 7, false, walking));
  EXPECT_EQ(walking.bytes, b.bytes);  // the same noise on the input's frames
  double squares = 0;
  int inUV = 0;
  for (int r = 0; r < 64; ++r)
    for (int c = 0; c < 64; ++c) {
      const int d = walking.y[r * walking.yRowStride + c] - 120;
      squares += d * d;
    }
  for (int r = 0; r < 32; ++r)
    for (int c = 0; c < 32; ++c)
      inUV += walking.u[r * walking.uRowStride + c * 2] != in.u[r * in.uRowStride + c * 2];
  EXPECT_NEAR(std::sqrt(squares / (64 * 64)), 8.0, 0.5);
  EXPECT_GT(inUV, 32 * 32 / 2);  // the chroma samples too
  // --sensor-noise 0: no noise anywhere, held frames included.
  every.sensorNoise = 0.0;
  EXPECT_FALSE(FrameTransform(every).apply(in, 7, true, b));
}

TEST(ScreenOverlayTest, PlacementRoundsToEvenPixelsInsideTheFrame) {
  const ScreenOverlay::Placement p = ScreenOverlay::place({0.04, 0.62, 0.3, 0.3}, 768, 576);
  EXPECT_EQ(p.x, 30);              // 30.72
  EXPECT_EQ(p.y, 358);             // 357.12
  EXPECT_EQ(p.width, 262 - 30);    // right edge 261.12
  EXPECT_EQ(p.height, 530 - 358);  // bottom edge 529.92
  // Corners go to the nearest even pixel: 31.5 to 32, 24.5 to 24, 94.5 to 94.
  const ScreenOverlay::Placement half = ScreenOverlay::place({0.25, 0.25, 0.5, 0.5}, 126, 98);
  EXPECT_EQ(half.x, 32);
  EXPECT_EQ(half.y, 24);
  EXPECT_EQ(half.width, 94 - 32);
  EXPECT_EQ(half.height, 74 - 24);
  const ScreenOverlay::Placement all = ScreenOverlay::place({0, 0, 1, 1}, 99, 51);
  EXPECT_EQ(all.x, 0);
  EXPECT_EQ(all.width, 98);  // 4:2:0: the odd last column is left alone
  EXPECT_EQ(all.height, 50);
}

TEST(ScreenOverlayTest, TheScreenShowsItsSourceFrameByFrameInsideItsRectangleOnly) {
  const std::string dir = ::testing::TempDir() + "screen_" + std::to_string(::getpid());
  fs::create_directories(dir);
  const std::string dump = dir + "/film.nv21";
  {
    // Three frames, each a different grey with a bright left half and a black
    // bottom quarter: the screen's pictures, told apart by their level and
    // scaled by nearest samples in both directions.
    CameraDumpWriter film(dump, hdsml::YuvLayout::NV21, 0, 10.0, 10000000);
    for (int level : {40, 80, 160}) {
      cv::Mat bgr(40, 60, CV_8UC3, cv::Scalar::all(level));
      bgr(cv::Rect(0, 0, 30, 40)).setTo(cv::Scalar::all(250));
      bgr(cv::Rect(0, 30, 60, 10)).setTo(cv::Scalar::all(0));
      film.add(bgr);
    }
    film.close();
  }
  ScreenOverlay screen(dump, RawGeometry::padded(60, 40, hdsml::YuvLayout::NV21, 0),
                       {0.5, 0.5, 0.5, 0.5});
  // The room: an I420 frame with padded rows, a colour of its own.
  const hdsml::YuvFrame room =
      hdsml::packYuv(cv::Mat(20, 40, CV_8UC3, cv::Scalar(200, 60, 20)), hdsml::YuvLayout::I420, 5);
  ASSERT_GT(std::abs(room.v[0] - 128), 20);
  const auto luma = [](int level) { return int(grey(2, 2, level).y[0]); };
  hdsml::YuvFrame out;
  for (long i : {0L, 1L, 2L, 3L, 4L}) {
    screen.composite(room, i, out);
    const int level = i % 3 == 0 ? 40 : (i % 3 == 1 ? 80 : 160);  // from the start again
    const auto y = [&](int r, int c) { return int(out.y[r * out.yRowStride + c]); };
    EXPECT_EQ(y(0, 0), room.y[0]) << i;  // outside: the room
    EXPECT_EQ(y(9, 39), room.y[0]) << i;
    EXPECT_EQ(y(19, 19), room.y[0]) << i;
    EXPECT_EQ(y(10, 20), luma(250)) << i;  // the screen's top left: its bright half
    EXPECT_EQ(y(17, 29), luma(250)) << i;
    EXPECT_EQ(y(10, 30), luma(level)) << i;  // its right half: this frame's level
    EXPECT_EQ(y(17, 39), luma(level)) << i;
    EXPECT_EQ(y(18, 20), luma(0)) << i;  // its last two rows: the black quarter
    EXPECT_EQ(y(19, 39), luma(0)) << i;
    EXPECT_EQ(out.u[4 * out.uRowStride + 9], room.u[0]);  // outside
    EXPECT_EQ(out.v[4 * out.vRowStride + 10], room.v[0]);
    EXPECT_EQ(out.v[5 * out.vRowStride + 9], room.v[0]);
    EXPECT_NEAR(out.v[5 * out.vRowStride + 10], 128, 2) << i;  // a grey screen's chroma
    EXPECT_NEAR(out.u[9 * out.uRowStride + 19], 128, 2) << i;
  }
  EXPECT_EQ(screen.frames(), 3);
  EXPECT_EQ(out.yRowStride, room.yRowStride);  // the room's layout kept

  ScreenOverlay tiny(dump, RawGeometry::padded(60, 40, hdsml::YuvLayout::NV21, 0),
                     {0.5, 0.5, 0.02, 0.02});
  EXPECT_THROW(tiny.composite(room, 0, out), std::runtime_error);
  ScreenOverlay missing(dir + "/none.avi", std::nullopt, {0, 0, 0.5, 0.5});
  try {
    missing.composite(room, 0, out);
    ADD_FAILURE() << "a missing screen source was accepted";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("--screen: "), std::string::npos) << e.what();
  }
  fs::remove_all(dir);
}

}  // namespace
}  // namespace hdsreplay
