#include "frames/MemoryPool.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>

namespace {

TEST(MemoryPoolTest, LendsFirstRecordAtExactlyZeroWithoutTakingAReference) {
  MemoryPool pool(2, 8, 4);
  ASSERT_EQ(pool.frames.size(), 2u);
  for (FrameData* frame : pool.frames) {
    EXPECT_EQ(frame->image.size(), cv::Size(8, 4));
    EXPECT_EQ(frame->image.type(), CV_8UC3);
  }

  FrameData* first = pool.newFrame();
  EXPECT_EQ(first, pool.frames[0]);
  EXPECT_EQ(pool.newFrame(), first);  // still free
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

TEST(FrameDataTest, FailedPixelAllocationIsPrintedAndSwallowed) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizer allocators abort on impossible sizes instead of returning null";
#endif
  testing::internal::CaptureStdout();
  FrameData frame(INT_MAX, INT_MAX);  // far beyond any address space
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Exception: Could not allocate memory for image\n");
  EXPECT_TRUE(frame.image.empty());
}

}  // namespace
