#include "tools/evaluation/GridTable.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace hdsreplay {
namespace {

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::stringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

TEST(GridTableTest, ScoresFailuresAndClipsWithoutTruthInTheTableAndTheCsv) {
  Scores s;
  s.moving = {{{0, 1000, true, ""}, true, 0.9},
              {{2000, 3000, true, ""}, true, std::nullopt},
              {{4000, 5000, true, ""}, false, std::nullopt}};
  s.falseReports = 3;
  s.falseMotionS = 1.25;
  s.absenceAsked = true;  // and never reported
  s.absenceThresholdS = 5;
  const std::vector<GridRow> rows = {
      {"walk", "motion-res=160x120", 0, "", s, 100, 71.2, 99.9, {}},
      {"walk", "states=0:motion,9s:absence", 1, "hds-replay: boom", std::nullopt, 0, 0, 0, {}},
      {"film", "default", 0, "", std::nullopt, 50, 60, 70, {}}};

  const std::vector<std::string> table = lines(gridTable(rows, false));
  ASSERT_EQ(table.size(), 4u);
  // Columns line up: each heading starts where its values do.
  const size_t caught = table[0].find("caught"), latency = table[0].find("latency s");
  EXPECT_EQ(table[1].find("1/2"), caught);  // the third interval was not scored
  EXPECT_EQ(table[1].find("0.9 miss"), latency);
  EXPECT_NE(table[1].find("never"), std::string::npos);
  EXPECT_NE(table[2].find("FAILED (exit 1): hds-replay: boom"), std::string::npos);
  EXPECT_EQ(table[0].find("detect()"), std::string::npos);  // the scorecard has no timings
  EXPECT_NE(gridTable(rows, true).find("71  "), std::string::npos);

  const std::vector<std::string> csv = lines(gridCsv(rows));
  ASSERT_EQ(csv.size(), 4u);
  EXPECT_EQ(csv[1],
            "walk,motion-res=160x120,0,100,3,2,1,0.9 miss,3,1.250,0,0.000,5.000,never,0,0.000,71.2,"
            "99.9,0,0");
  EXPECT_EQ(csv[2].rfind("walk,\"states=0:motion,9s:absence\",1,", 0), 0u);  // quoted
  const auto commas = [](const std::string& l) { return std::count(l.begin(), l.end(), ','); };
  EXPECT_EQ(commas(csv[3]), commas(csv[0]));  // no truth: empty score cells, all there
}

}  // namespace
}  // namespace hdsreplay
