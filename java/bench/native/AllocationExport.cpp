// Makes hdsml_bench's counting allocator a library to preload into the JVM
// (libhdsml_alloc_preload.so), with one C function the benchmark finds by name.
#include <cstdint>

#include "bench/AllocationCounter.h"

extern "C" __attribute__((visibility("default"))) uint64_t hdsml_thread_allocations() {
  const hdsml_bench::AllocationCount c = hdsml_bench::allocationsOnThisThread();
  return c.outsideContours + c.insideContours;
}
