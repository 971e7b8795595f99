#include "frames/MemoryPool.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class MemoryPoolTest : public testing::Test {
 protected:
  MemoryPool pool{2, 8, 4};
};

TEST_F(MemoryPoolTest, BuildsRecordsOfHeightRowsAndWidthColumns) {
  EXPECT_EQ(pool.count, 2);
  EXPECT_EQ(pool.width, 8);
  EXPECT_EQ(pool.height, 4);
  ASSERT_EQ(pool.frames.size(), 2u);
  EXPECT_NE(pool.frames[0], pool.frames[1]);
  for (FrameData* frame : pool.frames) {
    EXPECT_EQ(frame->image.rows, 4);
    EXPECT_EQ(frame->image.cols, 8);
    EXPECT_EQ(frame->getRef(), 0);
  }
}

TEST_F(MemoryPoolTest, NewFrameTakesNoReference) {
  FrameData* first = pool.newFrame();
  EXPECT_EQ(first, pool.frames[0]);
  EXPECT_EQ(pool.newFrame(), first);
  EXPECT_EQ(first->getRef(), 0);
}

TEST_F(MemoryPoolTest, DropsFrameWhenBothRecordsHeld) {
  pool.frames[0]->incRef();
  EXPECT_EQ(pool.newFrame(), pool.frames[1]);
  pool.frames[1]->incRef();
  EXPECT_EQ(pool.newFrame(), nullptr);

  pool.frames[1]->decRef();
  EXPECT_EQ(pool.newFrame(), pool.frames[1]);
}

TEST_F(MemoryPoolTest, RecordBelowZeroIsNotFree) {
  pool.frames[0]->decRef();
  EXPECT_EQ(pool.newFrame(), pool.frames[1]);
  pool.frames[1]->incRef();
  EXPECT_EQ(pool.newFrame(), nullptr);
}

TEST_F(MemoryPoolTest, ReleasedRecordKeepsItsContents) {
  FrameData* frame = pool.newFrame();
  frame->incRef();
  frame->image.setTo(cv::Scalar(9, 8, 7));
  frame->timestamp = 1234;
  frame->metadata.exposureTime = 20000;
  frame->decRef();

  EXPECT_EQ(pool.newFrame(), frame);
  EXPECT_EQ(frame->timestamp, 1234);
  EXPECT_EQ(frame->metadata.exposureTime, 20000);
  EXPECT_EQ(cv::countNonZero(frame->image.reshape(1) == 7), 4 * 8);
}

// LeakSanitizer reports the records if the pool skips those still held.
TEST(MemoryPoolLifetimeTest, FreesRecordsThatAreStillHeld) {
  auto pool = std::make_unique<MemoryPool>(3, 4, 2);
  pool->frames[0]->incRef();
  pool->frames[2]->incRef();
  pool->frames[2]->incRef();
  pool.reset();
}

}  // namespace
