#include "tools/output/TimelinePlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <opencv2/imgproc.hpp>

#include "tools/options/StateScript.h"
#include "tools/output/GuardPlot.h"
#include "tools/output/ReplaySummary.h"

namespace hdsreplay {

namespace {

using namespace drawing;

const cv::Scalar kScore(120, 60, 20);
const cv::Scalar kThreshold(50, 50, 210);
const cv::Scalar kVoteYes(90, 90, 90);
const cv::Scalar kVoteNo(232, 232, 232);
const cv::Scalar kAnalysed(140, 195, 140);
const cv::Scalar kDropped(60, 60, 225);
const cv::Scalar kTail(244, 244, 244);
const cv::Scalar kLens(40, 190, 230);
const cv::Scalar kLight(20, 140, 200);
const cv::Scalar kStateColour[3] = {cv::Scalar(190, 230, 190), cv::Scalar(225, 200, 230),
                                    cv::Scalar(240, 215, 180)};

// Layout: a score panel on top, the bands under it (the truth first, when
// there is one), the time axis, the legend. Only the width follows the caller.
constexpr int kLeft = 110, kRight = 40;
constexpr int kScoreTop = 112, kScoreH = 250, kScoreBottom = kScoreTop + kScoreH;
constexpr int kBandH = 24, kBandGap = 8, kBandCount = 5;
constexpr int kBandsTop = kScoreBottom + 20;
constexpr int kAxisH = 58, kLegendH = 34;

enum Band { kVoteBand, kAnalysedBand, kReportsBand, kStatusBand, kStateBand };
const char* const kBandLabels[kBandCount] = {"vote", "analysed", "reports", "status", "state"};

// Paints one timeline, layer by layer, back to front. x runs from time 0 to the
// end of the last frame, y from score 0 to 1.
class TimelinePainter {
 public:
  TimelinePainter(const std::vector<ReplayRecord>& records, const TimelineInfo& info)
      : records_(records),
        info_(info),
        width_(std::max(info.width, 600)),
        plotW_(width_ - kLeft - kRight),
        endMs_(records.empty() ? 1000.0 : records.back().timestampMs + 1000.0 / info.fps),
        firstRow_(info.truth.empty() ? 0 : 1),
        bandsBottom_(kBandsTop + (kBandCount + firstRow_) * (kBandH + kBandGap) - kBandGap),
        height_(bandsBottom_ + kAxisH + kLegendH * 2),
        img_(height_, width_, CV_8UC3, cv::Scalar(255, 255, 255)) {}

  cv::Mat paint() {
    text(img_, info_.title, kLeft, 34, 0.8, kInk, Align::Left, 2, cv::FONT_HERSHEY_DUPLEX);
    text(img_, info_.subtitle, kLeft, 62, 0.5, kMuted);
    const std::vector<Report> reports = collectReports(records_);
    drawScoreBackground();
    drawScoreGrid();
    drawTimeAxis();
    drawEvents();
    drawLightSwitches();
    drawThresholdLine();
    drawScoreCurve();
    drawAbsenceReports(reports);
    cv::rectangle(img_, cv::Rect(kLeft, kScoreTop, plotW_, kScoreH), kFrame, 1);
    drawBands(reports);
    drawLegend();
    return img_;
  }

 private:
  int timeX(double ms) const { return kLeft + static_cast<int>(std::lround(ms / endMs_ * plotW_)); }
  int scoreY(double score) const {
    return kScoreBottom - static_cast<int>(std::lround(score * (kScoreH - 16)));
  }
  // Pixels the frame covers, from its timestamp to the next frame's; at least one.
  std::pair<int, int> frameSpan(size_t i) const {
    const int x0 = timeX(static_cast<double>(records_[i].timestampMs));
    const int x1 = i + 1 < records_.size() ? timeX(static_cast<double>(records_[i + 1].timestampMs))
                                           : timeX(endMs_);
    return std::make_pair(x0, std::max(x1, x0 + 1));
  }
  // Bands by row: the truth's is row 0 when there is one; the others follow.
  cv::Rect rowRect(int row, int x0, int x1) const {
    return cv::Rect(x0, kBandsTop + row * (kBandH + kBandGap), x1 - x0, kBandH);
  }
  cv::Rect bandRect(int band, int x0, int x1) const { return rowRect(band + firstRow_, x0, x1); }
  // Baseline of a band's label and of the names written inside it.
  int bandBaseline(int band) const { return rowRect(band + firstRow_, 0, 1).y + 17; }

