#include "tools/output/CsvReader.h"

#include <gtest/gtest.h>

#include <string>

#include "tools/output/CsvWriter.h"

namespace hdsreplay {
namespace {

// The grid scores replays from their CSVs: every field it reads must survive
// the trip, known or unknown, however many rectangles a row holds.
TEST(CsvReaderTest, ReadsBackWhatTheWriterWroteKnownAndUnknown) {
  ReplayRecord full;
  full.frame = 7;
  full.timestampMs = -700;  // held frames before a camera log come before its first timestamp
  full.state = 2;
  full.status = kStatusMotion;
  full.confidence = 0.75f;
  full.reportTimestampMs = -800;
  full.newReport = true;
  full.fresh = false;
  full.processed = true;
  full.motionDetected = true;
  full.motionScore = 0.916667f;
  full.vote = 1;
  full.rectsKnown = true;
  for (int i = 0; i < 60; ++i) full.rects.emplace_back(i, 2 * i, 300 + i, 400 + i);
  full.windowVotes = 11;
  full.windowLength = 12;
  full.sinceMotionMs = 0;
  full.lensMoving = true;
  full.detectUs = 123.4;
  ReplayRecord bare;  // not analysed: no verdict, vote, window or timer
  bare.frame = 8;
  bare.timestampMs = -600;
  bare.dropped = true;

  const std::string row = CsvWriter::row(full);
  EXPECT_NE(row.find("59 118 359 459,1,"), std::string::npos) << "rectangles cut short";
  const auto r = parseReplayCsv(CsvWriter::header() + row + CsvWriter::row(bare), "t.csv");
  ASSERT_EQ(r.size(), 2u);
  EXPECT_EQ(r[0].frame, 7);
  EXPECT_EQ(r[0].timestampMs, -700);
  EXPECT_EQ(r[0].state, 2);
  EXPECT_EQ(r[0].status, kStatusMotion);
  EXPECT_FLOAT_EQ(r[0].confidence, 0.75f);
  EXPECT_EQ(r[0].reportTimestampMs, -800);
  EXPECT_TRUE(r[0].newReport && !r[0].fresh && r[0].processed && r[0].motionDetected);
  EXPECT_FLOAT_EQ(r[0].motionScore, 0.916667f);
  EXPECT_EQ(r[0].vote, 1);
  EXPECT_EQ(r[0].windowVotes, 11);
  EXPECT_EQ(r[0].windowLength, 12);
  EXPECT_EQ(r[0].sinceMotionMs, 0);
  EXPECT_TRUE(r[0].lensMoving);
  EXPECT_DOUBLE_EQ(r[0].detectUs, 123.4);
  EXPECT_EQ(r[1].vote, -1);
  EXPECT_EQ(r[1].windowVotes, -1);
  EXPECT_FALSE(r[1].sinceMotionMs);
  EXPECT_TRUE(r[1].dropped && r[1].fresh && !r[1].processed);

  EXPECT_THROW(parseReplayCsv(CsvWriter::header() + "x,0,DETECT_MOTION\n", "bad.csv"),
               std::runtime_error);
  EXPECT_THROW(parseReplayCsv("", "empty.csv"), std::runtime_error);
}

}  // namespace
}  // namespace hdsreplay
