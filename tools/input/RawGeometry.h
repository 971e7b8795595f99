// How a camera dump lays out one YUV 4:2:0 frame: size, layout and the row
// strides of the luma and chroma planes. Planes follow each other (luma, then
// the interleaved chroma or the two chroma planes in the layout's order), and
// every row, the last included, takes its full stride. A frame may also end
// right after its last sample, without that row's padding, as a camera's plane
// buffers do. Plain value type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/support/YuvFrame.h"

namespace hdsreplay {

struct RawGeometry {
  int width = 0, height = 0;
  hdsml::YuvLayout layout = hdsml::YuvLayout::NV21;
  int yRowStride = 0;       // bytes from one luma row to the next
  int chromaRowStride = 0;  // bytes from one chroma row to the next, in each chroma plane

  // Rows of every plane padded by `rowPadding` bytes, as packYuv lays frames out.
  static RawGeometry padded(int width, int height, hdsml::YuvLayout layout, int rowPadding);
  // Luma rows of `yRowStride` bytes; chroma rows of `chromaRowStride`, or when
  // that is 0 as cameras usually have them: as wide as the luma rows when
  // interleaved, half as wide when planar. Throws std::invalid_argument when a
  // stride is shorter than its row.
  static RawGeometry strided(int width, int height, hdsml::YuvLayout layout, int yRowStride,
                             int chromaRowStride = 0);

  size_t frameBytes() const;  // every row at its full stride
  size_t tightBytes() const;  // without the padding after the last row
  // Points `frame`'s planes into its bytes, which hold one frame.
  void place(hdsml::YuvFrame& frame) const;
  // "640x480 nv21 with rows of 640 bytes (luma) and 640 (chroma)", for messages.
  std::string describe() const;
};

}  // namespace hdsreplay