  // The still tail, and frames on which the filter said motion.
  void drawScoreBackground() {
    for (size_t i = 0; i < records_.size(); ++i) {
      const auto [x0, x1] = frameSpan(i);
      if (records_[i].stillLead || records_[i].stillTail)
        cv::rectangle(img_, cv::Rect(x0, kScoreTop, x1 - x0, kScoreH), kTail, cv::FILLED);
      if (records_[i].processed && records_[i].motionDetected)
        cv::rectangle(img_, cv::Rect(x0, scoreY(1.0), x1 - x0, kScoreBottom - scoreY(1.0)),
                      kMotionPale, cv::FILLED);
    }
  }

  void drawScoreGrid() {
    for (int k = 0; k <= 5; ++k) {
      const double v = k / 5.0;
      cv::line(img_, cv::Point(kLeft, scoreY(v)), cv::Point(kLeft + plotW_, scoreY(v)), kGrid, 1);
      char buf[8];
      std::snprintf(buf, sizeof buf, k == 0 ? "0" : (k == 5 ? "1" : "%.1f"), v);
      text(img_, buf, kLeft - 10, scoreY(v) + 5, 0.5, kMuted, Align::Right);
    }
    const int headW = text(img_, "filter score", kLeft, kScoreTop - 10, 0.55, kInk);
    text(img_,
         "share of the recent analysed frames that voted motion; above 0.8 the filter says motion",
         kLeft + headW + 12, kScoreTop - 10, 0.45, kMuted);
  }

  // Vertical grid lines through the score panel, ticks and seconds under the bands.
  void drawTimeAxis() {
    const double tickS = niceTickStep(endMs_ / 1000.0, 12);
    for (double t = 0; t * 1000.0 <= endMs_ + 1e-6; t += tickS) {
      const int x = timeX(t * 1000.0);
      cv::line(img_, cv::Point(x, kScoreTop), cv::Point(x, kScoreBottom), kGrid, 1);
      cv::line(img_, cv::Point(x, bandsBottom_ + 4), cv::Point(x, bandsBottom_ + 10), kMuted, 1);
      text(img_, formatSeconds(t), x, bandsBottom_ + 28, 0.5, kInk, Align::Centre);
    }
    text(img_, "time (s)", kLeft + plotW_ / 2, bandsBottom_ + 52, 0.55, kInk, Align::Centre);
  }

  // Events (still tail, probes) as labelled dashed lines.
  void drawEvents() {
    for (const auto& [frame, label] : info_.events) {
      if (frame < 0 || static_cast<size_t>(frame) >= records_.size()) continue;
      const int x = timeX(static_cast<double>(records_[frame].timestampMs));
      dashedLine(img_, cv::Point(x, kScoreTop), cv::Point(x, kScoreBottom), kMuted, 1, 5, 5);
      const int w = textWidth(label, 0.45);
      const int tx = x + 6 + w < kLeft + plotW_ ? x + 6 : x - 6 - w;
      text(img_, label, tx, kScoreTop + 14, 0.45, kMuted);
    }
  }

  // The light mode, as the filter's window shows it (12 frames, 5 in low
  // light), known in lockstep: a labelled line where it switches.
  void drawLightSwitches() {
    for (const auto& [frame, label] : lightModeSwitches(records_)) {
      const int x = timeX(static_cast<double>(records_[frame].timestampMs));
      dashedLine(img_, cv::Point(x, kScoreTop), cv::Point(x, bandsBottom_), kLight, 1, 3, 3);
      cv::rectangle(img_, cv::Rect(x - 1, kScoreTop + 1, 3, 10), kLight, cv::FILLED);
      const int w = textWidth(label, 0.45);
      const int tx = x + 6 + w < kLeft + plotW_ ? x + 6 : x - 6 - w;
      text(img_, label, tx, kScoreTop + 30, 0.45, kLight);
    }
  }

