#include "tools/ReplayOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/StateScript.h"
#include "tools/TimeSpec.h"

namespace hdsreplay {
namespace {

class ReplayOptionsTest : public ::testing::Test {
 protected:
  static ReplayOptions parse(std::vector<std::string> args) {
    args.insert(args.begin(), "hds-replay");
    std::vector<const char*> argv;
    for (const std::string& a : args) argv.push_back(a.c_str());
    return parseReplayOptions(static_cast<int>(argv.size()), argv.data());
  }
  // The message of the UsageError that `args` raise; fails when none is raised.
  static std::string usageError(std::vector<std::string> args) {
    try {
      parse(std::move(args));
    } catch (const UsageError& e) {
      return e.what();
    }
    ADD_FAILURE() << "no UsageError";
    return "";
  }
};

TEST(TimeSpecTest, ParsesTimesWithUnitsAndBareFrameNumbers) {
  EXPECT_FALSE(TimeSpec::parse("12s", "t").isFrames);
  EXPECT_DOUBLE_EQ(TimeSpec::parse("12s", "t").value, 12000.0);
  EXPECT_DOUBLE_EQ(TimeSpec::parse("1.5s", "t").value, 1500.0);
  EXPECT_DOUBLE_EQ(TimeSpec::parse("800ms", "t").value, 800.0);
  EXPECT_DOUBLE_EQ(TimeSpec::parse("2min", "t").value, 120000.0);
  const TimeSpec frames = TimeSpec::parse("120", "t");
  EXPECT_TRUE(frames.isFrames);
  EXPECT_DOUBLE_EQ(frames.value, 120.0);
  for (const char* bad : {"", "-1s", "2.5", "s", "12 s", "12h", "abc", "+3"})
    EXPECT_THROW(TimeSpec::parse(bad, "t"), std::invalid_argument) << bad;
}

TEST(TimeSpecTest, TimeResolvesToFirstFrameAtOrAfterIt) {
  // At 10 fps frame i is stamped 100 * i ms.
  EXPECT_EQ(TimeSpec::parse("1s", "t").frameIndex(10.0), 10);
  EXPECT_EQ(TimeSpec::parse("1001ms", "t").frameIndex(10.0), 11);
  EXPECT_EQ(TimeSpec::parse("999ms", "t").frameIndex(10.0), 10);
  EXPECT_EQ(TimeSpec::parse("0s", "t").frameIndex(10.0), 0);
  EXPECT_EQ(TimeSpec::parse("37", "t").frameIndex(10.0), 37);
  // 30 fps: timestamps 0, 33, 67, 100 (rounded); 34 ms lands on frame 2.
  EXPECT_EQ(frameTimestampMs(2, 30.0), 67);
  EXPECT_EQ(TimeSpec::parse("34ms", "t").frameIndex(30.0), 2);
  EXPECT_EQ(TimeSpec::parse("33ms", "t").frameIndex(30.0), 1);
  EXPECT_EQ(TimeSpec::parse("10s", "t").frameCount(24.0), 240);
  EXPECT_EQ(TimeSpec::parse("25", "t").frameCount(24.0), 25);
}

TEST(StateScriptTest, ResolvesTimesAndFramesInOrder) {
  const auto changes =
      StateScript::parse("0:DETECT_MOTION, 30s:absence,250:DETECT_PRESENCE").resolve(10.0);
  ASSERT_EQ(changes.size(), 3u);
  EXPECT_EQ(changes[0].frame, 0);
  EXPECT_EQ(changes[0].stateName, "DETECT_MOTION");
  EXPECT_EQ(changes[1].frame, 250);
  EXPECT_EQ(changes[1].stateName, "DETECT_PRESENCE");
  EXPECT_EQ(changes[2].frame, 300);
  EXPECT_EQ(changes[2].stateName, "DETECT_ABSENCE");
}

TEST(StateScriptTest, StartsInMotionUnlessFrameZeroIsScripted) {
  auto changes = StateScript::parse("5s:DETECT_ABSENCE").resolve(10.0);
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[0].frame, 0);
  EXPECT_EQ(changes[0].stateName, "DETECT_MOTION");

  changes = StateScript::parse("0:presence,0:absence").resolve(10.0);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].stateName, "DETECT_ABSENCE");
}

TEST(StateScriptTest, RejectsMalformedEntries) {
  for (const char* bad :
       {"", "5s", "DETECT_MOTION", "5s:DETECT_SLEEP", "x:motion", "0:motion,", "0:detect_motion"})
    EXPECT_THROW(StateScript::parse(bad), std::invalid_argument) << bad;
}

TEST_F(ReplayOptionsTest, DefaultsAreLockstepNv21WithoutPadding) {
  const ReplayOptions o = parse({"clip.avi"});
  EXPECT_EQ(o.input, "clip.avi");
  EXPECT_EQ(o.pace, Pace::Lockstep);
  EXPECT_EQ(o.layout, hdsml::YuvLayout::NV21);
  EXPECT_EQ(o.rowPadding, 0);
  EXPECT_EQ(o.absenceMs, -1);
  EXPECT_FALSE(o.holdLast);
  EXPECT_TRUE(o.configPath.empty());
}

