// What the device recorded with each frame of a camera dump, so that a replay
// feeds exactly what the device saw: a CSV with a header row naming its
// columns, one row a frame in order:
//   timestamp_ms   the timestamp handed to detect() (required; increasing)
//   exposure_ns    SENSOR_EXPOSURE_TIME, camera_metadata.exposureTime (optional)
//   lens_moving    1 while the lens moved, camera_metadata.lensMoving (optional)
// Other columns are ignored. Plain value type.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hdsreplay {

class CameraLog {
 public:
  struct Entry {
    int64_t timestampMs = 0;
    std::optional<int32_t> exposureNs;  // empty: the --exposure option applies
    bool lensMoving = false;
  };

  // Throws std::runtime_error naming the file and line of what is wrong.
  static CameraLog load(const std::string& path);
  static CameraLog parse(const std::string& text, const std::string& name);

  // The log a dump carries beside it: FOLDER/frames.csv for a folder of frames,
  // NAME.csv for a file NAME.nv21 (or .yuv ...). Empty when there is none.
  static std::string besideDump(const std::string& dumpPath);

  const std::vector<Entry>& entries() const { return entries_; }
  const std::string& path() const { return path_; }
  // Milliseconds between frames: the median of the intervals (0 for one entry).
  int64_t medianIntervalMs() const;

 private:
  std::string path_;
  std::vector<Entry> entries_;
};

}  // namespace hdsreplay
