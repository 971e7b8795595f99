// One pooled frame record: a colour image at the motion resolution plus the
// timestamp, camera metadata and light mode of the frame it holds. Owned by a
// MemoryPool and lent out by reference count; only a record at count 0 is
// written (camera thread), only one at count >= 1 is read (motion thread).
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <memory>
#include <mutex>

#include "client/camera_metadata.h"
#include "hdsml_export.h"

class HDSML_EXPORT FrameData {
 public:
  // Allocates rows x cols x 3 bytes once. If that fails the error is printed
  // and swallowed, and the record is left with an empty image.
  FrameData(int rows, int cols);
  ~FrameData();

  FrameData(const FrameData&) = delete;
  FrameData& operator=(const FrameData&) = delete;

  void incRef();
  // Only lowers the count; a record at 0 is free again but keeps its contents.
  void decRef();
  int getRef();

  std::mutex lock;  // guards refCount, and the pixel buffer during destruction
  int64_t timestamp = -1;
  cv::Mat image;  // CV_8UC3 over the record's own pixel buffer (not owned by the Mat)
  camera_metadata metadata;
  int32_t lightMode = 1;  // 0 low light, 1 normal light
  int32_t refCount = 0;   // 0 means free for reuse

 private:
  // The buffer image points into. Kept apart from image so that freeing it
  // never depends on what was later assigned to the matrix.
  std::unique_ptr<unsigned char[]> pixels_;
};
