#include "tools/TimelinePlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <opencv2/imgproc.hpp>

#include "tools/ReplaySummary.h"
#include "tools/StateScript.h"

namespace hdsreplay {

namespace {

// Colours (BGR).
const cv::Scalar kInk(40, 40, 40);
const cv::Scalar kMuted(110, 110, 110);
const cv::Scalar kGrid(228, 228, 228);
const cv::Scalar kFrame(170, 170, 170);
const cv::Scalar kScore(120, 60, 20);
const cv::Scalar kThreshold(50, 50, 210);
const cv::Scalar kMotion(40, 110, 235);
const cv::Scalar kMotionPale(205, 225, 252);
const cv::Scalar kAbsence(190, 120, 30);
const cv::Scalar kNone(215, 215, 215);
const cv::Scalar kVoteYes(90, 90, 90);
const cv::Scalar kVoteNo(232, 232, 232);
const cv::Scalar kAnalysed(140, 195, 140);
const cv::Scalar kDropped(60, 60, 225);
const cv::Scalar kTail(244, 244, 244);
const cv::Scalar kStateColour[3] = {cv::Scalar(190, 230, 190), cv::Scalar(225, 200, 230),
                                    cv::Scalar(240, 215, 180)};

const int kFont = cv::FONT_HERSHEY_SIMPLEX;

enum class Align { Left, Centre, Right };

// Draws `text` with its baseline at y; returns its width.
int text(cv::Mat& img, const std::string& s, int x, int y, double scale, const cv::Scalar& colour,
         Align align = Align::Left, int thickness = 1, int font = kFont) {
  int baseline = 0;
  const cv::Size size = cv::getTextSize(s, font, scale, thickness, &baseline);
  if (align == Align::Centre) x -= size.width / 2;
  if (align == Align::Right) x -= size.width;
  cv::putText(img, s, cv::Point(x, y), font, scale, colour, thickness, cv::LINE_AA);
  return size.width;
}

int textWidth(const std::string& s, double scale, int thickness = 1) {
  int baseline = 0;
  return cv::getTextSize(s, kFont, scale, thickness, &baseline).width;
}

void dashedLine(cv::Mat& img, cv::Point a, cv::Point b, const cv::Scalar& colour, int thickness,
                int dash = 8, int gap = 6) {
  const double len = std::hypot(b.x - a.x, b.y - a.y);
  if (len <= 0) return;
  const double dx = (b.x - a.x) / len, dy = (b.y - a.y) / len;
  for (double s = 0; s < len; s += dash + gap) {
    const double e = std::min(len, s + dash);
    cv::line(img, cv::Point(cvRound(a.x + dx * s), cvRound(a.y + dy * s)),
             cv::Point(cvRound(a.x + dx * e), cvRound(a.y + dy * e)), colour, thickness,
             cv::LINE_AA);
  }
}

std::string formatSeconds(double s) {
  char buf[32];
  if (std::fabs(s - std::round(s)) < 1e-9)
    std::snprintf(buf, sizeof buf, "%.0f", s);
  else
    std::snprintf(buf, sizeof buf, "%.1f", s);
  return buf;
}

void legendItem(cv::Mat& img, int& x, int y, const cv::Scalar& colour, const std::string& label) {
  cv::rectangle(img, cv::Rect(x, y - 11, 14, 14), colour, cv::FILLED);
  cv::rectangle(img, cv::Rect(x, y - 11, 14, 14), kFrame, 1);
  x += 20;
  x += text(img, label, x, y, 0.5, kInk) + 22;
}

}  // namespace

double niceTickStep(double span, int target) {
  if (span <= 0 || target < 1) return 1.0;
  const double raw = span / target;
  const double mag = std::pow(10.0, std::floor(std::log10(raw)));
  for (double m : {1.0, 2.0, 5.0, 10.0})
    if (raw <= m * mag) return m * mag;
  return 10.0 * mag;
}

cv::Mat renderTimeline(const std::vector<ReplayRecord>& records, const TimelineInfo& info) {
  const int width = std::max(info.width, 600);
  const int left = 110, right = 40, top = 112;
  const int scoreH = 250, bandH = 24, bandGap = 8, axisH = 58, legendH = 34;
  const int bandCount = 5;
  const int scoreTop = top, scoreBottom = top + scoreH;
  const int bandsTop = scoreBottom + 20;
  const int bandsBottom = bandsTop + bandCount * (bandH + bandGap) - bandGap;
  const int height = bandsBottom + axisH + legendH;
  const int plotW = width - left - right;

  cv::Mat img(height, width, CV_8UC3, cv::Scalar(255, 255, 255));
  text(img, info.title, left, 34, 0.8, kInk, Align::Left, 2, cv::FONT_HERSHEY_DUPLEX);
  text(img, info.subtitle, left, 62, 0.5, kMuted);

  const double period = 1000.0 / info.fps;
  const double endMs = records.empty() ? 1000.0 : records.back().timestampMs + period;
  auto X = [&](double ms) { return left + static_cast<int>(std::lround(ms / endMs * plotW)); };
  auto frameSpan = [&](size_t i) {
    const int x0 = X(static_cast<double>(records[i].timestampMs));
    const int x1 =
        i + 1 < records.size() ? X(static_cast<double>(records[i + 1].timestampMs)) : X(endMs);
    return std::make_pair(x0, std::max(x1, x0 + 1));
  };
  auto Y = [&](double score) {
    return scoreBottom - static_cast<int>(std::lround(score * (scoreH - 16)));
  };

  // Score panel background: the still tail, and frames on which the filter said motion.
  for (size_t i = 0; i < records.size(); ++i) {
    const auto [x0, x1] = frameSpan(i);
    if (records[i].stillTail)
      cv::rectangle(img, cv::Rect(x0, scoreTop, x1 - x0, scoreH), kTail, cv::FILLED);
    if (records[i].processed && records[i].motionDetected)
      cv::rectangle(img, cv::Rect(x0, Y(1.0), x1 - x0, scoreBottom - Y(1.0)), kMotionPale,
                    cv::FILLED);
  }
  for (int k = 0; k <= 5; ++k) {
    const double v = k / 5.0;
    cv::line(img, cv::Point(left, Y(v)), cv::Point(left + plotW, Y(v)), kGrid, 1);
    char buf[8];
    std::snprintf(buf, sizeof buf, k == 0 ? "0" : (k == 5 ? "1" : "%.1f"), v);
    text(img, buf, left - 10, Y(v) + 5, 0.5, kMuted, Align::Right);
  }
  const int headW = text(img, "filter score", left, scoreTop - 10, 0.55, kInk);
  text(img,
       "share of the recent analysed frames that voted motion; above 0.8 the filter says motion",
       left + headW + 12, scoreTop - 10, 0.45, kMuted);

  // Time grid.
  const double tickS = niceTickStep(endMs / 1000.0, 12);
  for (double t = 0; t * 1000.0 <= endMs + 1e-6; t += tickS) {
    const int x = X(t * 1000.0);
    cv::line(img, cv::Point(x, scoreTop), cv::Point(x, scoreBottom), kGrid, 1);
    cv::line(img, cv::Point(x, bandsBottom + 4), cv::Point(x, bandsBottom + 10), kMuted, 1);
    text(img, formatSeconds(t), x, bandsBottom + 28, 0.5, kInk, Align::Centre);
  }
  text(img, "time (s)", left + plotW / 2, bandsBottom + 52, 0.55, kInk, Align::Centre);

  // Events (still tail, probes) as labelled dashed lines.
  for (const auto& [frame, label] : info.events) {
    if (frame < 0 || static_cast<size_t>(frame) >= records.size()) continue;
    const int x = X(static_cast<double>(records[frame].timestampMs));
    dashedLine(img, cv::Point(x, scoreTop), cv::Point(x, scoreBottom), kMuted, 1, 5, 5);
    const int w = textWidth(label, 0.45);
    const int tx = x + 6 + w < left + plotW ? x + 6 : x - 6 - w;
    text(img, label, tx, scoreTop + 14, 0.45, kMuted);
  }

  // The 0.8 line.
  dashedLine(img, cv::Point(left, Y(0.8)), cv::Point(left + plotW, Y(0.8)), kThreshold, 1);
  text(img, "0.8", left + plotW + 4, Y(0.8) + 5, 0.45, kThreshold);

  // Score curve, broken where frames were not analysed for a while.
  std::vector<cv::Point> run;
  long lastFrame = -1000;
  const long maxGap = std::max(3L, std::lround(info.fps / 2));
  auto flush = [&]() {
    if (run.size() >= 2)
      cv::polylines(img, run, false, kScore, 2, cv::LINE_AA);
    else if (run.size() == 1)
      cv::circle(img, run[0], 2, kScore, cv::FILLED, cv::LINE_AA);
    run.clear();
  };
  for (size_t i = 0; i < records.size(); ++i) {
    const ReplayRecord& r = records[i];
    if (!r.processed) continue;
    if (r.frame - lastFrame > maxGap) flush();
    const auto [x0, x1] = frameSpan(i);
    run.emplace_back((x0 + x1) / 2, Y(r.motionScore));
    lastFrame = r.frame;
  }
  flush();

  // Absence reports: a line at the first report of each run of them, with the
  // time since the last motion; every report also gets a tick in the reports band.
  const std::vector<Report> reports = collectReports(records);
  int64_t lastMotionMs = -1;
  size_t ri = 0;
  int prevStatus = -1;
  int labelRow = 0;
  for (size_t i = 0; i < records.size(); ++i) {
    if (records[i].processed && records[i].motionDetected) lastMotionMs = records[i].timestampMs;
    while (ri < reports.size() && reports[ri].frame == static_cast<long>(i)) {
      const Report& rep = reports[ri++];
      if (rep.status == kStatusAbsence && prevStatus != kStatusAbsence) {
        const int x = X(static_cast<double>(rep.timestampMs));
        cv::line(img, cv::Point(x, scoreTop), cv::Point(x, bandsBottom), kAbsence, 2, cv::LINE_AA);
        char buf[96];
        std::snprintf(buf, sizeof buf, "absence reported at %.1f s", rep.timestampMs / 1000.0);
        std::string label = buf;
        int xm = x;
        std::string second;
        if (lastMotionMs >= 0) {
          std::snprintf(buf, sizeof buf, "%.1f s after the last motion",
                        (rep.timestampMs - lastMotionMs) / 1000.0);
          second = buf;
          // Span from the last motion to the report.
          xm = X(static_cast<double>(lastMotionMs));
          const int yb = Y(0.5) + labelRow * 44;
          cv::line(img, cv::Point(xm, yb), cv::Point(x, yb), kAbsence, 1, cv::LINE_AA);
          cv::line(img, cv::Point(xm, yb - 6), cv::Point(xm, yb + 6), kAbsence, 2);
        }
        // Beside the line if there is room on the right, else left of the span.
        const int w = std::max(textWidth(label, 0.5), textWidth(second, 0.45));
        const int tx = x + 10 + w < left + plotW ? x + 10 : xm - 10 - w;
        const int ty = Y(0.5) - 4 + labelRow * 44;
        cv::rectangle(img, cv::Rect(tx - 4, ty - 16, w + 8, second.empty() ? 22 : 40),
                      cv::Scalar(255, 255, 255), cv::FILLED);
        text(img, label, tx, ty, 0.5, kAbsence);
        if (!second.empty()) text(img, second, tx, ty + 17, 0.45, kAbsence);
        labelRow = (labelRow + 1) % 3;
      }
      prevStatus = rep.status;
    }
  }

  cv::rectangle(img, cv::Rect(left, scoreTop, plotW, scoreH), kFrame, 1);

  // Bands.
  const char* bandLabels[bandCount] = {"vote", "analysed", "reports", "status", "state"};
  auto bandRect = [&](int band, int x0, int x1) {
    return cv::Rect(x0, bandsTop + band * (bandH + bandGap), x1 - x0, bandH);
  };
  for (int b = 0; b < bandCount; ++b)
    text(img, bandLabels[b], left - 10, bandsTop + b * (bandH + bandGap) + 17, 0.5, kInk,
         Align::Right);

  for (size_t i = 0; i < records.size(); ++i) {
    const ReplayRecord& r = records[i];
    const auto [x0, x1] = frameSpan(i);
    if (r.vote >= 0)
      cv::rectangle(img, bandRect(0, x0, x1), r.vote ? kVoteYes : kVoteNo, cv::FILLED);
    if (r.processed || r.dropped)
      cv::rectangle(img, bandRect(1, x0, x1), r.processed ? kAnalysed : kDropped, cv::FILLED);
    const cv::Scalar statusColour =
        r.status == kStatusMotion ? kMotion : (r.status == kStatusAbsence ? kAbsence : kNone);
    cv::rectangle(img, bandRect(3, x0, x1), statusColour, cv::FILLED);
    cv::rectangle(img, bandRect(4, x0, x1), kStateColour[std::min(2, std::max(0, r.state))],
                  cv::FILLED);
  }
  for (const Report& rep : reports) {
    const int x = X(static_cast<double>(rep.timestampMs));
    const cv::Rect band = bandRect(2, x, x + 2);
    cv::rectangle(img, band, rep.status == kStatusMotion ? kMotion : kAbsence, cv::FILLED);
  }

  // Names inside the status and state bands, where a run is wide enough.
  auto labelRuns = [&](int band, auto valueOf, auto nameOf, auto inkOf) {
    size_t start = 0;
    for (size_t i = 1; i <= records.size(); ++i) {
      if (i < records.size() && valueOf(records[i]) == valueOf(records[start])) continue;
      const int x0 = frameSpan(start).first, x1 = frameSpan(i - 1).second;
      std::string name = nameOf(valueOf(records[start]));
      // Narrow runs get the name without its prefix, e.g. "PRESENCE".
      if (textWidth(name, 0.45) + 12 >= x1 - x0 && name.rfind("DETECT_", 0) == 0)
        name = name.substr(7);
      if (textWidth(name, 0.45) + 12 < x1 - x0)
        text(img, name, (x0 + x1) / 2, bandsTop + band * (bandH + bandGap) + 17, 0.45,
             inkOf(valueOf(records[start])), Align::Centre);
      start = i;
    }
  };
  if (!records.empty()) {
    labelRuns(
        3, [](const ReplayRecord& r) { return r.status; },
        [](int s) { return s == kStatusNone ? std::string("no report yet") : statusName(s); },
        [](int s) { return s == kStatusNone ? kInk : cv::Scalar(255, 255, 255); });
    labelRuns(
        4, [](const ReplayRecord& r) { return r.state; },
        [](int s) { return std::string("DETECT_") + stateShortName(s); }, [](int) { return kInk; });
  }
  for (int b = 0; b < bandCount; ++b)
    cv::rectangle(img, bandRect(b, left, left + plotW), kFrame, 1);
  if (!records.empty() && records.front().vote < 0 && records.back().vote < 0)
    text(img, "per-frame votes are known in lockstep only", left + 8, bandsTop + 17, 0.45, kMuted);

  // Legend.
  int lx = left;
  const int ly = height - 14;
  legendItem(img, lx, ly, kVoteYes, "vote: regions found");
  legendItem(img, lx, ly, kAnalysed, "analysed");
  legendItem(img, lx, ly, kDropped, "dropped");
  legendItem(img, lx, ly, kMotion, "motion reported");
  legendItem(img, lx, ly, kAbsence, "absence reported");
  legendItem(img, lx, ly, kMotionPale, "filter says motion");
  legendItem(img, lx, ly, kTail, "still tail");
  return img;
}

}  // namespace hdsreplay
