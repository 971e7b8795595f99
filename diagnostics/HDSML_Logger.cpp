#include "diagnostics/HDSML_Logger.h"

#include <cstring>
#include <ctime>

namespace {

// Local broken-down time of now; the reentrant form, since the logger may live
// beside other threads that also convert times.
struct tm localNow() {
  const time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  return local;
}

}  // namespace

HDSML_Logger::HDSML_Logger() {
  strcpy(logDir, "/data/logs");
  logBuffer[0] = '\0';
  hourStamp[0] = '\0';
}

HDSML_Logger::~HDSML_Logger() {
  std::lock_guard<std::mutex> guard(lock);
  writeLogToFile();
}

void HDSML_Logger::logMessage(const char* /*message*/) {}

void HDSML_Logger::writeLogToFile() {}

void HDSML_Logger::updateFileName() {
  const struct tm local = localNow();
  char stamp[15];
  strftime(stamp, sizeof(stamp), "%d%m%y_%H", &local);

  if (hourStamp[0] == '\0') {
    strcpy(hourStamp, stamp);
  } else if (strcmp(hourStamp, stamp) != 0) {
    // What was buffered during the ending hour belongs to that hour's file.
    writeLogToFile();
    strcpy(hourStamp, stamp);
  }
}

void HDSML_Logger::appendDateTimeStamp(char* line) {
  const struct tm local = localNow();
  char dateTime[15];
  char epoch[15];
  strftime(dateTime, sizeof(dateTime), " %d%m%y_%H%M%S", &local);
  strftime(epoch, sizeof(epoch), " %s", &local);
  strcat(line, dateTime);
  strcat(line, epoch);
  strcat(line, "\n");
}
