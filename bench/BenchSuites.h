// The benchmark families of hdsml_bench and the helpers they share. Names are
// "<stage>/<what>/<WxH>", with "peer/" in front of the OpenCV programs that do
// the same job, so that the ratio table can pair them up.
#pragma once

#include <benchmark/benchmark.h>

#include <string>

#include "bench/AllocationCounter.h"

namespace hdsml_bench {

// The motion resolution every intake benchmark shrinks to.
constexpr int kMotionWidth = 320;
constexpr int kMotionHeight = 240;

// Camera sizes of the intake benchmarks and motion sizes of the analysis ones.
struct Size {
  int width;
  int height;
};
inline std::string sizeName(Size s) {
  return std::to_string(s.width) + "x" + std::to_string(s.height);
}

// Publishes the allocations made on this thread since `before` as per-frame
// counters: "allocs" (everything outside OpenCV's contour finder) and, when
// `withContours`, "contour_allocs".
void reportAllocations(benchmark::State& state, const AllocationCount& before, bool withContours);

void registerIntakeBenchmarks();
void registerAnalysisBenchmarks();

}  // namespace hdsml_bench
