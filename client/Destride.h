// destride with an explicit choice of implementation: the plain loop, kept as
// the reference, or the faster kernel (per-geometry column tables, four rows a
// pass, both chroma planes in one pass, vector loads for whole-pixel steps).
// destride() itself runs defaultKernelPath(); this form lets tests and
// benchmarks compare the two in one process. Thread-safe: the faster kernel
// keeps its tables per thread.
#pragma once

#include "frames/KernelPath.h"
#include "hdsml_export.h"

HDSML_EXPORT void destrideWith(KernelPath path, unsigned char* y, unsigned char* u,
                               unsigned char* v, int height, int width, int yPixelStride,
                               int yRowStride, int uPixelStride, int uRowStride, int vPixelStride,
                               int vRowStride, int outHeight, int outWidth, unsigned char* out);
