#include "tools/output/Annotation.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <opencv2/imgproc.hpp>

namespace hdsreplay {

namespace {

const cv::Scalar kBox(60, 230, 60);
const cv::Scalar kMotion(40, 110, 235);
const cv::Scalar kAbsence(190, 120, 30);
const cv::Scalar kNone(120, 120, 120);

}  // namespace

void drawAnnotation(cv::Mat& img, const ReplayRecord& r, cv::Size motionRes) {
  const double scale = std::clamp(img.cols / 1000.0, 0.38, 0.9);
  const int thick = img.cols >= 600 ? 2 : 1;
  const int font = cv::FONT_HERSHEY_SIMPLEX;

  if (motionRes.width > 0 && motionRes.height > 0) {
    const double sx = static_cast<double>(img.cols) / motionRes.width;
    const double sy = static_cast<double>(img.rows) / motionRes.height;
    for (const cv::Rect& rect : r.rects) {
      const cv::Rect scaled(cvRound(rect.x * sx), cvRound(rect.y * sy),
                            std::max(1, cvRound(rect.width * sx)),
                            std::max(1, cvRound(rect.height * sy)));
      cv::rectangle(img, scaled, kBox, thick, cv::LINE_AA);
    }
  }

  int baseline = 0;
  const cv::Size glyph = cv::getTextSize("0", font, scale, 1, &baseline);
  const int bannerH = glyph.height * 2 + 6;
  cv::Mat banner = img(cv::Rect(0, 0, img.cols, std::min(bannerH, img.rows)));
  cv::Mat dark(banner.size(), banner.type(), cv::Scalar(0, 0, 0));
  cv::addWeighted(banner, 0.45, dark, 0.55, 0.0, banner);
  const int y = (bannerH + glyph.height) / 2;
  const int pad = std::max(4, glyph.width / 2);

  char left[96];
  std::snprintf(left, sizeof left, "%.1f s  #%ld%s", r.timeMs / 1000.0, r.frame,
                r.stillTail ? "  still" : "");
  cv::putText(img, left, cv::Point(pad, y), font, scale, cv::Scalar(255, 255, 255), 1, cv::LINE_AA);

  // Right: the status the host reads, as a coloured tag; before it the frame's score.
  // A stale status (decided before the last state change) says so, on a pale tag.
  const bool reported = r.status == kStatusMotion || r.status == kStatusAbsence;
  const std::string tag = std::string(r.status == kStatusMotion    ? "MOTION"
                                      : r.status == kStatusAbsence ? "ABSENCE"
                                                                   : "no report") +
                          (reported && !r.fresh ? " (stale)" : "");
  cv::Scalar tagColour =
      r.status == kStatusMotion ? kMotion : (r.status == kStatusAbsence ? kAbsence : kNone);
  if (reported && !r.fresh) tagColour = (tagColour + kNone) * 0.5;
  const cv::Size tagSize = cv::getTextSize(tag, font, scale, 1, &baseline);
  const cv::Rect tagBox(img.cols - pad - tagSize.width - 2 * pad, 2, tagSize.width + 2 * pad,
                        bannerH - 4);
  cv::rectangle(img, tagBox, tagColour, cv::FILLED);
  cv::putText(img, tag, cv::Point(tagBox.x + pad, y), font, scale, cv::Scalar(255, 255, 255), 1,
              cv::LINE_AA);
  if (r.processed) {
    char score[32];
    std::snprintf(score, sizeof score, "%s%.2f", r.motionDetected ? "motion " : "", r.motionScore);
    const cv::Size s = cv::getTextSize(score, font, scale, 1, &baseline);
    cv::putText(img, score, cv::Point(tagBox.x - pad - s.width, y), font, scale,
                r.motionDetected ? cv::Scalar(120, 190, 255) : cv::Scalar(220, 220, 220), 1,
                cv::LINE_AA);
  }
}

}  // namespace hdsreplay
