#include "conditioning/Filter.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>

namespace {

// The motion thread's decision: a full window whose ratio, widened to double,
// exceeds 0.8.
bool countsAsMotion(const Filter& filter) {
  return filter.full && static_cast<double>(filter.getRatio()) > 0.8;
}

void vote(Filter& filter, bool value, int times) {
  for (int i = 0; i < times; ++i) filter.updateBuffer(value);
}

TEST(FilterTest, StartsWarmingUpWithUnsetRatio) {
  Filter twelve(12);
  EXPECT_EQ(twelve.getRatio(), -1.0f);
  EXPECT_FALSE(twelve.full);
  EXPECT_EQ(twelve.votes.size(), 12u);
  EXPECT_EQ(twelve.index + twelve.sum + twelve.updates, 0);

  Filter byDefault;
  EXPECT_EQ(byDefault.length, 18);
  EXPECT_EQ(byDefault.votes.size(), 18u);
}

TEST(FilterTest, FillsOnTheLengthVote) {
  Filter filter(12);
  vote(filter, true, 11);
  EXPECT_EQ(filter.getRatio(), 11.0f / 12.0f);
  EXPECT_FALSE(filter.full);

  filter.updateBuffer(true);
  EXPECT_TRUE(filter.full);
  EXPECT_EQ(filter.getRatio(), 1.0f);
  EXPECT_EQ(filter.index, 0);

  filter.updateBuffer(false);
  EXPECT_EQ(filter.updates, 13);
  EXPECT_TRUE(filter.full);
  EXPECT_EQ(filter.sum, 11);
}

TEST(FilterTest, FullWindowCountsOnlyTheLastLengthVotes) {
  Filter filter(5);
  std::deque<bool> window;
  std::mt19937 random(7);
  for (int i = 0; i < 500; ++i) {
    const bool value = random() % 3 != 0;
    filter.updateBuffer(value);
    window.push_back(value);
    if (window.size() > 5) window.pop_front();
    int expected = 0;
    for (bool v : window) expected += v;
    ASSERT_EQ(filter.sum, expected) << "after vote " << i;
    ASSERT_EQ(filter.getRatio(), static_cast<float>(expected) / 5.0f);
  }
}

TEST(FilterTest, ClearRestartsWarmUpButKeepsRatio) {
  Filter filter(4);
  vote(filter, true, 6);
  filter.clear();
  EXPECT_FALSE(filter.full);
  EXPECT_EQ(filter.index + filter.sum + filter.updates, 0);
  EXPECT_EQ(filter.getRatio(), 1.0f);
  EXPECT_EQ(filter.votes.size(), 4u);

  filter.updateBuffer(false);
  EXPECT_EQ(filter.getRatio(), 0.0f);
  vote(filter, true, 2);
  EXPECT_EQ(filter.getRatio(), 0.5f);
  EXPECT_FALSE(filter.full);
  filter.updateBuffer(true);
  EXPECT_TRUE(filter.full);
  EXPECT_EQ(filter.getRatio(), 0.75f);
}

TEST(FilterTest, MotionNeedsFourOfFiveOrTenOfTwelve) {
  Filter five(5);
  vote(five, true, 4);
  EXPECT_FALSE(countsAsMotion(five));  // not full yet
  five.updateBuffer(false);
  EXPECT_TRUE(countsAsMotion(five));
  EXPECT_FALSE(five.getRatio() > 0.8f);  // why the ratio must be widened first
  five.updateBuffer(false);
  EXPECT_FALSE(countsAsMotion(five));

  Filter twelve(12);
  vote(twelve, true, 10);
  vote(twelve, false, 2);
  EXPECT_TRUE(countsAsMotion(twelve));
  twelve.updateBuffer(false);
  EXPECT_FALSE(countsAsMotion(twelve));
}

}  // namespace
