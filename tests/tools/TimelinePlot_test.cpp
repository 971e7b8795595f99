// The timeline picture shows what the summary tells: absence errors in red,
// the frames skipped while the lens moved, the switches of the light mode.
#include "tools/output/TimelinePlot.h"

#include <gtest/gtest.h>

#include <vector>

namespace hdsreplay {
namespace {

bool has(const cv::Mat& img, const cv::Rect& where, const cv::Vec3b& colour) {
  for (int y = where.y; y < where.br().y; ++y)
    for (int x = where.x; x < where.br().x; ++x)
      if (img.at<cv::Vec3b>(y, x) == colour) return true;
  return false;
}

const cv::Vec3b kRed(50, 40, 220), kLens(40, 190, 230), kLight(20, 140, 200);

// 100 frames at 10 fps in lockstep: motion reported on frame 10, absence on 60.
std::vector<ReplayRecord> replay() {
  std::vector<ReplayRecord> r(100);
  for (int i = 0; i < 100; ++i) {
    r[i].frame = i;
    r[i].timestampMs = 5000 + 100 * i;
    r[i].processed = true;
    r[i].vote = 0;
    r[i].windowVotes = 0;
    r[i].windowLength = 12;
    r[i].status = i >= 60 ? kStatusAbsence : (i >= 10 ? kStatusMotion : kStatusNone);
    r[i].newReport = i == 10 || i == 60;
    r[i].reportTimestampMs = r[i].newReport ? r[i].timestampMs : 0;
  }
  return r;
}

TEST(TimelinePlotTest, AbsenceErrorsLensMovingAndLightSwitchesAreDrawn) {
  TimelineInfo info;
  info.fps = 10;
  std::vector<ReplayRecord> records = replay();
  const cv::Mat plain = renderTimeline(records, info);
  const cv::Rect plainBody(0, 0, plain.cols, plain.rows - 70);  // above the legend
  EXPECT_FALSE(has(plain, plainBody, kRed));
  EXPECT_FALSE(has(plain, plainBody, kLight));
  EXPECT_FALSE(has(plain, plainBody, kLens));

  // The absence reported at 6 s came while something moved (until 8 s).
  info.absenceErrorsMs.reports = {6000};
  info.absenceErrorsMs.read = {{6000, 8000}};
  for (int i = 30; i < 40; ++i) {
    records[i].processed = false;
    records[i].lensMoving = true;
  }
  for (int i = 70; i < 100; ++i) records[i].windowLength = 5;  // low light from 7 s
  const cv::Mat marked = renderTimeline(records, info);
  const cv::Rect body(0, 0, marked.cols, marked.rows - 70);
  EXPECT_TRUE(has(marked, body, kRed));
  EXPECT_TRUE(has(marked, body, kLens));
  EXPECT_TRUE(has(marked, body, kLight));
  EXPECT_TRUE(has(marked, cv::Rect(0, marked.rows - 70, marked.cols, 70), kLens));  // legend
}

}  // namespace
}  // namespace hdsreplay
