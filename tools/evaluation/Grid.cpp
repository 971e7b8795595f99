#include "tools/evaluation/Grid.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <opencv2/imgcodecs.hpp>

#include "tools/evaluation/GridPicture.h"
#include "tools/evaluation/ProcessPool.h"
#include "tools/evaluation/Scores.h"
#include "tools/evaluation/Truth.h"
#include "tools/output/CsvReader.h"
#include "tools/output/OutputGuard.h"
#include "tools/output/ReplaySummary.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

// Written under a temporary name and put in place whole.
void writeText(const std::string& path, const std::string& text) {
  AtomicOutput file(path);
  std::ofstream out(file.temporary());
  out << text;
  out.close();
  if (!out) throw std::runtime_error("cannot write '" + path + "'");
  file.commit();
}

// What a failed replay said: the first line of its standard error that is
// neither a warning nor the hint at --help, else its first line.
std::string errorLine(const std::string& path) {
  std::ifstream in(path);
  std::string line, first;
  while (std::getline(in, line)) {
    if (line.empty()) continue;
    if (first.empty()) first = line;
    if (line.find(": warning: ") == std::string::npos && line.rfind("Try '", 0) != 0) return line;
  }
  return first.empty() ? "no message" : first;
}

// A file-name-safe stem for a clip under a setting.
std::string stemOf(size_t clip, const std::string& name, size_t setting) {
  std::string safe;
  for (char c : name) safe += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return std::to_string(clip + 1) + "-" + safe + "-" + std::to_string(setting + 1);
}

// The replay's timestamps as a clock, to resolve the truth as the replay did.
FrameClock clockOf(const std::vector<ReplayRecord>& records) {
  std::vector<int64_t> stamps;
  for (const ReplayRecord& r : records) stamps.push_back(r.timestampMs);
  const int64_t interval = stamps.size() > 1 ? std::max<int64_t>(1, stamps[1] - stamps[0]) : 33;
  return FrameClock(stamps, 0, interval);
}

std::string oneDecimal(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f s", v);
  return buf;
}

// Absence while something moved, for the strip's red line; empty when none.
std::string absenceAlert(const Scores& s) {
  if (s.absenceErrors == 0 && s.absenceErrorS <= 0) return "";
  char buf[120];
  std::snprintf(buf, sizeof buf, "ABSENCE ERRORS: %ld reports, %.1f s",
                s.absenceErrors, s.absenceErrorS);
  return buf;
}

// A setting's scores in one line, for its strip in the picture.
std::string scoreLine(const Scores& s) {
  std::string caught = "nothing moves";
  if (s.scoredIntervals() > 0) {
    caught = "caught " + std::to_string(s.caught()) + "/" + std::to_string(s.scoredIntervals());
    for (const IntervalScore& m : s.moving)
      if (m.scored && m.latencyS) {
        caught += " in " + oneDecimal(*m.latencyS);
        break;
      }
  }
  const std::string absence =
      !s.absenceAsked ? "-" : (s.absenceLatencyS ? oneDecimal(*s.absenceLatencyS) : "never");
  char buf[240];
  std::snprintf(buf, sizeof buf, "%s, false %ld, %.1f s, absence %s", caught.c_str(),
                s.falseReports, s.falseMotionS, absence.c_str());
  return buf;
}

}  // namespace

std::vector<std::string> Grid::replayCommand() const {
  if (!options_.replayCommand.empty()) return options_.replayCommand;
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return {ec ? std::string("hds-replay") : (self.parent_path() / "hds-replay").string()};
}

GridRow Grid::collect(const Cell& cell, int exitStatus, GridStrip& strip) const {
  GridRow row{cell.clip->name, cell.setting->name, exitStatus, "", std::nullopt, 0, 0, 0,
              cell.setting->values};
  strip.label = cell.setting->name;
  if (exitStatus != 0) {
    row.error = errorLine(cell.stem + ".err");
    strip.detail = "FAILED: " + row.error;
    return row;
  }
  strip.records = readReplayCsv(cell.stem + ".csv");
  row.frames = static_cast<long>(strip.records.size());
  std::vector<double> times;
  for (const ReplayRecord& r : strip.records) times.push_back(r.detectUs);
  row.detectMedianUs = median(times);
  row.detectP99Us = percentile(times, 99.0);
  if (cell.clip->truth.empty()) {
    strip.detail = "no truth";
    return row;
  }
  boost::property_tree::ptree json;
  boost::property_tree::read_json(cell.stem + ".json", json);
  const std::vector<TruthSpan> spans =
      Truth::load(cell.clip->truth).resolve(clockOf(strip.records));
  Scores s = Scores::compute(strip.records, spans, json.get<double>("absence_threshold_s") * 1000.0,
                             json.get<int>("tolerance_frames"));
  s.truthPath = cell.clip->truth;
  strip.detail = scoreLine(s);
  strip.alert = absenceAlert(s);
  strip.falseMotionMs = s.falseMotionMs;
  strip.absenceErrors = s.absenceErrorMs;
  row.scores = std::move(s);
  return row;
}

