// Which implementation the pixel kernels run: the plain loops, kept as the
// reference, or the vector kernels beside them (OpenCV's universal intrinsics:
// SSE2 on x86-64, NEON on arm64). Both give the same bytes; the choice exists so
// that a user or a test can compare them. Thread-safe.
#pragma once

#include "hdsml_export.h"

enum class KernelPath { kPlain, kVector };

// kVector when this build has vector kernels, unless the environment variable
// HDSML_PLAIN_KERNELS is set to a non-empty value other than "0"; then kPlain.
// The environment is read once, on the first call, never per frame.
HDSML_EXPORT KernelPath defaultKernelPath();

// Whether this build has vector kernels (frames/VectorKernels.h says when);
// without them kVector runs the plain loops.
HDSML_EXPORT bool vectorKernelsBuilt();
