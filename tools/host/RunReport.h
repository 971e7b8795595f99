// What a replay says about itself once it has run: the summary's header, the
// timeline's title and marked events, and the printed summary with the paths
// of what was written. Pure functions of the run's facts, plan and records.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tools/host/ReplayPlan.h"
#include "tools/options/ReplayOptions.h"
#include "tools/output/ReplayRecord.h"
#include "tools/output/ReplaySummary.h"
#include "tools/output/TimelinePlot.h"

namespace hdsreplay {

// What the replay ran with, as the summary and the timeline describe it.
struct RunFacts {
  std::string kind;    // of the input: "video", "images", "raw nv21" ...
  std::string layout;  // "nv21", "i420 + 7 bytes row padding", a dump's geometry
  std::string cameraLog;
  cv::Size frameSize;
  cv::Size motionRes;
  long long absenceThresholdMs = 0;
  long framesRead = 0;
};

std::string summaryHeader(const ReplayOptions& options, const ReplayPlan& plan,
                          const RunFacts& run);
TimelineInfo timelineInfo(const ReplayOptions& options, const ReplayPlan& plan,
                          const RunFacts& run);
// Throws std::runtime_error when the picture cannot be written.
void writeTimeline(const std::string& path, const std::vector<ReplayRecord>& records,
                   const TimelineInfo& info);
// `scores`: the truth's lines, printed after the summary's own.
void printSummary(const ReplayOptions& options, const std::string& header,
                  const ReplaySummary& summary, const std::string& scores);

}  // namespace hdsreplay
