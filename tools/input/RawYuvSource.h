// Frames of a camera dump: raw YUV 4:2:0 frames laid out as a RawGeometry
// says, either one file of frames one after the other, or a folder of one file
// a frame (.nv21, .nv12, .i420, .yv12, .yuv) in file-name order. Each frame is
// read into memory as it lies in the file; nothing is converted. One thread.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "tools/input/FrameSource.h"
#include "tools/input/RawGeometry.h"

namespace hdsreplay {

class RawYuvSource : public FrameSource {
 public:
  // Throws std::runtime_error when the file's size is not a whole number of
  // frames, or the folder holds no raw frames.
  RawYuvSource(const std::string& path, const RawGeometry& geometry);
  ~RawYuvSource() override;
  RawYuvSource(const RawYuvSource&) = delete;
  RawYuvSource& operator=(const RawYuvSource&) = delete;

  // Throws when a folder's file has the size of no frame, or a read fails.
  bool read(SourceFrame& frame) override;
  double fps() const override { return 0.0; }
  long frameCount() const override { return frameCount_; }
  std::string kind() const override;

  // File name extensions of raw frames, and the message listing them.
  static bool isRawExtension(const std::string& lowerExtension);
  static const char* rawExtensions() { return ".nv21, .nv12, .i420, .yv12, .yuv"; }

 private:
  std::string sizeMessage(const std::string& file, size_t bytes) const;
  // The refusal of a file of frames whose size is not a whole number of them.
  std::string wholeFramesMessage(const std::string& file, size_t bytes) const;

  const std::string path_;
  const RawGeometry geometry_;
  std::vector<std::string> files_;  // a folder's frames; empty for one file of frames
  std::FILE* file_ = nullptr;       // the one file of frames
  long frameCount_ = 0;
  long next_ = 0;
};

}  // namespace hdsreplay
