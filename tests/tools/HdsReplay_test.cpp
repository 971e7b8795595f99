// Runs the built hds-replay program on small generated clips. Each replay is a
// process of its own, since the detector facade is one object per process.
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

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>

#include "tests/support/SyntheticScene.h"

namespace {

namespace fs = std::filesystem;
using Row = std::map<std::string, std::string>;

struct RunResult {
  int status = -1;  // the exit status; -1 when killed by a signal
  std::string out, err;
  std::vector<Row> rows;  // a clip replay's CSV rows by column name, without the wall time
};

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

class HdsReplayTest : public ::testing::Test {
 protected:
  static constexpr int kMovingFrames = 40;  // at 10 fps
  static constexpr int kWidth = 160, kHeight = 120;

  static void SetUpTestSuite() {
    fs::create_directories(path("clip"));
    cv::VideoWriter video(path("clip.avi"), cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10.0,
                          cv::Size(kWidth, kHeight));
    const hdsml::SyntheticScene scene(kWidth, kHeight);  // a 24-pixel square crossing it
    for (int i = 0; i < kMovingFrames; ++i) {
      cv::imwrite(path(cv::format("clip/frame_%04d.png", i)), scene.moving(i, 24, 6));
      video.write(scene.moving(i, 24, 6));
    }
  }
  static void TearDownTestSuite() { fs::remove_all(path("")); }

  static std::string path(const std::string& name) {
    static const std::string dir =
        ::testing::TempDir() + "hds_replay_" + std::to_string(::getpid()) + "/";
    return dir + name;
  }

  // Runs hds-replay (or another tool) with `args`, standard output and error captured.
  static RunResult run(const std::vector<std::string>& args,
                       const std::string& program = HDS_REPLAY_COMMAND) {
    std::string command = program;  // under a cross build, with its emulator
    for (const std::string& a : args) command += " '" + a + "'";
    const int wstatus = std::system((command + " >" + path("out") + " 2>" + path("err")).c_str());
    return {
        WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1, slurp(path("out")), slurp(path("err")), {}};
  }

