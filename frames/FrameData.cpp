#include "frames/FrameData.h"

#include <cstddef>
#include <new>
#include <stdexcept>

#include "diagnostics/Log.h"

FrameData::FrameData(int rows, int cols) {
  try {
    const size_t bytes = static_cast<size_t>(rows) * static_cast<size_t>(cols) * 3;
    std::unique_ptr<unsigned char[]> pixels(new (std::nothrow) unsigned char[bytes]);
    if (!pixels) throw std::runtime_error("Could not allocate memory for image");
    image = cv::Mat(rows, cols, CV_8UC3, pixels.get());
    pixels_ = std::move(pixels);
  } catch (const std::runtime_error& e) {
    // A record without pixels is tolerated by the destructor; the pool simply
    // lends out an unusable record rather than failing the whole client.
    hdsml::logPrintf("Exception: %s\n", e.what());
  }
}

FrameData::~FrameData() {
  std::lock_guard<std::mutex> guard(lock);
  pixels_.reset();
}

void FrameData::incRef() {
  std::lock_guard<std::mutex> guard(lock);
  ++refCount;
}

void FrameData::decRef() {
  std::lock_guard<std::mutex> guard(lock);
  --refCount;
}

int FrameData::getRef() {
  std::lock_guard<std::mutex> guard(lock);
  return refCount;
}
