#include "diagnostics/HDSML_Logger.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

namespace {

// Pointed at a fresh directory, the logger leaves it empty through every operation.
TEST(HDSMLLoggerTest, StampsLocalTimeButNeverWritesAFile) {
  char dir[] = "/tmp/hdsml-logger-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  auto logger = std::make_unique<HDSML_Logger>();
  EXPECT_STREQ(logger->logDir, "/data/logs");
  strcpy(logger->logDir, dir);
  for (const char* stale : {"", "010100_00"}) {  // no hour yet, then one long gone
    strcpy(logger->hourStamp, stale);
    char line[64] = "motion seen";
    const time_t before = time(nullptr);
    logger->updateFileName();
    logger->appendDateTimeStamp(line);
    const time_t stamped = std::atoll(line + 26);  // the seconds after the date-time
    EXPECT_TRUE(before <= stamped && stamped <= time(nullptr)) << line;
    struct tm local;
    char expected[64];  // date-time and seconds come from one reading
    strftime(expected, sizeof(expected), "motion seen %d%m%y_%H%M%S",
             localtime_r(&stamped, &local));
    EXPECT_EQ(std::string(expected) + " " + std::to_string(stamped) + "\n", line);
    EXPECT_EQ(std::string(expected + 12, 9), logger->hourStamp);  // ddmmyy_HH
  }
  logger->logMessage("motion seen");
  logger->writeLogToFile();
  EXPECT_STREQ(logger->logBuffer, "");
  EXPECT_EQ(logger->bufferedLength, 0);
  logger.reset();            // the final flush writes nothing either
  EXPECT_EQ(rmdir(dir), 0);  // fails unless the directory is still empty
}

}  // namespace
