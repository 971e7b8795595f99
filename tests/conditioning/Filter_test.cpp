#include "conditioning/Filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>

namespace {

// The divisor is the length from the first vote on; once full, the window slides.
// clear() restarts the warm-up but leaves the last ratio in place.
TEST(FilterTest, RatioCountsTheLastLengthVotesSinceTheLastClear) {
  EXPECT_EQ(Filter().votes.size(), 18u);
  Filter filter(5);
  EXPECT_EQ(filter.getRatio(), -1.0f);
  std::deque<bool> window;
  std::mt19937 random(7);
  for (int i = 0; i < 500; ++i) {
    if (i % 97 == 96) {
      const float ratio = filter.getRatio();
      filter.clear();
      window.clear();
      ASSERT_EQ(filter.getRatio(), ratio);
    }
    const bool value = random() % 3 != 0;
    filter.updateBuffer(value);
    window.push_back(value);
    if (window.size() > 5) window.pop_front();
    const float expected = std::count(window.begin(), window.end(), true) / 5.0f;
    ASSERT_EQ(filter.getRatio(), expected) << "after vote " << i;
    ASSERT_EQ(filter.full, window.size() == 5) << "after vote " << i;
  }
}

}  // namespace
