// Turns mask polygons, given in frame-relative coordinates, into one flag per
// 4x4 block of the motion frame, once, at configuration: at run time a masked
// block costs a table look-up, nothing per pixel. No state; any thread.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "hdsml_export.h"

namespace hdsml {

// One byte per whole 4x4 block of a width x height frame ((width / 4) *
// (height / 4), row by row): 1 where the block is ignored. A pixel is inside a
// polygon when its centre ((x + 0.5) / width, (y + 0.5) / height) is, by the
// even-odd rule (so a concave outline works, and a self-crossing one leaves its
// doubly wound parts out); overlapping polygons add up. A block is ignored when
// at least half of its 16 pixels are inside some polygon.
HDSML_EXPORT std::vector<uint8_t> blockMaskOfPolygons(
    const std::vector<std::vector<cv::Point2d>>& polygons, int width, int height);

}  // namespace hdsml
