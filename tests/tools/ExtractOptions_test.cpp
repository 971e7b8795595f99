// hds-extract-frames' command line, and the grammar every tool shares: the
// same names for the same things, --help and --version that exit 0, unknown
// arguments refused.
#include "tools/options/ExtractOptions.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <opencv2/videoio.hpp>

#include "tests/support/SyntheticScene.h"
#include "tests/tools/ToolRun.h"
#include "tools/options/Version.h"

namespace hdsreplay {
namespace {

namespace fs = std::filesystem;
using hdsml::YuvLayout;

ExtractOptions parse(const std::vector<std::string>& args) {
  std::vector<const char*> argv = {"hds-extract-frames"};
  for (const std::string& a : args) argv.push_back(a.c_str());
  return parseExtractOptions(static_cast<int>(argv.size()), argv.data());
}

std::string refusal(const std::vector<std::string>& args) {
  try {
    parse(args);
  } catch (const UsageError& e) {
    return e.what();
  }
  return "accepted";
}

TEST(ExtractOptionsTest, ALayoutAndAFrameLimitByNameAndADumpNamedForItsLayout) {
  const ExtractOptions png = parse({"v.avi", "out", "--frames", "60"});
  EXPECT_FALSE(png.layout);
  EXPECT_EQ(png.maxFrames, 60);
  const ExtractOptions dump = parse({"--layout", "i420", "--row-padding=6", "v.avi", "dir"});
  EXPECT_EQ(dump.layout, YuvLayout::I420);
  EXPECT_EQ(dump.rowPadding, 6);
  EXPECT_EQ(parse({"v.avi", "out.nv12"}).layout, YuvLayout::NV12);  // the name says it
  EXPECT_EQ(parse({"--layout", "nv12", "v.avi", "out.NV12"}).layout, YuvLayout::NV12);
  EXPECT_TRUE(parse({"--help"}).help);
  EXPECT_TRUE(parse({"--version"}).version);

  const std::pair<std::vector<std::string>, const char*> kBad[] = {
      {{"v.avi", "out", "5"}, "a frame limit is given with --frames N (got '5')"},
      {{"--frames", "abc", "v.avi", "out"}, "--frames: 'abc' is not a whole number"},
      {{"--frames", "-3", "v.avi", "out"}, "--frames: -3 is out of range"},
      {{"--frames", "0", "v.avi", "out"}, "--frames: 0 is out of range"},
      {{"--raw", "nv21", "v.avi", "out.nv21"}, "here the dump's layout is given with --layout"},
      {{"--layout", "nv21", "v.avi", "out.nv12"},
       "'out.nv12' would hold nv21 frames under a name that says nv12"},
      {{"--layout", "nv21", "v.avi", "out.yuv"}, "name it .nv21"},
      {{"--layout", "rgb", "v.avi", "out"}, "--layout: "},
      {{"--row-padding", "4", "v.avi", "out"}, "give --layout too"},
      {{"--wat", "1", "v.avi", "out"}, "unknown option --wat"},
      {{"v.avi"}, "give a VIDEO and where its frames go"},
      {{"--frames"}, "--frames needs a value"}};
  for (const auto& [args, fragment] : kBad)
    EXPECT_NE(refusal(args).find(fragment), std::string::npos) << refusal(args);
}

class ToolGrammarTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    fs::create_directories(dir());
    cv::VideoWriter video(dir() + "clip.avi", cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10.0,
                          cv::Size(64, 48));
    const hdsml::SyntheticScene scene(64, 48);
    for (int i = 0; i < 8; ++i) video.write(scene.moving(i, 12, 4));
  }
  static void TearDownTestSuite() { fs::remove_all(dir()); }
  static std::string dir() {
    return ::testing::TempDir() + "tool_grammar_" + std::to_string(::getpid()) + "/";
  }
};

