#include "motion/vantorData.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

namespace {

using Region = std::pair<cv::Rect, float>;

TEST(VantorListTest, GetListReplacesTargetContents) {
  vantorList<Region> output;
  std::vector<Region> source{{cv::Rect(1, 2, 3, 4), 0.0f}};
  output.setList(source);
  source.clear();  // the list holds its own copy

  std::vector<Region> target{{cv::Rect(), 1.0f}, {cv::Rect(), 2.0f}, {cv::Rect(), 3.0f}};
  output.getList(target);
  EXPECT_EQ((std::vector<Region>{{cv::Rect(1, 2, 3, 4), 0.0f}}), target);
}

TEST(VantorListTest, ConvertsFromBaseWithCheckedCast) {
  std::unique_ptr<vantorData> data = std::make_unique<vantorList<Region>>();
  EXPECT_NE(nullptr, dynamic_cast<vantorList<Region>*>(data.get()));
  EXPECT_EQ(nullptr, dynamic_cast<vantorList<int>*>(data.get()));
}

}  // namespace
