#include "tools/evaluation/Scores.h"

#include <algorithm>
#include <cstdio>

#include "tools/output/ReplaySummary.h"

namespace hdsreplay {

namespace {

// A replay's frames by the truth: each frame inside a moving interval,
// excused (inside one or within the tolerance after it), or inside a nuisance
// interval; how long each is shown; and the reports the host saw.
class FrameTruth {
 public:
  FrameTruth(const std::vector<ReplayRecord>& records, const std::vector<TruthSpan>& spans,
             int toleranceFrames)
      : r(records),
        moving(records.size()),
        excused(records.size()),
        nuisance(records.size()),
        durationS(records.size()),
        reports(collectReports(records)) {
    const size_t n = r.size();
    for (size_t i = 0; i + 1 < n; ++i)
      durationS[i] = (r[i + 1].timestampMs - r[i].timestampMs) / 1e3;
    if (n > 1) durationS[n - 1] = durationS[n - 2];
    for (const TruthSpan& span : spans) {
      const size_t a = frameAt(span.startMs), b = frameAt(span.endMs);
      if (!span.moving) {
        std::fill(nuisance.begin() + a, nuisance.begin() + b, 1);
        continue;
      }
      std::fill(moving.begin() + a, moving.begin() + b, 1);
      std::fill(excused.begin() + a, excused.begin() + std::min(n, b + toleranceFrames), 1);
      lastMovingEndMs = std::max(lastMovingEndMs, span.endMs);
    }
  }

  // The first frame at or after `ms` from the first frame.
  size_t frameAt(double ms) const {
    return static_cast<size_t>(
        std::lower_bound(r.begin(), r.end(), ms,
                         [](const ReplayRecord& rec, double t) { return rec.timestampMs < t; }) -
        r.begin());
  }

  const std::vector<ReplayRecord>& r;
  std::vector<char> moving, excused, nuisance;
  std::vector<double> durationS;
  const std::vector<Report> reports;
  double lastMovingEndMs = -1;  // -1: no moving interval
};

// False motion: reports and filtered motion on frames no moving interval
// excuses; and absence while something moves.
void scoreFalseMotion(const FrameTruth& t, Scores& s) {
  for (const Report& rep : t.reports) {
    const size_t f = static_cast<size_t>(rep.frame);
    if (rep.status == kStatusMotion && !t.excused[f]) {
      ++s.falseReports;
      s.nuisanceReports += t.nuisance[f];
    }
    if (rep.status == kStatusAbsence && t.moving[f]) {
      ++s.absenceErrors;
      s.absenceErrorMs.reports.push_back(static_cast<double>(rep.timestampMs));
    }
  }
  for (size_t i = 0; i < t.r.size(); ++i) {
    if (t.r[i].processed && t.r[i].motionDetected && !t.excused[i]) {
      s.falseMotionS += t.durationS[i];
      s.falseMotionMs.push_back(static_cast<double>(t.r[i].timestampMs));
      if (t.nuisance[i]) s.nuisanceMotionS += t.durationS[i];
    }
    if (t.moving[i] && t.r[i].status == kStatusAbsence) {
      s.absenceErrorS += t.durationS[i];
      // Runs of such frames, each to the end of its last frame.
      const double from = static_cast<double>(t.r[i].timestampMs);
      const double to = from + t.durationS[i] * 1e3;
      auto& read = s.absenceErrorMs.read;
      if (i > 0 && t.moving[i - 1] && t.r[i - 1].status == kStatusAbsence && !read.empty())
        read.back().second = to;
      else
        read.emplace_back(from, to);
    }
    if (t.moving[i]) {
      ++s.movingFrames;
      s.movingMotionFrames += t.r[i].processed && t.r[i].motionDetected;
    }
  }
}

// Each moving interval that begins in DETECT_MOTION: the first motion report
// from its start until the tolerance after its end.
IntervalScore scoreInterval(const FrameTruth& t, const TruthSpan& span, int toleranceFrames) {
  IntervalScore score{span, false, std::nullopt};
  const size_t a = t.frameAt(span.startMs);
  const size_t b = std::min(t.r.size(), t.frameAt(span.endMs) + toleranceFrames);
  score.scored = a < t.r.size() && t.r[a].state == 0;  // DETECT_MOTION
  for (const Report& rep : t.reports) {
    if (!score.scored || rep.status != kStatusMotion) continue;
    if (static_cast<size_t>(rep.frame) < a || static_cast<size_t>(rep.frame) >= b) continue;
    score.latencyS = (rep.timestampMs - span.startMs) / 1000.0;
    break;
  }
  return score;
}

// Absence: from the end of the last moving interval, else from the first frame
// in DETECT_ABSENCE, to the first absence report.
void scoreAbsence(const FrameTruth& t, Scores& s) {
  double fromMs = t.lastMovingEndMs;
  if (fromMs < 0) {
    s.absenceFromMovingEnd = false;
    const auto first = std::find_if(t.r.begin(), t.r.end(), [](const ReplayRecord& rec) {
      return rec.state == 2;  // DETECT_ABSENCE
    });
    fromMs = first == t.r.end() ? 1e300 : first->timestampMs;
  }
  for (size_t i = t.frameAt(fromMs); i < t.r.size(); ++i)
    s.absenceAsked = s.absenceAsked || t.r[i].state == 2;
  for (const Report& rep : t.reports) {
    if (rep.status != kStatusAbsence || rep.timestampMs < fromMs) continue;
    s.absenceLatencyS = (rep.timestampMs - fromMs) / 1000.0;
    break;
  }
}

std::string seconds(double s) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f s", s);
  return buf;
}

std::string line(const char* label, const std::string& value) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "  %-17s ", label);
  return buf + value + "\n";
}

