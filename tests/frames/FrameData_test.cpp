#include "frames/FrameData.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HDSML_SANITIZED_ALLOCATOR 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define HDSML_SANITIZED_ALLOCATOR 1
#endif
#endif

namespace {

TEST(FrameDataTest, WrapsItsOwnBufferAsRowsByColsColourImage) {
  FrameData frame(4, 6);
  EXPECT_EQ(frame.image.rows, 4);
  EXPECT_EQ(frame.image.cols, 6);
  EXPECT_EQ(frame.image.type(), CV_8UC3);
  EXPECT_EQ(frame.image.step[0], 18u);
  EXPECT_NE(frame.image.data, nullptr);
  EXPECT_EQ(frame.image.u, nullptr);  // the matrix does not own the pixels
  EXPECT_EQ(frame.timestamp, -1);
  EXPECT_EQ(frame.lightMode, 1);
  EXPECT_EQ(frame.refCount, 0);
  EXPECT_EQ(frame.metadata.exposureTime, -1);

  // Writing through the matrix in place must keep using the record's buffer.
  uchar* pixels = frame.image.data;
  frame.image.setTo(cv::Scalar(1, 2, 3));
  EXPECT_EQ(frame.image.data, pixels);
  EXPECT_EQ(pixels[4 * 6 * 3 - 1], 3);
}

TEST(FrameDataTest, CountsReferencesWithoutLowerBound) {
  FrameData frame(2, 2);
  frame.incRef();
  frame.incRef();
  EXPECT_EQ(frame.getRef(), 2);
  frame.decRef();
  frame.decRef();
  frame.decRef();
  EXPECT_EQ(frame.getRef(), -1);
}

TEST(FrameDataTest, FailedPixelAllocationIsPrintedAndSwallowed) {
#ifdef HDSML_SANITIZED_ALLOCATOR
  GTEST_SKIP() << "sanitizer allocators abort on impossible sizes instead of returning null";
#else
  testing::internal::CaptureStdout();
  FrameData frame(INT_MAX, INT_MAX);  // far beyond any address space
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Exception: Could not allocate memory for image\n");
  EXPECT_TRUE(frame.image.empty());
  EXPECT_EQ(frame.image.data, nullptr);
  EXPECT_EQ(frame.timestamp, -1);
  EXPECT_EQ(frame.getRef(), 0);
#endif
}

}  // namespace
