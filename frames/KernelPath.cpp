#include "frames/KernelPath.h"

#include <opencv2/core/hal/intrin.hpp>

#include <cstdlib>
#include <cstring>

bool vectorKernelsBuilt() {
  // 32-bit ARM NEON divides by a reciprocal estimate, which is not exactly
  // rounded; such builds keep the plain loops.
#if CV_SIMD128 && CV_SIMD128_64F
  return true;
#else
  return false;
#endif
}

KernelPath defaultKernelPath() {
  static const KernelPath path = [] {
    const char* plain = std::getenv("HDSML_PLAIN_KERNELS");
    const bool forcePlain = plain != nullptr && plain[0] != '\0' && std::strcmp(plain, "0") != 0;
    return forcePlain || !vectorKernelsBuilt() ? KernelPath::kPlain : KernelPath::kVector;
  }();
  return path;
}
