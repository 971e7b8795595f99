#include "frames/MemoryPool.h"

#include <gtest/gtest.h>

namespace {

TEST(MemoryPoolTest, LendsFirstRecordAtExactlyZeroWithoutTakingAReference) {
  MemoryPool pool(2, 8, 4);
  ASSERT_EQ(pool.frames.size(), 2u);
  for (FrameData* frame : pool.frames) EXPECT_EQ(frame->image.size(), cv::Size(8, 4));

  FrameData* first = pool.newFrame();
  EXPECT_EQ(first, pool.frames[0]);
  first->timestamp = 1234;
  EXPECT_EQ(pool.newFrame(), first);  // still free, contents kept
  EXPECT_EQ(first->timestamp, 1234);

  first->incRef();
  EXPECT_EQ(pool.newFrame(), pool.frames[1]);
  pool.frames[1]->incRef();
  EXPECT_EQ(pool.newFrame(), nullptr);  // every record held: the frame is dropped
  pool.frames[1]->decRef();
  EXPECT_EQ(pool.newFrame(), pool.frames[1]);

  // A count driven below zero is not free either.
  pool.frames[1]->incRef();
  first->decRef();
  first->decRef();
  EXPECT_EQ(pool.newFrame(), nullptr);
  // Both left held: LeakSanitizer reports them if the destructor skips held records.
}

}  // namespace
