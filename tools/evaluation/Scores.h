// How a replay did against the truth, from its per-frame records:
// - each moving interval that begins in DETECT_MOTION: the time from its start
//   to the first motion report (the decision's frame), or a miss when none
//   comes before it ends, give or take the tolerance;
// - false motion: motion reports, and seconds of filtered motion, outside the
//   moving intervals and the tolerance after each (nuisance included, which is
//   also counted apart);
// - absence: the time from the end of the last moving interval (without one,
//   from the first frame in DETECT_ABSENCE) to the first absence report, beside
//   the threshold; and absence reported, or read by the host, while something
//   moves, which is an error;
// - the share of the frames inside moving intervals on which the filter said
//   motion: how much of a walk the detector saw.
// The tolerance (kDefaultToleranceFrames) covers motion that has ended but is
// still seen, up to 16 frames later (5 in low light). Plain value type.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/evaluation/Truth.h"
#include "tools/options/ReplayOptions.h"
#include "tools/output/Drawing.h"
#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

struct IntervalScore {
  TruthSpan span;
  bool scored = false;             // it began in DETECT_MOTION
  std::optional<double> latencyS;  // empty: missed
};

struct Scores {
  std::string truthPath;
  int toleranceFrames = kDefaultToleranceFrames;
  double absenceThresholdS = 0;
  std::vector<IntervalScore> moving;
  long nuisanceIntervals = 0;
  long falseReports = 0;
  double falseMotionS = 0;
  long nuisanceReports = 0;  // of the false ones, inside nuisance intervals
  double nuisanceMotionS = 0;
  bool absenceAsked = false;         // some frame after the reference was in DETECT_ABSENCE
  bool absenceFromMovingEnd = true;  // else from the first frame in DETECT_ABSENCE
  std::optional<double> absenceLatencyS;
  long movingFrames = 0;        // frames inside moving intervals
  long movingMotionFrames = 0;  // of them, analysed with the filter saying motion
  long absenceErrors = 0;             // absence reports decided inside moving intervals
  double absenceErrorS = 0;           // time inside moving intervals with the host reading ABSENCE
  std::vector<TruthSpan> spans;       // the truth, nuisance included
  std::vector<double> falseMotionMs;  // frames of false filtered motion, from the first frame
  drawing::AbsenceErrors absenceErrorMs;  // where the absence errors lie, from the first frame

  long caught() const;
  long scoredIntervals() const;

  // `records` as the replay handed them over; `spans` in milliseconds from the first frame.
  static Scores compute(const std::vector<ReplayRecord>& records,
                        const std::vector<TruthSpan>& spans, double absenceThresholdMs,
                        int toleranceFrames = kDefaultToleranceFrames);
  // The truth band of the timeline: each interval with how it went.
  std::vector<drawing::TruthMark> marks() const;
  // Lines for the replay's summary, in its style.
  std::string format() const;
  // The same figures as one JSON object, numbers fixed to the millisecond.
  std::string json() const;
};

}  // namespace hdsreplay
