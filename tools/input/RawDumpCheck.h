// Checks a camera dump against the geometry it is said to have, before a
// replay trusts it: a dump replayed with the wrong width, stride or layout
// gives frames of noise that the library takes for motion. The luma plane of
// a picture changes little from one row to the next, so the distance between
// rows that match best tells the real row stride; interleaved chroma
// alternates between two planes from one byte to the next, planar chroma does
// not. Pure functions of the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/input/RawGeometry.h"

namespace hdsreplay {

// The geometries, in the stated layout, that divide `bytes` into whole frames,
// nearest the stated one first, at most `count`: "--raw 640x480 (12 frames)",
// "--raw 640x480 --row-stride 704 (10 frames)".
std::vector<std::string> fittingGeometries(size_t bytes, const RawGeometry& stated,
                                           size_t count = 3);

// The row stride, in bytes, at which the luma plane's rows match best: the
// stated one for a dump that fits its geometry. `frame` holds one frame.
int bestLumaStride(const std::vector<uint8_t>& frame, const RawGeometry& g);

// Warnings, one sentence each, about one frame's bytes: luma rows that match
// best at another stride than the stated one; chroma that looks interleaved
// when a planar layout is stated, or planar when an interleaved one is.
std::vector<std::string> checkRawFrame(const std::vector<uint8_t>& frame, const RawGeometry& g);

// checkRawFrame() on the dump's first frame (a folder's first file). Nothing
// when it cannot be read: the replay says why.
std::vector<std::string> checkRawDump(const std::string& path, const RawGeometry& g);

}  // namespace hdsreplay
