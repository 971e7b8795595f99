// Frames for the benchmarks, decoded and converted once, before any timing: the
// people walking through data/vtest.avi when it is there, generated frames with
// moving squares otherwise (a message says which). Every benchmark of one run,
// library and peers alike, reads the same frames.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

#include "tests/support/YuvFrame.h"

namespace hdsml_bench {

// How many source frames to load (the CTest run keeps this small). Call before
// the first frame is asked for.
void setSourceFrameCount(int count);

// The source frames: 8-bit BGR, each a distinct moment of the recording.
const std::vector<cv::Mat>& sourceFrames();

// The source frames scaled to width x height and packed as NV21 with 32 bytes of
// padding after every row, as a camera hands them over. Large sizes keep fewer
// distinct frames so that the set stays under about 96 MB.
const std::vector<hdsml::YuvFrame>& nv21Frames(int width, int height);

// The source frames as the motion thread sees them at width x height: shrunk
// and converted by the library's own intake (destride and the colour
// conversion), 3 bytes a pixel in red, green, blue order.
const std::vector<cv::Mat>& motionFrames(int width, int height);

}  // namespace hdsml_bench
