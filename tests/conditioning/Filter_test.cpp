#include "conditioning/Filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>

namespace {

// The motion thread's decision: a full window whose ratio, widened to double, exceeds 0.8.
bool countsAsMotion(const Filter& filter) {
  return filter.full && static_cast<double>(filter.getRatio()) > 0.8;
}

void vote(Filter& filter, bool value, int times) {
  for (int i = 0; i < times; ++i) filter.updateBuffer(value);
}

TEST(FilterTest, StartsUnsetAndClearRestartsTheWarmUpButKeepsTheRatio) {
  EXPECT_EQ(Filter().votes.size(), 18u);
  Filter filter(4);
  EXPECT_EQ(filter.getRatio(), -1.0f);
  vote(filter, true, 6);
  filter.clear();
  EXPECT_FALSE(filter.full);
  EXPECT_EQ(filter.getRatio(), 1.0f);
  filter.updateBuffer(false);
  EXPECT_EQ(filter.getRatio(), 0.0f);
  vote(filter, true, 2);
  filter.updateBuffer(true);
  EXPECT_TRUE(filter.full);
  EXPECT_EQ(filter.getRatio(), 0.75f);
}

// The divisor is the length from the first vote on; once full, the window slides.
TEST(FilterTest, RatioCountsTheLastLengthVotes) {
  Filter filter(5);
  std::deque<bool> window;
  std::mt19937 random(7);
  for (int i = 0; i < 500; ++i) {
    const bool value = random() % 3 != 0;
    filter.updateBuffer(value);
    window.push_back(value);
    if (window.size() > 5) window.pop_front();
    const float expected = std::count(window.begin(), window.end(), true) / 5.0f;
    ASSERT_EQ(filter.getRatio(), expected) << "after vote " << i;
    ASSERT_EQ(filter.full, i >= 4) << "after vote " << i;
  }
}

TEST(FilterTest, MotionNeedsFourOfFive) {
  Filter five(5);
  vote(five, true, 4);
  EXPECT_FALSE(countsAsMotion(five));  // not full yet
  five.updateBuffer(false);
  EXPECT_TRUE(countsAsMotion(five));
  EXPECT_FALSE(five.getRatio() > 0.8f);  // why the ratio must be widened first
  five.updateBuffer(false);
  EXPECT_FALSE(countsAsMotion(five));
}

}  // namespace