  void drawThresholdLine() {
    dashedLine(img_, cv::Point(kLeft, scoreY(0.8)), cv::Point(kLeft + plotW_, scoreY(0.8)),
               kThreshold, 1);
    text(img_, "0.8", kLeft + plotW_ + 4, scoreY(0.8) + 5, 0.45, kThreshold);
  }

  // Score curve, broken where frames were not analysed for a while.
  void drawScoreCurve() {
    std::vector<cv::Point> run;
    auto flush = [&]() {
      if (run.size() >= 2)
        cv::polylines(img_, run, false, kScore, 2, cv::LINE_AA);
      else if (run.size() == 1)
        cv::circle(img_, run[0], 2, kScore, cv::FILLED, cv::LINE_AA);
      run.clear();
    };
    long lastFrame = -1000;
    const long maxGap = std::max(3L, std::lround(info_.fps / 2));
    for (size_t i = 0; i < records_.size(); ++i) {
      const ReplayRecord& r = records_[i];
      if (!r.processed) continue;
      if (r.frame - lastFrame > maxGap) flush();
      const auto [x0, x1] = frameSpan(i);
      run.emplace_back((x0 + x1) / 2, scoreY(r.motionScore));
      lastFrame = r.frame;
    }
    flush();
  }

  // Marks the first report of each run of absence reports, with the time since
  // the last motion before it; labels cycle through three rows.
  void drawAbsenceReports(const std::vector<Report>& reports) {
    int64_t lastMotionMs = -1;
    size_t ri = 0;
    int prevStatus = -1;
    bool prevError = false;
    int labelRow = 0;
    for (size_t i = 0; i < records_.size(); ++i) {
      if (records_[i].processed && records_[i].motionDetected)
        lastMotionMs = records_[i].timestampMs;
      for (; ri < reports.size() && reports[ri].frame == static_cast<long>(i); ++ri) {
        const Report& rep = reports[ri];
        // The first of a run, and the first error in it; the other errors are ticked.
        const bool error = isAbsenceError(rep);
        if (rep.status == kStatusAbsence &&
            (prevStatus != kStatusAbsence || (error && !prevError))) {
          markAbsence(rep.timestampMs, lastMotionMs, labelRow, error);
          labelRow = (labelRow + 1) % 3;
        }
        prevStatus = rep.status;
        prevError = error;
      }
    }
  }

  bool isAbsenceError(const Report& rep) const {
    const auto& errors = info_.absenceErrorsMs.reports;
    return rep.status == kStatusAbsence &&
           std::find(errors.begin(), errors.end(), static_cast<double>(rep.timestampMs)) !=
               errors.end();
  }

  // A line at the report; with a motion before it, a span back to that motion.
  // An absence reported while the truth says something moved is an error, in red.
  void markAbsence(int64_t reportMs, int64_t lastMotionMs, int labelRow, bool error) {
    const cv::Scalar colour = error ? kFalse : kAbsence;
    const int x = timeX(static_cast<double>(reportMs));
    cv::line(img_, cv::Point(x, kScoreTop), cv::Point(x, bandsBottom_), colour, 2, cv::LINE_AA);
    char buf[96];
    std::snprintf(buf, sizeof buf,
                  error ? "ABSENCE ERROR at %.1f s: something moved" : "absence reported at %.1f s",
                  reportMs / 1000.0);
    const std::string label = buf;
    int xm = x;
    std::string second;
    if (lastMotionMs >= 0) {
      std::snprintf(buf, sizeof buf, "%.1f s after the last motion",
                    (reportMs - lastMotionMs) / 1000.0);
      second = buf;
      xm = timeX(static_cast<double>(lastMotionMs));
      const int yb = scoreY(0.5) + labelRow * 44;
      cv::line(img_, cv::Point(xm, yb), cv::Point(x, yb), colour, 1, cv::LINE_AA);
      cv::line(img_, cv::Point(xm, yb - 6), cv::Point(xm, yb + 6), colour, 2);
    }
    // Beside the line if there is room on the right, else left of the span.
    const int w = std::max(textWidth(label, 0.5), textWidth(second, 0.45));
    const int tx = x + 10 + w < kLeft + plotW_ ? x + 10 : xm - 10 - w;
    const int ty = scoreY(0.5) - 4 + labelRow * 44;
    cv::rectangle(img_, cv::Rect(tx - 4, ty - 16, w + 8, second.empty() ? 22 : 40),
                  cv::Scalar(255, 255, 255), cv::FILLED);
    text(img_, label, tx, ty, 0.5, colour);
    if (!second.empty()) text(img_, second, tx, ty + 17, 0.45, colour);
  }

