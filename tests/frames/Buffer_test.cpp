#include "frames/Buffer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "frames/MemoryPool.h"

namespace {

class BufferTest : public testing::Test {
 protected:
  // Releases a consumer left blocked by a failing test before its future joins.
  void TearDown() override { buffer_.stopWait(); }

  MemoryPool pool_{3, 4, 2};
  FrameData* a_ = pool_.frames[0];
  FrameData* b_ = pool_.frames[1];
  Buffer buffer_;
  std::future<FrameData*> consumer_;  // destroyed first, once TearDown has released it
};

TEST_F(BufferTest, PopBlocksUntilPushOrStopWait) {
  constexpr auto kNotYet = std::chrono::milliseconds(50);
  constexpr auto kBound = std::chrono::seconds(5);
  for (bool stop : {false, true}) {
    consumer_ = std::async(std::launch::async, [this] { return buffer_.pop_front(); });
    EXPECT_EQ(consumer_.wait_for(kNotYet), std::future_status::timeout);
    stop ? buffer_.stopWait() : buffer_.push_front(a_);
    ASSERT_EQ(consumer_.wait_for(kBound), std::future_status::ready);
    EXPECT_EQ(consumer_.get(), stop ? nullptr : a_);
  }
  EXPECT_EQ(a_->getRef(), 1);  // the queue's reference now belongs to the consumer
}

TEST_F(BufferTest, HandsOutNewestFirstAndDropsOneReferencePerRecordItRemoves) {
  buffer_.push_front(a_);
  buffer_.push_front(b_);
  buffer_.stopWait();  // a stopped queue still hands out what it holds
  EXPECT_EQ(buffer_.pop_front(), b_);
  EXPECT_EQ(buffer_.pop_front(), a_);
  EXPECT_EQ(buffer_.pop_front(), nullptr);
  EXPECT_EQ(a_->getRef(), 1);  // pop_front never drops a reference itself
  EXPECT_EQ(b_->getRef(), 1);

  buffer_.push_front(a_);
  buffer_.queue.push_back(nullptr);
  buffer_.clear();
  EXPECT_TRUE(buffer_.queue.empty());
  EXPECT_EQ(a_->getRef(), 1);
  {
    Buffer doomed;
    doomed.push_front(a_);
    doomed.push_front(b_);
  }
  EXPECT_EQ(a_->getRef(), 1);
  EXPECT_EQ(b_->getRef(), 1);
}

}  // namespace
