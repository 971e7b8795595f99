#include "tools/input/FrameTransform.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>

namespace hdsreplay {

double FrameTransform::exposureFactor(long frameIndex, bool& moved) const {
  double f = 1.0;
  moved = false;
  if (plan_.stepFrame >= 0 && frameIndex >= plan_.stepFrame) {
    f = plan_.stepFactor;
    moved = true;
  }
  if (plan_.settleFrame >= 0 && frameIndex >= plan_.settleFrame) {
    // Auto-exposure moves in equal steps of light (stops), not of time: frame
    // k of the settling is k + 1 steps of N along the way.
    const long k = frameIndex - plan_.settleFrame;
    const long n = std::max(1L, plan_.settleFrames);
    f *= k + 1 >= n ? plan_.settleFactor
                    : std::pow(plan_.settleFactor, static_cast<double>(k + 1) / n);
    moved = true;
  }
  return f;
}

double FrameTransform::gain(long frameIndex) const {
  double g = 1.0;
  if (plan_.ramp) {
    const double t =
        plan_.rampFrames > 1 ? static_cast<double>(frameIndex) / (plan_.rampFrames - 1) : 0.0;
    g = plan_.rampFrom + (plan_.rampTo - plan_.rampFrom) * std::min(1.0, std::max(0.0, t));
  }
  if (plan_.lightFrame >= 0 && frameIndex >= plan_.lightFrame) g *= plan_.lightFactor;
  bool moved = false;
  const double e = exposureFactor(frameIndex, moved);
  if (moved) g *= e;
  return g;
}

int FrameTransform::exposure(long frameIndex, int base) const {
  bool moved = false;
  const double f = exposureFactor(frameIndex, moved);
  if (!moved) return base;
  const double e = std::round(base * f);
  return e >= INT_MAX ? INT_MAX : (e < 1 ? 1 : static_cast<int>(e));
}

double FrameTransform::noiseSigma(bool held) const {
  if (plan_.sensorNoise >= 0.0) return plan_.sensorNoise;
  return held ? plan_.noiseSigma : 0.0;
}

void copyFrame(const hdsml::YuvFrame& in, hdsml::YuvFrame& out) {
  out = hdsml::YuvFrame();
  out.bytes = in.bytes;
  const auto rebase = [&](const uint8_t* p) { return out.bytes.data() + (p - in.bytes.data()); };
  out.y = rebase(in.y), out.u = rebase(in.u), out.v = rebase(in.v);
  out.width = in.width, out.height = in.height;
  out.yPixelStride = in.yPixelStride, out.yRowStride = in.yRowStride;
  out.uPixelStride = in.uPixelStride, out.uRowStride = in.uRowStride;
  out.vPixelStride = in.vPixelStride, out.vRowStride = in.vRowStride;
}

namespace {

uint8_t clampSample(long v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// Applies `f` to every sample of a plane addressed through its strides.
template <typename F>
void forEachSample(uint8_t* plane, int width, int height, int pixelStride, int rowStride, F f) {
  for (int r = 0; r < height; ++r)
    for (int c = 0; c < width; ++c) {
      uint8_t& sample = plane[size_t(r) * rowStride + size_t(c) * pixelStride];
      sample = f(sample);
    }
}

// Sensor noise of about `sigma` grey levels from integer draws only: the sum of
// four uniform 16-bit numbers, centred and scaled to the normal's deviation
// (a sum of n uniforms on [0, 1) has variance n / 12).
class IntegerNoise {
 public:
  IntegerNoise(uint64_t seed, double sigma) : state_(seed), scale_(sigma * std::sqrt(3.0)) {}
  long next(uint8_t sample) {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);  // splitmix64
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    z ^= z >> 31;
    const double sum = static_cast<double>((z & 0xffff) + ((z >> 16) & 0xffff) +
                                           ((z >> 32) & 0xffff) + (z >> 48)) +
                       2.0;  // each draw is taken at the middle of its step
    return std::lround(sample + (sum / 65536.0 - 2.0) * scale_);
  }

 private:
  uint64_t state_;
  const double scale_;
};

}  // namespace

bool FrameTransform::apply(const hdsml::YuvFrame& in, long frameIndex, bool held,
                           hdsml::YuvFrame& out) const {
  const double g = gain(frameIndex);
  const bool gray = plan_.grayscaleFrame >= 0 && frameIndex >= plan_.grayscaleFrame;
  const double sigma = noiseSigma(held);
  const bool noise = sigma > 0.0;
  if (g == 1.0 && !gray && !noise) return false;
  copyFrame(in, out);

  const int cw = in.width / 2, ch = in.height / 2;
  const auto chroma = [&](auto f) {
    forEachSample(out.u, cw, ch, out.uPixelStride, out.uRowStride, f);
    forEachSample(out.v, cw, ch, out.vPixelStride, out.vRowStride, f);
  };
  if (g != 1.0) {  // scales light: luma, and the chroma's distance from grey
    forEachSample(out.y, in.width, in.height, out.yPixelStride, out.yRowStride,
                  [g](uint8_t s) { return clampSample(std::lround(s * g)); });
    chroma([g](uint8_t s) { return clampSample(std::lround((s - 128) * g) + 128); });
  }
  if (gray) chroma([](uint8_t) { return uint8_t{128}; });
  if (noise) {
    IntegerNoise n(0x9e3779b97f4a7c15ULL ^ static_cast<uint64_t>(frameIndex), sigma);
    const auto add = [&n](uint8_t s) { return clampSample(n.next(s)); };
    forEachSample(out.y, in.width, in.height, out.yPixelStride, out.yRowStride, add);
    chroma(add);
  }
  return true;
}

}  // namespace hdsreplay
