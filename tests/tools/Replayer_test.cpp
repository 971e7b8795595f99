// hds-replay as a whole on inputs that are not what they are said to be:
// camera dumps of another geometry, camera logs of another length, videos cut
// short, files it may not read. Each replay is a process of its own.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "tests/support/SyntheticScene.h"
#include "tests/support/YuvFrame.h"
#include "tests/tools/ToolRun.h"

namespace hdsreplay {
namespace {

namespace fs = std::filesystem;
using hdsml::YuvLayout;

class ReplayerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { fs::create_directories(dir()); }
  static void TearDownTestSuite() { fs::remove_all(dir()); }
  static std::string dir() {
    return ::testing::TempDir() + "replayer_" + std::to_string(::getpid()) + "/";
  }

  // `frames` frames of a smooth, colourful 160x120 scene drifting right, as a
  // camera dump in `layout` with rows padded by `padding` bytes.
  static void writeDump(const std::string& name, int frames, YuvLayout layout, int padding = 0) {
    std::ofstream out(dir() + name, std::ios::binary);
    for (int i = 0; i < frames; ++i) {
      cv::Mat bgr(120, 160, CV_8UC3);
      for (int y = 0; y < 120; ++y)
        for (int x = 0; x < 160; ++x)
          bgr.at<cv::Vec3b>(y, x) =
              cv::Vec3b(cv::saturate_cast<uint8_t>(128 + 100 * std::sin((x + i) / 6.0) *
                                                             std::cos(y / 9.0)),
                        cv::saturate_cast<uint8_t>(128 + 60 * std::cos(x / 8.0 + y / 13.0)),
                        cv::saturate_cast<uint8_t>(128 + 100 * std::cos(x / 5.0 + 1) *
                                                             std::sin(y / 7.0)));
      const hdsml::YuvFrame f = hdsml::packYuv(bgr, layout, padding);
      std::vector<uint8_t> bytes = f.bytes;
      // Frames that follow one another take their last row's padding too.
      bytes.resize(size_t(160 + padding) * 120 +
                       size_t(hdsml::isPlanar(layout) ? 2 * (80 + padding) : 160 + padding) * 60,
                   0);
      out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<long>(bytes.size()));
    }
  }
  static ToolRun replay(std::vector<std::string> args) {
    args.insert(args.end(), {"--fps", "10", "--motion-res", "160x120", "--no-progress"});
    return runTool(HDS_REPLAY_COMMAND, args);
  }
};

TEST_F(ReplayerTest, ADumpOfAnotherGeometryIsRefusedWithSizesThatFitOrWarnedAbout) {
  // Rows of 176 bytes for 160 pixels: 12 frames are 13.2 frames without padding.
  writeDump("wide.nv21", 12, YuvLayout::NV21, 16);
  const ToolRun refused = replay({dir() + "wide.nv21", "--raw", "160x120"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("holds 380160 bytes"), std::string::npos) << refused.err;
  EXPECT_NE(refused.err.find("13.20 frames: not a whole number"), std::string::npos);
  EXPECT_NE(refused.err.find("sizes that fit: --raw 160x120 --row-stride 176 (12 frames)"),
            std::string::npos)
      << refused.err;

  // 10 such frames are 11 frames without padding: replayed, with a warning first.
  writeDump("ten.nv21", 10, YuvLayout::NV21, 16);
  const ToolRun stride = replay({dir() + "ten.nv21", "--raw", "160x120", "--frames", "2"});
  EXPECT_EQ(stride.status, 0) << stride.err;
  EXPECT_NE(stride.err.find("warning: the luma rows of 160x120 nv21 match best 176 bytes apart"),
            std::string::npos)
      << stride.err;
  EXPECT_EQ(replay({dir() + "ten.nv21", "--raw", "160x120", "--row-stride", "176", "--frames", "2"})
                .err,
            "");

  // Half the width, twice the height: a whole number of frames, every row read as two.
  writeDump("tight.nv21", 4, YuvLayout::NV21);
  const ToolRun narrow = replay({dir() + "tight.nv21", "--raw", "80x240", "--frames", "2"});
  EXPECT_NE(narrow.err.find("match best 160 bytes apart, not 80"), std::string::npos)
      << narrow.err;
  const ToolRun planar =
      replay({dir() + "tight.nv21", "--raw", "160x120", "--layout", "i420", "--frames", "2"});
  EXPECT_NE(planar.err.find("looks interleaved (nv21 or nv12), not i420"), std::string::npos)
      << planar.err;
  EXPECT_EQ(replay({dir() + "tight.nv21", "--raw", "160x120", "--frames", "2"}).err, "");
}

TEST_F(ReplayerTest, ACameraLogOfAnotherLengthIsRefusedWithBothCounts) {
  writeDump("logged.nv21", 4, YuvLayout::NV21);
  for (const int rows : {3, 5}) {
    std::ofstream log(dir() + "logged.csv");
    log << "timestamp_ms\n";
    for (int i = 0; i < rows; ++i) log << 100 * i << "\n";
    log.close();
    const ToolRun r = replay({dir() + "logged.nv21", "--raw", "160x120"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("lists " + std::to_string(rows) + " frames; the input holds 4"),
              std::string::npos)
        << r.err;
  }
}

TEST_F(ReplayerTest, AVideoCutShortIsReplayedWithAWarningThatGivesBothCounts) {
  {
    cv::VideoWriter video(dir() + "whole.avi", cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10.0,
                          cv::Size(160, 120));
    const hdsml::SyntheticScene scene(160, 120);
    for (int i = 0; i < 40; ++i) video.write(scene.moving(i, 24, 6));
  }
  const ToolRun whole = replay({dir() + "whole.avi"});
  EXPECT_EQ(whole.status, 0);
  EXPECT_EQ(whole.err, "");
  // The first half of the file: its header still says 40 frames.
  std::ifstream in(dir() + "whole.avi", std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  std::ofstream(dir() + "cut.avi", std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  const ToolRun cut = replay({dir() + "cut.avi"});
  EXPECT_EQ(cut.status, 0) << cut.err;
  EXPECT_NE(cut.err.find("frames, though its header says 40: the file may be cut short"),
            std::string::npos)
      << cut.err;
  // Limited by --frames, a shorter replay is no fault.
  EXPECT_EQ(replay({dir() + "whole.avi", "--frames", "5"}).err, "");
}

TEST_F(ReplayerTest, AFileItMayNotReadIsSaidToBeThat) {
  // Root reads every file: it replays as the user nobody.
  std::string as;
  if (::geteuid() == 0) {
    if (!fs::exists("/usr/bin/setpriv")) GTEST_SKIP() << "root reads every file";
    as = "/usr/bin/setpriv --reuid=65534 --regid=65534 --clear-groups ";
    // A build under root's home (a fresh machine's clone in /root) is out of
    // nobody's reach: the tool itself would not start.
    if (runTool(as + HDS_REPLAY_COMMAND, {"--version"}).status != 0)
      GTEST_SKIP() << "the user nobody cannot run " << HDS_REPLAY_COMMAND;
  }
  std::ofstream(dir() + "locked.avi") << "a video, as far as anyone can tell";
  fs::permissions(dir() + "locked.avi", fs::perms::owner_read | fs::perms::owner_write);
  const ToolRun r = runTool(as + HDS_REPLAY_COMMAND, {dir() + "locked.avi", "--no-progress"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot read '" + dir() + "locked.avi': Permission denied"),
            std::string::npos)
      << r.err;
}

}  // namespace
}  // namespace hdsreplay