  // A lockstep replay of the generated clip, `args` added: motion first, absence
  // from 3 s, a still tail of 6 s and an absence threshold of 2 s.
  static RunResult replayClip(std::vector<std::string> args = {}, const char* input = "clip") {
    // The defaults first, so that `args` may override them.
    args.insert(args.begin(), {"--fps", "10", "--motion-res", "160x120", "--states",
                               "0:DETECT_MOTION,3s:DETECT_ABSENCE", "--absence-ms", "2000",
                               "--hold-last", "6s", "--no-progress", "--csv", path("clip.csv")});
    fs::remove(path("clip.csv"));
    args.push_back(path(input));
    RunResult r = run(args);
    EXPECT_EQ(r.status, 0) << r.err;
    std::vector<std::string> header;
    std::stringstream lines(slurp(path("clip.csv")));
    for (std::string line; std::getline(lines, line);) {
      std::vector<std::string> cols;
      std::stringstream ss(line);
      for (std::string col; std::getline(ss, col, ',');) cols.push_back(col);
      if (header.empty()) {
        header = cols;
        continue;
      }
      EXPECT_EQ(cols.size(), header.size()) << line;
      Row& row = r.rows.emplace_back();
      for (size_t i = 0; i < header.size() && i < cols.size(); ++i) row[header[i]] = cols[i];
      row.erase("detect_us");  // which no two runs share
    }
    return r;
  }
};

TEST_F(HdsReplayTest, ClipReportsMotionThenAbsenceAtThresholdInEveryLayoutAndWritesItsOutputs) {
  const RunResult r = replayClip({"--plot", path("timeline.png"), "--annotate", path("annotated"),
                                  "--contact-sheet", path("sheet.png"), "--sheet-every", "10"});
  ASSERT_EQ(r.rows.size(), static_cast<size_t>(kMovingFrames + 60));
  long long lastMotion = -1, firstAbsence = -1;
  bool motionReported = false;
  for (const Row& row : r.rows) {
    const long long ts = std::stoll(row.at("timestamp_ms"));
    EXPECT_EQ(row.at("processed"), "1") << "frame " << row.at("frame");
    EXPECT_EQ(row.at("dropped"), "0");
    EXPECT_EQ(row.at("vote") == "1", row.at("rect_count") != "0");
    // Once 12 votes are in, the filter says motion exactly when 10 or more are.
    EXPECT_EQ(row.at("window_length"), "12");
    const bool tenOfTwelve = std::stoi(row.at("window_votes")) >= 10;
    EXPECT_TRUE(std::stoi(row.at("frame")) < 11 ||
                (row.at("motion_detected") == "1") == tenOfTwelve);
    // A motion report read in DETECT_ABSENCE was decided before the state changed.
    EXPECT_EQ(row.at("fresh"), row.at("status") == "0" && ts >= 3000 ? "0" : "1") << ts;
    EXPECT_TRUE(row.at("new_report") == "0" || row.at("report_ts") == row.at("timestamp_ms"));
    if (row.at("motion_detected") == "1") lastMotion = ts;
    EXPECT_EQ(row.at("since_motion_ms"), lastMotion < 0 ? "" : std::to_string(ts - lastMotion));
    if (row.at("status") == "0") motionReported = true;
    if (row.at("status") == "2" && firstAbsence < 0) {
      firstAbsence = std::stoll(row.at("report_ts"));
      EXPECT_EQ(row.at("state"), "DETECT_ABSENCE");
    }
  }
  EXPECT_TRUE(motionReported);
  ASSERT_GE(lastMotion, 0) << "the moving square was never seen";
  EXPECT_LT(lastMotion, kMovingFrames * 100 + 3000) << "the still tail kept voting motion";
  // Absence comes on the first frame (they are 100 ms apart) over 2000 ms after the last motion.
  EXPECT_EQ(firstAbsence, lastMotion + 2100);

  EXPECT_NE(r.out.find("frames read       40"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("handed over       100 (60 of them the still tail)"), std::string::npos);
  EXPECT_NE(r.out.find("processed         100"), std::string::npos);
  EXPECT_NE(
      r.out.find("stale status      MOTION from 3.0 s to " + std::to_string(firstAbsence / 1000)),
      std::string::npos);
  EXPECT_EQ(r.out.find("[HDSMLClient]"), std::string::npos) << "library output not kept apart";
  EXPECT_EQ(cv::imread(path("timeline.png")).cols, 1400);
  EXPECT_FALSE(cv::imread(path("sheet.png")).empty());
  EXPECT_EQ(std::distance(fs::directory_iterator(path("annotated")), {}), 100);
  EXPECT_EQ(cv::imread(path("annotated/frame_000099.png")).size(), cv::Size(kWidth, kHeight));

  // Lockstep replays repeat exactly, whatever the camera layout and row padding,
  // and a video is read frame by frame as a folder of images is.
  EXPECT_EQ(replayClip({"--layout", "nv12", "--row-padding", "24"}).rows, r.rows);
  EXPECT_EQ(replayClip({"--layout", "i420", "--row-padding", "7"}).rows, r.rows);
  EXPECT_EQ(replayClip({}, "clip.avi").rows.size(), r.rows.size());
}

TEST_F(HdsReplayTest, ScoresAgainstATruthWhoseMotionStartsAtAKnownFrame) {
  // The clip's first frame held for 2 s, then its square moving from frame 21
  // (the input's second frame) to the end at 6 s, then still again.
  std::ofstream(path("truth.csv")) << "start,end,label\n2s,6s,moving\n";
  const RunResult r =
      replayClip({"--hold-first", "2s", "--states", "0:motion,5s:absence", "--truth",
                  path("truth.csv"), "--scores", path("scores.json"), "--plot", path("truth.png")});
  long long firstMotion = -1, firstAbsence = -1;
  for (const Row& row : r.rows) {
    const long long ts = std::stoll(row.at("timestamp_ms"));
    if (row.at("new_report") != "1") continue;
    if (row.at("status") == "0" && firstMotion < 0) firstMotion = ts;
    if (row.at("status") == "2" && firstAbsence < 0) firstAbsence = ts;
  }
  // Ten votes of twelve: the tenth moving frame, 2.1 s + 0.9 s, is reported.
  EXPECT_EQ(firstMotion, 3000);
  const std::string json = slurp(path("scores.json"));
  EXPECT_NE(json.find("\"latency_s\": 1.000}"), std::string::npos) << json;
  EXPECT_NE(json.find("\"false_reports\": 0,"), std::string::npos);
  // Absence: from the end of the moving interval to the first absence report.
  EXPECT_NE(json.find(cv::format("\"absence_latency_s\": %.3f,", (firstAbsence - 6000) / 1e3)),
            std::string::npos)
      << firstAbsence << json;
  EXPECT_NE(json.find("\"absence_errors\": 0,"), std::string::npos);
  EXPECT_NE(r.out.find("moving            2.0 s to 6.0 s: motion reported after 1.0 s"),
            std::string::npos)
      << r.out;
  EXPECT_GT(cv::imread(path("truth.png")).rows, cv::imread(path("timeline.png")).rows);  // + truth
}

TEST_F(HdsReplayTest, CameraDumpsReplayAsTheirVideoAndFollowTheirCameraLog) {
  const std::vector<std::string> probes = {"--exposure-step", "2s:0.6", "--grayscale-at", "5s"};
  const RunResult video = replayClip(probes, "clip.avi");
  // One file of NV21 frames, and a folder of YV12 frames with padded rows, whose
  // names give their layout; each with the camera log of the video's timestamps.
  ASSERT_EQ(run({"--layout", "nv21", path("clip.avi"), path("dump.nv21")}, HDS_EXTRACT_COMMAND)
                .status,
            0);
  ASSERT_EQ(run({"--layout", "yv12", "--row-padding", "6", path("clip.avi"), path("dumpdir")},
                HDS_EXTRACT_COMMAND)
                .status,
            0);
  std::vector<std::string> raw = probes;
  raw.insert(raw.end(), {"--raw", "160x120"});
  const RunResult dump = replayClip(raw, "dump.nv21");
  EXPECT_EQ(dump.rows, video.rows);
  EXPECT_NE(dump.out.find("(raw nv21, 160x120, 10 fps)"), std::string::npos) << dump.out;
  raw.insert(raw.end(), {"--row-padding", "6"});
  EXPECT_EQ(replayClip(raw, "dumpdir").rows, video.rows);

  // The device's own log: uneven timestamps, a moving lens on frames 10 to 12
  // and long exposures, which switch the library to low light after 30 frames.
  std::ofstream log(path("dumpdir/frames.csv"));
  log << "timestamp_ms,exposure_ns,lens_moving\n";
  for (int i = 0; i < kMovingFrames; ++i)
    log << 5000 + i * 100 + (i % 2) * 7 << ",100000000," << (i >= 10 && i <= 12) << "\n";
  log.close();
  const RunResult logged = replayClip({"--raw", "160x120", "--row-padding", "6"}, "dumpdir");
  ASSERT_GT(logged.rows.size(), static_cast<size_t>(kMovingFrames));
  for (int i = 0; i < kMovingFrames; ++i) {
    const Row& row = logged.rows[i];
    EXPECT_EQ(row.at("timestamp_ms"), std::to_string(5000 + i * 100 + (i % 2) * 7));
    // The one clock of every output counts from the first frame handed over.
    EXPECT_EQ(std::stod(row.at("time_s")), (i * 100 + (i % 2) * 7) / 1000.0);
    const bool lens = i >= 10 && i <= 12;
    EXPECT_EQ(row.at("lens_moving"), lens ? "1" : "0");
    EXPECT_EQ(row.at("processed"), lens ? "0" : "1") << i;  // skipped, not dropped
    EXPECT_EQ(row.at("dropped"), "0");
  }
  EXPECT_EQ(logged.rows[29].at("window_length"), "12");  // the 31st frame is the first in low light
  EXPECT_EQ(logged.rows[30].at("window_length"), "5");
  // An exposure given on the command line wins over the log's.
  const RunResult bright =
      replayClip({"--raw", "160x120", "--row-padding", "6", "--exposure", "10000000"}, "dumpdir");
  EXPECT_EQ(bright.rows[30].at("window_length"), "12");
}

TEST_F(HdsReplayTest, StagedRoomsReachTheDetectorExposuresIncluded) {
  // Auto-exposure settling from 10 ms to 100 ms over 5 frames from frame 20:
  // 15.8, 25.1, 39.8, 63.1, then 100 ms. The metadata follows, and the library
  // reads low light once the mean of the last 30 light levels (1e9/E: 100
  // before, then 63.1, 39.8, 25.1, 15.8, 10) is at most 13.4: from frame 50,
  // whose window no longer holds frame 20. A step to 100 ms gets there at 48.
  const RunResult settled = replayClip({"--exposure-settle", "20:10:5"});
  ASSERT_GT(settled.rows.size(), 60u);
  EXPECT_EQ(settled.rows[49].at("window_length"), "12");
  EXPECT_EQ(settled.rows[50].at("window_length"), "5");
  const RunResult stepped = replayClip({"--exposure-step", "20:10"});
  EXPECT_EQ(stepped.rows[47].at("window_length"), "12");
  EXPECT_EQ(stepped.rows[48].at("window_length"), "5");
  // The picture brightens with it; a light switch alone leaves the exposure.
  EXPECT_EQ(replayClip({"--light-switch", "20:10"}).rows[60].at("window_length"), "12");

  // A still scene with a screen playing the moving clip in its right half:
  // motion, and none once the screen is gone from view (a clean still scene).
  const RunResult screen =
      replayClip({"--frames", "1", "--hold-last", "4s", "--noise", "0", "--states", "0:motion",
                  "--screen", path("clip") + ":0.5,0,0.5,1"});
  const RunResult plain =
      replayClip({"--frames", "1", "--hold-last", "4s", "--noise", "0", "--states", "0:motion"});
  const auto motionFrames = [](const RunResult& r) {
    long n = 0;
    for (const Row& row : r.rows) n += row.at("motion_detected") == "1";
    return n;
  };
  EXPECT_GT(motionFrames(screen), 10);
  EXPECT_EQ(motionFrames(plain), 0);
  const RunResult noScreen =
      run({"--screen", path("none.avi") + ":0,0,0.5,0.5", "--no-progress", path("clip")});
  EXPECT_EQ(noScreen.status, 1);
  EXPECT_NE(noScreen.err.find("--screen: no such file or folder"), std::string::npos)
      << noScreen.err;
}

TEST_F(HdsReplayTest, AStagedSceneSavedAsACameraDumpReplaysAsItWasStaged) {
  // Light switched on at frame 10 with auto-exposure answering, noise on every
  // sample, a screen, held frames before and after: saved with its camera log,
  // then replayed as a camera's own footage, without a probe.
  const std::vector<std::string> staged = {"--hold-first",      "10",
                                           "--brightness-ramp", "0.4:0.4",
                                           "--exposure",        "16000000",
                                           "--light-switch",    "10:4",
                                           "--exposure-settle", "11:0.625:8",
                                           "--sensor-noise",    "3",
                                           "--screen",          path("clip") + ":0,0.7,0.3,0.3",
                                           "--layout",          "nv12",
                                           "--row-padding",     "4"};
  std::vector<std::string> saving = staged;
  saving.insert(saving.end(), {"--save-dump", path("staged.nv12")});
  const RunResult original = replayClip(saving);
  EXPECT_NE(original.out.find("camera dump       " + path("staged.nv12")), std::string::npos)
      << original.out;
  const std::string log = slurp(path("staged.csv"));
  EXPECT_EQ(log.rfind("timestamp_ms,exposure_ns,lens_moving\n0,16000000,0\n", 0), 0u) << log;
  EXPECT_NE(log.find("\n1000,16000000,0\n1100,15087073,0\n"), std::string::npos) << log;
  EXPECT_NE(log.find("\n1800,10000000,0\n"), std::string::npos);
  const RunResult dump =
      replayClip({"--raw", "160x120", "--row-padding", "4", "--hold-last", "0"}, "staged.nv12");
  ASSERT_EQ(dump.rows.size(), original.rows.size());
  EXPECT_EQ(dump.rows, original.rows);

  // The input and its log are never written over.
  const RunResult self = run({"--raw", "160x120", "--row-padding", "4", "--no-progress",
                              "--save-dump", path("staged.nv12"), path("staged.nv12")});
  EXPECT_EQ(self.status, 1);
  EXPECT_NE(self.err.find("cannot write scene dump"), std::string::npos) << self.err;
  EXPECT_NE(self.err.find("it is the input"), std::string::npos) << self.err;
  EXPECT_EQ(slurp(path("staged.csv")), log);
  const RunResult folder = run({"--save-dump", path("out_dir"), "--no-progress", path("clip")});
  EXPECT_EQ(folder.status, 1);
  EXPECT_NE(folder.err.find("must end in .nv21"), std::string::npos) << folder.err;
}

TEST_F(HdsReplayTest, BadArgumentsAndUnusableFilesExitWithAClearMessage) {
  fs::create_directories(path("empty"));
  fs::create_directories(path("broken"));
  std::ofstream(path("broken/frame_0000.png")) << "not a png";
  std::ofstream(path("notavideo.avi")) << "this is not a video\n";
  std::ofstream(path("raw.nv21")) << std::string(100, 'x');
  std::ofstream(path("bad.json")) << "{ \"vantor\": { \"motionResW\": 320 ";
  std::ofstream(path("nokey.json")) << "{ \"vantor\": { \"motionResW\": 320 } }";
  const struct {
    std::vector<std::string> args;
    int status;  // 2: the command line is wrong; 1: the replay cannot run; 0: a warning
    std::string fragment;
  } kCases[] = {
      {{}, 2, "no input"},
      {{"--wat", path("clip")}, 2, "unknown option --wat"},
      {{path("missing.avi")}, 1, "no such file or folder"},
      {{path("notavideo.avi")}, 1, "notavideo.avi"},
      {{path("empty")}, 1, "holds no images"},
      {{path("broken")}, 1, "frame_0000.png': not a picture OpenCV decodes"},
      {{"--config", path("bad.json"), path("clip")}, 1, "bad.json"},
      {{"--config", path("nokey.json"), path("clip")}, 1, "motionResH"},
      {{"--config", path("nothere.json"), path("clip")}, 1, "nothere.json"},
      {{"--csv", path("no/such/dir/out.csv"), path("clip")}, 1, "cannot write CSV"},
      {{"--plot", path("no/such/dir/t.png"), path("clip")}, 1, "timeline"},
      {{"--plot", path("t.txt"), path("clip")}, 1, ".txt is not a picture type"},
      {{"--annotate", path("no/dir/a.mp4"), path("clip")}, 1, "no folder"},
      {{"--fps", "10", "--states", "100s:absence", path("clip")}, 0, "frame 1000) comes after"}};
  for (const auto& c : kCases) {
    const RunResult r = run(c.args);
    EXPECT_EQ(r.status, c.status) << c.fragment << ": " << r.err;
    EXPECT_EQ(r.err.rfind("hds-replay: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(c.fragment), std::string::npos) << r.err;
  }
}

}  // namespace

namespace {

// Scene guards from the command line: settings merged into the configuration,
// their report per frame in --guard-csv and under the timeline, and a mask
// over the whole frame that leaves nothing to see.
TEST_F(HdsReplayTest, GuardsFromTheCommandLineReportEveryFrameAndMasksHideWhatIsInside) {
  const RunResult guarded =
      replayClip({"--guard", "noise=true", "--guard", "sensitivity=60", "--guard-csv",
                  path("guards.csv"), "--plot", path("guarded.png")});
  const std::string csv = slurp(path("guards.csv"));
  EXPECT_EQ(csv.rfind("frame,timestamp_ms,compared,voted,vote,moved_area,", 0), 0u) << csv;
  EXPECT_NE(csv.find(",1,1,1,"), std::string::npos) << "a frame that voted motion";
  bool motion = false;
  for (const Row& row : guarded.rows) motion = motion || row.at("status") == "0";
  EXPECT_TRUE(motion);
  replayClip({"--plot", path("plain.png")});
  EXPECT_GT(cv::imread(path("guarded.png")).rows, cv::imread(path("plain.png")).rows);

  const RunResult masked = replayClip({"--mask", "0,0,1,0,1,1,0,1"});
  for (const Row& row : masked.rows) EXPECT_NE(row.at("status"), "0") << row.at("frame");

  const RunResult bad = run({"--guard", "masks=1", path("clip")});
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("masks go with --mask"), std::string::npos) << bad.err;
  const RunResult refused = run({"--guard", "sensitivity=101", "--no-progress", path("clip")});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("guards.sensitivity is out of range"), std::string::npos)
      << refused.err;
}

}  // namespace
