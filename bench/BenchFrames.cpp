#include "bench/BenchFrames.h"

#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

#include "client/HDSMLClient.h"

namespace hdsml_bench {
namespace {

constexpr int kRowPadding = 32;
constexpr size_t kBytesPerSize = size_t(96) << 20;
int gSourceFrameCount = 300;

// A deterministic stand-in for the recording: a textured background with three
// bright squares crossing it at different speeds, plus a little sensor noise.
std::vector<cv::Mat> generatedFrames(int count) {
  const int width = 768, height = 576;
  cv::Mat background(height, width, CV_8UC3);
  cv::RNG rng(20240601);
  rng.fill(background, cv::RNG::UNIFORM, cv::Scalar(40, 50, 60), cv::Scalar(180, 190, 200));
  cv::GaussianBlur(background, background, cv::Size(7, 7), 0);
  std::vector<cv::Mat> frames;
  for (int i = 0; i < count; ++i) {
    cv::Mat frame = background.clone();
    for (int k = 0; k < 3; ++k) {
      const int side = 40 + 20 * k;
      const int x = (i * (3 + 2 * k) + 150 * k) % (width - side);
      const int y = 80 + 160 * k;
      cv::rectangle(frame, cv::Rect(x, y, side, side), cv::Scalar(230 - 60 * k, 90 + 50 * k, 200),
                    cv::FILLED);
    }
    cv::Mat noise(height, width, CV_8UC3);
    rng.fill(noise, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(2));
    cv::add(frame, noise, frame, cv::noArray(), CV_8UC3);
    frames.push_back(frame);
  }
  return frames;
}

std::vector<cv::Mat> loadSourceFrames() {
  const std::string path = HDSML_BENCH_VIDEO;
  std::vector<cv::Mat> frames;
  cv::VideoCapture video(path);
  cv::Mat frame;
  while (video.isOpened() && static_cast<int>(frames.size()) < gSourceFrameCount &&
         video.read(frame))
    frames.push_back(frame.clone());
  if (!frames.empty()) {
    std::fprintf(stderr, "hdsml_bench: %zu real frames (%dx%d) from %s\n", frames.size(),
                 frames[0].cols, frames[0].rows, path.c_str());
    return frames;
  }
  std::fprintf(stderr,
               "hdsml_bench: %s not found or unreadable (scripts/samples extracts it); using %d "
               "generated frames with moving squares\n",
               path.c_str(), gSourceFrameCount);
  return generatedFrames(gSourceFrameCount);
}

}  // namespace

void setSourceFrameCount(int count) { gSourceFrameCount = std::max(2, count); }

const std::vector<cv::Mat>& sourceFrames() {
  static const std::vector<cv::Mat> frames = loadSourceFrames();
  return frames;
}

const std::vector<hdsml::YuvFrame>& nv21Frames(int width, int height) {
  static std::map<std::pair<int, int>, std::vector<hdsml::YuvFrame>> cache;
  std::vector<hdsml::YuvFrame>& frames = cache[{width, height}];
  if (!frames.empty()) return frames;
  const size_t frameBytes = size_t(width + kRowPadding) * height * 3 / 2;
  const size_t count =
      std::min(sourceFrames().size(), std::max<size_t>(2, kBytesPerSize / frameBytes));
  cv::Mat scaled;
  for (size_t i = 0; i < count; ++i) {
    cv::resize(sourceFrames()[i], scaled, cv::Size(width, height), 0, 0, cv::INTER_LINEAR);
    frames.push_back(hdsml::packYuv(scaled, hdsml::YuvLayout::NV21, kRowPadding));
  }
  return frames;
}

const std::vector<cv::Mat>& motionFrames(int width, int height) {
  static std::map<std::pair<int, int>, std::vector<cv::Mat>> cache;
  std::vector<cv::Mat>& frames = cache[{width, height}];
  if (!frames.empty()) return frames;
  std::vector<unsigned char> packed(size_t(width) * height * 3 / 2);
  const cv::Mat packedView(height * 3 / 2, width, CV_8UC1, packed.data());
  for (const cv::Mat& source : sourceFrames()) {
    hdsml::YuvFrame f = hdsml::packYuv(source, hdsml::YuvLayout::NV21, kRowPadding);
    destride(f.y, f.u, f.v, f.height, f.width, f.yPixelStride, f.yRowStride, f.uPixelStride,
             f.uRowStride, f.vPixelStride, f.vRowStride, height, width, packed.data());
    cv::Mat rgb;
    cv::cvtColor(packedView, rgb, cv::COLOR_YUV2RGB_YV12);
    frames.push_back(rgb);
  }
  return frames;
}

}  // namespace hdsml_bench
