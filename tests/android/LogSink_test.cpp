// The message sink as an Android build has it, run against Debian's host build
// of AOSP's liblog, which writes each logcat entry to standard error as
// "TAG PRIORITY DATE TIME PID TID TEXT": every message reaches standard output
// byte for byte and logcat once, without its line feed; an installed sink
// replaces both.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "diagnostics/Log.h"

namespace {

// The text of each logcat entry that liblog wrote to standard error.
std::vector<std::string> logcatTexts(const std::string& stderrText) {
  std::vector<std::string> texts;
  std::istringstream lines(stderrText);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string tag, priority, date, time, pid, tid;
    fields >> tag >> priority >> date >> time >> pid >> tid;
    EXPECT_EQ(tag, "hdsml") << line;
    EXPECT_EQ(priority, "I") << line;
    const size_t at = static_cast<size_t>(fields.tellg());
    texts.push_back(at < line.size() ? line.substr(at + 1) : "");
  }
  return texts;
}

TEST(AndroidLogSink, MessagesGoToStandardOutputUnchangedAndToLogcatWithoutTheLineFeed) {
  const std::string longPath = "/nonexistent/" + std::string(600, 'd') + "/config.json";
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  hdsml::logPrintf("Threshold for absence detection is %lld\n", 5000LL);
  hdsml::logPuts("[HDSMLClient] Read config");
  hdsml::logPrintf("*#*# MotionROI timestamp %lld %d,%d,%d,%d \n", 33LL, 1, 2, 3, 4);
  hdsml::logPrintf("Unable to load config file: %s\n", longPath.c_str());
  fflush(stdout);
  const std::string printed = testing::internal::GetCapturedStdout();
  const std::string logged = testing::internal::GetCapturedStderr();

  EXPECT_EQ(printed,
            "Threshold for absence detection is 5000\n"
            "[HDSMLClient] Read config\n"
            "*#*# MotionROI timestamp 33 1,2,3,4 \n"
            "Unable to load config file: " +
                longPath + "\n");
  const std::vector<std::string> expected = {
      "Threshold for absence detection is 5000", "[HDSMLClient] Read config",
      "*#*# MotionROI timestamp 33 1,2,3,4 ", "Unable to load config file: " + longPath};
  EXPECT_EQ(logcatTexts(logged), expected) << logged;
}

TEST(AndroidLogSink, AnInstalledSinkReplacesStandardOutputAndLogcat) {
  std::string received;
  hdsml::setLogSink(
      [](void* into, const char* text, size_t length) {
        static_cast<std::string*>(into)->append(text, length);
      },
      &received);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  hdsml::logPrintf("Camera exposure time in microseconds %ld\n", 10000L);
  hdsml::logPuts("Filter length for motion detector is 12");
  fflush(stdout);
  const std::string printed = testing::internal::GetCapturedStdout();
  const std::string logged = testing::internal::GetCapturedStderr();
  hdsml::setLogSink(nullptr, nullptr);

  EXPECT_EQ(printed, "");
  EXPECT_EQ(logged, "");
  EXPECT_EQ(received,
            "Camera exposure time in microseconds 10000\n"
            "Filter length for motion detector is 12\n");
}

}  // namespace
