#include "frames/Buffer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "frames/MemoryPool.h"

namespace {

constexpr auto kNotYet = std::chrono::milliseconds(50);
constexpr auto kBound = std::chrono::seconds(5);

class BufferTest : public testing::Test {
 protected:
  // Releases a consumer left blocked by a failing test before its future joins.
  void TearDown() override { buffer_.stopWait(); }

  std::future<FrameData*> popAsync() {
    return std::async(std::launch::async, [this] { return buffer_.pop_front(); });
  }

  MemoryPool pool_{3, 4, 2};
  FrameData* a_ = pool_.frames[0];
  FrameData* b_ = pool_.frames[1];
  Buffer buffer_;
  std::future<FrameData*> consumer_;  // destroyed first, once TearDown has released it
};

TEST_F(BufferTest, PopBlocksUntilPushOrStopWait) {
  consumer_ = popAsync();
  EXPECT_EQ(consumer_.wait_for(kNotYet), std::future_status::timeout);
  buffer_.push_front(a_);
  ASSERT_EQ(consumer_.wait_for(kBound), std::future_status::ready);
  EXPECT_EQ(consumer_.get(), a_);
  EXPECT_EQ(a_->getRef(), 1);  // the queue's reference now belongs to the consumer

  consumer_ = popAsync();
  EXPECT_EQ(consumer_.wait_for(kNotYet), std::future_status::timeout);
  buffer_.stopWait();
  ASSERT_EQ(consumer_.wait_for(kBound), std::future_status::ready);
  EXPECT_EQ(consumer_.get(), nullptr);
}

TEST_F(BufferTest, HandsOutNewestFirstAlsoAfterStop) {
  buffer_.push_front(a_);
  buffer_.push_front(b_);
  EXPECT_EQ(buffer_.pop_front(), b_);
  EXPECT_EQ(buffer_.pop_front(), a_);

  buffer_.push_front(a_);
  buffer_.push_front(b_);
  buffer_.stopWait();
  EXPECT_EQ(buffer_.pop_front(), b_);
  EXPECT_EQ(buffer_.pop_front(), a_);
  EXPECT_EQ(buffer_.pop_front(), nullptr);
  EXPECT_EQ(a_->getRef(), 2);  // pop_front never drops a reference itself
  EXPECT_EQ(b_->getRef(), 2);
}

TEST_F(BufferTest, ClearAndDestructionDropOneReferencePerQueuedRecord) {
  a_->incRef();  // held elsewhere as well
  buffer_.push_front(a_);
  buffer_.push_front(b_);
  buffer_.queue.push_back(nullptr);
  buffer_.clear();
  EXPECT_TRUE(buffer_.queue.empty());
  EXPECT_EQ(a_->getRef(), 1);
  EXPECT_EQ(b_->getRef(), 0);

  {
    Buffer doomed;
    doomed.push_front(a_);
    doomed.push_front(b_);
  }
  EXPECT_EQ(a_->getRef(), 1);
  EXPECT_EQ(b_->getRef(), 0);
}

}  // namespace
