#include "frames/FrameData.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>

namespace {

TEST(FrameDataTest, WrapsItsOwnBufferAsRowsByColsColourImage) {
  FrameData frame(4, 6);
  EXPECT_EQ(frame.image.size(), cv::Size(6, 4));
  EXPECT_EQ(frame.image.type(), CV_8UC3);
  EXPECT_EQ(frame.image.step[0], 18u);
  EXPECT_EQ(frame.image.u, nullptr);  // the matrix does not own the pixels
  EXPECT_EQ(frame.timestamp, -1);
  EXPECT_EQ(frame.lightMode, 1);
  EXPECT_EQ(frame.getRef(), 0);

  // Writing through the matrix in place must keep using the record's buffer.
  uchar* pixels = frame.image.data;
  ASSERT_NE(pixels, nullptr);
  frame.image.setTo(cv::Scalar(1, 2, 3));
  EXPECT_EQ(frame.image.data, pixels);
  EXPECT_EQ(pixels[4 * 6 * 3 - 1], 3);
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
