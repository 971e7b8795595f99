// Per-channel sums of every whole 4x4 block of a motion frame: the statistics
// the scene guards compare, frame with frame, instead of the pixels. A block
// mean varies a quarter as much as a pixel under sensor noise. A plain loop (the
// reference) and a vector kernel that gives the same numbers. No state; any
// thread.
#pragma once

#include <cstdint>

#include "frames/KernelPath.h"
#include "hdsml_export.h"

namespace hdsml {

// `frame` is packed width x height pixels of 3 bytes. Block (bx, by) covers
// columns 4bx .. 4bx + 3 and rows 4by .. 4by + 3, for bx < width / 4 and
// by < height / 4. `sums` receives 3 planes of (width / 4) * (height / 4)
// values, plane c holding byte c of every block's 16 pixels summed, blocks row
// by row.
HDSML_EXPORT void sumBlocks(const uint8_t* frame, int width, int height, uint16_t* sums,
                            KernelPath path);

}  // namespace hdsml
