// Packs an 8-bit BGR image into YUV 4:2:0 exactly as an Android camera hands it
// over: a luma plane and two chroma pointers, each with its own pixel and row
// stride. The second pointer always addresses U (Cb) and the third V (Cr):
//   NV21: one interleaved chroma plane, V first (pixel stride 2)
//   NV12: one interleaved chroma plane, U first (pixel stride 2)
//   I420: separate U and V planes (pixel stride 1)
//   YV12: separate planes as in I420, V before U
// Every row may carry padding; the buffer ends right after the last sample so a
// read past the image trips AddressSanitizer. unpackYuv turns any such frame
// back into BGR, for looking at it. Used by the tests and the tools.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace hdsml {

enum class YuvLayout { NV21, NV12, I420, YV12 };

inline const char* layoutName(YuvLayout layout) {
  static const char* const kNames[] = {"nv21", "nv12", "i420", "yv12"};
  return kNames[static_cast<int>(layout)];
}

// Parses "nv21", "nv12", "i420" or "yv12"; throws std::invalid_argument otherwise.
inline YuvLayout parseLayout(const std::string& name) {
  for (YuvLayout layout : {YuvLayout::NV21, YuvLayout::NV12, YuvLayout::I420, YuvLayout::YV12})
    if (name == layoutName(layout)) return layout;
  throw std::invalid_argument("unknown YUV layout '" + name +
                              "' (expected nv21, nv12, i420 or yv12)");
}

// Planar layouts keep U and V apart; the others interleave them.
inline bool isPlanar(YuvLayout layout) {
  return layout == YuvLayout::I420 || layout == YuvLayout::YV12;
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
  const int pixel = isPlanar(layout) ? 1 : 2, chromaRow = cw * pixel + rowPadding;
  const size_t chromaStart = size_t(f.yRowStride) * h;
  const size_t lastChromaRowEnd = size_t(chromaRow) * (ch - 1) + cw * pixel;
  f.bytes.assign(chromaStart + (pixel == 1 ? size_t(chromaRow) * ch : 0) + lastChromaRowEnd, 0);
  f.y = f.bytes.data();
  uint8_t* chroma = f.y + chromaStart;
  // The first chroma sample, then the other chroma's: the next byte when
  // interleaved, the next plane when planar. NV21 and YV12 put V first.
  uint8_t* other = pixel == 1 ? chroma + size_t(chromaRow) * ch : chroma + 1;
  const bool vFirst = layout == YuvLayout::NV21 || layout == YuvLayout::YV12;
  f.u = vFirst ? other : chroma;
  f.v = vFirst ? chroma : other;
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

// The frame as 8-bit BGR, whatever its layout and strides: for pictures of it.
inline cv::Mat unpackYuv(const YuvFrame& f) {
  const int cw = f.width / 2, ch = f.height / 2;
  cv::Mat i420(f.height * 3 / 2, f.width, CV_8UC1);
  uint8_t *dstY = i420.data, *dstU = dstY + f.width * f.height, *dstV = dstU + cw * ch;
  for (int r = 0; r < f.height; ++r)
    for (int c = 0; c < f.width; ++c)
      dstY[r * f.width + c] = f.y[size_t(r) * f.yRowStride + size_t(c) * f.yPixelStride];
  for (int r = 0; r < ch; ++r)
    for (int c = 0; c < cw; ++c) {
      dstU[r * cw + c] = f.u[size_t(r) * f.uRowStride + size_t(c) * f.uPixelStride];
      dstV[r * cw + c] = f.v[size_t(r) * f.vRowStride + size_t(c) * f.vPixelStride];
    }
  cv::Mat bgr;
  cv::cvtColor(i420, bgr, cv::COLOR_YUV2BGR_I420);
  return bgr;
}

}  // namespace hdsml
