#include "tools/output/CsvReader.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "tools/input/Files.h"
#include "tools/options/StateScript.h"

namespace hdsreplay {

std::vector<ReplayRecord> readReplayCsv(const std::string& path) {
  return parseReplayCsv(readText(path, "replay CSV"), path);
}

std::vector<ReplayRecord> parseReplayCsv(const std::string& text, const std::string& name) {
  std::vector<ReplayRecord> records;
  std::stringstream lines(text);
  std::string line;
  std::map<std::string, size_t> column;
  for (int lineNo = 1; std::getline(lines, line); ++lineNo) {
    std::vector<std::string> cells;
    std::stringstream row(line);
    for (std::string cell; std::getline(row, cell, ',');) cells.push_back(cell);
    if (!line.empty() && line.back() == ',') cells.emplace_back();
    if (column.empty()) {
      for (size_t i = 0; i < cells.size(); ++i) column[cells[i]] = i;
      continue;
    }
    // A cell by column name; empty when the column or the value is missing.
    const auto cell = [&](const char* key) -> std::string {
      const auto it = column.find(key);
      return it != column.end() && it->second < cells.size() ? cells[it->second] : std::string();
    };
    const auto integer = [&](const char* key) -> long long {
      const std::string v = cell(key);
      char* end = nullptr;
      const long long n = std::strtoll(v.c_str(), &end, 10);
      if (v.empty() || *end != '\0')
        throw std::runtime_error("replay CSV '" + name + "' line " + std::to_string(lineNo) + ": " +
                                 key + " '" + v + "' is not a whole number");
      return n;
    };
    const auto flag = [&](const char* key) { return cell(key) == "1"; };
    ReplayRecord r;
    r.frame = static_cast<long>(integer("frame"));
    r.timestampMs = integer("timestamp_ms");
    // Written to the millisecond; a CSV without the column counts from its first row.
    const std::string time = cell("time_s");
    r.timeMs = !time.empty() ? std::llround(std::strtod(time.c_str(), nullptr) * 1000.0)
               : records.empty() ? 0
                                 : r.timestampMs - records.front().timestampMs + records.front().timeMs;
    r.state = stateValue(cell("state"));
    r.status = static_cast<int>(integer("status"));
    r.confidence = std::strtof(cell("confidence").c_str(), nullptr);
    r.reportTimestampMs = integer("report_ts");
    r.processed = flag("processed");
    r.dropped = flag("dropped");
    r.motionDetected = flag("motion_detected");
    r.motionScore = std::strtof(cell("motion_score").c_str(), nullptr);
    r.vote = cell("vote").empty() ? -1 : static_cast<int>(integer("vote"));
    r.newReport = flag("new_report");
    r.fresh = cell("fresh") != "0";
    if (!cell("window_votes").empty()) {
      r.windowVotes = static_cast<int>(integer("window_votes"));
      r.windowLength = static_cast<int>(integer("window_length"));
    }
    if (!cell("since_motion_ms").empty()) r.sinceMotionMs = integer("since_motion_ms");
    r.lensMoving = flag("lens_moving");
    r.detectUs = std::strtod(cell("detect_us").c_str(), nullptr);
    records.push_back(std::move(r));
  }
  if (column.empty()) throw std::runtime_error("replay CSV '" + name + "' is empty");
  return records;
}

}  // namespace hdsreplay
