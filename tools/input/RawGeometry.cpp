#include "tools/input/RawGeometry.h"

#include <stdexcept>

namespace hdsreplay {

namespace {

// Bytes of one chroma row's samples: interleaved rows hold both chromas.
int chromaRowBytes(int width, hdsml::YuvLayout layout) {
  return (width / 2) * (hdsml::isPlanar(layout) ? 1 : 2);
}

}  // namespace

RawGeometry RawGeometry::padded(int width, int height, hdsml::YuvLayout layout, int rowPadding) {
  return strided(width, height, layout, width + rowPadding,
                 chromaRowBytes(width, layout) + rowPadding);
}

RawGeometry RawGeometry::strided(int width, int height, hdsml::YuvLayout layout, int yRowStride,
                                 int chromaRowStride) {
  RawGeometry g;
  g.width = width;
  g.height = height;
  g.layout = layout;
  g.yRowStride = yRowStride;
  g.chromaRowStride = chromaRowStride > 0       ? chromaRowStride
                      : hdsml::isPlanar(layout) ? (yRowStride + 1) / 2
                                                : yRowStride;
  if (g.yRowStride < width)
    throw std::invalid_argument("a row stride of " + std::to_string(g.yRowStride) +
                                " bytes is shorter than a row of " + std::to_string(width) +
                                " luma samples");
  if (g.chromaRowStride < chromaRowBytes(width, layout))
    throw std::invalid_argument("a chroma row stride of " + std::to_string(g.chromaRowStride) +
                                " bytes is shorter than a " + hdsml::layoutName(layout) +
                                " chroma row of " + std::to_string(chromaRowBytes(width, layout)) +
                                " bytes");
  return g;
}

size_t RawGeometry::frameBytes() const {
  const size_t chromaRows = size_t(height / 2) * (hdsml::isPlanar(layout) ? 2 : 1);
  return size_t(yRowStride) * height + size_t(chromaRowStride) * chromaRows;
}

size_t RawGeometry::tightBytes() const {
  return frameBytes() - (chromaRowStride - chromaRowBytes(width, layout));
}

void RawGeometry::place(hdsml::YuvFrame& f) const {
  f.width = width;
  f.height = height;
  f.y = f.bytes.data();
  f.yPixelStride = 1;
  f.yRowStride = yRowStride;
  const bool planar = hdsml::isPlanar(layout);
  uint8_t* chroma = f.y + size_t(yRowStride) * height;
  uint8_t* other = planar ? chroma + size_t(chromaRowStride) * (height / 2) : chroma + 1;
  const bool vFirst = layout == hdsml::YuvLayout::NV21 || layout == hdsml::YuvLayout::YV12;
  f.u = vFirst ? other : chroma;
  f.v = vFirst ? chroma : other;
  f.uPixelStride = f.vPixelStride = planar ? 1 : 2;
  f.uRowStride = f.vRowStride = chromaRowStride;
}

std::string RawGeometry::describe() const {
  return std::to_string(width) + "x" + std::to_string(height) + " " + hdsml::layoutName(layout) +
         " with rows of " + std::to_string(yRowStride) + " bytes (luma) and " +
         std::to_string(chromaRowStride) + " (chroma)";
}

}  // namespace hdsreplay
