// The input's frames in order, up to --frames; pictures are cropped to even
// sizes for 4:2:0. Keeps the last frame read, which the still tail repeats.
// One thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tools/input/FrameSource.h"

namespace hdsreplay {

class InputFrames {
 public:
  // `maxFrames` -1: the whole input; `raw` for a camera dump. Throws
  // std::runtime_error when the input cannot be opened.
  InputFrames(const std::string& path, long maxFrames, const std::optional<RawGeometry>& raw);
  InputFrames(const InputFrames&) = delete;
  InputFrames& operator=(const InputFrames&) = delete;

  const FrameSource& source() const { return *source_; }

  // Reads the next frame into last(). False once the input or --frames is used
  // up; last() then keeps the final frame. Throws when the input holds no frame
  // at all or frames smaller than 2x2.
  bool next();
  const SourceFrame& last() const { return last_; }
  long framesRead() const { return framesRead_; }

 private:
  const std::unique_ptr<FrameSource> source_;
  const std::string name_;
  const long maxFrames_;  // -1: no limit
  long framesRead_ = 0;
  SourceFrame last_;
};

}  // namespace hdsreplay
