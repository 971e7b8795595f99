// Whether this build compiles the vector kernels beside the plain loops:
// OpenCV's 128-bit universal intrinsics with exactly rounded single- and
// double-precision division (which 32-bit ARM NEON lacks), on a little-endian
// machine (the kernels read bytes through wider lanes). Without them every
// kernel runs its plain loop.
#pragma once

#include <opencv2/core/hal/intrin.hpp>

#if CV_SIMD128 && CV_SIMD128_64F && defined(__BYTE_ORDER__) && \
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define HDSML_VECTOR_KERNELS 1
#else
#define HDSML_VECTOR_KERNELS 0
#endif
