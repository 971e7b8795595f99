// Packs an 8-bit colour image into YUV 4:2:0 exactly as an Android camera hands
// it over: a luma plane and two chroma pointers, each with its own pixel and row
// stride. The second pointer always addresses U (Cb) and the third V (Cr); the
// layouts differ only in how the chroma samples sit in memory.
//   NV21: one interleaved chroma plane, V first (pixel stride 2)
//   NV12: one interleaved chroma plane, U first (pixel stride 2)
//   I420: separate U and V planes (pixel stride 1)
// Every row may carry padding; the buffer ends right after the last sample so a
// read past the image trips AddressSanitizer. Header-only, used by the tests and
// by hds-replay.
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
  switch (layout) {
    case YuvLayout::NV21:
      return "nv21";
    case YuvLayout::NV12:
      return "nv12";
    case YuvLayout::I420:
      return "i420";
  }
  return "?";
}

// Parses "nv21", "nv12" or "i420"; throws std::invalid_argument otherwise.
inline YuvLayout parseLayout(const std::string& name) {
  if (name == "nv21") return YuvLayout::NV21;
  if (name == "nv12") return YuvLayout::NV12;
  if (name == "i420") return YuvLayout::I420;
  throw std::invalid_argument("unknown YUV layout '" + name + "' (expected nv21, nv12 or i420)");
}

// One packed frame; owns its bytes. Movable, and the plane pointers stay valid
// across moves because they point into the vector's heap block.
struct YuvFrame {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> bytes;
  uint8_t* y = nullptr;
  uint8_t* u = nullptr;
  uint8_t* v = nullptr;
  int yPixelStride = 1, yRowStride = 0;
  int uPixelStride = 1, uRowStride = 0;
  int vPixelStride = 1, vRowStride = 0;
};

// Packs a CV_8UC3 image (BGR unless `isRgb`) of even width and height.
inline YuvFrame packYuv(const cv::Mat& colour, YuvLayout layout, int rowPadding = 0,
                        bool isRgb = false) {
  if (colour.type() != CV_8UC3 || colour.cols % 2 != 0 || colour.rows % 2 != 0 || colour.empty())
    throw std::invalid_argument("packYuv needs a non-empty 8-bit 3-channel image of even size");
  if (rowPadding < 0) throw std::invalid_argument("packYuv: negative row padding");

  const int w = colour.cols, h = colour.rows, cw = w / 2, ch = h / 2;
  cv::Mat i420;  // (h * 3/2) x w: Y rows, then U (h/4 rows of w), then V
  cv::cvtColor(colour, i420, isRgb ? cv::COLOR_RGB2YUV_I420 : cv::COLOR_BGR2YUV_I420);
  const uint8_t* srcY = i420.ptr<uint8_t>(0);
  const uint8_t* srcU = srcY + w * h;
  const uint8_t* srcV = srcU + cw * ch;

  YuvFrame f;
  f.width = w;
  f.height = h;
  f.yRowStride = w + rowPadding;
  const bool interleaved = layout != YuvLayout::I420;
  const int chromaRow = (interleaved ? w : cw) + rowPadding;
  const size_t chromaStart = size_t(f.yRowStride) * h;
  size_t total;
  if (interleaved)
    total = chromaStart + size_t(chromaRow) * (ch - 1) + w;
  else
    total = chromaStart + size_t(chromaRow) * ch + size_t(chromaRow) * (ch - 1) + cw;
  f.bytes.assign(total, 0);

  uint8_t* base = f.bytes.data();
  for (int r = 0; r < h; ++r) std::memcpy(base + size_t(r) * f.yRowStride, srcY + r * w, w);
  f.y = base;

  uint8_t* chroma = base + chromaStart;
  if (interleaved) {
    const bool vFirst = layout == YuvLayout::NV21;
    f.u = chroma + (vFirst ? 1 : 0);
    f.v = chroma + (vFirst ? 0 : 1);
    f.uPixelStride = f.vPixelStride = 2;
    for (int r = 0; r < ch; ++r) {
      for (int c = 0; c < cw; ++c) {
        f.u[size_t(r) * chromaRow + 2 * c] = srcU[r * cw + c];
        f.v[size_t(r) * chromaRow + 2 * c] = srcV[r * cw + c];
      }
    }
  } else {
    f.u = chroma;
    f.v = chroma + size_t(chromaRow) * ch;
    f.uPixelStride = f.vPixelStride = 1;
    for (int r = 0; r < ch; ++r) {
      std::memcpy(f.u + size_t(r) * chromaRow, srcU + r * cw, cw);
      std::memcpy(f.v + size_t(r) * chromaRow, srcV + r * cw, cw);
    }
  }
  f.uRowStride = f.vRowStride = chromaRow;
  return f;
}

}  // namespace hdsml
