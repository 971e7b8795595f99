// Runs the built hds-replay program on small generated clips. Each replay is a
// process of its own, since the detector facade is one object per process.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

namespace {

namespace fs = std::filesystem;

struct RunResult {
  bool exited = false;  // false: killed by a signal
  int status = -1;
  std::string out, err;
};

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// One CSV row as its columns.
std::vector<std::string> splitRow(const std::string& line) {
  std::vector<std::string> cols;
  std::string col;
  std::stringstream ss(line);
  while (std::getline(ss, col, ',')) cols.push_back(col);
  if (!line.empty() && line.back() == ',') cols.push_back("");
  return cols;
}

class HdsReplayTest : public ::testing::Test {
 protected:
  static constexpr int kMovingFrames = 40;  // at 10 fps
  static constexpr int kWidth = 160, kHeight = 120;

  // A bright square crossing a textured background, left to right and back.
  static cv::Mat clipFrame(int i) {
    cv::Mat frame(kHeight, kWidth, CV_8UC3);
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x)
        frame.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<uchar>(60 + (x * 7 + y * 3) % 40),
                                              static_cast<uchar>(70 + (x * 3 + y * 5) % 30), 80);
    const int travel = kWidth - 30, step = 6;
    int pos = (i * step) % (2 * travel);
    if (pos > travel) pos = 2 * travel - pos;
    cv::rectangle(frame, cv::Rect(5 + pos, 40, 24, 24), cv::Scalar(230, 240, 250), cv::FILLED);
    return frame;
  }

  static void SetUpTestSuite() {
    dir_ = new std::string(::testing::TempDir() + "hds_replay_" + std::to_string(::getpid()));
    fs::create_directories(*dir_ + "/clip");
    for (int i = 0; i < kMovingFrames; ++i) {
      char name[64];
      std::snprintf(name, sizeof name, "/clip/frame_%04d.png", i);
      cv::imwrite(*dir_ + name, clipFrame(i));
    }
    cv::VideoWriter video(*dir_ + "/clip.avi", cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10.0,
                          cv::Size(kWidth, kHeight));
    for (int i = 0; i < kMovingFrames; ++i) video.write(clipFrame(i));
  }
  static void TearDownTestSuite() {
    std::error_code ec;
    fs::remove_all(*dir_, ec);
    delete dir_;
  }

  static std::string path(const std::string& name) { return *dir_ + "/" + name; }

  // Runs hds-replay with `args`, standard output and error captured.
  static RunResult run(const std::vector<std::string>& args) {
    static int counter = 0;
    const std::string outPath = path("stdout" + std::to_string(counter));
    const std::string errPath = path("stderr" + std::to_string(counter++));
    const pid_t pid = ::fork();
    if (pid == 0) {
      const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      ::dup2(out, STDOUT_FILENO);
      ::dup2(err, STDERR_FILENO);
      std::vector<char*> argv;
      argv.push_back(const_cast<char*>(HDS_REPLAY_BINARY));
      for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execv(HDS_REPLAY_BINARY, argv.data());
      ::_exit(127);
    }
    int wstatus = 0;
    ::waitpid(pid, &wstatus, 0);
    RunResult r;
    r.exited = WIFEXITED(wstatus);
    r.status = r.exited ? WEXITSTATUS(wstatus) : WTERMSIG(wstatus);
    r.out = slurp(outPath);
    r.err = slurp(errPath);
    return r;
  }

  // A lockstep replay of the generated clip: motion first, absence from 3 s, a
  // still tail of 6 s and an absence threshold of 2 s. Returns the CSV.
  static std::string replayClip(const std::string& csvName, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {
        "--fps",        "10",       "--motion-res",
        "160x120",      "--states", "0:DETECT_MOTION,3s:DETECT_ABSENCE",
        "--absence-ms", "2000",     "--hold-last",
        "6s",           "--csv",    path(csvName),
        "--no-progress"};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(path("clip"));
    const RunResult r = run(args);
    EXPECT_TRUE(r.exited && r.status == 0) << r.err;
    return slurp(path(csvName));
  }

  // The CSV without its wall-time column, which no two runs share.
  static std::string decisions(const std::string& csv) {
    std::string out, line;
    std::stringstream ss(csv);
    while (std::getline(ss, line)) out += line.substr(0, line.rfind(',')) + "\n";
    return out;
  }

  static std::vector<std::map<std::string, std::string>> rows(const std::string& csv) {
    std::stringstream ss(csv);
    std::string line;
    std::getline(ss, line);
    const std::vector<std::string> header = splitRow(line);
    std::vector<std::map<std::string, std::string>> result;
    while (std::getline(ss, line)) {
      const std::vector<std::string> cols = splitRow(line);
      EXPECT_EQ(cols.size(), header.size()) << line;
      std::map<std::string, std::string> row;
      for (size_t i = 0; i < header.size() && i < cols.size(); ++i) row[header[i]] = cols[i];
      result.push_back(row);
    }
    return result;
  }

  static void expectFailure(const RunResult& r, int status, const std::string& fragment) {
    EXPECT_TRUE(r.exited) << "killed by signal " << r.status;
    EXPECT_EQ(r.status, status) << r.err;
    EXPECT_EQ(r.err.rfind("hds-replay: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(fragment), std::string::npos) << r.err;
  }

  static std::string* dir_;
};

std::string* HdsReplayTest::dir_ = nullptr;

TEST_F(HdsReplayTest, LockstepReplayIsRepeatable) {
  const std::string first = replayClip("repeat1.csv");
  const std::string second = replayClip("repeat2.csv");
  ASSERT_FALSE(first.empty());
  EXPECT_EQ(decisions(first), decisions(second));
}

TEST_F(HdsReplayTest, MovingSquareReportsMotionAndStillTailReportsAbsenceAtThreshold) {
  const auto table = rows(replayClip("clip.csv"));
  ASSERT_EQ(table.size(), static_cast<size_t>(kMovingFrames + 60));

  long long lastMotion = -1, firstAbsence = -1;
  bool motionReported = false;
  for (const auto& row : table) {
    const long long ts = std::stoll(row.at("timestamp_ms"));
    EXPECT_EQ(row.at("processed"), "1") << "frame " << row.at("frame");
    EXPECT_EQ(row.at("dropped"), "0");
    EXPECT_EQ(row.at("vote") == "1", row.at("rect_count") != "0");
    if (row.at("motion_detected") == "1") lastMotion = ts;
    if (row.at("status") == "0") motionReported = true;
    if (row.at("status") == "2" && firstAbsence < 0) {
      firstAbsence = std::stoll(row.at("report_ts"));
      EXPECT_EQ(row.at("state"), "DETECT_ABSENCE");
    }
  }
  EXPECT_TRUE(motionReported);
  ASSERT_GE(lastMotion, 0) << "the moving square was never seen";
  EXPECT_LT(lastMotion, kMovingFrames * 100 + 3000) << "the still tail kept voting motion";
  // Absence comes on the first frame more than 2000 ms after the last motion:
  // frames are 100 ms apart.
  EXPECT_EQ(firstAbsence, lastMotion + 2100);
}

TEST_F(HdsReplayTest, CameraLayoutsAndRowPaddingGiveSameDecisions) {
  const std::string nv21 = decisions(replayClip("nv21.csv", {"--layout", "nv21"}));
  const std::string nv12 =
      decisions(replayClip("nv12.csv", {"--layout", "nv12", "--row-padding", "24"}));
  const std::string i420 =
      decisions(replayClip("i420.csv", {"--layout", "i420", "--row-padding", "7"}));
  ASSERT_NE(nv21.find('\n'), std::string::npos);
  EXPECT_EQ(nv21, nv12);
  EXPECT_EQ(nv21, i420);
}

TEST_F(HdsReplayTest, WritesSummaryTimelineAnnotationsAndContactSheet) {
  const RunResult r =
      run({"--fps", "10", "--motion-res", "160x120", "--hold-last", "10", "--plot",
           path("timeline.png"), "--annotate", path("annotated"), "--contact-sheet",
           path("sheet.png"), "--sheet-every", "10", "--no-progress", path("clip")});
  ASSERT_TRUE(r.exited && r.status == 0) << r.err;
  EXPECT_NE(r.out.find("frames read       40"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("handed over       50 (10 of them the still tail)"), std::string::npos);
  EXPECT_NE(r.out.find("processed         50"), std::string::npos);
  EXPECT_NE(r.out.find("detect() time"), std::string::npos);
  EXPECT_EQ(r.out.find("[HDSMLClient]"), std::string::npos) << "library output not kept apart";

  const cv::Mat timeline = cv::imread(path("timeline.png"));
  EXPECT_EQ(timeline.cols, 1400);
  const cv::Mat sheet = cv::imread(path("sheet.png"));
  EXPECT_FALSE(sheet.empty());
  int pngs = 0;
  for (const auto& entry : fs::directory_iterator(path("annotated"))) {
    ++pngs;
    EXPECT_EQ(cv::imread(entry.path().string()).size(), cv::Size(kWidth, kHeight));
  }
  EXPECT_EQ(pngs, 50);
}

TEST_F(HdsReplayTest, ReplaysVideoFilesInEveryPace) {
  for (const char* pace : {"lockstep", "realtime", "free"}) {
    // 40 fps keeps the realtime run to one second.
    const RunResult r =
        run({"--pace", pace, "--fps", "40", "--motion-res", "160x120", "--csv",
             path(std::string("video_") + pace + ".csv"), "--no-progress", path("clip.avi")});
    ASSERT_TRUE(r.exited && r.status == 0) << pace << ": " << r.err;
    EXPECT_NE(r.out.find("(video, 160x120, 40 fps)"), std::string::npos) << r.out;
    const auto table = rows(slurp(path(std::string("video_") + pace + ".csv")));
    EXPECT_EQ(table.size(), static_cast<size_t>(kMovingFrames)) << pace;
    for (const auto& row : table) {
      EXPECT_NE(row.at("processed") == "1", row.at("dropped") == "1");
      // Rectangles are read only between frames in lockstep.
      if (std::string(pace) != "lockstep") {
        EXPECT_EQ(row.at("rect_count"), "");
      }
    }
  }
}

TEST_F(HdsReplayTest, BadArgumentsExitWithUsageStatus) {
  expectFailure(run({}), 2, "no input");
  expectFailure(run({"--layout", "yuyv", path("clip")}), 2, "yuyv");
  expectFailure(run({"--pace", "turbo", path("clip")}), 2, "turbo");
  expectFailure(run({"--states", "5s", path("clip")}), 2, "WHEN:STATE");
  expectFailure(run({"--motion-res", "abc", path("clip")}), 2, "WxH");
  expectFailure(run({"--wat", path("clip")}), 2, "unknown option --wat");
  const RunResult help = run({"--help"});
  EXPECT_TRUE(help.exited && help.status == 0);
  EXPECT_NE(help.out.find("usage: hds-replay"), std::string::npos);
}

TEST_F(HdsReplayTest, UnusableInputsAndOutputsExitWithAClearMessage) {
  expectFailure(run({path("missing.avi")}), 1, "no such file or folder");

  std::ofstream(path("notavideo.avi")) << "this is not a video\n";
  expectFailure(run({path("notavideo.avi")}), 1, "notavideo.avi");

  fs::create_directories(path("empty"));
  expectFailure(run({path("empty")}), 1, "holds no images");

  fs::create_directories(path("broken"));
  std::ofstream(path("broken/frame_0000.png")) << "not a png";
  expectFailure(run({path("broken")}), 1, "cannot read image");

  std::ofstream(path("bad.json")) << "{ \"vantor\": { \"motionResW\": 320 ";
  expectFailure(run({"--config", path("bad.json"), path("clip")}), 1, "bad.json");
  std::ofstream(path("nokey.json")) << "{ \"vantor\": { \"motionResW\": 320 } }";
  expectFailure(run({"--config", path("nokey.json"), path("clip")}), 1, "motionResH");
  expectFailure(run({"--config", path("nothere.json"), path("clip")}), 1, "nothere.json");

  expectFailure(run({"--csv", path("no/such/dir/out.csv"), path("clip")}), 1, "cannot write CSV");
  expectFailure(run({"--plot", path("no/such/dir/t.png"), path("clip")}), 1, "timeline");
}

}  // namespace
