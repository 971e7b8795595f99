#include "tools/output/GuardPlot.h"

#include <algorithm>
#include <cmath>
#include <string>

#include <opencv2/imgproc.hpp>

#include "tools/output/Drawing.h"

namespace hdsreplay {

namespace {

using namespace drawing;

// Region size over what a vote needs, drawn up to this many times the need.
constexpr double kMaxRatio = 3.0;
constexpr int kTop = 40, kChartH = 150, kBandTop = kTop + kChartH + 14, kBandH = 24;
constexpr int kHeight = kBandTop + kBandH + 52;

const cv::Scalar kRegion(120, 60, 20);
const cv::Scalar kBelow(200, 170, 140);
const cv::Scalar kNeed(50, 50, 210);
const cv::Scalar kSwitch(150, 40, 150);

struct Action {
  unsigned bit;
  const char* name;
  cv::Scalar colour;
};
// In order of precedence: the band shows the first that acted.
const Action kActions[] = {
    {hdsml::kGuardGlobalChange, "global-change", cv::Scalar(50, 40, 220)},
    {hdsml::kGuardGainMatched, "gain", cv::Scalar(40, 160, 240)},
    {hdsml::kGuardMask, "mask", cv::Scalar(150, 150, 150)},
    {hdsml::kGuardNoise, "noise", cv::Scalar(170, 90, 150)},
    {hdsml::kGuardNight, "night", cv::Scalar(90, 140, 60)},
};

}  // namespace

std::string guardActionNames(unsigned acted) {
  std::string names;
  for (const Action& a : kActions)
    if (acted & a.bit) names += (names.empty() ? "" : "+") + std::string(a.name);
  return names;
}

cv::Mat renderGuardPanel(const std::vector<ReplayRecord>& records, int width, int left, int right,
                         double endMs) {
  if (std::none_of(records.begin(), records.end(), [](const ReplayRecord& r) { return r.guard; }))
    return cv::Mat();
  cv::Mat img(kHeight, width, CV_8UC3, kWhite);
  const int plotW = width - left - right;
  const auto timeX = [&](double ms) { return left + int(std::lround(ms / endMs * plotW)); };
  const auto ratioY = [](double v) {
    return kTop + kChartH - int(std::lround(std::min(v, kMaxRatio) / kMaxRatio * kChartH));
  };
  text(img, "scene guards", left, kTop - 22, 0.55, kInk);
  text(img,
       "largest moving region over the area a vote needs (a vote needs more than 1); "
       "the band: which guard acted",
       left + 130, kTop - 22, 0.45, kMuted);
  for (double v : {0.0, 1.0, 2.0, 3.0}) {
    cv::line(img, {left, ratioY(v)}, {left + plotW, ratioY(v)}, kGrid, 1);
    text(img, std::to_string(int(v)) + "x", left - 10, ratioY(v) + 5, 0.45, kMuted, Align::Right);
  }
  for (size_t i = 0; i < records.size(); ++i) {
    const ReplayRecord& r = records[i];
    if (!r.guard) continue;
    const int x0 = timeX(double(r.timestampMs));
    const int x1 = std::max(
        x0 + 1, i + 1 < records.size() ? timeX(double(records[i + 1].timestampMs)) : timeX(endMs));
    const hdsml::GuardReport& g = *r.guard;
    const double ratio = g.neededArea > 0 ? double(g.largestRegion) / g.neededArea : 0.0;
    if (ratio > 0)
      cv::rectangle(img, cv::Rect(x0, ratioY(ratio), x1 - x0, kTop + kChartH - ratioY(ratio)),
                    g.vote ? kRegion : kBelow, cv::FILLED);
    for (const Action& a : kActions)
      if (g.acted & a.bit) {
        cv::rectangle(img, cv::Rect(x0, kBandTop, x1 - x0, kBandH), a.colour, cv::FILLED);
        break;
      }
    if (g.lightSwitched) {
      cv::line(img, {x0, kTop}, {x0, kBandTop + kBandH}, kSwitch, 2);
      text(img, g.lightMode == 0 ? "to low light" : "to normal light", x0 + 4, kTop + 14, 0.45,
           kSwitch);
    }
  }
  dashedLine(img, {left, ratioY(1.0)}, {left + plotW, ratioY(1.0)}, kNeed, 1);
  cv::rectangle(img, cv::Rect(left, kTop, plotW, kChartH), kFrame, 1);
  cv::rectangle(img, cv::Rect(left, kBandTop, plotW, kBandH), kFrame, 1);
  text(img, "acted", left - 10, kBandTop + 17, 0.5, kInk, Align::Right);
  int lx = left;
  legendItem(img, lx, kHeight - 14, kRegion, "region that voted");
  legendItem(img, lx, kHeight - 14, kBelow, "too small to vote");
  for (const Action& a : kActions) legendItem(img, lx, kHeight - 14, a.colour, a.name);
  legendItem(img, lx, kHeight - 14, kSwitch, "light mode switched");
  return img;
}

}  // namespace hdsreplay
