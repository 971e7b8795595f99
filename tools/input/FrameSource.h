// Where the replayed frames come from: a video file that OpenCV's videoio can
// open, or a folder of still images replayed in file-name order. open() checks
// the input and throws std::runtime_error with a message for the user. Frames
// come out as 8-bit BGR; one reader thread.
#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>

namespace hdsreplay {

class FrameSource {
 public:
  virtual ~FrameSource() = default;

  static std::unique_ptr<FrameSource> open(const std::string& path);

  // Next frame, false at the end. Throws when an image of a folder is unreadable
  // or its size differs from the first (a camera never changes size mid-stream).
  virtual bool read(cv::Mat& bgr) = 0;
  // Frame rate the input declares; 0 when it declares none.
  virtual double fps() const = 0;
  // Number of frames, or -1 when the input cannot tell in advance.
  virtual long frameCount() const = 0;
  virtual std::string kind() const = 0;  // "video" or "images"
};

// The input's file or folder name, as titles show it.
std::string inputName(const std::string& path);

}  // namespace hdsreplay
