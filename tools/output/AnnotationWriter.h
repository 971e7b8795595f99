// Writes every annotated frame of a replay: a video when the path ends in .mp4,
// .avi or .mkv, else PNGs frame_000000.png ... into the folder `path`. Used from
// the replay's thread.
#pragma once

#include <string>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

class AnnotationWriter {
 public:
  // Throws std::runtime_error when the output cannot be created.
  AnnotationWriter(const std::string& path, double fps, cv::Size motionRes);
  AnnotationWriter(const AnnotationWriter&) = delete;
  AnnotationWriter& operator=(const AnnotationWriter&) = delete;

  void add(const cv::Mat& frame, const ReplayRecord& record);
  void close();

 private:
  std::string path_;
  double fps_;
  cv::Size motionRes_;
  bool video_ = false;
  int fourcc_ = 0;
  cv::VideoWriter writer_;
  cv::Mat scratch_;
};

}  // namespace hdsreplay
