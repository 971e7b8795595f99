// Test memory that ends right before an unmapped page, so that a kernel reading
// one byte past what it may read crashes instead of passing, and camera frames
// copied into it plane by plane, each plane ending at the last byte destride
// reads from it for a given output size.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/support/YuvFrame.h"

namespace hdsml {

// `size` bytes (unset) followed by an unmapped page.
inline std::shared_ptr<uint8_t> guardedBytes(size_t size) {
  const size_t page = sysconf(_SC_PAGESIZE), mapped = (size + page - 1) / page * page + page;
  auto* base = static_cast<uint8_t*>(
      mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(base + mapped - page, page, PROT_NONE);
  return std::shared_ptr<uint8_t>(base + mapped - page - size,
                                  [base, mapped](uint8_t*) { munmap(base, mapped); });
}

// One past the last byte destride reads from a plane when it makes cols x rows
// samples of it with steps stepX and stepY (1/32 sample).
inline size_t sampledExtent(int64_t pixelStride, int64_t rowStride, int cols, int rows,
                            int64_t stepX, int64_t stepY) {
  if (cols <= 0 || rows <= 0) return 1;
  return rowStride * (((rows - 1) * stepY) >> 5) + pixelStride * (((cols - 1) * stepX) >> 5) + 1;
}

// A copy of `f` in guarded memory, for shrinking to outWidth x outHeight.
struct GuardedFrame {
  YuvFrame view;  // its bytes are empty: the planes live in `buffers`
  std::vector<std::shared_ptr<uint8_t>> buffers;
};

inline GuardedFrame guardFrame(const YuvFrame& f, int outWidth, int outHeight) {
  const int64_t sx = (int64_t(f.width) << 5) / outWidth, sy = (int64_t(f.height) << 5) / outHeight;
  GuardedFrame g;
  g.view = f;
  g.view.bytes.clear();
  // Copies [first, first + size) and points the given plane pointers into the copy.
  auto copy = [&](const uint8_t* first, size_t size, std::vector<uint8_t**> planes) {
    g.buffers.push_back(guardedBytes(size));
    std::memcpy(g.buffers.back().get(), first, size);
    for (uint8_t** p : planes) *p = g.buffers.back().get() + (*p - first);
  };
  copy(f.y, sampledExtent(f.yPixelStride, f.yRowStride, outWidth, outHeight, sx, sy), {&g.view.y});
  const int cw = outWidth / 2, ch = outHeight / 2;
  const size_t uEnd = sampledExtent(f.uPixelStride, f.uRowStride, cw, ch, sx, sy);
  const size_t vEnd = sampledExtent(f.vPixelStride, f.vRowStride, cw, ch, sx, sy);
  if (f.uPixelStride == 2) {  // interleaved: one buffer from the lower pointer
    const uint8_t* first = std::min(f.u, f.v);
    copy(first, std::max(f.u + uEnd, f.v + vEnd) - first, {&g.view.u, &g.view.v});
  } else {
    copy(f.u, uEnd, {&g.view.u});
    copy(f.v, vEnd, {&g.view.v});
  }
  return g;
}

}  // namespace hdsml
