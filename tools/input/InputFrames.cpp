#include "tools/input/InputFrames.h"

#include <stdexcept>

namespace hdsreplay {

InputFrames::InputFrames(const std::string& path, long maxFrames,
                         const std::optional<RawGeometry>& raw)
    : source_(FrameSource::open(path, raw)), name_(path), maxFrames_(maxFrames) {}

bool InputFrames::next() {
  if (maxFrames_ >= 0 && framesRead_ >= maxFrames_) return false;
  if (!source_->read(last_)) {
    if (framesRead_ == 0) throw std::runtime_error("'" + name_ + "' holds no frames");
    return false;
  }
  ++framesRead_;
  if (last_.raw) return true;
  const cv::Mat& picture = last_.bgr;
  const int w = picture.cols & ~1, h = picture.rows & ~1;
  if (w < 2 || h < 2) throw std::runtime_error("frames must be at least 2x2 pixels");
  // 4:2:0 needs even sizes; a stray odd column or row is cropped.
  if (w != picture.cols || h != picture.rows) last_.bgr = picture(cv::Rect(0, 0, w, h)).clone();
  return true;
}

}  // namespace hdsreplay
