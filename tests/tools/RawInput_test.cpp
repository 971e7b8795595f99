// Camera dumps: their geometry, reading them back, the camera log beside them
// and the clock it gives the replay.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "tests/support/YuvFrame.h"
#include "tools/input/CameraLog.h"
#include "tools/input/FrameSource.h"
#include "tools/input/RawGeometry.h"
#include "tools/input/RawYuvSource.h"
#include "tools/options/FrameClock.h"
#include "tools/options/TimeSpec.h"

namespace hdsreplay {
namespace {

namespace fs = std::filesystem;
using hdsml::YuvLayout;

std::string tempPath(const std::string& name) {
  return ::testing::TempDir() + "raw_input_" + std::to_string(::getpid()) + "_" + name;
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

TEST(RawGeometryTest, SizesAndPlanesMatchThePackerInEveryLayout) {
  // 6x4: luma rows of 6, chroma rows of 3 samples (6 bytes interleaved).
  const struct {
    YuvLayout layout;
    int yStride, cStride;
    size_t frame, tight;
  } kCases[] = {{YuvLayout::NV21, 8, 0, 8 * 4 + 8 * 2, 48 - 2},
                {YuvLayout::NV12, 6, 0, 6 * 4 + 6 * 2, 36},
                {YuvLayout::I420, 8, 0, 8 * 4 + 4 * 2 * 2, 48 - 1},
                {YuvLayout::YV12, 10, 7, 10 * 4 + 7 * 2 * 2, 68 - 4}};
  for (const auto& c : kCases) {
    const RawGeometry g = RawGeometry::strided(6, 4, c.layout, c.yStride, c.cStride);
    EXPECT_EQ(g.frameBytes(), c.frame) << hdsml::layoutName(c.layout);
    EXPECT_EQ(g.tightBytes(), c.tight) << hdsml::layoutName(c.layout);
  }
  EXPECT_THROW(RawGeometry::strided(6, 4, YuvLayout::NV21, 5), std::invalid_argument);
  EXPECT_THROW(RawGeometry::strided(6, 4, YuvLayout::I420, 6, 2), std::invalid_argument);

  // A packed frame's bytes, placed by the geometry of the same padding, give
  // the packer's own planes; YV12 keeps V ahead of U.
  cv::Mat blocks(3, 5, CV_8UC3), bgr;  // colour constant over each 2x2 chroma block
  cv::randu(blocks, 0, 256);
  cv::resize(blocks, bgr, cv::Size(10, 6), 0, 0, cv::INTER_NEAREST);
  for (YuvLayout layout : {YuvLayout::NV21, YuvLayout::NV12, YuvLayout::I420, YuvLayout::YV12}) {
    const hdsml::YuvFrame packed = hdsml::packYuv(bgr, layout, 3);
    hdsml::YuvFrame placed;
    placed.bytes = packed.bytes;
    const RawGeometry g = RawGeometry::padded(10, 6, layout, 3);
    g.place(placed);
    EXPECT_EQ(g.tightBytes(), packed.bytes.size()) << hdsml::layoutName(layout);
    EXPECT_EQ(placed.u - placed.bytes.data(), packed.u - packed.bytes.data());
    EXPECT_EQ(placed.v - placed.bytes.data(), packed.v - packed.bytes.data());
    EXPECT_EQ(placed.uRowStride, packed.uRowStride);
    EXPECT_EQ(placed.uPixelStride, packed.uPixelStride);
    EXPECT_LE(cv::norm(hdsml::unpackYuv(placed), bgr, cv::NORM_INF), 4);  // colour round trip
    EXPECT_TRUE(layout != YuvLayout::YV12 || placed.v < placed.u);
  }
}

TEST(RawYuvSourceTest, ReadsFramesAsTheyLieAndNamesAWrongSize) {
  const RawGeometry g = RawGeometry::strided(4, 2, YuvLayout::NV21, 6);  // 6 * 2 + 6 = 18 bytes
  std::vector<uint8_t> twoFrames(36);
  for (size_t i = 0; i < twoFrames.size(); ++i) twoFrames[i] = static_cast<uint8_t>(i);
  writeBytes(tempPath("two.nv21"), twoFrames);
  RawYuvSource file(tempPath("two.nv21"), g);
  EXPECT_EQ(file.frameCount(), 2);
  SourceFrame f;
  ASSERT_TRUE(file.read(f));
  ASSERT_TRUE(file.read(f));
  EXPECT_TRUE(f.raw);
  EXPECT_EQ(f.yuv.y[0], 18);               // the second frame's first byte
  EXPECT_EQ(f.yuv.v[0], 18 + 12);          // NV21: V first, after the luma rows
  EXPECT_EQ(f.yuv.u[2 * 1], 18 + 12 + 3);  // the second U sample
  EXPECT_EQ(f.yuv.y[1 * 6 + 3], 18 + 9);   // row 1, column 3, through the stride
  EXPECT_FALSE(file.read(f));

  twoFrames.resize(35);
  writeBytes(tempPath("short.nv21"), twoFrames);
  try {
    RawYuvSource bad(tempPath("short.nv21"), g);
    ADD_FAILURE() << "accepted 35 bytes";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("holds 35 bytes; a frame of 4x2 nv21 with rows of 6 bytes "
                                         "(luma) and 6 (chroma) takes 18 (16 without"),
              std::string::npos)
        << e.what();
  }
  // A folder: frames in name order, each full or without its last row's padding.
  const std::string dir = tempPath("frames");
  fs::create_directories(dir);
  writeBytes(dir + "/b.yuv", std::vector<uint8_t>(16, 2));
  writeBytes(dir + "/a.yuv", std::vector<uint8_t>(18, 1));
  RawYuvSource folder(dir, g);
  ASSERT_TRUE(folder.read(f));
  EXPECT_EQ(f.yuv.y[0], 1);
  ASSERT_TRUE(folder.read(f));
  EXPECT_EQ(f.yuv.u[2], 2);
  // Raw frames without their size are refused with a hint.
  EXPECT_THROW(FrameSource::open(dir), std::runtime_error);
  EXPECT_EQ(layoutFromName(tempPath("two.nv21")), YuvLayout::NV21);
  EXPECT_EQ(layoutFromName(dir), std::nullopt);  // .yuv says no layout
  fs::remove_all(dir);
}

TEST(CameraLogTest, ParsesColumnsByNameAndNamesTheLineOfAFault) {
  const CameraLog log = CameraLog::parse(
      "lens_moving,timestamp_ms,exposure_ns,iso\n0,1000,33000000,100\n1,1033,33000000,100\n"
      "\n0,1100,66000000,100\n",
      "log.csv");
  ASSERT_EQ(log.entries().size(), 3u);
  EXPECT_EQ(log.entries()[1].timestampMs, 1033);
  EXPECT_TRUE(log.entries()[1].lensMoving);
  EXPECT_EQ(log.entries()[2].exposureNs, 66000000);
  EXPECT_EQ(log.medianIntervalMs(), 67);  // of 33 and 67, the upper middle
  EXPECT_FALSE(CameraLog::parse("timestamp_ms\n5\n", "t").entries()[0].exposureNs);

  const std::pair<const char*, const char*> kBad[] = {
      {"exposure_ns\n100\n", "line 1: the header names no timestamp_ms"},
      {"timestamp_ms\n5\n5\n", "line 3: timestamp_ms 5 does not come after"},
      {"timestamp_ms,lens_moving\n5,2\n",
       "line 2: lens_moving '2' is not a whole number from 0 to 1"},
      {"timestamp_ms,exposure_ns\n5,\n", "line 2: exposure_ns ''"},
      {"timestamp_ms\n", "holds no frames"}};
  for (const auto& [text, fragment] : kBad) {
    try {
      CameraLog::parse(text, "bad.csv");
      ADD_FAILURE() << "accepted " << text;
    } catch (const std::runtime_error& e) {
      EXPECT_NE(std::string(e.what()).find(fragment), std::string::npos) << e.what();
    }
  }
  std::ofstream(tempPath("dump.csv")) << "timestamp_ms\n0\n";
  EXPECT_EQ(CameraLog::besideDump(tempPath("dump.nv21")), tempPath("dump.csv"));
  EXPECT_EQ(CameraLog::besideDump(tempPath("other.nv21")), "");
}

TEST(FrameClockTest, LoggedTimestampsWithHeldFramesAroundThem) {
  // Evenly spaced, as --fps gives them: 30 fps rounds to 0, 33, 67, 100.
  const FrameClock even(30.0);
  EXPECT_EQ(even.timestampMs(2), 67);
  EXPECT_EQ(even.frameAt(34), 2);
  // Two held frames, three logged ones 40 ms apart and late, then the tail.
  const FrameClock logged({5000, 5040, 5100}, 2, 40);
  const std::vector<int64_t> expected = {4920, 4960, 5000, 5040, 5100, 5140};
  for (long i = 0; i < 6; ++i) EXPECT_EQ(logged.timestampMs(i), expected[i]) << i;
  EXPECT_EQ(logged.relativeMs(4), 180);
  EXPECT_EQ(logged.frameAt(150), 4);  // the first frame at or after 150 ms from the start
  EXPECT_EQ(TimeSpec::parse("0.12s", "t").frameIndex(logged), 3);
  EXPECT_EQ(TimeSpec::parse("3", "t").ms(logged), 120.0);
  EXPECT_DOUBLE_EQ(logged.fps(), 25.0);
}

}  // namespace
}  // namespace hdsreplay
