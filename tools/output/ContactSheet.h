// Collects every Nth annotated frame of a replay as a small tile and writes one
// PNG grid of them. Used from the replay's thread.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

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
