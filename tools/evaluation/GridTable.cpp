#include "tools/evaluation/GridTable.h"

#include <algorithm>
#include <cstdio>

namespace hdsreplay {

namespace {

std::string fixed(double v, int decimals = 1) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
  return buf;
}

// "0.9", "0.9 miss", "-" when nothing was scored.
std::string latencies(const Scores& s) {
  std::string out;
  for (const IntervalScore& m : s.moving) {
    if (!m.scored) continue;
    out += (out.empty() ? "" : " ") + (m.latencyS ? fixed(*m.latencyS) : std::string("miss"));
  }
  return out.empty() ? "-" : out;
}

std::string absence(const Scores& s, int decimals = 1) {
  if (!s.absenceAsked) return "-";
  return s.absenceLatencyS ? fixed(*s.absenceLatencyS, decimals) : "never";
}

// Quoted when it holds a comma (a setting of --states, say) or a quote.
std::string field(const std::string& s) {
  if (s.find_first_of(",\"") == std::string::npos) return s;
  std::string quoted = "\"";
  for (char c : s) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

}  // namespace

std::string gridCsv(const std::vector<GridRow>& rows, const std::vector<std::string>& axes) {
  std::string out = "clip,setting,";
  for (const std::string& axis : axes) out += field(axis) + ",";
  out +=
      "exit,frames,moving,scored,caught,latencies_s,false_reports,false_motion_s,"
      "nuisance_reports,nuisance_motion_s,absence_threshold_s,absence_latency_s,absence_errors,"
      "absence_error_s,detect_us_median,detect_us_p99,moving_frames,moving_motion_frames\n";
  for (const GridRow& r : rows) {
    out += field(r.clip) + "," + field(r.setting) + ",";
    for (size_t a = 0; a < axes.size(); ++a)
      out += (a < r.settingValues.size() ? field(r.settingValues[a]) : std::string()) + ",";
    out += std::to_string(r.exitStatus) + "," +
           std::to_string(r.frames) + ",";
    if (r.scores) {
      const Scores& s = *r.scores;
      out += std::to_string(s.moving.size()) + "," + std::to_string(s.scoredIntervals()) + "," +
             std::to_string(s.caught()) + "," + latencies(s) + "," +
             std::to_string(s.falseReports) + "," + fixed(s.falseMotionS, 3) + "," +
             std::to_string(s.nuisanceReports) + "," + fixed(s.nuisanceMotionS, 3) + "," +
             fixed(s.absenceThresholdS, 3) + "," + absence(s, 3) + "," +
             std::to_string(s.absenceErrors) + "," + fixed(s.absenceErrorS, 3) + ",";
    } else {
      out += ",,,,,,,,,,,,";
    }
    out += fixed(r.detectMedianUs) + "," + fixed(r.detectP99Us) + ",";
    out += r.scores ? std::to_string(r.scores->movingFrames) + "," +
                          std::to_string(r.scores->movingMotionFrames) + "\n"
                    : ",\n";
  }
  return out;
}

std::string gridTable(const std::vector<GridRow>& rows, bool withCost) {
  std::vector<std::vector<std::string>> cells = {{"clip", "setting", "caught", "latency s",
                                                  "false reports", "false motion s", "nuisance s",
                                                  "absence s", "threshold s", "absence errors"}};
  if (withCost) cells[0].insert(cells[0].end(), {"detect() median us", "p99 us"});
  for (const GridRow& r : rows) {
    std::vector<std::string> row = {r.clip, r.setting};
    if (r.exitStatus != 0) {
      row.push_back("FAILED (exit " + std::to_string(r.exitStatus) + "): " + r.error);
    } else if (r.scores) {
      const Scores& s = *r.scores;
      row.insert(row.end(), {std::to_string(s.caught()) + "/" + std::to_string(s.scoredIntervals()),
                             latencies(s), std::to_string(s.falseReports), fixed(s.falseMotionS),
                             fixed(s.nuisanceMotionS), absence(s), fixed(s.absenceThresholdS),
                             std::to_string(s.absenceErrors)});
    } else {
      row.insert(row.end(), 8, "-");
    }
    if (withCost && r.exitStatus == 0)
      row.insert(row.end(), {fixed(r.detectMedianUs, 0), fixed(r.detectP99Us, 0)});
    cells.push_back(row);
  }
  std::vector<size_t> width(cells[0].size(), 0);
  for (const auto& row : cells)
    for (size_t c = 0; c + 1 < row.size() && c < width.size(); ++c)
      width[c] = std::max(width[c], row[c].size());
  std::string out;
  for (const auto& row : cells) {
    std::string line;
    for (size_t c = 0; c < row.size(); ++c)
      line += row[c] + (c + 1 < row.size() ? std::string(width[c] - row[c].size() + 2, ' ') : "");
    out += line + "\n";
  }
  return out;
}

}  // namespace hdsreplay
