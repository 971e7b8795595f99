#include "tools/input/ScreenOverlay.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "tools/input/FrameTransform.h"
#include "tools/input/InputFrames.h"

namespace hdsreplay {

namespace {

// A screen source longer than this loops over its first frames: a few
// minutes of film keep a replay's memory small.
constexpr long kMaxScreenFrames = 3000;

int evenDown(double v) { return static_cast<int>(std::floor(v / 2.0)) * 2; }

// Nearest samples of a plane of `w` x `h` into `dw` x `dh`, integer steps only.
void sample(const uint8_t* plane, int w, int h, int pixelStride, int rowStride, int dw, int dh,
            std::vector<uint8_t>& out) {
  out.resize(size_t(dw) * dh);
  for (int r = 0; r < dh; ++r) {
    const int sr = static_cast<int>(int64_t(r) * h / dh);
    for (int c = 0; c < dw; ++c) {
      const int sc = static_cast<int>(int64_t(c) * w / dw);
      out[size_t(r) * dw + c] = plane[size_t(sr) * rowStride + size_t(sc) * pixelStride];
    }
  }
}

void paste(const std::vector<uint8_t>& from, int w, int h, uint8_t* plane, int x, int y,
           int pixelStride, int rowStride) {
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c)
      plane[size_t(y + r) * rowStride + size_t(x + c) * pixelStride] = from[size_t(r) * w + c];
}

}  // namespace

ScreenOverlay::Placement ScreenOverlay::place(const RelativeRect& rect, int frameWidth,
                                              int frameHeight) {
  Placement p;
  p.x = std::min(evenDown(rect.x * frameWidth + 1.0), frameWidth);
  p.y = std::min(evenDown(rect.y * frameHeight + 1.0), frameHeight);
  const int right = std::min(evenDown((rect.x + rect.w) * frameWidth + 1.0), frameWidth & ~1);
  const int bottom = std::min(evenDown((rect.y + rect.h) * frameHeight + 1.0), frameHeight & ~1);
  p.width = std::max(0, right - p.x);
  p.height = std::max(0, bottom - p.y);
  return p;
}

ScreenOverlay::ScreenOverlay(std::string source, std::optional<RawGeometry> raw,
                             const RelativeRect& rect)
    : source_(std::move(source)), raw_(std::move(raw)), rect_(rect) {}

ScreenOverlay::Picture ScreenOverlay::scale(const hdsml::YuvFrame& f) const {
  Picture p;
  sample(f.y, f.width, f.height, f.yPixelStride, f.yRowStride, at_.width, at_.height, p.y);
  const int cw = f.width / 2, ch = f.height / 2;
  sample(f.u, cw, ch, f.uPixelStride, f.uRowStride, at_.width / 2, at_.height / 2, p.u);
  sample(f.v, cw, ch, f.vPixelStride, f.vRowStride, at_.width / 2, at_.height / 2, p.v);
  return p;
}

void ScreenOverlay::load(int frameWidth, int frameHeight) {
  at_ = place(rect_, frameWidth, frameHeight);
  if (at_.width < 2 || at_.height < 2)
    throw std::runtime_error("--screen: the rectangle covers less than 2x2 pixels of a " +
                             std::to_string(frameWidth) + "x" + std::to_string(frameHeight) +
                             " frame");
  try {
    InputFrames screen(source_, kMaxScreenFrames, raw_);
    while (screen.next()) {
      const SourceFrame& s = screen.last();
      frames_.push_back(scale(s.raw ? s.yuv : hdsml::packYuv(s.bgr, hdsml::YuvLayout::I420)));
    }
  } catch (const std::runtime_error& e) {
    throw std::runtime_error(std::string("--screen: ") + e.what());
  }
}

void ScreenOverlay::composite(const hdsml::YuvFrame& in, long frameIndex, hdsml::YuvFrame& out) {
  if (frames_.empty()) load(in.width, in.height);
  const Picture& p = frames_[static_cast<size_t>(frameIndex % frames())];
  copyFrame(in, out);
  paste(p.y, at_.width, at_.height, out.y, at_.x, at_.y, out.yPixelStride, out.yRowStride);
  const int cw = at_.width / 2, ch = at_.height / 2, cx = at_.x / 2, cy = at_.y / 2;
  paste(p.u, cw, ch, out.u, cx, cy, out.uPixelStride, out.uRowStride);
  paste(p.v, cw, ch, out.v, cx, cy, out.vPixelStride, out.vRowStride);
}

}  // namespace hdsreplay
