// Annotated frames of a replay: each frame as the detector saw it, with the
// motion rectangles scaled from the motion resolution to the picture and a
// banner giving time, frame, filter score and the reported status. Sinks write
// them as a video, a folder of PNGs, or a contact sheet of every Nth frame.
// All of it runs on the replay thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "tools/ReplayRecord.h"

namespace hdsreplay {

// Draws the rectangles and the banner onto `img` (any size; text scales with it).
void drawAnnotation(cv::Mat& img, const ReplayRecord& record, cv::Size motionRes);

// Writes every frame: a video when the path ends in .mp4, .avi or .mkv, else PNGs
// frame_000000.png ... into the folder `path`. Throws std::runtime_error when the
// output cannot be created.
class AnnotationWriter {
 public:
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

// Collects every Nth frame as a small annotated tile and writes one PNG grid.
class ContactSheet {
 public:
  ContactSheet(const std::string& path, int every, cv::Size motionRes, std::string title,
               int tileWidth = 320, int columns = 5);

  void add(const cv::Mat& frame, const ReplayRecord& record);
  // Throws std::runtime_error when nothing was collected or the PNG cannot be written.
  void write();
  cv::Mat render() const;

 private:
  std::string path_;
  int every_;
  cv::Size motionRes_;
  std::string title_;
  int tileWidth_;
  int columns_;
  std::vector<cv::Mat> tiles_;
};

}  // namespace hdsreplay