  void drawBands(const std::vector<Report>& reports) {
    for (int b = 0; b < kBandCount; ++b)
      text(img_, kBandLabels[b], kLeft - 10, bandBaseline(b), 0.5, kInk, Align::Right);
    fillFrameBands();
    statusBand(
        img_, bandRect(kStatusBand, kLeft, kLeft + plotW_), [this](double ms) { return timeX(ms); },
        records_, endMs_);
    absenceErrorMarks(
        img_, bandRect(kStatusBand, kLeft, kLeft + plotW_), [this](double ms) { return timeX(ms); },
        info_.absenceErrorsMs);
    if (!info_.truth.empty()) {
      text(img_, "truth", kLeft - 10, rowRect(0, 0, 1).y + 17, 0.5, kInk, Align::Right);
      truthBand(
          img_, rowRect(0, kLeft, kLeft + plotW_), [this](double ms) { return timeX(ms); },
          info_.truth, info_.falseMotionMs);
    }
    // Every report the host saw, as a tick.
    for (const Report& rep : reports) {
      const int x = timeX(static_cast<double>(rep.timestampMs));
      cv::rectangle(img_, bandRect(kReportsBand, x, x + 2),
                    rep.status == kStatusMotion ? kMotion : kAbsence, cv::FILLED);
    }
    nameRuns();
    for (int b = 0; b < kBandCount; ++b)
      cv::rectangle(img_, bandRect(b, kLeft, kLeft + plotW_), kFrame, 1);
    if (!records_.empty() && records_.front().vote < 0 && records_.back().vote < 0)
      text(img_, "per-frame votes are known in lockstep only", kLeft + 8, bandBaseline(kVoteBand),
           0.45, kMuted);
  }

  // The vote, analysed, status and state of every frame.
  void fillFrameBands() {
    for (size_t i = 0; i < records_.size(); ++i) {
      const ReplayRecord& r = records_[i];
      const auto [x0, x1] = frameSpan(i);
      if (r.vote >= 0)
        cv::rectangle(img_, bandRect(kVoteBand, x0, x1), r.vote ? kVoteYes : kVoteNo, cv::FILLED);
      if (r.processed || r.dropped || r.lensMoving)
        cv::rectangle(img_, bandRect(kAnalysedBand, x0, x1),
                      r.processed ? kAnalysed : (r.dropped ? kDropped : kLens), cv::FILLED);
      cv::rectangle(img_, bandRect(kStateBand, x0, x1),
                    kStateColour[std::min(2, std::max(0, r.state))], cv::FILLED);
    }
  }

  // Names inside the status and state bands.
  void nameRuns() {
    if (records_.empty()) return;
    // Status and freshness in one value: 2 * status + 1 when fresh.
    nameRunsIn(
        kStatusBand, [](const ReplayRecord& r) { return 2 * r.status + (r.fresh ? 1 : 0); },
        [](int v) {
          const int s = v / 2;
          const std::string name = s == kStatusNone ? std::string("no report yet") : statusName(s);
          return v % 2 ? name : name + " (stale: decided before the state change)";
        },
        [](int v) {
          return v / 2 == kStatusNone || v % 2 == 0 ? kInk : cv::Scalar(255, 255, 255);
        });
    nameRunsIn(
        kStateBand, [](const ReplayRecord& r) { return r.state; },
        [](int s) { return std::string("DETECT_") + stateShortName(s); }, [](int) { return kInk; });
  }

