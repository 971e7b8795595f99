// Intake's pixel work in one pass: the strided YUV 4:2:0 planes of a camera
// frame shrunk to the motion resolution by destride's sampling rule and
// converted to RGB straight into a frame record's image, one row pair at a
// time, with exactly the bytes that destride followed by
// cv::cvtColor(COLOR_YUV2RGB_YV12) give: the plane of `u` is read as Cr, as the
// packed image presents it to that conversion. The samples land in the rows of
// the packed image as destride writes it (the client's yuvBuffer), and the
// conversion reads them there while they are still in the cache; where the
// converter reads a source row in place, it writes the samples it loaded. Nothing
// allocated per frame once the geometry is known, no other thread woken. Owned by
// the client and used on the camera thread only: it keeps the column tables.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

#include "client/RowSampling.h"
#include "hdsml_export.h"

namespace fused {
struct RowPairInput;
}

// A camera frame as the host hands it over.
struct YuvPlanes {
  const unsigned char* y;
  const unsigned char* u;
  const unsigned char* v;
  int width, height;
  int yPixelStride, yRowStride;
  int uPixelStride, uRowStride;
  int vPixelStride, vRowStride;
};

class HDSML_EXPORT FusedIntake {
 public:
  // Whether this machine converts with vector instructions (NEON on arm64, AVX2
  // on x86-64). Without them run() is exact but slower than destride and
  // cv::cvtColor, and clients take that path instead.
  static bool vectorized();

  // Fills `rgb` (CV_8UC3, even width and height of at least 2) from `in`, and
  // `packed` (rgb.cols * rgb.rows * 3 / 2 bytes) with the packed planes that
  // destride writes at that size. Returns false and leaves both as they were
  // when `rgb` is not such an image or when a step is 0 (a frame under 1/32 of
  // the image's size), where destride would write nothing.
  bool run(const YuvPlanes& in, cv::Mat& rgb, unsigned char* packed);
  // The same with a packed image of the kernel's own, for callers that want
  // the colour image only.
  bool run(const YuvPlanes& in, cv::Mat& rgb);

 private:
  // Hidden, so that run() calls them directly, not through the exported table.
  struct Plan;
  HDSML_NO_EXPORT void prefetchAhead(const Plan& plan, int rowPair) const;
  // Where the converter finds the row pair's samples: in place, or staged.
  HDSML_NO_EXPORT void stageRowPair(const Plan& plan, int rowPair, fused::RowPairInput& pair);

  RowSampler luma_, cr_, cb_;
  PairSampler pairs_;
  std::vector<unsigned char> packed_;  // the packed image of run() without one
};
