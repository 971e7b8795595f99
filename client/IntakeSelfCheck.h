// The fused intake kernel gives the bytes of the OpenCV it was checked
// against; a phone may carry another build of OpenCV, whose colour conversion
// could round otherwise. So each client, when it is created, has the kernel
// convert a small pattern (every luma value and every chroma value, saturation
// at both ends, and for each channel the luma values that bring its fixed-point
// sum nearest a rounding boundary from either side) and compares the result
// with cv::cvtColor of the OpenCV in the process. Thread-safe.
#pragma once

#include <opencv2/core.hpp>

#include "frames/KernelPath.h"
#include "hdsml_export.h"

// A conversion of a packed planar YV12 image to RGB.
using Yv12ToRgb = void (*)(const cv::Mat& yv12, cv::Mat& rgb);

// The conversion the check compares with: cv::cvtColor unless a test replaced
// it, to see a disagreement handled. Returns the one it replaces.
HDSML_EXPORT Yv12ToRgb replaceIntakeReferenceForTesting(Yv12ToRgb reference);

// True when the fused kernel gives the reference's bytes on the pattern.
HDSML_EXPORT bool fusedIntakeMatchesReference();

// The path a new client's intake takes when `wanted`: kVector (the fused
// kernel) when wanted, vectorised on this machine and in agreement with the
// reference; otherwise kPlain (destride and cv::cvtColor), which gives the same
// bytes. A disagreement is printed, once per call, only when `debug` (the
// client's debug flag) is set: without it a client prints exactly the lines it
// always prints.
HDSML_EXPORT KernelPath chooseIntakePath(KernelPath wanted, bool debug);