  // Writes the name of each run of equal values in `band` where the run is wide
  // enough; narrow runs get a shorter name, e.g. "PRESENCE" for "DETECT_PRESENCE"
  // or "MOTION (stale)". Names over a hatched (stale) status sit on a plain box.
  template <typename ValueOf, typename NameOf, typename InkOf>
  void nameRunsIn(int band, ValueOf valueOf, NameOf nameOf, InkOf inkOf) {
    size_t start = 0;
    for (size_t i = 1; i <= records_.size(); ++i) {
      if (i < records_.size() && valueOf(records_[i]) == valueOf(records_[start])) continue;
      const int x0 = frameSpan(start).first, x1 = frameSpan(i - 1).second;
      std::string name = nameOf(valueOf(records_[start]));
      if (textWidth(name, 0.45) + 12 >= x1 - x0) name = shortName(name);
      const int w = textWidth(name, 0.45);
      if (w + 12 < x1 - x0) {
        if (band == kStatusBand && !records_[start].fresh)
          cv::rectangle(img_, cv::Rect((x0 + x1 - w) / 2 - 4, bandBaseline(band) - 13, w + 8, 18),
                        cv::Scalar(255, 255, 255), cv::FILLED);
        text(img_, name, (x0 + x1) / 2, bandBaseline(band), 0.45, inkOf(valueOf(records_[start])),
             Align::Centre);
      }
      start = i;
    }
  }

  static std::string shortName(const std::string& name) {
    if (name.rfind("DETECT_", 0) == 0) return name.substr(7);
    const size_t colon = name.find(':');
    return colon == std::string::npos ? name : name.substr(0, colon) + ")";
  }

  void drawLegend() {
    int lx = kLeft;
    const int ly = height_ - 14 - kLegendH;
    legendItem(img_, lx, ly, kVoteYes, "vote: regions found");
    legendItem(img_, lx, ly, kAnalysed, "analysed");
    legendItem(img_, lx, ly, kDropped, "dropped");
    legendItem(img_, lx, ly, kMotion, "motion reported");
    legendItem(img_, lx, ly, kMotion, "stale status", true);
    legendItem(img_, lx, ly, kAbsence, "absence reported");
    legendItem(img_, lx, ly, kMotionPale, "filter says motion");
    legendItem(img_, lx, ly, kTail, "held frame");
    lx = kLeft;
    legendItem(img_, lx, ly + kLegendH, kLens, "lens moving (skipped)");
    legendItem(img_, lx, ly + kLegendH, kLight, "light mode switch");
    if (info_.truth.empty()) return;
    legendItem(img_, lx, ly + kLegendH, kMoving, "truth: moving");
    legendItem(img_, lx, ly + kLegendH, kNuisance, "nuisance", true);
    legendItem(img_, lx, ly + kLegendH, kFalse, "missed, false motion (ticks), absence errors");
  }

  const std::vector<ReplayRecord>& records_;
  const TimelineInfo& info_;
  const int width_;
  const int plotW_;
  const double endMs_;  // end of the last frame
  const int firstRow_;  // 1 with a truth band above the others
  const int bandsBottom_;
  const int height_;
  cv::Mat img_;
};

}  // namespace

cv::Mat renderTimeline(const std::vector<ReplayRecord>& records, const TimelineInfo& info) {
  const std::vector<ReplayRecord> fromStart = fromFirstFrame(records);
  cv::Mat timeline = TimelinePainter(fromStart, info).paint();
  // With scene guards, their panel under the timeline, on the same time axis.
  const double endMs =
      fromStart.empty() ? 1000.0 : fromStart.back().timestampMs + 1000.0 / info.fps;
  const cv::Mat guards = renderGuardPanel(fromStart, timeline.cols, kLeft, kRight, endMs);
  if (!guards.empty()) cv::vconcat(timeline, guards, timeline);
  return timeline;
}

}  // namespace hdsreplay
