// The scene guards' part of the timeline, drawn under it when the replay ran
// with guards: for each analysed frame how large the largest moving region was
// against what a vote needs, a band of which guard acted, and a line where the
// light mode switched. Pure function of the records; empty without guard
// reports.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

// A panel `width` pixels wide whose time axis matches the timeline's: x from
// `left` to width - `right` spans 0 to `endMs` (records counted from the first
// frame). An empty Mat when no record has a guard report.
cv::Mat renderGuardPanel(const std::vector<ReplayRecord>& records, int width, int left, int right,
                         double endMs);

// Names of the guards that acted, joined by '+' ("global-change+gain"); "" for none.
std::string guardActionNames(unsigned acted);

}  // namespace hdsreplay
