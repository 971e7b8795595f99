// Draws the timeline picture of a replay: time on x; the vote filter's score
// with its 0.8 line; and bands for the per-frame vote, whether each frame was
// analysed or dropped, the reports the host saw, the reported status and the
// detection state; with a truth, a band of what really moved above them.
// Absence reports are marked, in red those made while something moved; so are
// the switches of the light mode and the frames skipped while the lens moved.
// Pure function of the records.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "tools/output/Drawing.h"
#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

struct TimelineInfo {
  std::string title;
  std::string subtitle;
  double fps = 30.0;
  std::vector<std::pair<long, std::string>> events;  // (frame, label), e.g. the still tail
  std::vector<drawing::TruthMark> truth;             // empty: no truth band
  std::vector<double> falseMotionMs;                 // frames the truth calls false motion
  drawing::AbsenceErrors absenceErrorsMs;            // absence while the truth says moving
  int width = 1400;
};

cv::Mat renderTimeline(const std::vector<ReplayRecord>& records, const TimelineInfo& info);

}  // namespace hdsreplay
