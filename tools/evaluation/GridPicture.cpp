#include "tools/evaluation/GridPicture.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace hdsreplay {

namespace {

using namespace drawing;

constexpr int kLeft = 360, kRight = 30, kTop = 56;
constexpr int kHeaderH = 34, kTruthH = 22, kStripH = 44, kAxisH = 44, kGap = 10, kLegendH = 34;

constexpr int kAlertH = 14;

int stripHeight(const GridStrip& s) { return kStripH + (s.alert.empty() ? 0 : kAlertH); }

int sectionHeight(const GridSection& s) {
  int h = kHeaderH + kTruthH + kGap + kAxisH;
  for (const GridStrip& strip : s.strips) h += stripHeight(strip);
  return h;
}

// Draws one clip's section with its top at `y`; its time runs to the end of
// its longest replay.
void drawSection(cv::Mat& img, const GridSection& section, int y) {
  const int plotW = img.cols - kLeft - kRight;
  double endMs = 1000.0;
  for (const GridStrip& s : section.strips) {
    const std::vector<ReplayRecord> r = fromFirstFrame(s.records);
    if (r.size() > 1)
      endMs = std::max(endMs, 2.0 * r.back().timestampMs - r[r.size() - 2].timestampMs);
  }
  const TimeToX timeX = [&](double ms) {
    return kLeft + static_cast<int>(std::lround(ms / endMs * plotW));
  };
  text(img, section.title, 20, y + 24, 0.65, kInk, Align::Left, 1, cv::FONT_HERSHEY_DUPLEX);
  y += kHeaderH;
  text(img, "truth", kLeft - 10, y + 16, 0.5, kInk, Align::Right);
  if (section.truth.empty())
    text(img, section.hasTruth ? "nothing moves" : "no truth file", kLeft + 8, y + 16, 0.45,
         kMuted);
  truthBand(img, cv::Rect(kLeft, y, plotW, kTruthH), timeX, section.truth, {});
  y += kTruthH + kGap;
  for (const GridStrip& strip : section.strips) {
    const std::vector<ReplayRecord> r = fromFirstFrame(strip.records);
    text(img, strip.label, kLeft - 10, y + 14, 0.45, kInk, Align::Right);
    text(img, strip.detail, kLeft - 10, y + 31, 0.4, kMuted, Align::Right);
    if (!strip.alert.empty()) text(img, strip.alert, kLeft - 10, y + 45, 0.4, kFalse, Align::Right);
    // Reports above the status, false motion among them in red.
    const cv::Rect ticks(kLeft, y + 2, plotW, 8), status(kLeft, y + 12, plotW, 20);
    for (const ReplayRecord& rec : r) {
      if (!rec.newReport || (rec.status != kStatusMotion && rec.status != kStatusAbsence)) continue;
      const int x = timeX(static_cast<double>(rec.reportTimestampMs));
      cv::rectangle(img, cv::Rect(x, ticks.y, 2, ticks.height), statusColour(rec.status),
                    cv::FILLED);
    }
    for (double ms : strip.falseMotionMs)
      cv::rectangle(img, cv::Rect(timeX(ms), ticks.y, 2, ticks.height), kFalse, cv::FILLED);
    statusBand(img, status, timeX, r, endMs);
    absenceErrorMarks(img, status, timeX, strip.absenceErrors);
    y += stripHeight(strip);
  }
  const double tickS = niceTickStep(endMs / 1000.0, 12);
  for (double t = 0; t * 1000.0 <= endMs + 1e-6; t += tickS) {
    const int x = timeX(t * 1000.0);
    cv::line(img, cv::Point(x, y - 6), cv::Point(x, y), kMuted, 1);
    text(img, formatSeconds(t), x, y + 16, 0.45, kInk, Align::Centre);
  }
  text(img, "time (s)", kLeft + plotW / 2, y + 36, 0.5, kInk, Align::Centre);
}

}  // namespace

cv::Mat renderGrid(const std::string& title, const std::vector<GridSection>& sections, int width) {
  int height = kTop + kLegendH;
  for (const GridSection& s : sections) height += sectionHeight(s);
  cv::Mat img(height, std::max(width, kLeft + 300), CV_8UC3, kWhite);
  text(img, title, 20, 36, 0.8, kInk, Align::Left, 2, cv::FONT_HERSHEY_DUPLEX);
  int y = kTop;
  for (const GridSection& s : sections) {
    drawSection(img, s, y);
    y += sectionHeight(s);
  }
  int lx = kLeft;
  legendItem(img, lx, height - 14, kMotion, "motion");
  legendItem(img, lx, height - 14, kAbsence, "absence");
  legendItem(img, lx, height - 14, kMotion, "stale status", true);
  legendItem(img, lx, height - 14, kMoving, "truth: moving");
  legendItem(img, lx, height - 14, kNuisance, "nuisance", true);
  legendItem(img, lx, height - 14, kFalse, "missed, false motion (ticks), absence errors");
  return img;
}

}  // namespace hdsreplay
