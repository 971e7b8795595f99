#include "tools/input/CameraLog.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tools/input/Files.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> splitCsv(const std::string& line) {
  std::vector<std::string> cells;
  std::stringstream in(line);
  for (std::string cell; std::getline(in, cell, ',');) {
    const size_t b = cell.find_first_not_of(" \t\r"), e = cell.find_last_not_of(" \t\r");
    cells.push_back(b == std::string::npos ? std::string() : cell.substr(b, e - b + 1));
  }
  return cells;
}

}  // namespace

CameraLog CameraLog::load(const std::string& path) {
  return parse(readText(path, "camera log"), path);
}

CameraLog CameraLog::parse(const std::string& text, const std::string& name) {
  CameraLog log;
  log.path_ = name;
  std::stringstream lines(text);
  std::string line;
  int lineNo = 0;
  int tsCol = -1, exposureCol = -1, lensCol = -1;
  const auto fail = [&](const std::string& what) {
    return std::runtime_error("camera log '" + name + "' line " + std::to_string(lineNo) + ": " +
                              what);
  };
  while (std::getline(lines, line)) {
    ++lineNo;
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    const std::vector<std::string> cells = splitCsv(line);
    if (tsCol < 0) {  // the header
      for (int i = 0; i < static_cast<int>(cells.size()); ++i) {
        if (cells[i] == "timestamp_ms") tsCol = i;
        if (cells[i] == "exposure_ns") exposureCol = i;
        if (cells[i] == "lens_moving") lensCol = i;
      }
      if (tsCol < 0) throw fail("the header names no timestamp_ms column");
      continue;
    }
    const auto number = [&](int col, const char* column, long long min, long long max) {
      const std::string cell = col < static_cast<int>(cells.size()) ? cells[col] : "";
      errno = 0;
      char* end = nullptr;
      const long long v = std::strtoll(cell.c_str(), &end, 10);
      if (cell.empty() || *end != '\0' || errno != 0 || v < min || v > max)
        throw fail(std::string(column) + " '" + cell + "' is not a whole number from " +
                   std::to_string(min) + " to " + std::to_string(max));
      return v;
    };
    Entry e;
    e.timestampMs = number(tsCol, "timestamp_ms", LLONG_MIN, LLONG_MAX);
    if (exposureCol >= 0)
      e.exposureNs = static_cast<int32_t>(number(exposureCol, "exposure_ns", 1, INT32_MAX));
    if (lensCol >= 0) e.lensMoving = number(lensCol, "lens_moving", 0, 1) == 1;
    if (!log.entries_.empty() && e.timestampMs <= log.entries_.back().timestampMs)
      throw fail("timestamp_ms " + std::to_string(e.timestampMs) +
                 " does not come after the one before (" +
                 std::to_string(log.entries_.back().timestampMs) + ")");
    log.entries_.push_back(e);
  }
  if (log.entries_.empty()) throw std::runtime_error("camera log '" + name + "' holds no frames");
  return log;
}

std::string CameraLog::besideDump(const std::string& dumpPath) {
  std::error_code ec;
  const fs::path dump(dumpPath);
  const fs::path log =
      fs::is_directory(dump, ec) ? dump / "frames.csv" : fs::path(dump).replace_extension(".csv");
  return fs::is_regular_file(log, ec) ? log.string() : std::string();
}

int64_t CameraLog::medianIntervalMs() const {
  std::vector<int64_t> gaps;
  for (size_t i = 1; i < entries_.size(); ++i)
    gaps.push_back(entries_[i].timestampMs - entries_[i - 1].timestampMs);
  if (gaps.empty()) return 0;
  std::nth_element(gaps.begin(), gaps.begin() + gaps.size() / 2, gaps.end());
  return gaps[gaps.size() / 2];
}

}  // namespace hdsreplay
