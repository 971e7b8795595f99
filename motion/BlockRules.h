// The two 4x4 block rules applied over a whole motion frame, each as a plain
// loop (the reference) and as a vector kernel that decides four side-by-side
// blocks at once, one block per lane, with every block sum kept in its plain
// order so that both give the same bytes. Used by FrameDiff and
// FrameDiffLowLight on the motion thread; the functions keep no state.
//
// Frames are packed width x height pixels of 3 bytes; `mask` is width x height
// bytes and must be all 0 on entry. Each foreground block sets its 16 mask
// bytes to 255. The result is the number of foreground pixels, 16 per block.
// Blocks are visited while their centre (left + 2, top + 2) is less than
// width - 2 and height - 2, so the last whole column and row of blocks and any
// narrower strip at the right and bottom are never examined.
#pragma once

#include <cstdint>

#include "frames/KernelPath.h"

namespace hdsml {

// Normal light: colour distance, red/blue chromaticity and channel range.
int markFrameDiffBlocks(const uint8_t* current, const uint8_t* reference, uint8_t* mask, int width,
                        int height, KernelPath path);

// Low light: summed absolute luma change.
int markLowLightBlocks(const uint8_t* current, const uint8_t* reference, uint8_t* mask, int width,
                       int height, KernelPath path);

}  // namespace hdsml