TEST_F(ReplayOptionsTest, ParsesEveryOptionInBothSpellings) {
  const ReplayOptions o = parse({"--layout=i420",
                                 "--row-padding",
                                 "24",
                                 "--pace",
                                 "realtime",
                                 "--fps=12.5",
                                 "--motion-res",
                                 "160x120",
                                 "--states",
                                 "0:motion,3s:absence",
                                 "--absence-ms=3000",
                                 "--hold-last",
                                 "4s",
                                 "--noise",
                                 "0",
                                 "--brightness-ramp",
                                 "1:0.25",
                                 "--exposure-step",
                                 "1.5s:2",
                                 "--grayscale-at",
                                 "40",
                                 "--exposure",
                                 "33000000",
                                 "--frames",
                                 "90",
                                 "--csv",
                                 "a.csv",
                                 "--plot",
                                 "p.png",
                                 "--annotate",
                                 "ann",
                                 "--contact-sheet",
                                 "s.png",
                                 "--sheet-every",
                                 "7",
                                 "--library-log",
                                 "-",
                                 "--debug",
                                 "--no-progress",
                                 "dir/"});
  EXPECT_EQ(o.layout, hdsml::YuvLayout::I420);
  EXPECT_EQ(o.rowPadding, 24);
  EXPECT_EQ(o.pace, Pace::Realtime);
  EXPECT_DOUBLE_EQ(o.fps, 12.5);
  EXPECT_EQ(o.motionWidth, 160);
  EXPECT_EQ(o.motionHeight, 120);
  EXPECT_EQ(o.states.steps().size(), 2u);
  EXPECT_EQ(o.absenceMs, 3000);
  EXPECT_TRUE(o.holdLast);
  EXPECT_DOUBLE_EQ(o.holdSpan.value, 4000.0);
  EXPECT_DOUBLE_EQ(o.noiseSigma, 0.0);
  EXPECT_TRUE(o.brightnessRamp);
  EXPECT_DOUBLE_EQ(o.rampTo, 0.25);
  EXPECT_TRUE(o.exposureStep);
  EXPECT_DOUBLE_EQ(o.stepAt.value, 1500.0);  // the factor is split off at the last colon
  EXPECT_DOUBLE_EQ(o.stepFactor, 2.0);
  EXPECT_TRUE(o.grayscale);
  EXPECT_TRUE(o.grayscaleAt.isFrames);
  EXPECT_EQ(o.exposure, 33000000);
  EXPECT_EQ(o.maxFrames, 90);
  EXPECT_EQ(o.sheetEvery, 7);
  EXPECT_EQ(o.libraryLog, "-");
  EXPECT_TRUE(o.debug);
  EXPECT_FALSE(o.progress);
  EXPECT_EQ(o.input, "dir/");
}

TEST_F(ReplayOptionsTest, BadCommandLinesNameTheProblem) {
  EXPECT_NE(usageError({}).find("no input"), std::string::npos);
  EXPECT_NE(usageError({"a.avi", "b.avi"}).find("one input"), std::string::npos);
  EXPECT_NE(usageError({"--bogus", "a.avi"}).find("unknown option --bogus"), std::string::npos);
  EXPECT_NE(usageError({"a.avi", "--csv"}).find("--csv needs a value"), std::string::npos);
  EXPECT_NE(usageError({"--layout", "yuyv", "a"}).find("yuyv"), std::string::npos);
  EXPECT_NE(usageError({"--pace", "turbo", "a"}).find("turbo"), std::string::npos);
  EXPECT_NE(usageError({"--motion-res", "320", "a"}).find("WxH"), std::string::npos);
  EXPECT_NE(usageError({"--motion-res", "321x240", "a"}).find("even"), std::string::npos);
  EXPECT_NE(usageError({"--motion-res", "0x240", "a"}).find("out of range"), std::string::npos);
  EXPECT_NE(usageError({"--fps", "fast", "a"}).find("not a number"), std::string::npos);
  EXPECT_NE(usageError({"--fps", "0", "a"}).find("out of range"), std::string::npos);
  EXPECT_NE(usageError({"--row-padding", "-2", "a"}).find("out of range"), std::string::npos);
  EXPECT_NE(usageError({"--hold-last", "ten", "a"}).find("--hold-last"), std::string::npos);
  EXPECT_NE(usageError({"--states", "0:sleep", "a"}).find("sleep"), std::string::npos);
  EXPECT_NE(usageError({"--exposure-step", "2", "a"}).find("T:FACTOR"), std::string::npos);
  EXPECT_NE(usageError({"--brightness-ramp", "1:", "a"}).find("FROM:TO"), std::string::npos);
  EXPECT_NE(usageError({"--frames", "1e3", "a"}).find("whole number"), std::string::npos);
  EXPECT_NE(usageError({"--config", "c.json", "--motion-res", "80x60", "a"}).find("exclude"),
            std::string::npos);
}

TEST_F(ReplayOptionsTest, HelpNeedsNoInputAndDocumentsTheLockstepOnlyColumns) {
  EXPECT_TRUE(parse({"--help"}).help);
  EXPECT_TRUE(parse({"-h", "--bogus"}).help);
  const std::string usage = replayUsage();
  EXPECT_NE(usage.find("only with --pace lockstep"), std::string::npos);
  for (const char* option :
       {"--layout", "--row-padding", "--fps", "--exposure", "--states", "--absence-ms", "--pace",
        "--hold-last", "--noise", "--brightness-ramp", "--exposure-step", "--grayscale-at", "--csv",
        "--plot", "--annotate", "--contact-sheet", "--config", "--motion-res"})
    EXPECT_NE(usage.find(option), std::string::npos) << option;
}

}  // namespace
}  // namespace hdsreplay
