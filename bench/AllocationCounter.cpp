#include "bench/AllocationCounter.h"

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

#include <opencv2/imgproc.hpp>

// glibc's own allocator entry points: the wrappers below forward to them, so
// counting never changes which allocator serves a request.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* pointer);
}

namespace {

// Plain thread_local integers: zero-initialised without any constructor, so an
// allocation made while a thread starts up can be counted safely.
thread_local uint64_t tAllocations = 0;
thread_local uint64_t tContourAllocations = 0;
thread_local int tContourDepth = 0;
std::atomic<uint64_t> gAllocations{0};
std::atomic<uint64_t> gContourAllocations{0};

void countOne() {
  if (tContourDepth > 0) {
    ++tContourAllocations;
    gContourAllocations.fetch_add(1, std::memory_order_relaxed);
  } else {
    ++tAllocations;
    gAllocations.fetch_add(1, std::memory_order_relaxed);
  }
}

void* allocateOrThrow(size_t size) {
  countOne();
  void* p = __libc_malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

void* allocateAlignedOrThrow(size_t size, std::align_val_t alignment) {
  countOne();
  void* p = __libc_memalign(static_cast<size_t>(alignment), size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

}  // namespace

namespace hdsml_bench {

AllocationCount allocationsOnThisThread() { return {tAllocations, tContourAllocations}; }

AllocationCount allocationsInProcess() { return {gAllocations.load(), gContourAllocations.load()}; }

}  // namespace hdsml_bench

// The C allocation functions. OpenCV's cv::fastMalloc uses posix_memalign (or
// malloc); standard containers come through operator new below.
extern "C" {

void* malloc(size_t size) {
  countOne();
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  countOne();
  return __libc_calloc(count, size);
}

void* realloc(void* pointer, size_t size) {
  countOne();
  return __libc_realloc(pointer, size);
}

void free(void* pointer) { __libc_free(pointer); }

int posix_memalign(void** out, size_t alignment, size_t size) {
  countOne();
  void* p = __libc_memalign(alignment, size);
  if (p == nullptr) return ENOMEM;
  *out = p;
  return 0;
}

void* aligned_alloc(size_t alignment, size_t size) {
  countOne();
  return __libc_memalign(alignment, size);
}

void* memalign(size_t alignment, size_t size) {
  countOne();
  return __libc_memalign(alignment, size);
}

}  // extern "C"

void* operator new(size_t size) { return allocateOrThrow(size); }
void* operator new[](size_t size) { return allocateOrThrow(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  countOne();
  return __libc_malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  countOne();
  return __libc_malloc(size == 0 ? 1 : size);
}
void* operator new(size_t size, std::align_val_t alignment) {
  return allocateAlignedOrThrow(size, alignment);
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return allocateAlignedOrThrow(size, alignment);
}
void operator delete(void* p) noexcept { __libc_free(p); }
void operator delete[](void* p) noexcept { __libc_free(p); }
void operator delete(void* p, size_t) noexcept { __libc_free(p); }
void operator delete[](void* p, size_t) noexcept { __libc_free(p); }
void operator delete(void* p, std::align_val_t) noexcept { __libc_free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { __libc_free(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { __libc_free(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { __libc_free(p); }

// Interposes OpenCV's contour finder (the overload without a hierarchy, the one
// the library calls): the dynamic linker binds libhdsml's call to this
// definition because the executable comes first in the lookup order (hence the
// default visibility, which exports it). It marks the thread as inside the
// contour finder and runs the real function.
namespace cv {

__attribute__((visibility("default"))) void findContours(InputArray image,
                                                         OutputArrayOfArrays contours, int mode,
                                                         int method, Point offset) {
  using Real = void (*)(InputArray, OutputArrayOfArrays, int, int, Point);
  static const Real real = reinterpret_cast<Real>(dlsym(
      RTLD_NEXT, "_ZN2cv12findContoursERKNS_11_InputArrayERKNS_12_OutputArrayEiiNS_6Point_IiEE"));
  if (real == nullptr) std::abort();
  ++tContourDepth;
  try {
    real(image, contours, mode, method, offset);
  } catch (...) {
    --tContourDepth;
    throw;
  }
  --tContourDepth;
}

}  // namespace cv
