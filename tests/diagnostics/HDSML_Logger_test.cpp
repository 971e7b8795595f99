#include "diagnostics/HDSML_Logger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

namespace {

// Stamps come from one reading of the local time; the hour stamp is replaced
// when it is missing or stale.
TEST(HDSMLLoggerTest, StampsLinesAndTheHourFromOneLocalTimeReading) {
  auto logger = std::make_unique<HDSML_Logger>();  // about 200 KB: not on the stack
  EXPECT_STREQ(logger->logDir, "/data/logs");
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
}

}  // namespace
