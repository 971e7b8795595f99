// Outputs never touch inputs and are never left half written: OutputGuard and
// AtomicOutput on their own, then hds-replay as a whole.
#include "tools/output/OutputGuard.h"

#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "tests/support/SyntheticScene.h"
#include "tests/tools/ToolRun.h"

namespace hdsreplay {
namespace {

namespace fs = std::filesystem;

class OutputGuardTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    fs::create_directories(dir() + "frames");
    const hdsml::SyntheticScene scene(160, 120);
    for (int i = 0; i < 6; ++i)
      cv::imwrite(dir() + cv::format("frames/frame_%02d.png", i), scene.moving(i, 24, 6));
    std::ofstream(dir() + "truth.csv") << "start,end,label\n0,0.3s,moving\n";
    // Read, then rejected by the library: the replay has begun.
    std::ofstream(dir() + "nokey.json") << "{ \"vantor\": { \"motionResW\": 320 } }";
  }
  static void TearDownTestSuite() { fs::remove_all(dir()); }

  static std::string dir() {
    return ::testing::TempDir() + "output_guard_" + std::to_string(::getpid()) + "/";
  }
  static std::string message(const std::function<void()>& f) {
    try {
      f();
    } catch (const std::runtime_error& e) {
      return e.what();
    }
    return "";
  }
  // hds-replay on the frames, `args` first.
  static ToolRun replay(std::vector<std::string> args) {
    if (std::find(args.begin(), args.end(), "--config") == args.end())
      args.insert(args.end(), {"--motion-res", "160x120"});
    args.insert(args.end(), {"--fps", "10", "--no-progress", dir() + "frames"});
    return runTool(HDS_REPLAY_COMMAND, args);
  }
  // Files whose names show a temporary output left behind.
  static int leftovers() {
    int n = 0;
    for (const auto& e : fs::recursive_directory_iterator(dir()))
      n += e.path().filename().string().find(".partial-") != std::string::npos;
    return n;
  }
};