std::string number(const std::optional<double>& v) {
  if (!v) return "null";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.3f", *v);
  return buf;
}

}  // namespace

long Scores::caught() const {
  return std::count_if(moving.begin(), moving.end(),
                       [](const IntervalScore& m) { return m.scored && m.latencyS; });
}

long Scores::scoredIntervals() const {
  return std::count_if(moving.begin(), moving.end(),
                       [](const IntervalScore& m) { return m.scored; });
}

Scores Scores::compute(const std::vector<ReplayRecord>& replayed,
                       const std::vector<TruthSpan>& spans, double absenceThresholdMs,
                       int toleranceFrames) {
  const std::vector<ReplayRecord> records = fromFirstFrame(replayed);
  Scores s;
  s.toleranceFrames = toleranceFrames;
  s.absenceThresholdS = absenceThresholdMs / 1000.0;
  s.spans = spans;
  s.nuisanceIntervals =
      std::count_if(spans.begin(), spans.end(), [](const TruthSpan& span) { return !span.moving; });
  if (records.empty()) return s;
  const FrameTruth truth(records, spans, toleranceFrames);
  scoreFalseMotion(truth, s);
  for (const TruthSpan& span : spans)
    if (span.moving) s.moving.push_back(scoreInterval(truth, span, toleranceFrames));
  scoreAbsence(truth, s);
  return s;
}

std::vector<drawing::TruthMark> Scores::marks() const {
  std::vector<drawing::TruthMark> out;
  size_t next = 0;  // moving intervals are scored in file order
  for (const TruthSpan& span : spans) {
    drawing::TruthMark mark{span.startMs, span.endMs, span.moving, span.note, false};
    if (span.moving && next < moving.size()) {
      const IntervalScore& m = moving[next++];
      mark.missed = m.scored && !m.latencyS;
      mark.label = !m.scored    ? "moving (not in DETECT_MOTION)"
                   : m.latencyS ? "moving: reported after " + seconds(*m.latencyS)
                                : "moving: MISSED";
    }
    out.push_back(mark);
  }
  return out;
}

