#include "diagnostics/LogSink.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "tests/support/ClientProbe.h"
#include "tests/support/SyntheticScene.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace {

using detector_wrapper::PresenceDetectorWrapper;

constexpr int kBrightNs = 10000000;  // 1/100 s
constexpr int kDarkNs = 100000000;   // 1/10 s: low light once the window is full of it

// A host session that makes the library say nearly everything it can say:
// a refused property, a missing configuration with a path longer than any
// stack buffer, start-up, state changes, debug lines, a moving lens, pause and
// resume, the switch to low light and absence reports. Frames go in lockstep,
// so the motion thread's lines and the host's come in one order every run.
void runSession(const char* configPath, const std::string& missingPath) {
  {
    hdsml::ScopedEnv tooLong("PERSIST_HDS_CV_ABSENCE", "123456789012345678901234");
    EXPECT_EQ(getPropValForAbsence(), -1);
  }
  hdsml::ScopedEnv threshold("PERSIST_HDS_CV_ABSENCE", "300");
  EXPECT_EQ(PresenceDetectorWrapper::initialize(missingPath.c_str(), false), nullptr);
  PresenceDetectorWrapper::destroy();

  PresenceDetectorWrapper* facade = PresenceDetectorWrapper::initialize(configPath, true);
  ASSERT_NE(facade, nullptr);
  const hdsml::SyntheticScene scene(320, 240);
  camera_metadata metadata;
  long long ts = 0;
  auto step = [&](const cv::Mat& bgr, int exposure, int lensMoving) {
    const hdsml::YuvFrame f = hdsml::packYuv(bgr, hdsml::YuvLayout::NV21);
    metadata.exposureTime = exposure;
    metadata.lensMoving = lensMoving;
    facade->detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                   f.uRowStride, f.vPixelStride, f.vRowStride, ts += 33, metadata, 0);
    ASSERT_TRUE(hdsml::waitForIdle(*facade->client));
  };

  facade->stateChange("DETECT_MOTION", 30, 0, "test");
  for (int i = 0; i < 30; ++i) step(scene.moving(i), kBrightNs + (i / 10), i == 20);
  facade->pause();
  facade->resume();
  facade->stateChange("DETECT_ABSENCE", 30, ts, "test");
  for (int i = 0; i < 45; ++i) step(scene.still(), kDarkNs, 0);
  PresenceDetectorWrapper::destroy();
}

// Everything standard output received while `session` ran.
template <typename Session>
std::string standardOutputOf(Session session) {
  std::fflush(stdout);
  FILE* capture = std::tmpfile();
  const int saved = ::dup(STDOUT_FILENO);
  ::dup2(fileno(capture), STDOUT_FILENO);
  session();
  std::fflush(stdout);
  ::dup2(saved, STDOUT_FILENO);
  ::close(saved);
  std::string text;
  std::rewind(capture);
  for (int c; (c = std::fgetc(capture)) != EOF;) text += static_cast<char>(c);
  std::fclose(capture);
  return text;
}

TEST(LogSinkTest, ReceivesExactlyWhatStandardOutputReceivesOneLineAtATime) {
  const std::string missingPath = "/nonexistent/" + std::string(600, 'd') + "/config.json";
  const hdsml::TestConfig config(160, 120);
  std::vector<std::string> received;
  auto record = [](void* context, const char* text, size_t length) {
    static_cast<std::vector<std::string>*>(context)->emplace_back(text, length);
  };
  hdsml::setLogSink(record, &received);
  const std::string printedWithSink = standardOutputOf([&] { runSession(config.path(), missingPath); });
  hdsml::setLogSink(nullptr, nullptr);
  const std::string printed = standardOutputOf([&] { runSession(config.path(), missingPath); });

  EXPECT_EQ(printedWithSink, "");
  std::string joined;
  for (const std::string& line : received) {
    EXPECT_EQ(line.find('\n'), line.size() - 1) << "not one line: " << line;
    joined += line;
  }
  EXPECT_EQ(joined, printed);
  // The session said what it is meant to make the library say.
  const std::vector<std::string> expected = {
      "Ignoring persist.hds.cv.absence \"123456789012345678901234\": out of range\n",
      "Unable to load config file: " + missingPath + "\n", "LENS IS MOVING", "*#*# MotionROI timestamp",
      "Motion Detected @", "HDSMLClient Resumed\n", "Switching to low light", "Absence Detected @"};
  for (const std::string& line : expected)
    EXPECT_NE(printed.find(line), std::string::npos) << line;
}

}  // namespace
