// A screen in view of the camera: another footage's frames shown in a
// rectangle of every frame handed over, a television playing in a corner of
// the room. Its frames are read once, when the first frame tells the picture's
// size, and scaled to the rectangle by nearest samples in integer steps, so
// that the screen is the same bytes on every CPU when its source is a camera
// dump. Frame i of the replay shows the source's frame i, from the start again
// when the source runs out. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/YuvFrame.h"
#include "tools/input/RawGeometry.h"
#include "tools/options/SceneOptions.h"

namespace hdsreplay {

class ScreenOverlay {
 public:
  // The screen's frames in pixels of a picture: the rectangle rounded to
  // even sides and corners, as 4:2:0 chroma needs, and kept inside it.
  struct Placement {
    int x = 0, y = 0, width = 0, height = 0;
  };
  static Placement place(const RelativeRect& rect, int frameWidth, int frameHeight);

  // `raw` for a camera dump. Nothing is read yet.
  ScreenOverlay(std::string source, std::optional<RawGeometry> raw, const RelativeRect& rect);

  // Writes into `out` a copy of `in` with the screen showing its frame
  // `frameIndex`. Throws std::runtime_error when the source cannot be read or
  // the rectangle is too small to show anything.
  void composite(const hdsml::YuvFrame& in, long frameIndex, hdsml::YuvFrame& out);
  long frames() const { return static_cast<long>(frames_.size()); }

 private:
  // One screen frame, planar, at the placement's size (chroma at half).
  struct Picture {
    std::vector<uint8_t> y, u, v;
  };
  void load(int frameWidth, int frameHeight);
  Picture scale(const hdsml::YuvFrame& frame) const;

  const std::string source_;
  const std::optional<RawGeometry> raw_;
  const RelativeRect rect_;
  Placement at_;
  std::vector<Picture> frames_;
};

}  // namespace hdsreplay