std::string Scores::format() const {
  std::string out;
  char buf[256];
  std::snprintf(buf, sizeof buf,
                "%s: %zu moving, %ld nuisance; motion up to %d frames after a moving interval "
                "is not false",
                truthPath.c_str(), moving.size(), nuisanceIntervals, toleranceFrames);
  out += line("truth", buf);
  for (const IntervalScore& m : moving) {
    std::string what = seconds(m.span.startMs / 1000.0) + " to " + seconds(m.span.endMs / 1000.0);
    if (!m.scored)
      what += ": not scored, not in DETECT_MOTION at its start";
    else if (m.latencyS)
      what += ": motion reported after " + seconds(*m.latencyS);
    else
      what += ": MISSED, no motion report";
    out += line("moving", what);
  }
  std::snprintf(buf, sizeof buf,
                "%ld reports, %.1f s of filtered motion outside moving intervals (in nuisance: %ld "
                "reports, %.1f s)",
                falseReports, falseMotionS, nuisanceReports, nuisanceMotionS);
  out += line("false motion", buf);
  const std::string threshold = " (threshold " + seconds(absenceThresholdS) + ")";
  const char* from =
      absenceFromMovingEnd ? "after the last moving interval ended" : "after DETECT_ABSENCE began";
  if (!absenceAsked)
    out += line("absence", "not asked for: no DETECT_ABSENCE after the last moving interval");
  else if (absenceLatencyS)
    out += line("absence", seconds(*absenceLatencyS) + " " + from + threshold);
  else
    out += line("absence", std::string("never reported ") + from + threshold);
  std::snprintf(buf, sizeof buf, "%ld reports while something moved; %.1f s read as ABSENCE",
                absenceErrors, absenceErrorS);
  out += line("absence errors", buf);
  if (movingFrames > 0) {
    std::snprintf(buf, sizeof buf, "%ld of %ld frames inside moving intervals (%.0f %%)",
                  movingMotionFrames, movingFrames, 100.0 * movingMotionFrames / movingFrames);
    out += line("motion on", buf);
  }
  return out;
}

std::string Scores::json() const {
  std::string out = "{\n  \"truth\": \"" + truthPath + "\",\n";
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "  \"tolerance_frames\": %d,\n  \"absence_threshold_s\": %.3f,\n"
                "  \"moving_intervals\": %zu,\n  \"scored\": %ld,\n  \"caught\": %ld,\n"
                "  \"nuisance_intervals\": %ld,\n",
                toleranceFrames, absenceThresholdS, moving.size(), scoredIntervals(), caught(),
                nuisanceIntervals);
  out += buf;
  out += "  \"moving\": [";
  for (size_t i = 0; i < moving.size(); ++i) {
    const IntervalScore& m = moving[i];
    std::snprintf(buf, sizeof buf,
                  "%s\n    {\"start_s\": %.3f, \"end_s\": %.3f, \"scored\": %s, \"latency_s\": %s}",
                  i ? "," : "", m.span.startMs / 1000.0, m.span.endMs / 1000.0,
                  m.scored ? "true" : "false", number(m.latencyS).c_str());
    out += buf;
  }
  std::snprintf(buf, sizeof buf,
                "%s],\n  \"false_reports\": %ld,\n  \"false_motion_s\": %.3f,\n"
                "  \"nuisance_reports\": %ld,\n  \"nuisance_motion_s\": %.3f,\n"
                "  \"absence_asked\": %s,\n  \"absence_from\": \"%s\",\n"
                "  \"absence_latency_s\": %s,\n  \"absence_errors\": %ld,\n"
                "  \"absence_error_s\": %.3f,\n  \"moving_frames\": %ld,\n"
                "  \"moving_motion_frames\": %ld\n}\n",
                moving.empty() ? "" : "\n  ", falseReports, falseMotionS, nuisanceReports,
                nuisanceMotionS, absenceAsked ? "true" : "false",
                absenceFromMovingEnd ? "moving_end" : "absence_state",
                number(absenceLatencyS).c_str(), absenceErrors, absenceErrorS, movingFrames,
                movingMotionFrames);
  return out + buf;
}

}  // namespace hdsreplay
