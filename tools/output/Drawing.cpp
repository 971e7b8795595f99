#include "tools/output/Drawing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <opencv2/imgproc.hpp>

namespace hdsreplay {
namespace drawing {

int text(cv::Mat& img, const std::string& s, int x, int y, double scale, const cv::Scalar& colour,
         Align align, int thickness, int font) {
  int baseline = 0;
  const cv::Size size = cv::getTextSize(s, font, scale, thickness, &baseline);
  if (align == Align::Centre) x -= size.width / 2;
  if (align == Align::Right) x -= size.width;
  cv::putText(img, s, cv::Point(x, y), font, scale, colour, thickness, cv::LINE_AA);
  return size.width;
}

int textWidth(const std::string& s, double scale, int thickness) {
  int baseline = 0;
  return cv::getTextSize(s, cv::FONT_HERSHEY_SIMPLEX, scale, thickness, &baseline).width;
}

void dashedLine(cv::Mat& img, cv::Point a, cv::Point b, const cv::Scalar& colour, int thickness,
                int dash, int gap) {
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

double niceTickStep(double span, int target) {
  if (span <= 0 || target < 1) return 1.0;
  const double raw = span / target;
  const double mag = std::pow(10.0, std::floor(std::log10(raw)));
  for (double m : {1.0, 2.0, 5.0, 10.0})
    if (raw <= m * mag) return m * mag;
  return 10.0 * mag;
}

cv::Scalar pale(const cv::Scalar& colour) { return colour * 0.35 + cv::Scalar::all(255 * 0.65); }

void hatch(cv::Mat& img, const cv::Rect& where, const cv::Scalar& colour) {
  const cv::Rect r = where & cv::Rect(0, 0, img.cols, img.rows);
  if (r.empty()) return;
  cv::Mat roi = img(r);
  roi.setTo(pale(colour));
  for (int x = -r.height - ((r.x + r.height) % 8); x < r.width; x += 8)
    cv::line(roi, cv::Point(x, r.height), cv::Point(x + r.height, 0), colour, 2, cv::LINE_AA);
}

void legendItem(cv::Mat& img, int& x, int y, const cv::Scalar& colour, const std::string& label,
                bool hatched) {
  if (hatched)
    hatch(img, cv::Rect(x, y - 11, 14, 14), colour);
  else
    cv::rectangle(img, cv::Rect(x, y - 11, 14, 14), colour, cv::FILLED);
  cv::rectangle(img, cv::Rect(x, y - 11, 14, 14), kFrame, 1);
  x += 20;
  x += text(img, label, x, y, 0.5, kInk) + 22;
}

const cv::Scalar& statusColour(int status) {
  return status == kStatusMotion ? kMotion : (status == kStatusAbsence ? kAbsence : kNone);
}

void truthBand(cv::Mat& img, const cv::Rect& band, const TimeToX& timeX,
               const std::vector<TruthMark>& marks, const std::vector<double>& falseMotionMs) {
  for (const TruthMark& m : marks) {
    const int x0 = std::max(band.x, timeX(m.startMs));
    const int x1 = std::min(band.x + band.width, std::max(timeX(m.endMs), x0 + 1));
    const cv::Rect where(x0, band.y, x1 - x0, band.height);
    if (m.moving)
      cv::rectangle(img, where, m.missed ? kFalse : kMoving, cv::FILLED);
    else
      hatch(img, where, kNuisance);
    const std::string label =
        m.moving ? m.label : "nuisance" + (m.label.empty() ? "" : ": " + m.label);
    if (textWidth(label, 0.45) + 10 < where.width) {
      if (!m.moving) {
        const int w = textWidth(label, 0.45);
        cv::rectangle(img, cv::Rect((x0 + x1 - w) / 2 - 4, band.y + band.height / 2 - 9, w + 8, 17),
                      kWhite, cv::FILLED);
      }
      text(img, label, (x0 + x1) / 2, band.y + band.height / 2 + 5, 0.45, m.moving ? kWhite : kInk,
           Align::Centre);
    }
  }
  for (double ms : falseMotionMs) {
    const int x = timeX(ms);
    cv::rectangle(img, cv::Rect(x, band.y + band.height - 6, 2, 6), kFalse, cv::FILLED);
  }
  cv::rectangle(img, band, kFrame, 1);
}

void statusBand(cv::Mat& img, const cv::Rect& band, const TimeToX& timeX,
                const std::vector<ReplayRecord>& records, double endMs) {
  for (size_t i = 0; i < records.size(); ++i) {
    // A run of frames with one status and freshness, painted at once so that
    // the stripes of a stale run continue across frames.
    size_t end = i;
    while (end + 1 < records.size() && records[end + 1].status == records[i].status &&
           records[end + 1].fresh == records[i].fresh)
      ++end;
    const int x0 = timeX(static_cast<double>(records[i].timestampMs));
    const int x1 = end + 1 < records.size()
                       ? timeX(static_cast<double>(records[end + 1].timestampMs))
                       : timeX(endMs);
    const cv::Rect where(x0, band.y, std::max(1, x1 - x0), band.height);
    if (records[i].fresh)
      cv::rectangle(img, where, statusColour(records[i].status), cv::FILLED);
    else
      hatch(img, where, statusColour(records[i].status));
    i = end;
  }
  cv::rectangle(img, band, kFrame, 1);
}

void absenceErrorMarks(cv::Mat& img, const cv::Rect& band, const TimeToX& timeX,
                       const AbsenceErrors& errors) {
  const std::string label = "ABSENCE while moving";
  for (const auto& [from, to] : errors.read) {
    const int x0 = std::max(band.x, timeX(from));
    const int x1 = std::min(band.x + band.width, std::max(timeX(to), x0 + 2));
    cv::rectangle(img, cv::Rect(x0, band.y - 3, x1 - x0, 3), kFalse, cv::FILLED);
    cv::rectangle(img, cv::Rect(x0, band.y + band.height, x1 - x0, 3), kFalse, cv::FILLED);
    const int w = textWidth(label, 0.4);
    if (w + 12 < x1 - x0) {
      cv::rectangle(img, cv::Rect((x0 + x1 - w) / 2 - 4, band.y + band.height / 2 - 8, w + 8, 16),
                    kWhite, cv::FILLED);
      text(img, label, (x0 + x1) / 2, band.y + band.height / 2 + 5, 0.4, kFalse, Align::Centre);
    }
  }
  for (double ms : errors.reports) {
    const int x = timeX(ms);
    cv::rectangle(img, cv::Rect(x - 1, band.y - 3, 3, band.height + 6), kFalse, cv::FILLED);
  }
}

}  // namespace drawing
}  // namespace hdsreplay
