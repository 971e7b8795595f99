// Writes the per-frame records of a replay as CSV, one row per handed-over frame,
// with a header row. Numbers are printed in the C locale with fixed formats so
// that identical replays give byte-identical files (detect_us, a wall time, is
// the last column so it is easy to leave out when comparing). One thread.
#pragma once

#include <cstdio>
#include <string>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

class CsvWriter {
 public:
  // Throws std::runtime_error when the file cannot be created.
  explicit CsvWriter(const std::string& path);
  ~CsvWriter();
  CsvWriter(const CsvWriter&) = delete;
  CsvWriter& operator=(const CsvWriter&) = delete;

  void write(const ReplayRecord& record);
  // Flushes and closes; throws when the data did not reach the file.
  void close();

  static std::string header();
  static std::string row(const ReplayRecord& record);

 private:
  std::string path_;
  FILE* file_ = nullptr;
};

}  // namespace hdsreplay
