// Where the replayed frames come from: a video file that OpenCV's videoio can
// open, a folder of still images replayed in file-name order, or a camera dump
// of raw YUV 4:2:0 frames (one file of frames, or a folder of one file a frame)
// described by a RawGeometry. open() checks the input and throws
// std::runtime_error with a message for the user. One reader thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <opencv2/core.hpp>

#include "tests/support/YuvFrame.h"
#include "tools/input/RawGeometry.h"

namespace hdsreplay {

// One frame as the input holds it: a BGR picture (videos, images), or camera
// bytes in their own layout (dumps), which reach detect() exactly as they are.
struct SourceFrame {
  cv::Mat bgr;
  hdsml::YuvFrame yuv;  // with raw
  bool raw = false;

  cv::Size size() const { return raw ? cv::Size(yuv.width, yuv.height) : bgr.size(); }
};

class FrameSource {
 public:
  virtual ~FrameSource() = default;

  // `raw` describes the frames of a camera dump; without it, a path whose name
  // or contents look like one is refused with a hint to give --raw.
  static std::unique_ptr<FrameSource> open(const std::string& path,
                                           const std::optional<RawGeometry>& raw = std::nullopt);

  // Next frame, false at the end. Throws when a file is unreadable or a
  // picture's size differs from the first (a camera never changes size mid-stream).
  virtual bool read(SourceFrame& frame) = 0;
  // Frame rate the input declares; 0 when it declares none.
  virtual double fps() const = 0;
  // Number of frames, or -1 when the input cannot tell in advance.
  virtual long frameCount() const = 0;
  virtual std::string kind() const = 0;  // "video", "images" or "raw nv21" ...
};

// The warning for a video that ended after `read` frames when its header
// declares `declared`: cut short or damaged.
std::string endedEarlyWarning(const std::string& path, long read, long declared);

// The input's file or folder name, as titles show it.
std::string inputName(const std::string& path);

// The layout a camera dump's name gives (".nv21" ...), if any; a folder's by
// the files in it.
std::optional<hdsml::YuvLayout> layoutFromName(const std::string& path);

}  // namespace hdsreplay
