#include "bench/LibyuvIntake.h"

#if HDSML_BENCH_LIBYUV
#include <libyuv.h>
#endif

namespace hdsml_bench {

bool libyuvBuilt() { return HDSML_BENCH_LIBYUV != 0; }

LibyuvIntake::LibyuvIntake(int width, int height)
    : width_(width),
      height_(height),
      luma_(size_t(width) * height),
      chroma_(size_t(width) * (height / 2)) {}

void LibyuvIntake::shrink(const hdsml::YuvFrame& f) {
#if HDSML_BENCH_LIBYUV
  // NV12Scale moves chroma pairs as they are, so V-first pairs stay V first.
  libyuv::NV12Scale(f.y, f.yRowStride, f.v, f.vRowStride, f.width, f.height, luma_.data(), width_,
                    chroma_.data(), width_, width_, height_, libyuv::kFilterNone);
#else
  (void)f;
#endif
}

void LibyuvIntake::convert(unsigned char* rgb) const {
#if HDSML_BENCH_LIBYUV
  libyuv::NV21ToRAW(luma_.data(), width_, chroma_.data(), width_, rgb, 3 * width_, width_, height_);
#else
  (void)rgb;
#endif
}

}  // namespace hdsml_bench