int Grid::run() {
  const GridOptions& o = options_;
  const auto started = std::chrono::steady_clock::now();
  const std::vector<Setting> settings = gridSettings(o.axes, o.named);
  const fs::path cellsDir = fs::path(o.outDir) / "cells";
  std::error_code ec;
  fs::create_directories(cellsDir, ec);
  if (ec) throw std::runtime_error("cannot create '" + cellsDir.string() + "': " + ec.message());
  OutputGuard guard;
  for (const Clip& clip : o.clips) {
    guard.input(clip.input, "clip");
    guard.input(clip.truth, "truth");
  }
  const fs::path out(o.outDir);
  guard.output((out / "table.csv").string(), "table");
  guard.output((out / "scorecard.txt").string(), "scorecard");
  guard.output((out / "grid.png").string(), "picture");

  std::vector<Cell> cells;
  std::vector<Job> jobs;
  for (size_t c = 0; c < o.clips.size(); ++c)
    for (size_t s = 0; s < settings.size(); ++s) {
      const Clip& clip = o.clips[c];
      Cell cell{&clip, &settings[s], (cellsDir / stemOf(c, clip.name, s)).string()};
      Job job;
      job.argv = replayCommand();
      job.argv.push_back(clip.input);
      for (const auto* args : {&o.common, &clip.args, &settings[s].args})
        job.argv.insert(job.argv.end(), args->begin(), args->end());
      if (const auto only = clip.settingArgs.find(settings[s].named);
          !settings[s].named.empty() && only != clip.settingArgs.end())
        job.argv.insert(job.argv.end(), only->second.begin(), only->second.end());
      if (!clip.truth.empty())
        job.argv.insert(job.argv.end(), {"--truth", clip.truth, "--scores", cell.stem + ".json"});
      job.argv.insert(job.argv.end(), {"--csv", cell.stem + ".csv", "--no-progress"});
      job.outPath = cell.stem + ".txt";
      job.errPath = cell.stem + ".err";
      cells.push_back(cell);
      jobs.push_back(job);
    }
  const int parallel =
      o.jobs > 0 ? o.jobs : std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  std::fprintf(stderr, "hds-grid: %zu replays (%zu clips x %zu settings), %d at once\n",
               jobs.size(), o.clips.size(), settings.size(), parallel);
  runJobs(jobs, parallel, [&](const Job& job, size_t finished) {
    const size_t i = static_cast<size_t>(&job - jobs.data());
    std::fprintf(
        stderr, "hds-grid: %zu/%zu  %s on %s: %s, %.1f s\n", finished, jobs.size(),
        cells[i].setting->name.c_str(), cells[i].clip->name.c_str(),
        job.status == 0 ? "done" : ("FAILED (exit " + std::to_string(job.status) + ")").c_str(),
        job.seconds);
  });

  std::vector<GridRow> rows;
  std::vector<GridSection> sections;
  for (size_t i = 0; i < cells.size(); ++i) {
    if (i % settings.size() == 0) {
      const Clip& clip = *cells[i].clip;
      const std::string truthName = fs::path(clip.truth).filename().string();
      sections.push_back({clip.name + (clip.truth.empty() ? "" : "   (truth " + truthName + ")"),
                          !clip.truth.empty(),
                          {},
                          {}});
    }
    GridStrip strip;
    rows.push_back(collect(cells[i], jobs[i].status, strip));
    if (rows.back().scores && sections.back().truth.empty())
      for (const TruthSpan& span : rows.back().scores->spans)  // what happened, not how it went
        sections.back().truth.push_back(
            {span.startMs, span.endMs, span.moving,
             span.note.empty() ? (span.moving ? "moving" : "") : span.note, false});
    sections.back().strips.push_back(std::move(strip));
  }
  std::vector<std::string> axes;
  for (const Axis& axis : o.axes) axes.push_back(axis.option);
  writeText((out / "table.csv").string(), gridCsv(rows, axes));
  writeText((out / "scorecard.txt").string(), gridTable(rows, false));
  const std::string picture = (out / "grid.png").string();
  AtomicOutput pictureFile(picture);
  if (!cv::imwrite(pictureFile.temporary(), renderGrid(o.title, sections),
                   {cv::IMWRITE_PNG_COMPRESSION, 9}))
    throw std::runtime_error("cannot write '" + picture + "'");
  pictureFile.commit();
  std::fputs(gridTable(rows, true).c_str(), stdout);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  std::printf("\n%zu replays in %.1f s; table %s, scorecard %s, picture %s, replays in %s\n",
              jobs.size(), seconds, (out / "table.csv").c_str(), (out / "scorecard.txt").c_str(),
              picture.c_str(), cellsDir.c_str());
  const bool failed =
      std::any_of(rows.begin(), rows.end(), [](const GridRow& r) { return r.exitStatus != 0; });
  return failed ? 1 : 0;
}

}  // namespace hdsreplay
