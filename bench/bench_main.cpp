// hdsml_bench: Google Benchmark programs for the library's intake and analysis
// and for the OpenCV programs that do the same jobs, all on the same frames.
//   hdsml_bench [benchmark flags]          the usual Google Benchmark output
//   hdsml_bench --table [benchmark flags]  progress on stderr, one ratio table on stdout
//   hdsml_bench --frames=N                 load N source frames (default 300)
//   hdsml_bench --callgrind                run each kernel over the frames once, for
//                                          valgrind --tool=callgrind (scripts/bench --callgrind)
//     --kernels=PREFIX                     only the kernels whose names start with PREFIX
//     --marks                              with marks for qemu-thread-insns.c
//                                          (scripts/cross-arm64 --instructions)
#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/BenchFrames.h"
#include "bench/BenchSuites.h"
#include "bench/CallgrindKernels.h"
#include "bench/RatioTable.h"

namespace hdsml_bench {

void reportAllocations(benchmark::State& state, const AllocationCount& before, bool withContours) {
  const AllocationCount made = allocationsOnThisThread() - before;
  state.counters["allocs"] =
      benchmark::Counter(double(made.outsideContours), benchmark::Counter::kAvgIterations);
  if (withContours) {
    state.counters["contour_allocs"] =
        benchmark::Counter(double(made.insideContours), benchmark::Counter::kAvgIterations);
  }
}

}  // namespace hdsml_bench

int main(int argc, char** argv) {
  bool table = false, callgrind = false, marks = false;
  std::string only;
  std::vector<char*> rest;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--table") == 0) {
      table = true;
    } else if (std::strcmp(argv[i], "--callgrind") == 0) {
      callgrind = true;
    } else if (std::strcmp(argv[i], "--marks") == 0) {
      marks = true;
    } else if (std::strncmp(argv[i], "--kernels=", 10) == 0) {
      only = argv[i] + 10;
    } else if (std::strncmp(argv[i], "--frames=", 9) == 0) {
      hdsml_bench::setSourceFrameCount(std::atoi(argv[i] + 9));
    } else {
      rest.push_back(argv[i]);
    }
  }
  // Instructions are counted with OpenCV's threads as a host process has them:
  // every thread's count adds up.
  if (callgrind) return hdsml_bench::runCallgrindKernels(only, marks);
  // Times are taken on one thread, as on the camera's and the motion thread:
  // ratios then compare algorithms, not how many cores OpenCV could borrow.
  cv::setNumThreads(1);

  int restCount = static_cast<int>(rest.size());
  benchmark::Initialize(&restCount, rest.data());
  if (benchmark::ReportUnrecognizedArguments(restCount, rest.data())) return 1;
  hdsml_bench::registerIntakeBenchmarks();
  hdsml_bench::registerAnalysisBenchmarks();
  if (table) {
    hdsml_bench::RatioTable reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
  } else {
    benchmark::RunSpecifiedBenchmarks();
  }
  benchmark::Shutdown();
  return 0;
}
