// libyuv, the library Android camera applications use for this job, doing
// intake's work as they would: libyuv::NV12Scale without filtering (nearest
// neighbour) of the NV21 frame's luma and interleaved chroma to the motion
// resolution, then libyuv::NV21ToRAW (bytes in red, green, blue order). A peer
// for the benchmarks only; absent when the build found no libyuv.
#pragma once

#include <vector>

#include "tests/support/YuvFrame.h"

namespace hdsml_bench {

// Whether this build has libyuv (HDSML_BENCH_LIBYUV).
bool libyuvBuilt();

class LibyuvIntake {
 public:
  LibyuvIntake(int width, int height);
  // The frame (NV21) shrunk into the object's NV21 buffers.
  void shrink(const hdsml::YuvFrame& f);
  // The shrunk frame to `rgb`, 3 * width bytes a row.
  void convert(unsigned char* rgb) const;

 private:
  int width_, height_;
  std::vector<unsigned char> luma_, chroma_;
};

}  // namespace hdsml_bench
