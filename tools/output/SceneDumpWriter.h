// Writes the frames a replay hands over, exactly as detect() got them (the
// probes applied), as a camera dump in one file, with beside it (NAME.csv) the
// camera log a device would have written for them: each frame's timestamp,
// the exposure time handed over and whether the lens moved. Replayed with
// --raw and no probes, such a dump feeds the library the same bytes and the
// same metadata as the replay that wrote it: a staged scene becomes footage
// like a camera's own. One thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "tests/support/YuvFrame.h"
#include "tools/input/RawGeometry.h"

namespace hdsreplay {

class SceneDumpWriter {
 public:
  // `path` must end in .nv21, .nv12, .i420, .yv12 or .yuv and name neither the
  // replay's input nor its camera log. `raw` is the input dump's geometry;
  // without it, frames are laid out as packed in `layout` with `rowPadding`.
  // Throws std::runtime_error naming the path.
  SceneDumpWriter(const std::string& path, const std::string& input, const std::string& inputLog,
                  std::optional<RawGeometry> raw, hdsml::YuvLayout layout, int rowPadding);
  ~SceneDumpWriter();
  SceneDumpWriter(const SceneDumpWriter&) = delete;
  SceneDumpWriter& operator=(const SceneDumpWriter&) = delete;

  void add(const hdsml::YuvFrame& frame, int64_t timestampMs, int exposureNs, bool lensMoving);
  // Flushes and closes; throws when the data did not reach the files.
  void close();

  const std::string& logPath() const { return logPath_; }
  // How to read the dump back: "640x480 nv21 with rows of ...", once a frame is in.
  const std::optional<RawGeometry>& geometry() const { return geometry_; }

 private:
  const std::string path_;
  std::string logPath_;
  const hdsml::YuvLayout layout_;
  const int rowPadding_;
  std::optional<RawGeometry> geometry_;
  std::FILE* frames_ = nullptr;
  std::FILE* log_ = nullptr;
};

}  // namespace hdsreplay
