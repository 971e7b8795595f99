// Figures that sum up a replay, computed from its per-frame records, and their
// text form as hds-replay prints it at the end of a run. Plain value type.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

// Nearest-rank percentile (p in (0, 100]) of `values`; 0 when empty. The median
// is the mean of the two middle values for an even count.
double percentile(std::vector<double> values, double p);
double median(std::vector<double> values);

struct Report {
  int status;  // kStatusMotion or kStatusAbsence
  long frame;  // frame the decision was made on
  int64_t timestampMs;
};

// Decisions that became visible to the host, in order (each new decision once).
std::vector<Report> collectReports(const std::vector<ReplayRecord>& records);

// A run of frames on which the host read a stale status: one decided on a
// frame before the last state change. `endMs` is the timestamp of the first
// frame after the run (or of the last frame, plus one frame, at the end).
struct StaleRun {
  int status;
  int64_t startMs, endMs;
};
std::vector<StaleRun> collectStaleRuns(const std::vector<ReplayRecord>& records);

// Where the light mode switched, as the filter's window shows it (12 votes in
// normal light, 5 in low light; known in lockstep only): the index of the first
// record in the new mode, and "low light" or "normal light".
std::vector<std::pair<long, std::string>> lightModeSwitches(
    const std::vector<ReplayRecord>& records);

struct ReplaySummary {
  long framesRead = 0;  // from the input, without the still tail
  long leadFrames = 0;  // the first frame held before the input
  long tailFrames = 0;
  long handedOver = 0;
  long processed = 0;
  long dropped = 0;
  long notAnalysed = 0;  // handed over in DETECT_PRESENCE, which analyses nothing
  long votesKnown = 0;
  long votingMotion = 0;
  long motionFrames = 0;  // frames on which the filter said motion
  std::vector<Report> reports;
  std::vector<StaleRun> staleRuns;
  int64_t lastMotionBeforeFirstAbsenceMs = -1;  // -1: none
  double detectMedianUs = 0.0, detectP99Us = 0.0, detectMaxUs = 0.0;
  double runSeconds = 0.0;

  static ReplaySummary compute(const std::vector<ReplayRecord>& records, long framesRead,
                               double runSeconds);
  // The end-of-run text, without trailing paths.
  std::string format() const;
};

}  // namespace hdsreplay
