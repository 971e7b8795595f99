#include "tools/output/ContactSheet.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "tools/output/Annotation.h"

namespace hdsreplay {

ContactSheet::ContactSheet(const std::string& path, int every, cv::Size motionRes,
                           std::string title, int tileWidth, int columns)
    : path_(path),
      every_(std::max(1, every)),
      motionRes_(motionRes),
      title_(std::move(title)),
      tileWidth_(tileWidth),
      columns_(columns) {}

void ContactSheet::add(const cv::Mat& frame, const ReplayRecord& record) {
  if (record.frame % every_ != 0) return;
  cv::Mat tile;
  const int h = std::max(1, cvRound(static_cast<double>(frame.rows) * tileWidth_ / frame.cols));
  cv::resize(frame, tile, cv::Size(tileWidth_, h), 0, 0, cv::INTER_AREA);
  drawAnnotation(tile, record, motionRes_);
  tiles_.push_back(tile);
}

cv::Mat ContactSheet::render() const {
  if (tiles_.empty()) return cv::Mat();
  const int gap = 6, margin = 12, header = 44;
  const int cols = std::min<int>(columns_, static_cast<int>(tiles_.size()));
  const int rows = (static_cast<int>(tiles_.size()) + cols - 1) / cols;
  const int tileH = tiles_.front().rows;
  cv::Mat sheet(header + margin + rows * (tileH + gap) - gap + margin,
                2 * margin + cols * (tileWidth_ + gap) - gap, CV_8UC3, cv::Scalar(255, 255, 255));
  cv::putText(sheet, title_, cv::Point(margin, 30), cv::FONT_HERSHEY_DUPLEX, 0.7,
              cv::Scalar(40, 40, 40), 1, cv::LINE_AA);
  for (size_t i = 0; i < tiles_.size(); ++i) {
    const int c = static_cast<int>(i) % cols, r = static_cast<int>(i) / cols;
    const cv::Rect where(margin + c * (tileWidth_ + gap), header + margin + r * (tileH + gap),
                         tileWidth_, std::min(tileH, tiles_[i].rows));
    tiles_[i](cv::Rect(0, 0, where.width, where.height)).copyTo(sheet(where));
  }
  return sheet;
}

void ContactSheet::write() {
  const cv::Mat sheet = render();
  if (sheet.empty()) throw std::runtime_error("contact sheet '" + path_ + "': no frames");
  if (!cv::imwrite(path_, sheet, {cv::IMWRITE_PNG_COMPRESSION, 9}))
    throw std::runtime_error("cannot write '" + path_ + "'");
}

}  // namespace hdsreplay
