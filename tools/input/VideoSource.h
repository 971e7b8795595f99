// Frames of a video file that OpenCV's videoio can open (FFmpeg first), as
// 8-bit BGR. The constructor reads the first frame to prove the file decodes.
// One reader thread.
#pragma once

#include <string>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "tools/input/FrameSource.h"

namespace hdsreplay {

class VideoSource : public FrameSource {
 public:
  // Throws std::runtime_error when the file does not open as a video.
  explicit VideoSource(const std::string& path);

  bool read(SourceFrame& frame) override;
  double fps() const override { return fps_; }
  long frameCount() const override { return frameCount_; }
  std::string kind() const override { return "video"; }

 private:
  std::string path_;
  cv::VideoCapture capture_;
  cv::Mat first_;  // read at construction to prove the file decodes
  double fps_ = 0.0;
  long frameCount_ = -1;
};

}  // namespace hdsreplay
