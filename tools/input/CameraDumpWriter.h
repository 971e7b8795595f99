// Writes frames as a camera dump that hds-replay reads back with --raw: each
// picture packed as YUV 4:2:0 in a camera layout (exactly as hds-replay packs a
// video's frames), into one file of frames when the path ends in .nv21, .nv12,
// .i420, .yv12 or .yuv, else into a folder of one file a frame; and beside it
// the camera log (NAME.csv, or FOLDER/frames.csv) with each frame's timestamp at
// the given rate, the exposure time and a still lens. One thread.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include <opencv2/core.hpp>

#include "tests/support/YuvFrame.h"
#include "tools/input/RawGeometry.h"

namespace hdsreplay {

class CameraDumpWriter {
 public:
  // Throws std::runtime_error when the dump or its log cannot be created.
  // `logPath` empty: the log's usual place, logPathFor(path).
  CameraDumpWriter(const std::string& path, hdsml::YuvLayout layout, int rowPadding, double fps,
                   int exposureNs, const std::string& logPath = "");
  ~CameraDumpWriter();
  CameraDumpWriter(const CameraDumpWriter&) = delete;
  CameraDumpWriter& operator=(const CameraDumpWriter&) = delete;

  // A BGR picture; odd sizes are cropped to even, as hds-replay does.
  void add(const cv::Mat& bgr);
  // Flushes and closes; throws when the data did not reach the files.
  void close();

  // Where a dump's camera log goes: NAME.csv beside one file, FOLDER/frames.csv.
  static std::string logPathFor(const std::string& path);
  // True when `path` names one file of frames (.nv21 ...), else a folder.
  static bool namesOneFile(const std::string& path);

  const std::optional<RawGeometry>& geometry() const { return geometry_; }
  const std::string& logPath() const { return logPath_; }

 private:
  const std::string path_;
  const hdsml::YuvLayout layout_;
  const int rowPadding_;
  const double fps_;
  const int exposureNs_;
  const bool oneFile_;
  std::string logPath_;
  std::optional<RawGeometry> geometry_;  // known from the first frame
  std::FILE* frames_ = nullptr;          // the one file of frames
  std::FILE* log_ = nullptr;
  long count_ = 0;
};

}  // namespace hdsreplay
