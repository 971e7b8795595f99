// The frames a replay hands over, and camera dumps written to be read back.
#include "tools/input/Footage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <opencv2/imgcodecs.hpp>

#include "tests/support/YuvFrame.h"
#include "tools/input/CameraDumpWriter.h"
#include "tools/input/CameraLog.h"
#include "tools/input/InputFrames.h"
#include "tools/input/RawYuvSource.h"
#include "tools/output/OutputPaths.h"

namespace hdsreplay {
namespace {

namespace fs = std::filesystem;

std::string temp(const std::string& name) {
  return ::testing::TempDir() + "footage_" + std::to_string(::getpid()) + "_" + name;
}

// Three pictures of 11x7 whose red says which frame they are.
cv::Mat picture(int i) { return cv::Mat(7, 11, CV_8UC3, cv::Scalar(10, 20, 50 + 60 * i)); }

TEST(FootageTest, HoldsTheFirstFrameBeforeAndTheLastAfterTheInput) {
  const std::string dir = temp("pictures");
  fs::create_directories(dir);
  for (int i = 0; i < 3; ++i) cv::imwrite(dir + "/f" + std::to_string(i) + ".png", picture(i));
  InputFrames input(dir, -1, std::nullopt);
  Footage footage(input, 2, 2);
  std::string parts, shown;
  while (footage.advance()) {
    EXPECT_EQ(footage.index(), static_cast<long>(parts.size()));
    parts += "LIT"[static_cast<int>(footage.part())];
    shown += std::to_string(footage.inputIndex());
    EXPECT_EQ(footage.frame().bgr.size(), cv::Size(10, 6));  // cropped to even sizes
    EXPECT_EQ(footage.frame().bgr.at<cv::Vec3b>(0, 0)[2], 50 + 60 * footage.inputIndex());
  }
  EXPECT_EQ(parts, "LLIIITT");
  EXPECT_EQ(shown, "0001222");
  fs::remove_all(dir);
}

TEST(CameraDumpWriterTest, OneFileOfFullFramesOrAFolderOfTightOnesWithTheirLog) {
  for (const std::string& out : {temp("dump.i420"), temp("dumpdir")}) {
    CameraDumpWriter dump(out, hdsml::YuvLayout::I420, 2, 10.0, 5000000);
    for (int i = 0; i < 3; ++i) dump.add(picture(i));
    dump.close();
    const RawGeometry g = *dump.geometry();
    EXPECT_EQ(g.frameBytes(), 12u * 6 + 2 * 7u * 3);  // rows of 10 + 2 and 5 + 2, all padded
    const bool oneFile = fs::is_regular_file(out);  // frames that follow others keep their padding
    EXPECT_EQ(fs::file_size(oneFile ? out : out + "/frame_000002.i420"),
              oneFile ? 3 * g.frameBytes() : g.tightBytes());
    const CameraLog log = CameraLog::load(CameraLog::besideDump(out));
    ASSERT_EQ(log.entries().size(), 3u);
    EXPECT_EQ(log.entries()[2].timestampMs, 200);
    EXPECT_EQ(log.entries()[2].exposureNs, 5000000);
    // Read back, each frame holds the packer's bytes.
    RawYuvSource source(out, g);
    SourceFrame f;
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(source.read(f));
      const hdsml::YuvFrame packed =
          hdsml::packYuv(picture(i)(cv::Rect(0, 0, 10, 6)).clone(), hdsml::YuvLayout::I420, 2);
      EXPECT_TRUE(std::equal(packed.bytes.begin(), packed.bytes.end(), f.yuv.bytes.begin()));
    }
    fs::remove_all(out);
  }
}

TEST(OutputPathsTest, PicturesAndVideosFailEarlyWithWhatIsWrong) {
  EXPECT_NO_THROW(checkPicturePath(temp("t.png"), "timeline"));
  EXPECT_NO_THROW(checkAnnotationPath(temp("new/folder/of/pngs")));  // made as needed
  EXPECT_TRUE(isVideoPath("a.MKV") && !isVideoPath("a.png"));
  const std::pair<std::string, std::string> kBad[] = {
      {temp("t.txt"), ".txt is not a picture type OpenCV writes; it writes .png"},
      {temp("t"), "the name has no picture type"},
      {temp("none/t.png"), "no folder"}};
  for (const auto& [path, fragment] : kBad) {
    try {
      checkPicturePath(path, "timeline");
      ADD_FAILURE() << "accepted " << path;
    } catch (const std::runtime_error& e) {
      EXPECT_NE(std::string(e.what()).find(fragment), std::string::npos) << e.what();
    }
  }
  EXPECT_THROW(checkAnnotationPath(temp("none/a.mp4")), std::runtime_error);
}

}  // namespace
}  // namespace hdsreplay
