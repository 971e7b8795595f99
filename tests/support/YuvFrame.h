// Packs an 8-bit BGR image into YUV 4:2:0 exactly as an Android camera hands it
// over: a luma plane and two chroma pointers, each with its own pixel and row
// stride. The second pointer always addresses U (Cb) and the third V (Cr):
//   NV21: one interleaved chroma plane, V first (pixel stride 2)
//   NV12: one interleaved chroma plane, U first (pixel stride 2)
//   I420: separate U and V planes (pixel stride 1)
// Every row may carry padding; the buffer ends right after the last sample so a
// read past the image trips AddressSanitizer. Used by the tests and hds-replay.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace hdsml {

enum class YuvLayout { NV21, NV12, I420 };

inline const char* layoutName(YuvLayout layout) {
  static const char* const kNames[] = {"nv21", "nv12", "i420"};
  return kNames[static_cast<int>(layout)];
}

// Parses "nv21", "nv12" or "i420"; throws std::invalid_argument otherwise.
inline YuvLayout parseLayout(const std::string& name) {
  for (YuvLayout layout : {YuvLayout::NV21, YuvLayout::NV12, YuvLayout::I420})
    if (name == layoutName(layout)) return layout;
  throw std::invalid_argument("unknown YUV layout '" + name + "' (expected nv21, nv12 or i420)");
}

// One packed frame; owns its bytes. The plane pointers point into the vector's
// heap block, so they stay valid when the frame is moved.
struct YuvFrame {
  int width = 0, height = 0;
  std::vector<uint8_t> bytes;
  uint8_t *y = nullptr, *u = nullptr, *v = nullptr;
  int yPixelStride = 1, yRowStride = 0;
  int uPixelStride = 1, uRowStride = 0;
  int vPixelStride = 1, vRowStride = 0;
};

// `bgr` must be CV_8UC3 of even, non-zero width and height.
inline YuvFrame packYuv(const cv::Mat& bgr, YuvLayout layout, int rowPadding = 0) {
  if (bgr.type() != CV_8UC3 || bgr.empty() || bgr.cols % 2 || bgr.rows % 2 || rowPadding < 0)
    throw std::invalid_argument("packYuv needs a non-empty 8-bit 3-channel image of even size");
  const int w = bgr.cols, h = bgr.rows, cw = w / 2, ch = h / 2;
  cv::Mat i420;  // Y, then U, then V, each packed
  cv::cvtColor(bgr, i420, cv::COLOR_BGR2YUV_I420);
  const uint8_t *srcY = i420.data, *srcU = srcY + w * h, *srcV = srcU + cw * ch;

  YuvFrame f;
  f.width = w;
  f.height = h;
  f.yRowStride = w + rowPadding;
  const int pixel = layout == YuvLayout::I420 ? 1 : 2, chromaRow = cw * pixel + rowPadding;
  const size_t chromaStart = size_t(f.yRowStride) * h;
  const size_t lastChromaRowEnd = size_t(chromaRow) * (ch - 1) + cw * pixel;
  f.bytes.assign(chromaStart + (pixel == 1 ? size_t(chromaRow) * ch : 0) + lastChromaRowEnd, 0);
  f.y = f.bytes.data();
  uint8_t* chroma = f.y + chromaStart;
  f.u = chroma + (layout == YuvLayout::NV21 ? 1 : 0);
  f.v = layout == YuvLayout::I420 ? chroma + size_t(chromaRow) * ch
                                  : chroma + (layout == YuvLayout::NV12 ? 1 : 0);
  f.uPixelStride = f.vPixelStride = pixel;
  f.uRowStride = f.vRowStride = chromaRow;
  for (int r = 0; r < h; ++r) std::memcpy(f.y + size_t(r) * f.yRowStride, srcY + r * w, w);
  for (int r = 0; r < ch; ++r)
    for (int c = 0; c < cw; ++c) {
      f.u[size_t(r) * chromaRow + c * pixel] = srcU[r * cw + c];
      f.v[size_t(r) * chromaRow + c * pixel] = srcV[r * cw + c];
    }
  return f;
}

}  // namespace hdsml
