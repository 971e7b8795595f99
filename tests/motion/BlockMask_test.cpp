// Mask polygons turned into ignored blocks: a block is ignored when at least
// half of its pixel centres lie inside, at the frame's edges, in concave and
// in overlapping outlines alike.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "motion/BlockMask.h"

namespace {

using Polygon = std::vector<cv::Point2d>;

// The mask of a 32 x 16 frame (8 x 4 blocks) as rows of '#' and '.'.
std::string picture(const std::vector<Polygon>& polygons) {
  const std::vector<uint8_t> mask = hdsml::blockMaskOfPolygons(polygons, 32, 16);
  std::string text;
  for (int by = 0; by < 4; ++by) {
    for (int bx = 0; bx < 8; ++bx) text += mask[by * 8 + bx] ? '#' : '.';
    text += '\n';
  }
  return text;
}

TEST(BlockMaskTest, WholeFrameAndNoPolygon) {
  EXPECT_EQ(picture({{{0, 0}, {1, 0}, {1, 1}, {0, 1}}}),
            "########\n########\n########\n########\n");
  EXPECT_EQ(picture({}), "........\n........\n........\n........\n");
}

TEST(BlockMaskTest, PartialBlocksCountFromHalfTheirPixels) {
  // x up to 6/32: block 1 has columns 4 and 5 inside (8 of 16 pixels): ignored.
  EXPECT_EQ(picture({{{0, 0}, {6.0 / 32, 0}, {6.0 / 32, 1}, {0, 1}}}),
            "##......\n##......\n##......\n##......\n");
  // Up to 5.4/32: only column 4's centre (4.5) is inside, 4 of 16: kept.
  EXPECT_EQ(picture({{{0, 0}, {5.4 / 32, 0}, {5.4 / 32, 1}, {0, 1}}}),
            "#.......\n#.......\n#.......\n#.......\n");
}

TEST(BlockMaskTest, PolygonsOnTheRightAndBottomEdgesReachTheLastBlocks) {
  EXPECT_EQ(picture({{{0.75, 0.5}, {1, 0.5}, {1, 1}, {0.75, 1}}}),
            "........\n........\n......##\n......##\n");
}

TEST(BlockMaskTest, ConcaveOutlineLeavesItsNotchOut) {
  // A U: the notch between its arms, columns 8..23 of rows 0..7, stays free.
  const Polygon u = {{0, 0},    {0.25, 0}, {0.25, 0.5}, {0.75, 0.5},
                     {0.75, 0}, {1, 0},    {1, 1},      {0, 1}};
  EXPECT_EQ(picture({u}), "##....##\n##....##\n########\n########\n");
}

TEST(BlockMaskTest, OverlappingPolygonsAddUp) {
  const Polygon left = {{0, 0}, {0.5, 0}, {0.5, 0.5}, {0, 0.5}};
  const Polygon middle = {{0.25, 0.25}, {0.75, 0.25}, {0.75, 0.75}, {0.25, 0.75}};
  EXPECT_EQ(picture({left, middle}), "####....\n######..\n..####..\n........\n");
}

}  // namespace
