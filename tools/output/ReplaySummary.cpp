#include "tools/output/ReplaySummary.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace hdsreplay {

double percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * static_cast<double>(n)));
  rank = std::min(n, std::max<size_t>(rank, 1));
  return values[rank - 1];
}

double median(std::vector<double> values) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

std::vector<Report> collectReports(const std::vector<ReplayRecord>& records) {
  std::vector<Report> reports;
  for (const ReplayRecord& r : records) {
    if (!r.newReport) continue;
    if (r.status != kStatusMotion && r.status != kStatusAbsence) continue;
    // The decision was made on an earlier frame: find it by its timestamp.
    long frame = r.frame;
    while (frame > 0 && records[frame].timestampMs > r.reportTimestampMs) --frame;
    reports.push_back({r.status, frame, r.reportTimestampMs});
  }
  return reports;
}

std::vector<std::pair<long, std::string>> lightModeSwitches(
    const std::vector<ReplayRecord>& records) {
  std::vector<std::pair<long, std::string>> switches;
  int length = 0;  // the last window length seen; 0 before any
  for (size_t i = 0; i < records.size(); ++i) {
    const int now = records[i].windowLength;
    if (records[i].windowVotes < 0 || now <= 0) continue;
    if (length > 0 && now != length)
      switches.emplace_back(static_cast<long>(i), now < length ? "low light" : "normal light");
    length = now;
  }
  return switches;
}

std::vector<StaleRun> collectStaleRuns(const std::vector<ReplayRecord>& records) {
  std::vector<StaleRun> runs;
  for (size_t i = 0; i < records.size(); ++i) {
    const ReplayRecord& r = records[i];
    if (r.fresh) continue;
    const bool extends = i > 0 && !records[i - 1].fresh && records[i - 1].status == r.status;
    if (!extends) runs.push_back({r.status, r.timestampMs, r.timestampMs});
    const int64_t step = i > 0 ? r.timestampMs - records[i - 1].timestampMs : 0;
    runs.back().endMs = i + 1 < records.size() ? records[i + 1].timestampMs : r.timestampMs + step;
  }
  return runs;
}

ReplaySummary ReplaySummary::compute(const std::vector<ReplayRecord>& replayed, long framesRead,
                                     double runSeconds) {
  const std::vector<ReplayRecord> records = fromFirstFrame(replayed);
  ReplaySummary s;
  s.framesRead = framesRead;
  s.handedOver = static_cast<long>(records.size());
  s.runSeconds = runSeconds;
  std::vector<double> times;
  times.reserve(records.size());
  for (const ReplayRecord& r : records) {
    if (r.stillLead) ++s.leadFrames;
    if (r.stillTail) ++s.tailFrames;
    if (r.processed) ++s.processed;
    if (r.dropped) ++s.dropped;
    if (r.state == 1) ++s.notAnalysed;
    if (r.vote >= 0) {
      ++s.votesKnown;
      if (r.vote == 1) ++s.votingMotion;
    }
    if (r.processed && r.motionDetected) ++s.motionFrames;
    times.push_back(r.detectUs);
  }
  s.reports = collectReports(records);
  s.staleRuns = collectStaleRuns(records);
  for (const Report& rep : s.reports) {
    if (rep.status != kStatusAbsence) continue;
    for (const ReplayRecord& r : records) {
      if (r.timestampMs >= rep.timestampMs) break;
      if (r.processed && r.motionDetected) s.lastMotionBeforeFirstAbsenceMs = r.timestampMs;
    }
    break;
  }
  s.detectMedianUs = median(times);
  s.detectP99Us = percentile(times, 99.0);
  s.detectMaxUs = times.empty() ? 0.0 : *std::max_element(times.begin(), times.end());
  return s;
}

namespace {

std::string seconds(int64_t ms) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f s", static_cast<double>(ms) / 1000.0);
  return buf;
}

std::string line(const char* label, const std::string& value) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "  %-17s ", label);
  return buf + value + "\n";
}

}  // namespace

std::string ReplaySummary::format() const {
  std::string out;
  char buf[256];
  std::snprintf(buf, sizeof buf, "%ld", framesRead);
  out += line("frames read", buf);
  std::string held;
  if (leadFrames) held = std::to_string(leadFrames) + " held before the input";
  if (tailFrames)
    held += (held.empty() ? std::to_string(tailFrames) + " of them"
                          : ", " + std::to_string(tailFrames)) +
            " the still tail";
  std::snprintf(buf, sizeof buf, "%ld%s", handedOver,
                held.empty() ? "" : (" (" + held + ")").c_str());
  out += line("handed over", buf);
  std::snprintf(buf, sizeof buf, "%ld", processed);
  out += line("processed", buf);
  std::snprintf(buf, sizeof buf, "%ld", dropped);
  out += line("dropped", buf);
  if (notAnalysed) {
    std::snprintf(buf, sizeof buf, "%ld (in DETECT_PRESENCE, not analysed)", notAnalysed);
    out += line("not analysed", buf);
  }
  if (votesKnown)
    std::snprintf(buf, sizeof buf, "%ld of %ld analysed (regions found)", votingMotion, votesKnown);
  else
    std::snprintf(buf, sizeof buf, "unknown (known in lockstep only)");
  out += line("voting motion", buf);
  std::snprintf(buf, sizeof buf, "%ld (filter score above 0.8)", motionFrames);
  out += line("motion frames", buf);

  for (int status : {kStatusMotion, kStatusAbsence}) {
    long count = 0;
    const Report* first = nullptr;
    const Report* last = nullptr;
    for (const Report& r : reports) {
      if (r.status != status) continue;
      ++count;
      if (!first) first = &r;
      last = &r;
    }
    std::string text = std::to_string(count);
    if (first) {
      text += ", first at " + seconds(first->timestampMs) + " (frame " +
              std::to_string(first->frame) + ")";
      if (status == kStatusAbsence && lastMotionBeforeFirstAbsenceMs >= 0)
        text += ", " + seconds(first->timestampMs - lastMotionBeforeFirstAbsenceMs) +
                " after the last motion at " + seconds(lastMotionBeforeFirstAbsenceMs);
      if (count > 1)
        text += ", last at " + seconds(last->timestampMs) + " (frame " +
                std::to_string(last->frame) + ")";
    }
    out += line(status == kStatusMotion ? "motion reports" : "absence reports", text);
  }
  if (!staleRuns.empty()) {
    std::string text;
    for (size_t i = 0; i < staleRuns.size() && i < 3; ++i)
      text += std::string(i ? "; " : "") + statusName(staleRuns[i].status) + " from " +
              seconds(staleRuns[i].startMs) + " to " + seconds(staleRuns[i].endMs);
    if (staleRuns.size() > 3) text += "; " + std::to_string(staleRuns.size() - 3) + " more";
    out += line("stale status", text + " (decided before the last state change)");
  }
  std::snprintf(buf, sizeof buf, "median %.0f us, 99th percentile %.0f us, max %.0f us",
                detectMedianUs, detectP99Us, detectMaxUs);
  out += line("detect() time", buf);
  std::snprintf(buf, sizeof buf, "%.2f s (%.0f frames/s)", runSeconds,
                runSeconds > 0 ? handedOver / runSeconds : 0.0);
  out += line("run time", buf);
  return out;
}

}  // namespace hdsreplay