TEST_F(OutputGuardTest, AnOutputThatIsAnInputByAnyNameIsRefused) {
  std::ofstream(dir() + "log.csv") << "timestamp_ms\n0\n";
  fs::create_symlink(dir() + "log.csv", dir() + "link.csv");
  OutputGuard guard;
  guard.input(dir() + "log.csv", "camera log");
  guard.input(dir() + "frames", "input");
  guard.input(dir() + "missing.avi", "input");  // not there: nothing to protect
  for (const std::string& same : {dir() + "log.csv", dir() + "./log.csv", dir() + "link.csv"})
    EXPECT_NE(message([&] {
                guard.output(same, "CSV");
              }).find("it is the camera log '" + dir() + "log.csv' this run reads"),
              std::string::npos)
        << same;
  EXPECT_NE(message([&] { guard.output(dir() + "frames/", "annotated frames"); }).find("input"),
            std::string::npos);
  EXPECT_NE(
      message([&] {
        guard.output(dir() + "no/dir/s.json", "scores");
      }).find("cannot write scores '" + dir() + "no/dir/s.json': no folder '" + dir() + "no/dir'"),
      std::string::npos);
  guard.output(dir() + "made/for/pngs", "frames", true);  // a folder is made, parents too
  guard.output(dir() + "out.csv", "CSV");
  EXPECT_NE(message([&] {
              guard.output(dir() + "out.csv", "timeline");
            }).find("the CSV is written there too"),
            std::string::npos);
  EXPECT_EQ(message([&] { guard.output(dir() + "missing.avi", "scores"); }), "");
  if (::geteuid() != 0) {  // root writes anywhere
    fs::create_directories(dir() + "locked");
    fs::permissions(dir() + "locked", fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_NE(
        message([&] { guard.output(dir() + "locked/x.csv", "CSV"); }).find("Permission denied"),
        std::string::npos);
  }
}

TEST_F(OutputGuardTest, AnOutputAppearsOnlyWhenCommitted) {
  std::ofstream(dir() + "kept.txt") << "old";
  {
    AtomicOutput out(dir() + "kept.txt");
    EXPECT_EQ(fs::path(out.temporary()).parent_path(), fs::path(dir() + "kept.txt").parent_path());
    EXPECT_EQ(fs::path(out.temporary()).extension(), ".txt");  // writers choose by it
    std::ofstream(out.temporary()) << "half";
  }
  EXPECT_EQ(slurpFile(dir() + "kept.txt"), "old");
  EXPECT_EQ(leftovers(), 0);
  {
    AtomicOutput out(dir() + "kept.txt");
    std::ofstream(out.temporary()) << "new";
    out.commit();
  }
  EXPECT_EQ(slurpFile(dir() + "kept.txt"), "new");
  // A folder: its files move into one that exists.
  fs::create_directories(dir() + "pngs");
  std::ofstream(dir() + "pngs/a.png") << "old";
  AtomicOutput folder(dir() + "pngs");
  fs::create_directories(folder.temporary());
  std::ofstream(folder.temporary() + "/a.png") << "new";
  folder.commit();
  EXPECT_EQ(slurpFile(dir() + "pngs/a.png"), "new");
  EXPECT_EQ(leftovers(), 0);
  AtomicOutput never(dir() + "never.txt");
  EXPECT_THROW(never.commit(), std::runtime_error);
}

TEST_F(OutputGuardTest, ReplayRefusesToWriteOverItsInputsBeforeReadingThem) {
  // A camera dump and its log: 6 frames of 160x120 NV21.
  std::ofstream(dir() + "cam.nv21") << std::string(6 * 160 * 120 * 3 / 2, '\x80');
  std::string log = "timestamp_ms\n";
  for (int i = 0; i < 6; ++i) log += std::to_string(1000 + 100 * i) + "\n";
  std::ofstream(dir() + "cam.csv") << log;
  const ToolRun overLog = runTool(
      HDS_REPLAY_COMMAND,
      {dir() + "cam.nv21", "--raw", "160x120", "--csv", dir() + "cam.csv", "--no-progress"});
  EXPECT_EQ(overLog.status, 1);
  EXPECT_NE(overLog.err.find("cannot write CSV '" + dir() + "cam.csv': it is the camera log"),
            std::string::npos)
      << overLog.err;
  EXPECT_EQ(slurpFile(dir() + "cam.csv"), log);
  const ToolRun overDump = runTool(
      HDS_REPLAY_COMMAND, {dir() + "cam.nv21", "--raw", "160x120", "--plot", dir() + "./cam.nv21"});
  EXPECT_EQ(overDump.status, 1);
  EXPECT_EQ(fs::file_size(dir() + "cam.nv21"), 6u * 160 * 120 * 3 / 2);
  const ToolRun overTruth =
      replay({"--truth", dir() + "truth.csv", "--scores", dir() + "truth.csv"});
  EXPECT_NE(overTruth.err.find("it is the truth"), std::string::npos) << overTruth.err;
  EXPECT_EQ(overTruth.out, "");  // nothing replayed
}

TEST_F(OutputGuardTest, AFailedReplayLeavesNoOutputBehind) {
  const struct {
    std::vector<std::string> args;
    std::string fragment;
  } kFailures[] = {
      {{"--truth", dir() + "truth.csv", "--scores", dir() + "nodir/s.json"}, "no folder"},
      {{"--plot", dir() + "t.txt"}, ".txt is not a picture type"},
      {{"--config", dir() + "nokey.json"}, "motionResH"},
      {{"--annotate", dir() + "nodir/a.mp4"}, "no folder"}};
  for (const auto& f : kFailures) {
    std::vector<std::string> args = f.args;
    args.insert(args.end(), {"--csv", dir() + "replay.csv", "--contact-sheet", dir() + "s.png"});
    const ToolRun r = replay(args);
    EXPECT_EQ(r.status, 1) << f.fragment;
    EXPECT_NE(r.err.find(f.fragment), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "") << f.fragment;  // it failed before the replay
    EXPECT_FALSE(fs::exists(dir() + "replay.csv")) << f.fragment;
    EXPECT_FALSE(fs::exists(dir() + "s.png")) << f.fragment;
    EXPECT_EQ(leftovers(), 0) << f.fragment;
  }
  const ToolRun ok = replay({"--csv", dir() + "replay.csv", "--annotate", dir() + "annotated",
                             "--truth", dir() + "truth.csv", "--scores", dir() + "s.json"});
  EXPECT_EQ(ok.status, 0) << ok.err;
  EXPECT_TRUE(fs::exists(dir() + "replay.csv"));
  EXPECT_TRUE(fs::exists(dir() + "s.json"));
  EXPECT_TRUE(fs::exists(dir() + "annotated/frame_000005.png"));
  EXPECT_EQ(leftovers(), 0);
}

TEST_F(OutputGuardTest, AToolStoppedByASignalLeavesNoOutputBehind) {
  using namespace std::chrono_literals;
  const std::vector<std::string> endless = {"--fps",   "10",          "--motion-res",
                                            "160x120", "--hold-last", "1000000"};
  // A replay stopped by Ctrl-C once its CSV is open under a temporary name.
  std::ofstream(dir() + "kept.csv") << "earlier\n";
  std::vector<std::string> args = endless;
  args.insert(args.end(), {"--no-progress", "--csv", dir() + "kept.csv", dir() + "frames"});
  ToolProcess replay(HDS_REPLAY_COMMAND, args, dir() + "replay.log");
  ASSERT_TRUE(waitUntil([] { return leftovers() == 1; }, 60s)) << slurpFile(dir() + "replay.log");
  replay.signal(SIGINT);
  EXPECT_EQ(replay.wait(60s), 130);
  EXPECT_NE(slurpFile(dir() + "replay.log")
                .find("hds-replay: stopped by SIGINT before the end: its outputs were not written"),
            std::string::npos)
      << slurpFile(dir() + "replay.log");
  EXPECT_EQ(slurpFile(dir() + "kept.csv"), "earlier\n");
  EXPECT_EQ(leftovers(), 0);

  // A grid stopped by SIGTERM, which its replays do not get, stops them itself
  // and waits for each to clean up.
  std::ofstream(dir() + "clips.txt") << "a " << dir() << "frames -\nb " << dir() << "frames -\n";
  args = {"--clips", dir() + "clips.txt", "--jobs", "2", "--replay", HDS_REPLAY_COMMAND,
          "--out",   dir() + "grid",      "--"};
  args.insert(args.end(), endless.begin(), endless.end());
  ToolProcess grid(HDS_GRID_COMMAND, args, dir() + "grid.log");
  ASSERT_TRUE(waitUntil([] { return leftovers() == 2; }, 60s)) << slurpFile(dir() + "grid.log");
  grid.signal(SIGTERM);
  EXPECT_EQ(grid.wait(60s), 143) << slurpFile(dir() + "grid.log");
  EXPECT_NE(slurpFile(dir() + "grid.log").find("hds-grid: stopped by SIGTERM"), std::string::npos);
  for (const char* cell : {"1-a-1", "2-b-1"})
    EXPECT_NE(slurpFile(dir() + "grid/cells/" + cell + ".err").find("stopped by SIGTERM"),
              std::string::npos)
        << cell;
  EXPECT_EQ(leftovers(), 0);
  EXPECT_FALSE(fs::exists(dir() + "grid/table.csv"));
}

}  // namespace
}  // namespace hdsreplay
