#include "tools/output/ReplaySummary.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace hdsreplay {
namespace {

TEST(ReplaySummaryTest, CountsFramesDatesReportsByTheirDecisionFrame) {
  // A 10 fps replay of 60 frames, all analysed, voting motion on 10..29.
  std::vector<ReplayRecord> r(60);
  for (int i = 0; i < 60; ++i) {
    r[i].frame = i;
    r[i].timestampMs = 100 * i;
    r[i].processed = true;
    r[i].vote = i >= 10 && i < 30;
    r[i].motionDetected = i >= 21 && i < 30;
    r[i].detectUs = 100.0 + i;
  }
  const auto report = [&r](int i, int status, int64_t decisionMs) {
    r[i].newReport = true;
    r[i].status = status;
    r[i].reportTimestampMs = decisionMs;
  };
  // A motion decision on frame 21 shows up at detect() of frame 22 in a free run.
  report(22, kStatusMotion, 2100);
  report(55, kStatusAbsence, 5500);
  report(56, kStatusAbsence, 5600);
  r[40].processed = false;
  r[40].dropped = true;
  r[41].processed = false;
  r[41].state = 1;
  r[59].stillTail = true;

  const ReplaySummary s = ReplaySummary::compute(r, 59, 2.0);
  EXPECT_EQ((std::vector<long>{59, 60, 1, 58, 1, 1, 20, 9}),
            (std::vector<long>{s.framesRead, s.handedOver, s.tailFrames, s.processed, s.dropped,
                               s.notAnalysed, s.votingMotion, s.motionFrames}));
  ASSERT_EQ(s.reports.size(), 3u);
  EXPECT_DOUBLE_EQ(s.detectMedianUs, 129.5);
  EXPECT_DOUBLE_EQ(s.detectMaxUs, 159.0);

  const std::string text = s.format();
  EXPECT_NE(text.find("absence reports   2, first at 5.5 s (frame 55), 2.6 s after the last "
                      "motion at 2.9 s"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("motion reports    1, first at 2.1 s (frame 21)"), std::string::npos) << text;
}

TEST(ReplaySummaryTest, LightModeSwitchesWhereTheFilterWindowChangesLength) {
  // A window of 12 votes, 5 from frame 4 (low light), 12 again from frame 8;
  // frames whose window is not known (not lockstep) change nothing.
  std::vector<ReplayRecord> r(10);
  const int lengths[10] = {12, 12, 0, 12, 5, 5, 0, 5, 12, 12};
  for (int i = 0; i < 10; ++i) {
    r[i].windowLength = lengths[i];
    r[i].windowVotes = lengths[i] ? 0 : -1;
  }
  const auto switches = lightModeSwitches(r);
  ASSERT_EQ(switches.size(), 2u);
  EXPECT_EQ(switches[0], (std::pair<long, std::string>{4, "low light"}));
  EXPECT_EQ(switches[1], (std::pair<long, std::string>{8, "normal light"}));
  EXPECT_TRUE(lightModeSwitches(std::vector<ReplayRecord>(3)).empty());
}

}  // namespace
}  // namespace hdsreplay
