#include "diagnostics/HDSML_Logger.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

namespace {

std::string formatLocal(time_t when, const char* format) {
  struct tm local;
  localtime_r(&when, &local);
  char text[32];
  strftime(text, sizeof(text), format, &local);
  return text;
}

class HDSMLLoggerTest : public testing::Test {
 protected:
  std::unique_ptr<HDSML_Logger> logger_ = std::make_unique<HDSML_Logger>();
};

TEST_F(HDSMLLoggerTest, StartsWithLogDirectoryAndNoHour) {
  EXPECT_STREQ(logger_->logDir, "/data/logs");
  EXPECT_STREQ(logger_->logBuffer, "");
  EXPECT_STREQ(logger_->hourStamp, "");
  EXPECT_EQ(logger_->bufferedLength, 0);
}

TEST_F(HDSMLLoggerTest, KeepsTheStampOfTheCurrentHour) {
  const std::string before = formatLocal(time(nullptr), "%d%m%y_%H");
  logger_->updateFileName();
  const std::string after = formatLocal(time(nullptr), "%d%m%y_%H");
  const std::string first = logger_->hourStamp;
  EXPECT_TRUE(first == before || first == after) << first;
  EXPECT_EQ(first.size(), 9u);

  logger_->updateFileName();
  EXPECT_TRUE(logger_->hourStamp == first || logger_->hourStamp == after);

  strcpy(logger_->hourStamp, "010100_00");  // an hour long gone
  logger_->updateFileName();
  const std::string now = formatLocal(time(nullptr), "%d%m%y_%H");
  EXPECT_TRUE(logger_->hourStamp == now || logger_->hourStamp == after) << logger_->hourStamp;
}

TEST_F(HDSMLLoggerTest, AppendsDateTimeAndEpochSecondsThenLineFeed) {
  char line[64] = "motion seen";
  const time_t before = time(nullptr);
  logger_->appendDateTimeStamp(line);
  const time_t after = time(nullptr);

  const std::string text = line;
  ASSERT_EQ(text.rfind("motion seen ", 0), 0u) << text;
  ASSERT_GE(text.size(), 12u + 13u + 3u);
  const std::string dateTime = text.substr(12, 13);
  ASSERT_EQ(text[25], ' ') << text;
  ASSERT_EQ(text.back(), '\n');
  const std::string epoch = text.substr(26, text.size() - 27);
  ASSERT_FALSE(epoch.empty());
  for (char c : epoch) ASSERT_TRUE(isdigit(static_cast<unsigned char>(c))) << text;

  const time_t stamped = static_cast<time_t>(std::strtoll(epoch.c_str(), nullptr, 10));
  EXPECT_GE(stamped, before);
  EXPECT_LE(stamped, after);
  EXPECT_EQ(dateTime, formatLocal(stamped, "%d%m%y_%H%M%S"));  // both from one reading
}

TEST_F(HDSMLLoggerTest, WriteOperationsTouchNothing) {
  char dir[] = "/tmp/hdsml-logger-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  strcpy(logger_->logDir, dir);
  logger_->updateFileName();
  const std::string hour = logger_->hourStamp;

  logger_->logMessage("motion seen\n");
  logger_->writeLogToFile();
  EXPECT_STREQ(logger_->logDir, dir);
  EXPECT_STREQ(logger_->logBuffer, "");
  EXPECT_EQ(logger_->hourStamp, hour);
  EXPECT_EQ(logger_->bufferedLength, 0);

  logger_.reset();  // the final flush writes nothing either
  DIR* listing = opendir(dir);
  ASSERT_NE(listing, nullptr);
  int entries = 0;
  while (dirent* entry = readdir(listing)) {
    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) ++entries;
  }
  closedir(listing);
  EXPECT_EQ(entries, 0);
  rmdir(dir);
}

}  // namespace
