#include "tools/ReplaySummary.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include "tools/CsvWriter.h"
#include "tools/TimelinePlot.h"

namespace hdsreplay {
namespace {

// Records of a 10 fps replay: `n` frames, all analysed, no decision yet.
std::vector<ReplayRecord> makeRecords(int n) {
  std::vector<ReplayRecord> records(n);
  for (int i = 0; i < n; ++i) {
    records[i].frame = i;
    records[i].timestampMs = 100 * i;
    records[i].processed = true;
    records[i].vote = 0;
    records[i].detectUs = 100.0 + i;
  }
  return records;
}

TEST(PercentileTest, UsesNearestRankAndAveragesTheMiddlePair) {
  std::vector<double> v;
  for (int i = 1; i <= 100; ++i) v.push_back(101 - i);  // unsorted on purpose
  EXPECT_DOUBLE_EQ(percentile(v, 99.0), 99.0);
  EXPECT_DOUBLE_EQ(percentile(v, 100.0), 100.0);
  EXPECT_DOUBLE_EQ(median(v), 50.5);
  v.push_back(1000.0);
  EXPECT_DOUBLE_EQ(median(v), 51.0);
  EXPECT_DOUBLE_EQ(percentile(v, 99.0), 100.0);  // rank ceil(0.99 * 101) = 100
  EXPECT_DOUBLE_EQ(percentile({}, 99.0), 0.0);
  EXPECT_DOUBLE_EQ(median({7.0}), 7.0);
}

TEST(ReplaySummaryTest, CountsFramesAndDatesReportsByTheirDecisionFrame) {
  std::vector<ReplayRecord> r = makeRecords(60);
  for (int i = 10; i < 30; ++i) {
    r[i].vote = 1;
    r[i].motionDetected = i >= 21;
  }
  // A motion decision on frame 21 shows up at detect() of frame 22 in a free run.
  r[22].newReport = true;
  r[22].status = kStatusMotion;
  r[22].reportTimestampMs = 2100;
  r[55].newReport = true;
  r[55].status = kStatusAbsence;
  r[55].reportTimestampMs = 5500;
  r[56].newReport = true;
  r[56].status = kStatusAbsence;
  r[56].reportTimestampMs = 5600;
  r[40].processed = false;
  r[40].dropped = true;
  r[41].processed = false;
  r[41].state = 1;
  r[59].stillTail = true;

  const ReplaySummary s = ReplaySummary::compute(r, 59, 2.0);
  EXPECT_EQ(s.framesRead, 59);
  EXPECT_EQ(s.handedOver, 60);
  EXPECT_EQ(s.tailFrames, 1);
  EXPECT_EQ(s.processed, 58);
  EXPECT_EQ(s.dropped, 1);
  EXPECT_EQ(s.notAnalysed, 1);
  EXPECT_EQ(s.votingMotion, 20);
  EXPECT_EQ(s.motionFrames, 9);
  ASSERT_EQ(s.reports.size(), 3u);
  EXPECT_EQ(s.reports[0].frame, 21);
  EXPECT_EQ(s.reports[1].frame, 55);
  EXPECT_EQ(s.lastMotionBeforeFirstAbsenceMs, 2900);
  EXPECT_DOUBLE_EQ(s.detectMedianUs, 129.5);
  EXPECT_DOUBLE_EQ(s.detectMaxUs, 159.0);

  const std::string text = s.format();
  EXPECT_NE(text.find("absence reports   2, first at 5.5 s (frame 55), 2.6 s after the last "
                      "motion at 2.9 s"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("motion reports    1, first at 2.1 s (frame 21)"), std::string::npos) << text;
}

TEST(CsvWriterTest, RowsLeaveUnknownColumnsEmptyAndKeepRectanglesInOneField) {
  ReplayRecord r;
  r.frame = 12;
  r.timestampMs = 1200;
  r.state = 2;
  r.status = kStatusAbsence;
  r.confidence = 1.0f;
  r.reportTimestampMs = 1100;
  r.detectUs = 250.04;
  EXPECT_EQ(CsvWriter::row(r), "12,1200,DETECT_ABSENCE,2,ABSENCE,1.000000,1100,,,,,,0,0,250.0\n");

  r.processed = true;
  r.motionDetected = true;
  r.motionScore = 11.0f / 12.0f;
  r.vote = 1;
  r.rectsKnown = true;
  r.rects = {cv::Rect(1, 2, 3, 4), cv::Rect(10, 20, 30, 40)};
  EXPECT_EQ(CsvWriter::row(r),
            "12,1200,DETECT_ABSENCE,2,ABSENCE,1.000000,1100,1,0.916667,1,2,1 2 3 4;10 20 30 40,1,0,"
            "250.0\n");
  // Same number of columns as the header.
  const auto columns = [](const std::string& s) { return std::count(s.begin(), s.end(), ','); };
  EXPECT_EQ(columns(CsvWriter::row(r)), columns(CsvWriter::header()));
}

TEST(TimelinePlotTest, TickStepsFollowOneTwoFive) {
  EXPECT_DOUBLE_EQ(niceTickStep(95.0, 12), 10.0);
  EXPECT_DOUBLE_EQ(niceTickStep(12.0, 12), 1.0);
  EXPECT_DOUBLE_EQ(niceTickStep(20.0, 12), 2.0);
  EXPECT_DOUBLE_EQ(niceTickStep(50.0, 12), 5.0);
  EXPECT_DOUBLE_EQ(niceTickStep(0.5, 10), 0.05);
}

TEST(TimelinePlotTest, MarksTheFirstAbsenceReportAcrossThePlot) {
  std::vector<ReplayRecord> r = makeRecords(100);
  for (int i = 80; i < 100; ++i) {
    r[i].status = kStatusAbsence;
    r[i].reportTimestampMs = 100 * i;
    r[i].newReport = true;
  }
  TimelineInfo info;
  info.fps = 10.0;
  info.width = 1000;
  const cv::Mat img = renderTimeline(r, info);
  ASSERT_EQ(img.cols, 1000);
  // Plot area spans x 110 .. 960 over 10 s: the report at 8.0 s sits at x = 790.
  int blueColumns = 0;
  for (int x = 0; x < img.cols; ++x) {
    const cv::Vec3b px = img.at<cv::Vec3b>(img.rows / 3, x);
    if (px[0] > 150 && px[2] < 80) {
      ++blueColumns;
      EXPECT_NEAR(x, 790, 2);
    }
  }
  EXPECT_GE(blueColumns, 1);
}

}  // namespace
}  // namespace hdsreplay
