#include "frames/Buffer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <vector>

#include "frames/MemoryPool.h"

namespace {

constexpr auto kNotYet = std::chrono::milliseconds(50);
constexpr auto kBound = std::chrono::seconds(5);

class BufferTest : public testing::Test {
 protected:
  // Releases a consumer left blocked by a failing test before its future joins.
  void TearDown() override { buffer_->stopWait(); }

  // pop_front() on a consumer thread of its own.
  std::future<FrameData*> popAsync() {
    return std::async(std::launch::async, [this] { return buffer_->pop_front(); });
  }

  MemoryPool pool_{3, 4, 2};
  FrameData* a_ = pool_.frames[0];
  FrameData* b_ = pool_.frames[1];
  std::unique_ptr<Buffer> buffer_ = std::make_unique<Buffer>();
  // Destroyed before buffer_, after TearDown has released them.
  std::future<FrameData*> consumer_;
  std::future<std::vector<int64_t>> drain_;
};

TEST_F(BufferTest, PopBlocksUntilPushFromAnotherThread) {
  consumer_ = popAsync();
  EXPECT_EQ(consumer_.wait_for(kNotYet), std::future_status::timeout);
  buffer_->push_front(a_);
  ASSERT_EQ(consumer_.wait_for(kBound), std::future_status::ready);
  EXPECT_EQ(consumer_.get(), a_);
  EXPECT_EQ(a_->getRef(), 1);  // the queue's reference now belongs to the consumer
  EXPECT_TRUE(buffer_->queue.empty());
}

TEST_F(BufferTest, StopWaitReleasesBlockedConsumerWithNull) {
  consumer_ = popAsync();
  EXPECT_EQ(consumer_.wait_for(kNotYet), std::future_status::timeout);
  buffer_->stopWait();
  ASSERT_EQ(consumer_.wait_for(kBound), std::future_status::ready);
  EXPECT_EQ(consumer_.get(), nullptr);
  EXPECT_TRUE(buffer_->stopped);

  for (int i = 0; i < 3; ++i) {
    consumer_ = popAsync();
    ASSERT_EQ(consumer_.wait_for(kBound), std::future_status::ready);
    EXPECT_EQ(consumer_.get(), nullptr);
  }
}

TEST_F(BufferTest, HandsOutNewestFirstAlsoAfterStop) {
  buffer_->push_front(a_);
  buffer_->push_front(b_);
  EXPECT_EQ(buffer_->pop_front(), b_);
  EXPECT_EQ(buffer_->pop_front(), a_);

  buffer_->push_front(a_);
  buffer_->push_front(b_);
  buffer_->stopWait();
  EXPECT_EQ(buffer_->pop_front(), b_);
  EXPECT_EQ(buffer_->pop_front(), a_);
  EXPECT_EQ(buffer_->pop_front(), nullptr);
  EXPECT_EQ(a_->getRef(), 2);  // pop_front never drops a reference itself
  EXPECT_EQ(b_->getRef(), 2);
}

TEST_F(BufferTest, ClearDropsOneReferencePerQueuedRecord) {
  buffer_->clear();
  EXPECT_TRUE(buffer_->queue.empty());

  a_->incRef();  // held elsewhere as well
  buffer_->push_front(a_);
  buffer_->push_front(b_);
  buffer_->queue.push_back(nullptr);
  buffer_->clear();
  EXPECT_TRUE(buffer_->queue.empty());
  EXPECT_EQ(a_->getRef(), 1);
  EXPECT_EQ(b_->getRef(), 0);
}

TEST_F(BufferTest, DestructionDropsReferencesOfQueuedRecords) {
  buffer_->push_front(a_);
  buffer_->push_front(b_);
  buffer_ = std::make_unique<Buffer>();
  EXPECT_EQ(a_->getRef(), 0);
  EXPECT_EQ(b_->getRef(), 0);
}

// The camera thread's habit: clear, then push. Older frames go back to the pool
// and the consumer only ever sees frames newer than the one before.
TEST_F(BufferTest, ClearThenPushHandsConsumerOnlyNewerFrames) {
  drain_ = std::async(std::launch::async, [this] {
    std::vector<int64_t> seen;
    while (FrameData* frame = buffer_->pop_front()) {
      seen.push_back(frame->timestamp);
      frame->decRef();
    }
    return seen;
  });

  int64_t lastPushed = -1;
  for (int64_t t = 0; t < 3000; ++t) {
    FrameData* frame = pool_.newFrame();
    if (frame == nullptr) continue;  // dropped: every record is held
    frame->timestamp = t;
    buffer_->clear();
    buffer_->push_front(frame);
    lastPushed = t;
  }
  buffer_->stopWait();

  ASSERT_EQ(drain_.wait_for(kBound), std::future_status::ready);
  const std::vector<int64_t> seen = drain_.get();
  ASSERT_FALSE(seen.empty());
  for (size_t i = 1; i < seen.size(); ++i) ASSERT_LT(seen[i - 1], seen[i]) << "at " << i;
  EXPECT_EQ(seen.back(), lastPushed);  // the last frame is still handed out after the stop
  for (FrameData* frame : pool_.frames) EXPECT_EQ(frame->getRef(), 0);
}

}  // namespace
