// Frames from a folder of still images, replayed in file-name order (number
// them with leading zeros: frame_0001.png), as 8-bit BGR. Every image must have
// the size of the first, as a camera never changes size mid-stream. One thread.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tools/input/FrameSource.h"

namespace hdsreplay {

class ImageFolderSource : public FrameSource {
 public:
  // Throws std::runtime_error when the folder cannot be listed or holds no images.
  explicit ImageFolderSource(const std::string& dir);

  bool read(SourceFrame& frame) override;
  double fps() const override { return 0.0; }
  long frameCount() const override { return static_cast<long>(files_.size()); }
  std::string kind() const override { return "images"; }

 private:
  std::vector<std::string> files_;
  size_t next_ = 0;
  cv::Size size_;
};

}  // namespace hdsreplay