TEST_F(ToolGrammarTest, EveryToolHasHelpAndVersionAndRefusesWhatItDoesNotKnow) {
  const std::string version = std::string("(hdsml ") + libraryVersion() + ")";
  const struct {
    const char* name;
    std::string command;
  } kTools[] = {{"hds-replay", HDS_REPLAY_COMMAND},
                {"hds-grid", HDS_GRID_COMMAND},
                {"hds-extract-frames", HDS_EXTRACT_COMMAND},
                {"hds-facade-layout", HDS_FACADE_LAYOUT_COMMAND}};
  for (const auto& tool : kTools) {
    const ToolRun help = runTool(tool.command, {"--help"});
    EXPECT_EQ(help.status, 0) << tool.name;
    EXPECT_EQ(help.out.rfind(std::string("usage: ") + tool.name, 0), 0u) << help.out;
    const ToolRun v = runTool(tool.command, {"--version"});
    EXPECT_EQ(v.status, 0) << tool.name;
    EXPECT_EQ(v.out, std::string(tool.name) + " " + version + "\n");
    const ToolRun unknown = runTool(tool.command, {"--no-such-option", dir() + "clip.avi"});
    EXPECT_EQ(unknown.status, 2) << tool.name;
    EXPECT_NE(unknown.err.find("--no-such-option"), std::string::npos) << unknown.err;
  }
  EXPECT_EQ(runTool(HDS_FACADE_LAYOUT_COMMAND, {"extra"}).status, 2);
}

TEST_F(ToolGrammarTest, ExtractFramesWritesWhatItsNameSaysAndNeverOverItsVideo) {
  // Named .nv12 without --layout: NV12 bytes, which hds-replay reads by the name.
  ASSERT_EQ(runTool(HDS_EXTRACT_COMMAND, {dir() + "clip.avi", dir() + "named.nv12"}).status, 0);
  ASSERT_EQ(runTool(HDS_EXTRACT_COMMAND,
                    {"--layout", "nv12", dir() + "clip.avi", dir() + "asked.nv12"})
                .status,
            0);
  EXPECT_EQ(slurpFile(dir() + "named.nv12"), slurpFile(dir() + "asked.nv12"));
  EXPECT_NE(slurpFile(dir() + "named.nv12"),
            (runTool(HDS_EXTRACT_COMMAND, {dir() + "clip.avi", dir() + "other.nv21"}),
             slurpFile(dir() + "other.nv21")));
  const ToolRun limited =
      runTool(HDS_EXTRACT_COMMAND, {"--frames", "3", dir() + "clip.avi", dir() + "pngs"});
  EXPECT_EQ(limited.status, 0) << limited.err;
  EXPECT_TRUE(fs::exists(dir() + "pngs/frame_000002.png"));
  EXPECT_FALSE(fs::exists(dir() + "pngs/frame_000003.png"));

  const auto size = fs::file_size(dir() + "clip.avi");
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{dir() + "clip.avi", dir() + "./clip.avi"},
        std::vector<std::string>{"--layout", "nv21", dir() + "clip.avi", dir() + "clip.avi"},
        std::vector<std::string>{dir() + "clip.avi", dir()}}) {
    const ToolRun r = runTool(HDS_EXTRACT_COMMAND, args);
    EXPECT_EQ(r.status, 1) << args.back();
    EXPECT_NE(r.err.find("this run reads"), std::string::npos) << r.err;
  }
  // A camera log beside a dump that would land on the video itself.
  fs::copy_file(dir() + "clip.avi", dir() + "cam.csv");
  const ToolRun overLog = runTool(HDS_EXTRACT_COMMAND, {dir() + "cam.csv", dir() + "cam.nv21"});
  EXPECT_EQ(overLog.status, 1);
  EXPECT_NE(overLog.err.find("cannot write camera log"), std::string::npos) << overLog.err;
  EXPECT_EQ(fs::file_size(dir() + "clip.avi"), size);
  EXPECT_EQ(fs::file_size(dir() + "cam.csv"), size);
  EXPECT_FALSE(fs::exists(dir() + "cam.nv21"));
}

}  // namespace
}  // namespace hdsreplay
