// A camera dump's bytes checked against the geometry it is said to have: the
// stride its luma rows match at, chroma that is interleaved when planar is
// said or planar when interleaved is, and the sizes that would fit a file of the wrong size.
#include "tools/input/RawDumpCheck.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tests/support/YuvFrame.h"

namespace hdsreplay {
namespace {

using hdsml::YuvLayout;

// Smooth, colourful and different along x and y: what a camera sees, as far
// as the rows' likeness goes.
cv::Mat picture(int width, int height) {
  cv::Mat bgr(height, width, CV_8UC3);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      bgr.at<cv::Vec3b>(y, x) = cv::Vec3b(
          cv::saturate_cast<uint8_t>(128 + 100 * std::sin(x / 6.0) * std::cos(y / 9.0)),
          cv::saturate_cast<uint8_t>(128 + 60 * std::cos(x / 8.0 + y / 13.0)),
          cv::saturate_cast<uint8_t>(128 + 100 * std::cos(x / 5.0 + 1) * std::sin(y / 7.0)));
  return bgr;
}

std::vector<uint8_t> packed(YuvLayout layout, int rowPadding = 0) {
  return hdsml::packYuv(picture(96, 64), layout, rowPadding).bytes;
}

bool mentions(const std::vector<std::string>& warnings, const std::string& fragment) {
  for (const std::string& w : warnings)
    if (w.find(fragment) != std::string::npos) return true;
  return false;
}

TEST(RawDumpCheckTest, LumaRowsMatchBestAtTheStrideTheyHave) {
  const std::vector<uint8_t> nv21 = packed(YuvLayout::NV21);
  const RawGeometry right = RawGeometry::padded(96, 64, YuvLayout::NV21, 0);
  EXPECT_EQ(bestLumaStride(nv21, right), 96);
  EXPECT_TRUE(checkRawFrame(nv21, right).empty());

  // Half the width and twice the height: the same number of bytes, every row
  // read as two.
  const RawGeometry half = RawGeometry::padded(48, 128, YuvLayout::NV21, 0);
  EXPECT_EQ(bestLumaStride(nv21, half), 96);
  EXPECT_TRUE(mentions(checkRawFrame(nv21, half), "match best 96 bytes apart, not 48"));
  // Twice the width: two rows read as one.
  EXPECT_EQ(bestLumaStride(nv21, RawGeometry::padded(192, 32, YuvLayout::NV21, 0)), 96);

  // Rows padded to 112 bytes, replayed as if they were not.
  const std::vector<uint8_t> padded = packed(YuvLayout::NV21, 16);
  EXPECT_EQ(bestLumaStride(padded, right), 112);
  EXPECT_TRUE(mentions(checkRawFrame(padded, right), "--row-stride 112"));
  EXPECT_TRUE(checkRawFrame(padded, RawGeometry::padded(96, 64, YuvLayout::NV21, 16)).empty());

  // A flat frame says nothing either way.
  EXPECT_EQ(bestLumaStride(std::vector<uint8_t>(96 * 64 * 3 / 2, 128), half), 48);
}

TEST(RawDumpCheckTest, AChromaLayoutOfTheOtherKindIsNamed) {
  const RawGeometry i420 = RawGeometry::padded(96, 64, YuvLayout::I420, 0);
  const RawGeometry nv21 = RawGeometry::padded(96, 64, YuvLayout::NV21, 0);
  for (const YuvLayout interleaved : {YuvLayout::NV21, YuvLayout::NV12}) {
    EXPECT_TRUE(mentions(checkRawFrame(packed(interleaved), i420), "looks interleaved"));
    EXPECT_TRUE(checkRawFrame(packed(interleaved), nv21).empty());
  }
  // Planar chroma read as pairs is told by its two planes' means: a bluish
  // picture, as a camera's are tinted one way or another.
  const cv::Mat bluish = picture(96, 64) + cv::Scalar(40, 0, 0);
  for (const YuvLayout planar : {YuvLayout::I420, YuvLayout::YV12}) {
    EXPECT_TRUE(checkRawFrame(packed(planar), i420).empty());
    EXPECT_TRUE(mentions(checkRawFrame(hdsml::packYuv(bluish, planar, 0).bytes, nv21),
                         "looks planar (i420 or yv12), not nv21 as stated"));
    EXPECT_TRUE(checkRawFrame(hdsml::packYuv(bluish, YuvLayout::NV21, 0).bytes, nv21).empty());
  }
  // Green above magenta: pairs whose two samples average alike over the
  // picture while its halves differ, as planes would; but Cr and Cb differ
  // within each pair, as a plane's neighbours do not.
  cv::Mat twoColours(64, 96, CV_8UC3, cv::Scalar(0, 200, 0));
  twoColours.rowRange(32, 64).setTo(cv::Scalar(200, 0, 200));
  EXPECT_TRUE(checkRawFrame(hdsml::packYuv(twoColours, YuvLayout::NV21, 0).bytes, nv21).empty());
  // Fine stripes of colour, Cr 3 above Cb in every pair, 6 higher below than
  // above: neighbouring bytes are closer than bytes two apart, as in a plane,
  // but even and odd bytes differ by half as much as the halves do.
  std::vector<uint8_t> stripes(96 * 64 * 3 / 2, 128);
  const size_t chroma = 96 * 64, half = 96 * 32 / 2;
  for (size_t i = chroma; i < stripes.size(); i += 2) {
    const int t = ((i - chroma) / 2 % 2 ? 100 : 140) + (i - chroma >= half ? 6 : 0);
    stripes[i] = static_cast<uint8_t>(t + 3);
    stripes[i + 1] = static_cast<uint8_t>(t);
  }
  EXPECT_TRUE(checkRawFrame(stripes, nv21).empty());
  // Grey has no chroma to tell the layouts apart: nothing is said.
  EXPECT_TRUE(checkRawFrame(std::vector<uint8_t>(96 * 64 * 3 / 2, 128), nv21).empty());
}

TEST(RawDumpCheckTest, SizesThatFitAFileNearestTheStatedOneFirst) {
  // Three 640x480 frames with 704-byte rows, said to have none.
  const RawGeometry stated = RawGeometry::padded(640, 480, YuvLayout::NV21, 0);
  const std::vector<std::string> fits = fittingGeometries(3 * 704 * 720, stated);
  ASSERT_FALSE(fits.empty());
  EXPECT_EQ(fits[0], "--raw 640x480 --row-stride 704 (3 frames)");
  EXPECT_LE(fits.size(), 3u);
  // Two 1280x720 frames said to be 1920x1080: 0.89 of a frame.
  const std::vector<std::string> smaller = fittingGeometries(
      size_t(1280) * 720 * 3, RawGeometry::padded(1920, 1080, YuvLayout::NV21, 0));
  ASSERT_FALSE(smaller.empty());
  EXPECT_EQ(smaller[0], "--raw 1280x720 (2 frames)");
  EXPECT_TRUE(fittingGeometries(7, stated).empty());
}

}  // namespace
}  // namespace hdsreplay
