// The guards' part of the replay's outputs: the CSV row of a frame's report,
// the names of the guards that acted, and the timeline panel, drawn only when
// there are reports.
#include "tools/output/GuardPlot.h"
#include "tools/output/GuardCsv.h"

#include <gtest/gtest.h>

#include <vector>

namespace hdsreplay {
namespace {

ReplayRecord guarded(long frame, unsigned acted, bool switched = false) {
  ReplayRecord r;
  r.frame = frame;
  r.timestampMs = 100 * frame;
  hdsml::GuardReport g;
  g.frameTimestamp = r.timestampMs;
  g.compared = g.voted = g.vote = true;
  g.movedArea = 320, g.largestRegion = 256, g.neededArea = 199;
  g.acted = acted, g.lightMode = 0, g.lightSwitched = switched;
  g.noise = 2.5f, g.threshold = 8000.0f, g.gain = 1.5f, g.lag = 4;
  r.guard = g;
  return r;
}

TEST(GuardPlotTest, RowNamesEveryGuardThatActed) {
  EXPECT_EQ(guardActionNames(0), "");
  EXPECT_EQ(guardActionNames(hdsml::kGuardGlobalChange | hdsml::kGuardGainMatched |
                             hdsml::kGuardMask | hdsml::kGuardNoise | hdsml::kGuardNight),
            "global-change+gain+mask+noise+night");
  EXPECT_EQ(guardCsvRow(guarded(7, hdsml::kGuardGainMatched | hdsml::kGuardNight, true)),
            "7,700,1,1,1,320,256,199,gain+night,0,1,2.50,8000.0,1.5000,4");
}

TEST(GuardPlotTest, PanelOnlyWithGuardReports) {
  std::vector<ReplayRecord> records(20);
  for (long i = 0; i < 20; ++i) records[i].frame = i, records[i].timestampMs = 100 * i;
  EXPECT_TRUE(renderGuardPanel(records, 800, 110, 40, 2000.0).empty());
  records[5] = guarded(5, hdsml::kGuardGlobalChange, true);
  const cv::Mat panel = renderGuardPanel(records, 800, 110, 40, 2000.0);
  ASSERT_FALSE(panel.empty());
  EXPECT_EQ(panel.cols, 800);
}

}  // namespace
}  // namespace hdsreplay
