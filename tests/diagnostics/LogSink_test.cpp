#include "diagnostics/LogSink.h"

#include <gtest/gtest.h>

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

// A host session that makes the library say nearly all it can: a refused
// property, a missing configuration whose message just outgrows the stack buffer,
// start-up, state changes, debug lines, a moving lens, pause and resume, the
// switch to low light (1/10 s exposures) and absence. Frames go in lockstep, so
// the motion thread's lines and the host's come in one order every run.
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
  facade->stateChange("DETECT_MOTION", 30, 0, "test");
  for (int i = 0; i < 75; ++i) {
    if (i == 30) {
      facade->pause();
      facade->resume();
      facade->stateChange("DETECT_ABSENCE", 30, 33 * i, "test");
    }
    const hdsml::YuvFrame f =
        hdsml::packYuv(i < 30 ? scene.moving(i) : scene.still(), hdsml::YuvLayout::NV21);
    metadata.exposureTime = i < 30 ? 10000000 + i / 10 : 100000000;
    metadata.lensMoving = i == 20;
    facade->detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                   f.uRowStride, f.vPixelStride, f.vRowStride, 33 * i, metadata, 0);
    ASSERT_TRUE(hdsml::waitForIdle(*facade->client));
  }
  PresenceDetectorWrapper::destroy();
}

TEST(LogSinkTest, ReceivesExactlyWhatStandardOutputReceivesOneLineAtATime) {
  // Its message, "Unable to load config file: PATH\n", is 512 bytes: the first
  // length that no longer fits the stack buffer with its NUL.
  const std::string missingPath = "/nonexistent/" + std::string(458, 'd') + "/config.json";
  const hdsml::TestConfig config(160, 120);
  std::vector<std::string> received;
  hdsml::setLogSink(
      [](void* lines, const char* text, size_t length) {
        static_cast<std::vector<std::string>*>(lines)->emplace_back(text, length);
      },
      &received);
  ::testing::internal::CaptureStdout();
  runSession(config.path(), missingPath);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  hdsml::setLogSink(nullptr, nullptr);
  ::testing::internal::CaptureStdout();
  runSession(config.path(), missingPath);
  const std::string printed = ::testing::internal::GetCapturedStdout();

  std::string joined;
  for (const std::string& line : received) {
    EXPECT_EQ(line.find('\n'), line.size() - 1) << "not one line: " << line;
    joined += line;
  }
  EXPECT_EQ(joined, printed);
  for (const std::string& said :
       {"Unable to load config file: " + missingPath + "\n", std::string("LENS IS MOVING"),
        std::string("Absence Detected @"), std::string("Switching to low light"),
        std::string("*#*# MotionROI timestamp")})
    EXPECT_NE(printed.find(said), std::string::npos) << said;
}

}  // namespace
