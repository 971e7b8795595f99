// Debug file logger kept for the exported surface. Its write operations are
// deliberately empty, so it never creates a file; it only keeps the hour stamp
// that would roll the log over and formats line stamps. Nothing in the library
// constructs one. Large (about 200 KB): create it on the heap, not on a stack.
// Not thread-safe apart from the final flush in the destructor.
#pragma once

#include <mutex>

#include "hdsml_export.h"

class HDSML_EXPORT HDSML_Logger {
 public:
  HDSML_Logger();
  // Flushes once more under lock.
  ~HDSML_Logger();

  HDSML_Logger(const HDSML_Logger&) = delete;
  HDSML_Logger& operator=(const HDSML_Logger&) = delete;

  // Discards the message.
  void logMessage(const char* message);
  // Writes nothing.
  void writeLogToFile();
  // Stores the current "%d%m%y_%H" stamp, flushing first when the hour changed.
  void updateFileName();
  // Appends " ddmmyy_HHMMSS <epoch seconds>\n"; line needs room for 27 more chars.
  void appendDateTimeStamp(char* line);

  char logDir[2000];
  char logBuffer[200000];
  char hourStamp[20];  // empty until the first updateFileName()
  int bufferedLength = 0;
  std::mutex lock;  // serialises the final flush
};
