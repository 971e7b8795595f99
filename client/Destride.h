// destride with an explicit choice of implementation: the plain loop, kept as
// the reference, or the faster kernel (the row samplers of RowSampling.h:
// per-geometry column tables, vector loads for whole-pixel steps, both chroma
// planes in one pass over interleaved chroma).
// destride() itself runs defaultKernelPath(); this form lets tests and
// benchmarks compare the two in one process. Thread-safe: the faster kernel
// keeps its samplers per thread.
#pragma once

#include <cstdint>

#include "frames/KernelPath.h"
#include "hdsml_export.h"

// The step, in 1/32 sample, from `size` source samples to `outSize` output
// samples; 0 when the output is more than 32 times the source or `outSize` is
// 0 (destride then does nothing). 64-bit: a source of 2^26 samples or more no
// longer fits an int once multiplied by 32.
int64_t destrideStep(int size, int outSize);

HDSML_EXPORT void destrideWith(KernelPath path, unsigned char* y, unsigned char* u,
                               unsigned char* v, int height, int width, int yPixelStride,
                               int yRowStride, int uPixelStride, int uRowStride, int vPixelStride,
                               int vRowStride, int outHeight, int outWidth, unsigned char* out);
