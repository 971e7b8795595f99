// The picture of a grid: for each clip its truth band, and under it one strip
// a setting with the status the host read (stale runs hatched), the reports
// ticked above it and false motion ticked in red, absence while something
// moved barred in red, labelled with the setting and its scores; so one sees at a glance which setting reports a walk-in
// first and which one false-triggers. Pure function of its sections.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tools/output/Drawing.h"
#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

struct GridStrip {
  std::string label;   // the setting
  std::string detail;  // its scores in a line
  std::string alert;   // a fault the scores found (absence errors), in red under them
  std::vector<ReplayRecord> records;
  std::vector<double> falseMotionMs;
  drawing::AbsenceErrors absenceErrors;  // marked in red on the status
};

struct GridSection {
  std::string title;  // the clip
  bool hasTruth = false;
  std::vector<drawing::TruthMark> truth;
  std::vector<GridStrip> strips;
};

cv::Mat renderGrid(const std::string& title, const std::vector<GridSection>& sections,
                   int width = 1400);

}  // namespace hdsreplay
