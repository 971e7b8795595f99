#include "tools/output/Drawing.h"

#include <gtest/gtest.h>

#include <vector>

namespace hdsreplay {
namespace {

using namespace drawing;

bool colourIn(const cv::Mat& img, const cv::Rect& where, const cv::Scalar& colour) {
  const cv::Vec3b c(cv::saturate_cast<uchar>(colour[0]), cv::saturate_cast<uchar>(colour[1]),
                    cv::saturate_cast<uchar>(colour[2]));
  for (int y = where.y; y < where.br().y; ++y)
    for (int x = where.x; x < where.br().x; ++x)
      if (img.at<cv::Vec3b>(y, x) == c) return true;
  return false;
}

// One pixel a millisecond, from x = 0.
const TimeToX kTimeX = [](double ms) { return static_cast<int>(ms); };

TEST(DrawingTest, StatusBandPaintsFreshRunsSolidAndStaleRunsHatched) {
  // Frames 100 ms apart: no report, motion fresh, then motion stale.
  std::vector<ReplayRecord> records(9);
  for (int i = 0; i < 9; ++i) {
    records[i].timestampMs = 100 * i;
    records[i].status = i < 3 ? kStatusNone : kStatusMotion;
    records[i].fresh = i < 6;
  }
  cv::Mat img(40, 1000, CV_8UC3, kWhite);
  statusBand(img, cv::Rect(0, 10, 1000, 20), kTimeX, records, 900);
  EXPECT_EQ(img.at<cv::Vec3b>(20, 150), cv::Vec3b(215, 215, 215));  // no report yet
  const cv::Rect fresh(310, 12, 280, 16), stale(610, 12, 280, 16);
  EXPECT_TRUE(colourIn(img, fresh, kMotion));
  EXPECT_FALSE(colourIn(img, fresh, pale(kMotion)));
  EXPECT_TRUE(colourIn(img, stale, kMotion) && colourIn(img, stale, pale(kMotion)));
  EXPECT_FALSE(colourIn(img, cv::Rect(0, 0, 1000, 9), kMotion));  // nothing outside the band
}

TEST(DrawingTest, TruthBandShowsMovingNuisanceMissesAndFalseMotion) {
  const std::vector<TruthMark> marks = {
      {100, 300, true, "", false}, {400, 500, true, "", true}, {600, 800, false, "", false}};
  cv::Mat img(30, 1000, CV_8UC3, kWhite);
  truthBand(img, cv::Rect(0, 0, 1000, 30), kTimeX, marks, {900});
  EXPECT_TRUE(colourIn(img, cv::Rect(150, 5, 100, 10), kMoving));
  EXPECT_TRUE(colourIn(img, cv::Rect(420, 5, 60, 10), kFalse));  // a missed interval
  EXPECT_TRUE(colourIn(img, cv::Rect(620, 5, 160, 10), pale(kNuisance)));
  EXPECT_FALSE(colourIn(img, cv::Rect(820, 5, 70, 10), kFalse));
  EXPECT_TRUE(colourIn(img, cv::Rect(899, 25, 4, 4), kFalse));  // a false-motion tick
}

TEST(DrawingTest, AbsenceErrorsBarTheirRunsAndTickTheirReports) {
  AbsenceErrors errors;
  errors.read = {{200, 600}};
  errors.reports = {200, 800};
  cv::Mat img(40, 1000, CV_8UC3, kWhite);
  absenceErrorMarks(img, cv::Rect(0, 10, 1000, 20), kTimeX, errors);
  EXPECT_TRUE(colourIn(img, cv::Rect(300, 7, 200, 3), kFalse));   // above the run
  EXPECT_TRUE(colourIn(img, cv::Rect(300, 30, 200, 3), kFalse));  // and below it
  EXPECT_TRUE(colourIn(img, cv::Rect(798, 15, 4, 4), kFalse));    // the second report
  EXPECT_FALSE(colourIn(img, cv::Rect(620, 0, 170, 40), kFalse));
  EXPECT_FALSE(colourIn(img, cv::Rect(0, 0, 190, 40), kFalse));
}

}  // namespace
}  // namespace hdsreplay
