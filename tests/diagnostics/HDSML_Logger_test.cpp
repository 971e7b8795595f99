#include "diagnostics/HDSML_Logger.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

namespace {

std::string formatLocal(time_t when, const char* format) {
  struct tm local;
  char text[32];
  strftime(text, sizeof(text), format, localtime_r(&when, &local));
  return text;
}

// Pointed at a fresh directory, the logger leaves it empty through every operation.
TEST(HDSMLLoggerTest, StampsLocalTimeButNeverWritesAFile) {
  char dir[] = "/tmp/hdsml-logger-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  auto logger = std::make_unique<HDSML_Logger>();
  EXPECT_STREQ(logger->logDir, "/data/logs");
  EXPECT_STREQ(logger->hourStamp, "");
  strcpy(logger->logDir, dir);
  for (const char* stale : {"", "010100_00"}) {  // none yet, then an hour long gone
    strcpy(logger->hourStamp, stale);
    const std::string before = formatLocal(time(nullptr), "%d%m%y_%H");
    logger->updateFileName();
    const std::string after = formatLocal(time(nullptr), "%d%m%y_%H");
    EXPECT_TRUE(logger->hourStamp == before || logger->hourStamp == after) << logger->hourStamp;
  }
  char line[64] = "motion seen";
  const time_t before = time(nullptr);
  logger->appendDateTimeStamp(line);
  const time_t after = time(nullptr);
  const time_t stamped = static_cast<time_t>(std::atoll(line + 26));  // after the date-time
  EXPECT_TRUE(before <= stamped && stamped <= after) << line;
  EXPECT_EQ(
      "motion seen " + formatLocal(stamped, "%d%m%y_%H%M%S") + " " + std::to_string(stamped) + "\n",
      line);  // date-time and seconds from one reading

  logger->logMessage(line);
  logger->writeLogToFile();
  EXPECT_STREQ(logger->logBuffer, "");
  EXPECT_EQ(logger->bufferedLength, 0);
  logger.reset();            // the final flush writes nothing either
  EXPECT_EQ(rmdir(dir), 0);  // fails unless the directory is still empty
}

}  // namespace
