// The grid of settings: its options, its processes, and a small grid run end
// to end over a generated clip.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "tests/support/SyntheticScene.h"
#include "tools/evaluation/GridOptions.h"
#include "tools/evaluation/ProcessPool.h"

namespace hdsreplay {
namespace {

namespace fs = std::filesystem;

std::string temp(const std::string& name) {
  return ::testing::TempDir() + "grid_" + std::to_string(::getpid()) + "_" + name;
}

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A grid's table.csv, row by row, cell by cell.
std::vector<std::vector<std::string>> readTable(const std::string& path) {
  std::stringstream table(slurp(path));
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(table, line);) {
    std::vector<std::string> cells;
    std::stringstream in(line);
    for (std::string cell; std::getline(in, cell, ',');) cells.push_back(cell);
    rows.push_back(cells);
  }
  return rows;
}

GridOptions parse(const std::vector<std::string>& args) {
  std::vector<const char*> argv = {"hds-grid"};
  for (const std::string& a : args) argv.push_back(a.c_str());
  return parseGridOptions(static_cast<int>(argv.size()), argv.data());
}

TEST(GridOptionsTest, EveryCombinationOfTheAxesAndClipsFromAFile) {
  std::ofstream(temp("clips.txt")) << "# name input truth options\n"
                                      "walk data/vtest.avi walk.csv --hold-last 5s --noise 3\n"
                                      "leaves data/tree.avi -\n";
  const GridOptions o =
      parse({"--clips", temp("clips.txt"), "--vary", "motion-res=160x120,320x240", "--vary",
             "exposure-step=none,20s:2", "--jobs", "3", "a.avi", "--", "--states", "0:motion"});
  ASSERT_EQ(o.clips.size(), 3u);
  EXPECT_EQ(o.clips[0].args, (std::vector<std::string>{"--hold-last", "5s", "--noise", "3"}));
  EXPECT_EQ(o.clips[1].truth, "");
  EXPECT_EQ(o.clips[2].name, "a.avi");
  EXPECT_EQ(o.common, (std::vector<std::string>{"--states", "0:motion"}));
  const std::vector<Setting> s = gridSettings(o.axes);
  ASSERT_EQ(s.size(), 4u);
  EXPECT_EQ(s[1].name, "motion-res=160x120 exposure-step=20s:2");
  EXPECT_EQ(s[1].args,
            (std::vector<std::string>{"--motion-res", "160x120", "--exposure-step", "20s:2"}));
  EXPECT_EQ(s[2].args, (std::vector<std::string>{"--motion-res", "320x240"}));  // none: left out
  EXPECT_EQ(gridSettings({})[0].name, "default");

  // Values that hold commas are separated by semicolons.
  const GridOptions scripts =
      parse({"--vary", "states=0:motion,5s:absence;0:motion,9s:absence", "a.avi"});
  EXPECT_EQ(scripts.axes[0].values,
            (std::vector<std::string>{"0:motion,5s:absence", "0:motion,9s:absence"}));
  EXPECT_EQ(gridSettings(scripts.axes)[1].values,
            (std::vector<std::string>{"0:motion,9s:absence"}));
  EXPECT_EQ(parse({"--version"}).version, true);
  EXPECT_EQ(parse({"--jobs=3", "a.avi"}).jobs, 3);  // --name=value, as every tool takes it

  for (const auto& bad : std::vector<std::vector<std::string>>{{},
                                                               {"--vary", "motion-res", "a"},
                                                               {"--vary", "absence-ms=1,,2", "a"},
                                                               {"--jobs", "0", "a"},
                                                               {"--bogus", "1", "a"}})
    EXPECT_THROW(parse(bad), UsageError);
  EXPECT_THROW(parseClips("walk data/vtest.avi\n", "c"), UsageError);  // no truth column
}

TEST(GridOptionsTest, NamedSettingsSideBySideWithOptionsForOneOfThemOnAClipsLine) {
  std::ofstream(temp("named.txt"))
      << "screen a.nv21 t.csv --raw 64x48 @guarded --mask 0,0,1,0,1,1 @other --noise 1\n"
         "walk b.nv21 - --raw 64x48\n";
  const GridOptions o =
      parse({"--clips", temp("named.txt"), "--setting", "default", "--setting",
             "guarded=--config g.json  --absence-ms 3000", "--vary", "motion-res=none,160x120"});
  EXPECT_EQ(o.clips[0].args, (std::vector<std::string>{"--raw", "64x48"}));
  EXPECT_EQ(o.clips[0].settingArgs.at("guarded"),
            (std::vector<std::string>{"--mask", "0,0,1,0,1,1"}));
  EXPECT_EQ(o.clips[0].settingArgs.at("other"), (std::vector<std::string>{"--noise", "1"}));
  EXPECT_TRUE(o.clips[1].settingArgs.empty());
  const std::vector<Setting> s = gridSettings(o.axes, o.named);
  ASSERT_EQ(s.size(), 4u);  // the named settings vary slowest
  EXPECT_EQ(s[0].name, "default motion-res=none");
  EXPECT_TRUE(s[0].args.empty());
  EXPECT_EQ(s[3].name, "guarded motion-res=160x120");
  EXPECT_EQ(s[3].named, "guarded");
  EXPECT_EQ(s[3].args, (std::vector<std::string>{"--config", "g.json", "--absence-ms", "3000",
                                                 "--motion-res", "160x120"}));
  const std::vector<Setting> plain = gridSettings({}, o.named);
  ASSERT_EQ(plain.size(), 2u);
  EXPECT_EQ(plain[0].name, "default");  // named as given, without axes
  EXPECT_EQ(plain[1].name, "guarded");

  EXPECT_THROW(parse({"--setting", "=--noise 3", "a"}), UsageError);
  EXPECT_THROW(parse({"--setting", "two words=--noise 3", "a"}), UsageError);
  EXPECT_THROW(parse({"--setting", "x", "--setting", "x=--noise 2", "a"}), UsageError);
}

TEST(ProcessPoolTest, RunsJobsSideBySideAndReportsHowEachEnded) {
  const std::string flag = temp("flag");
  fs::remove(flag);
  // The first job waits (at most 10 s) for a file the second creates: it ends
  // well only if both run at once.
  std::vector<Job> jobs = {
      {{"sh", "-c",
        "for i in $(seq 200); do [ -e " + flag + " ] && exit 0; sleep 0.05; done; exit 3"},
       temp("1.out"),
       temp("1.err")},
      {{"sh", "-c", "echo made >&2; touch " + flag}, temp("2.out"), temp("2.err")},
      {{"sh", "-c", "exit 7"}, temp("3.out"), temp("3.err")},
      {{"/no/such/program"}, temp("4.out"), temp("4.err")}};
  std::vector<size_t> order;
  runJobs(jobs, 2, [&](const Job& job, size_t finished) {
    order.push_back(static_cast<size_t>(&job - jobs.data()));
    EXPECT_EQ(finished, order.size());
  });
  EXPECT_EQ(order.size(), 4u);
  EXPECT_EQ(jobs[0].status, 0);
  EXPECT_EQ(jobs[1].status, 0);
  EXPECT_EQ(slurp(temp("2.err")), "made\n");
  EXPECT_EQ(jobs[2].status, 7);
  EXPECT_EQ(jobs[3].status, 127);
}

TEST(HdsGridTest, TwoThresholdsOverAClipReportAbsenceOneSecondApart) {
  // 30 frames of a moving square at 10 fps, then 6 s still.
  const std::string dir = temp("run");
  fs::create_directories(dir + "/clip");
  const hdsml::SyntheticScene scene(160, 120);
  for (int i = 0; i < 30; ++i)
    cv::imwrite(dir + cv::format("/clip/frame_%04d.png", i), scene.moving(i, 24, 6));
  std::ofstream(dir + "/truth.csv") << "start,end,label\n0,3s,moving\n";
  std::ofstream(dir + "/clips.txt") << "square " << dir << "/clip " << dir << "/truth.csv\n"
                                    << "broken " << dir << "/nothing " << dir << "/truth.csv\n";
  const std::string command = std::string(HDS_GRID_COMMAND) + " --clips " + dir +
                              "/clips.txt --vary absence-ms=1000,2000 --jobs 2 --replay '" +
                              HDS_REPLAY_COMMAND + "' --out " + dir +
                              "/out -- --fps 10 --motion-res 160x120 --states "
                              "0:motion,3s:absence --hold-last 6s >" +
                              dir + "/stdout 2>&1";
  const int status = std::system(command.c_str());
  EXPECT_EQ(WEXITSTATUS(status), 1) << slurp(dir + "/stdout");  // the broken clip failed

  const std::vector<std::vector<std::string>> rows = readTable(dir + "/out/table.csv");
  ASSERT_EQ(rows.size(), 5u);  // a header, two clips by two settings
  std::map<std::string, size_t> column;
  for (size_t c = 0; c < rows[0].size(); ++c) column[rows[0][c]] = c;
  const auto at = [&](size_t row, const std::string& name) { return rows[row][column.at(name)]; };
  EXPECT_EQ(at(1, "setting"), "absence-ms=1000");
  EXPECT_EQ(column.at("absence-ms"), 2u);  // each axis a column beside the setting's name
  EXPECT_EQ(at(1, "absence-ms"), "1000");
  EXPECT_EQ(at(2, "absence-ms"), "2000");
  EXPECT_EQ(at(1, "caught"), "1");
  EXPECT_EQ(at(1, "false_reports"), "0");
  // Absence comes on the first frame past the threshold after the last motion.
  EXPECT_DOUBLE_EQ(std::stod(at(2, "absence_latency_s")) - std::stod(at(1, "absence_latency_s")),
                   1.0);
  EXPECT_EQ(at(3, "exit"), "1");  // exit status of the broken clip's replays
  EXPECT_NE(slurp(dir + "/out/scorecard.txt").find("FAILED (exit 1): hds-replay: no such file"),
            std::string::npos);
  EXPECT_EQ(slurp(dir + "/out/scorecard.txt").find("detect()"), std::string::npos);
  EXPECT_FALSE(cv::imread(dir + "/out/grid.png").empty());
  EXPECT_TRUE(fs::exists(dir + "/out/cells/1-square-2.csv"));
  fs::remove_all(dir);
}

TEST(HdsGridTest, NamedSettingsGetTheirOwnOptionsFromTheClipsLine) {
  // The same clip under two named settings; the clip's line gives the second a
  // shorter absence threshold of its own, one second shorter.
  const std::string dir = temp("named_run");
  fs::create_directories(dir + "/clip");
  const hdsml::SyntheticScene scene(160, 120);
  for (int i = 0; i < 30; ++i)
    cv::imwrite(dir + cv::format("/clip/frame_%04d.png", i), scene.moving(i, 24, 6));
  std::ofstream(dir + "/truth.csv") << "start,end,label\n0,3s,moving\n";
  std::ofstream(dir + "/clips.txt") << "square " << dir << "/clip " << dir
                                    << "/truth.csv --hold-last 6s @quick --absence-ms 1000\n";
  const std::string command = std::string(HDS_GRID_COMMAND) + " --clips " + dir +
                              "/clips.txt --setting 'slow=--absence-ms 2000' --setting quick "
                              "--jobs 2 --replay '" +
                              HDS_REPLAY_COMMAND + "' --out " + dir +
                              "/out -- --fps 10 --motion-res 160x120 --states "
                              "0:motion,3s:absence --absence-ms 5000 >" +
                              dir + "/stdout 2>&1";
  const int status = std::system(command.c_str());
  ASSERT_EQ(WEXITSTATUS(status), 0) << slurp(dir + "/stdout");
  const std::vector<std::vector<std::string>> rows = readTable(dir + "/out/table.csv");
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[1][1], "slow");
  EXPECT_EQ(rows[2][1], "quick");
  EXPECT_DOUBLE_EQ(std::stod(rows[1][13]) - std::stod(rows[2][13]), 1.0);
  fs::remove_all(dir);
}

TEST(HdsGridTest, AFailedCellShowsTheLineThatNamesItsFault) {
  const std::string dir = temp("fault");
  fs::create_directories(dir);
  const std::string command = std::string(HDS_GRID_COMMAND) + " " + dir +
                              "/nothing.avi --vary no-such-option=1,2 --replay '" +
                              HDS_REPLAY_COMMAND + "' --out " + dir + "/out >" + dir +
                              "/stdout 2>&1";
  EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
  const std::string scorecard = slurp(dir + "/out/scorecard.txt");
  EXPECT_NE(scorecard.find("FAILED (exit 2): hds-replay: unknown option --no-such-option"),
            std::string::npos)
      << scorecard;
  EXPECT_EQ(scorecard.find("Try '"), std::string::npos) << scorecard;
  fs::remove_all(dir);
}

}  // namespace
}  // namespace hdsreplay
