// The banner drawn on annotated frames and contact-sheet tiles: the time on
// the replay's one clock, and the status the host reads, stale or not.
#include "tools/output/Annotation.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace hdsreplay {
namespace {

cv::Mat annotated(const ReplayRecord& r) {
  cv::Mat img(120, 320, CV_8UC3, cv::Scalar(90, 90, 90));
  drawAnnotation(img, r, cv::Size(160, 120));
  return img;
}

bool same(const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b, cv::NORM_INF) == 0; }

TEST(AnnotationTest, TimeCountsFromTheFirstFrameAndAStaleStatusSaysSo) {
  ReplayRecord r;
  r.frame = 12;
  r.timeMs = 1200;
  r.timestampMs = 5234100;  // a camera log's own clock, which the banner does not show
  r.status = kStatusMotion;
  ReplayRecord otherClock = r;
  otherClock.timestampMs = -10000;
  EXPECT_TRUE(same(annotated(r), annotated(otherClock)));
  ReplayRecord later = r;
  later.timeMs = 2400;
  EXPECT_FALSE(same(annotated(r), annotated(later)));

  ReplayRecord stale = r;
  stale.fresh = false;
  EXPECT_FALSE(same(annotated(r), annotated(stale)));
  // No report yet is never stale.
  ReplayRecord none = r, noneStale = r;
  none.status = noneStale.status = kStatusNone;
  noneStale.fresh = false;
  EXPECT_TRUE(same(annotated(none), annotated(noneStale)));
}

}  // namespace
}  // namespace hdsreplay
