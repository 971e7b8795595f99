// Heap allocations made by the calling thread, counted by the benchmark binary's
// own operator new and by its wrappers of the C allocation functions (which is
// where cv::Mat buffers come from). Allocations made while cv::findContours runs
// are counted apart, because that OpenCV routine allocates on every call and is
// not the library's own code. Counted per thread, so that a library's worker
// thread does not blur the figures of the thread being measured, and for the
// whole process.
#pragma once

#include <cstdint>

namespace hdsml_bench {

struct AllocationCount {
  uint64_t outsideContours = 0;  // everything except what cv::findContours did
  uint64_t insideContours = 0;   // made while cv::findContours was running

  AllocationCount operator-(const AllocationCount& earlier) const {
    return {outsideContours - earlier.outsideContours, insideContours - earlier.insideContours};
  }
};

// Totals for the calling thread since it started.
AllocationCount allocationsOnThisThread();
// Totals for all threads of the process since it started.
AllocationCount allocationsInProcess();

}  // namespace hdsml_bench
