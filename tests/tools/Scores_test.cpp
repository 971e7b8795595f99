// Truth files and the scores of a replay against them, on records whose
// answers are known by hand.
#include "tools/evaluation/Scores.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/evaluation/Truth.h"

namespace hdsreplay {
namespace {

TEST(TruthTest, ParsesIntervalsAndNamesTheLineOfAFault) {
  const Truth truth = Truth::parse(
      "# made by hand\nstart,end,label,note\n10s,20s,moving,walk-in, then out\n"
      "\n25,300,nuisance\n",
      "t.csv");
  ASSERT_EQ(truth.intervals().size(), 2u);
  EXPECT_EQ(truth.intervals()[0].note, "walk-in, then out");
  EXPECT_FALSE(truth.intervals()[1].moving);
  // Frame numbers resolve on the replay's clock: at 10 fps frame 25 is 2.5 s in.
  const std::vector<TruthSpan> spans = truth.resolve(FrameClock(10.0));
  EXPECT_DOUBLE_EQ(spans[0].startMs, 10000);
  EXPECT_DOUBLE_EQ(spans[1].startMs, 2500);
  EXPECT_DOUBLE_EQ(spans[1].endMs, 30000);

  const std::pair<const char*, const char*> kBad[] = {
      {"begin,end,label\n", "line 1: the header must be start,end,label"},
      {"start,end,label\n1s,2s,walking\n",
       "line 2: label 'walking' is neither moving nor nuisance"},
      {"start,end,label\n1s,2h,moving\n", "line 2: end: '2h'"},
      {"start,end,label\n1s\n", "line 2: '1s' is not start,end,label"},
      {"", "is empty"}};
  for (const auto& [text, fragment] : kBad) {
    try {
      Truth::parse(text, "bad.csv");
      ADD_FAILURE() << "accepted " << text;
    } catch (const std::runtime_error& e) {
      EXPECT_NE(std::string(e.what()).find(fragment), std::string::npos) << e.what();
    }
  }
  EXPECT_THROW(Truth::parse("start,end,label\n5s,4s,moving\n", "t").resolve(FrameClock(10)),
               std::runtime_error);
}

class ScoresTest : public ::testing::Test {
 protected:
  // 100 frames at 10 fps, all analysed: DETECT_MOTION until 6 s, then
  // DETECT_ABSENCE. A motion report on frame 5 and on frames 19 to 35, filtered
  // motion on them and on 70 to 74; absence reported on 82 and on 95 to 99, the
  // host reading ABSENCE from 82 on.
  void SetUp() override {
    records_.resize(100);
    for (int i = 0; i < 100; ++i) {
      ReplayRecord& r = records_[i];
      r.frame = i;
      r.timestampMs = 100 * i;
      r.processed = true;
      r.state = i < 60 ? 0 : 2;
      const bool motionReport = i == 5 || (i >= 19 && i <= 35);
      const bool absenceReport = i == 82 || i >= 95;
      r.motionDetected = motionReport || (i >= 70 && i <= 74);
      r.status = i >= 82 ? kStatusAbsence : (i >= 5 ? kStatusMotion : kStatusNone);
      r.newReport = motionReport || absenceReport;
      r.reportTimestampMs = r.newReport ? r.timestampMs : 0;
    }
  }
  std::vector<ReplayRecord> records_;
};

TEST_F(ScoresTest, LatencyMissesFalseMotionAndAbsenceAgainstTwoMovingIntervals) {
  const std::vector<TruthSpan> truth = {{1000, 3000, true, "caught"},
                                        {4000, 5000, true, "missed"},
                                        {7000, 7500, false, "leaves"},
                                        {8000, 8500, true, "begins in DETECT_ABSENCE"}};
  const Scores s = Scores::compute(records_, truth, 1000.0);
  ASSERT_EQ(s.moving.size(), 3u);
  EXPECT_DOUBLE_EQ(*s.moving[0].latencyS, 0.9);  // reported on frame 19, 1.9 s
  EXPECT_TRUE(s.moving[1].scored);
  EXPECT_FALSE(s.moving[1].latencyS);  // nothing from 4 s until 16 frames after 5 s
  EXPECT_FALSE(s.moving[2].scored);
  EXPECT_EQ(s.caught(), 1);
  EXPECT_EQ(s.scoredIntervals(), 2);
  // Frame 5 lies before any interval; frames 70 to 74 are leaves.
  EXPECT_EQ(s.falseReports, 1);
  EXPECT_NEAR(s.falseMotionS, 0.6, 1e-9);
  EXPECT_EQ(s.nuisanceReports, 0);
  EXPECT_NEAR(s.nuisanceMotionS, 0.5, 1e-9);
  EXPECT_EQ(s.falseMotionMs.front(), 500);
  // Absence from the end of the last moving interval (8.5 s) to frame 95; the
  // report on frame 82 came while something moved, and the host read it on 82 to 84.
  EXPECT_TRUE(s.absenceAsked && s.absenceFromMovingEnd);
  EXPECT_DOUBLE_EQ(*s.absenceLatencyS, 1.0);
  EXPECT_EQ(s.absenceErrors, 1);
  EXPECT_NEAR(s.absenceErrorS, 0.3, 1e-9);
  // Inside the moving intervals (frames 10-29, 40-49, 80-84): filtered motion
  // on frames 19-29 only.
  EXPECT_EQ(s.movingFrames, 35);
  EXPECT_EQ(s.movingMotionFrames, 11);
  // Where they lie, for the pictures: the report, and the frames read as ABSENCE
  // to the end of the last one (84, which ends at 8.5 s).
  EXPECT_EQ(s.absenceErrorMs.reports, (std::vector<double>{8200}));
  ASSERT_EQ(s.absenceErrorMs.read.size(), 1u);
  EXPECT_DOUBLE_EQ(s.absenceErrorMs.read[0].first, 8200);
  EXPECT_DOUBLE_EQ(s.absenceErrorMs.read[0].second, 8500);

  const std::string text = s.format();
  EXPECT_NE(text.find("4.0 s to 5.0 s: MISSED"), std::string::npos) << text;
  EXPECT_NE(text.find("1.0 s after the last moving interval ended (threshold 1.0 s)"),
            std::string::npos);
  const std::string json = s.json();
  EXPECT_NE(json.find("{\"start_s\": 1.000, \"end_s\": 3.000, \"scored\": true, \"latency_s\": "
                      "0.900}"),
            std::string::npos)
      << json;
  EXPECT_NE(json.find("\"latency_s\": null}"), std::string::npos);
  EXPECT_NE(json.find("\"absence_errors\": 1,"), std::string::npos);
  EXPECT_NE(json.find("\"moving_frames\": 35,\n  \"moving_motion_frames\": 11\n}"),
            std::string::npos);
  EXPECT_NE(text.find("motion on         11 of 35 frames inside moving intervals (31 %)"),
            std::string::npos)
      << text;
  EXPECT_EQ(s.marks()[1].label, "moving: MISSED");
  EXPECT_TRUE(s.marks()[1].missed);
}

TEST_F(ScoresTest, WithoutMotionInTheTruthEveryReportIsFalseAndAbsenceCountsFromItsState) {
  const Scores s = Scores::compute(records_, {{7000, 7500, false, "leaves"}}, 1000.0, 0);
  EXPECT_EQ(s.falseReports, 18);
  EXPECT_NEAR(s.falseMotionS, 2.3, 1e-9);  // 23 frames of filtered motion
  EXPECT_FALSE(s.absenceFromMovingEnd);
  EXPECT_DOUBLE_EQ(*s.absenceLatencyS, 2.2);  // DETECT_ABSENCE from 6 s, first report 8.2 s
  EXPECT_EQ(s.absenceErrors, 0);
  EXPECT_TRUE(s.absenceErrorMs.empty());
  // A replay that never enters DETECT_ABSENCE is not asked for absence.
  for (ReplayRecord& r : records_) r.state = 0;
  EXPECT_FALSE(Scores::compute(records_, {}, 1000.0).absenceAsked);
}

}  // namespace
}  // namespace hdsreplay
