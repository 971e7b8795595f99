// A packed test frame as the fused intake kernel takes it.
#pragma once

#include "client/FusedIntake.h"
#include "tests/support/YuvFrame.h"

namespace hdsml {

inline YuvPlanes planesOf(const YuvFrame& f) {
  return {f.y,          f.u,
          f.v,          f.width,
          f.height,     f.yPixelStride,
          f.yRowStride, f.uPixelStride,
          f.uRowStride, f.vPixelStride,
          f.vRowStride};
}

}  // namespace hdsml
