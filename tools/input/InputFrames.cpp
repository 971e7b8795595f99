#include "tools/input/InputFrames.h"

#include <stdexcept>

namespace hdsreplay {

InputFrames::InputFrames(const std::string& path, long maxFrames)
    : source_(FrameSource::open(path)), name_(path), maxFrames_(maxFrames) {}

bool InputFrames::next() {
  if (maxFrames_ >= 0 && framesRead_ >= maxFrames_) return false;
  if (!source_->read(decoded_)) {
    if (framesRead_ == 0) throw std::runtime_error("'" + name_ + "' holds no frames");
    return false;
  }
  ++framesRead_;
  const int w = decoded_.cols & ~1, h = decoded_.rows & ~1;
  if (w < 2 || h < 2) throw std::runtime_error("frames must be at least 2x2 pixels");
  // 4:2:0 needs even sizes; a stray odd column or row is cropped.
  last_ = (w == decoded_.cols && h == decoded_.rows) ? decoded_
                                                     : decoded_(cv::Rect(0, 0, w, h)).clone();
  return true;
}

}  // namespace hdsreplay
