#include "tools/options/ReplayOptions.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace hdsreplay {
namespace {

// Parses `line`, split at spaces, as if typed after the program's name.
ReplayOptions parse(const std::string& line) {
  std::istringstream in("hds-replay " + line);
  const std::vector<std::string> args{std::istream_iterator<std::string>(in), {}};
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  return parseReplayOptions(static_cast<int>(argv.size()), argv.data());
}

TEST(StateScriptTest, TimesAndScriptedStatesResolveToFrames) {
  // At 10 fps frame i is stamped 100 * i ms; at 30 fps 0, 33, 67, 100 (rounded).
  const std::tuple<const char*, bool, double, double, long> kCases[] = {
      {"1.5s", false, 1500, 10, 15},     {"800ms", false, 800, 10, 8},
      {"2min", false, 120000, 10, 1200}, {"37", true, 37, 10, 37},
      {"1001ms", false, 1001, 10, 11},   {"999ms", false, 999, 10, 10},
      {"34ms", false, 34, 30, 2},        {"33ms", false, 33, 30, 1}};
  for (const auto& [text, isFrames, value, fps, index] : kCases) {
    const TimeSpec t = TimeSpec::parse(text, "t");
    EXPECT_EQ(t.isFrames, isFrames) << text;
    EXPECT_DOUBLE_EQ(t.value, value) << text;
    EXPECT_EQ(t.frameIndex(fps), index) << text;
  }
  for (const char* bad : {"", "-1s", "2.5", "s", "12 s", "12h", "abc", "+3"})
    EXPECT_THROW(TimeSpec::parse(bad, "t"), std::invalid_argument) << bad;
  const auto resolved = [](const std::string& script) {
    std::string out;
    for (const auto& c : StateScript::parse(script).resolve(10.0))
      out += std::to_string(c.frame) + ":" + c.stateName + " ";
    return out;
  };
  EXPECT_EQ(resolved("0:DETECT_MOTION, 30s:absence,250:DETECT_PRESENCE"),
            "0:DETECT_MOTION 250:DETECT_PRESENCE 300:DETECT_ABSENCE ");
  EXPECT_EQ(resolved("5s:DETECT_ABSENCE"), "0:DETECT_MOTION 50:DETECT_ABSENCE ");
  EXPECT_EQ(resolved("0:presence,0:absence"), "0:DETECT_ABSENCE ");
  for (const char* bad :
       {"", "5s", "DETECT_MOTION", "5s:DETECT_SLEEP", "x:motion", "0:motion,", "0:detect_motion"})
    EXPECT_THROW(StateScript::parse(bad), std::invalid_argument) << bad;
}

TEST(ReplayOptionsTest, DefaultsHelpAndOptionsInBothSpellings) {
  EXPECT_TRUE(parse("-h --bogus").help);  // help needs no input and wins over errors
  EXPECT_EQ(parse("a").layout, hdsml::YuvLayout::NV21);
  EXPECT_EQ(parse("a").absenceMs, -1);  // the library's own threshold
  const ReplayOptions o = parse(
      "--row-padding 24 --fps=12.5 --motion-res 160x120 --noise 0 --brightness-ramp 1:0.25 "
      "--exposure 33000000 --frames 90 --sheet-every 7 --library-log - --debug --no-progress "
      "--exposure-step 1.5s:2 --grayscale-at 40 --pace realtime --layout=i420 dir/");
  std::ostringstream values;  // in the order given
  values << o.rowPadding << ' ' << o.fps << ' ' << o.motionWidth << 'x' << o.motionHeight << ' '
         << o.noiseSigma << ' ' << o.brightnessRamp << ':' << o.rampTo << ' ' << o.exposure << ' '
         << o.maxFrames << ' ' << o.sheetEvery << ' ' << o.libraryLog << ' ' << o.debug << ' '
         << o.progress << ' ' << o.exposureStep << ':' << o.stepAt.value << ':' << o.stepFactor
         << ' ' << o.grayscale << ':' << o.grayscaleAt.isFrames << ' ' << paceName(o.pace);
  // The step's factor is split off at the last colon.
  EXPECT_EQ(values.str(), "24 12.5 160x120 0 1:0.25 33000000 90 7 - 1 0 1:1500:2 1:1 realtime");
  EXPECT_EQ(o.layout, hdsml::YuvLayout::I420);
  const ReplayOptions raw = parse("--raw 640x480 --row-stride 704:352 --hold-first 2s d.yv12");
  EXPECT_EQ(raw.rawWidth * 10000 + raw.rawHeight, 6400480);
  EXPECT_EQ(raw.rowStride * 1000 + raw.chromaRowStride, 704352);
  EXPECT_TRUE(raw.holdFirst && !raw.layoutGiven);  // the dump's name gives the layout
  EXPECT_EQ(parse("--debug -- -x").input, "-x");   // after "--", words are inputs
  EXPECT_EQ(parse("-").input, "-");
}

TEST(ReplayOptionsTest, BadCommandLinesNameTheProblem) {
  const std::pair<const char*, const char*> kCases[] = {
      {"a.avi b.avi", "one input"},
      {"a.avi --csv", "--csv needs a value"},
      {"a.avi --wat", "unknown option --wat"},  // unknown before it could need a value
      {"--debug=1 a.avi", "--debug takes no value"},
      {"-x a.avi", "unknown option -x"},
      {"--layout yuyv a", "yuyv"},
      {"--pace turbo a", "turbo"},
      {"--motion-res 320 a", "WxH"},
      {"--motion-res 321x240 a", "even"},
      {"--motion-res 0x240 a", "out of range"},
      {"--fps fast a", "not a number"},
      {"--fps 0 a", "out of range: give a number from 0.1 to 1000"},
      {"--row-padding -2 a", "out of range"},
      {"--hold-last ten a", "--hold-last"},
      {"--states 0:sleep a", "sleep"},
      {"--exposure-step 2 a", "T:FACTOR"},
      {"--brightness-ramp 1: a", "FROM:TO"},
      {"--frames 1e3 a", "whole number"},
      {"--config c.json --motion-res 80x60 a", "exclude"},
      {"--raw 640x479 a", "even"},
      {"--row-stride 640 a", "give --raw WxH too"},
      {"--raw 8x2 --row-stride 8 --row-padding 2 a", "exclude"},
      {"--layout yuyv a", "nv21, nv12, i420 or yv12"}};
  for (const auto& [line, fragment] : kCases) {
    try {
      parse(line);
      ADD_FAILURE() << "accepted: " << line;
    } catch (const UsageError& e) {
      EXPECT_NE(std::string(e.what()).find(fragment), std::string::npos) << e.what();
    }
  }
}

}  // namespace
}  // namespace hdsreplay
