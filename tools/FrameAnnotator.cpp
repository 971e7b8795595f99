#include "tools/FrameAnnotator.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "tools/StateScript.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

const cv::Scalar kBox(60, 230, 60);
const cv::Scalar kMotion(40, 110, 235);
const cv::Scalar kAbsence(190, 120, 30);
const cv::Scalar kNone(120, 120, 120);

std::string lowerExtension(const std::string& path) {
  std::string ext = fs::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

}  // namespace

void drawAnnotation(cv::Mat& img, const ReplayRecord& r, cv::Size motionRes) {
  const double scale = std::clamp(img.cols / 1000.0, 0.38, 0.9);
  const int thick = img.cols >= 600 ? 2 : 1;
  const int font = cv::FONT_HERSHEY_SIMPLEX;

  if (motionRes.width > 0 && motionRes.height > 0) {
    const double sx = static_cast<double>(img.cols) / motionRes.width;
    const double sy = static_cast<double>(img.rows) / motionRes.height;
    for (const cv::Rect& rect : r.rects) {
      const cv::Rect scaled(cvRound(rect.x * sx), cvRound(rect.y * sy),
                            std::max(1, cvRound(rect.width * sx)),
                            std::max(1, cvRound(rect.height * sy)));
      cv::rectangle(img, scaled, kBox, thick, cv::LINE_AA);
    }
  }

  int baseline = 0;
  const cv::Size glyph = cv::getTextSize("0", font, scale, 1, &baseline);
  const int bannerH = glyph.height * 2 + 6;
  cv::Mat banner = img(cv::Rect(0, 0, img.cols, std::min(bannerH, img.rows)));
  cv::Mat dark(banner.size(), banner.type(), cv::Scalar(0, 0, 0));
  cv::addWeighted(banner, 0.45, dark, 0.55, 0.0, banner);
  const int y = (bannerH + glyph.height) / 2;
  const int pad = std::max(4, glyph.width / 2);

  char left[96];
  std::snprintf(left, sizeof left, "%.1f s  #%ld%s", r.timestampMs / 1000.0, r.frame,
                r.stillTail ? "  still" : "");
  cv::putText(img, left, cv::Point(pad, y), font, scale, cv::Scalar(255, 255, 255), 1, cv::LINE_AA);

  // Right: the status the host reads, as a coloured tag; before it the frame's score.
  const std::string tag = r.status == kStatusMotion    ? "MOTION"
                          : r.status == kStatusAbsence ? "ABSENCE"
                                                       : "no report";
  const cv::Scalar tagColour =
      r.status == kStatusMotion ? kMotion : (r.status == kStatusAbsence ? kAbsence : kNone);
  const cv::Size tagSize = cv::getTextSize(tag, font, scale, 1, &baseline);
  const cv::Rect tagBox(img.cols - pad - tagSize.width - 2 * pad, 2, tagSize.width + 2 * pad,
                        bannerH - 4);
  cv::rectangle(img, tagBox, tagColour, cv::FILLED);
  cv::putText(img, tag, cv::Point(tagBox.x + pad, y), font, scale, cv::Scalar(255, 255, 255), 1,
              cv::LINE_AA);
  if (r.processed) {
    char score[32];
    std::snprintf(score, sizeof score, "%s%.2f", r.motionDetected ? "motion " : "", r.motionScore);
    const cv::Size s = cv::getTextSize(score, font, scale, 1, &baseline);
    cv::putText(img, score, cv::Point(tagBox.x - pad - s.width, y), font, scale,
                r.motionDetected ? cv::Scalar(120, 190, 255) : cv::Scalar(220, 220, 220), 1,
                cv::LINE_AA);
  }
}

AnnotationWriter::AnnotationWriter(const std::string& path, double fps, cv::Size motionRes)
    : path_(path), fps_(fps), motionRes_(motionRes) {
  const std::string ext = lowerExtension(path);
  if (ext == ".mp4") {
    video_ = true;
    fourcc_ = cv::VideoWriter::fourcc('m', 'p', '4', 'v');
  } else if (ext == ".avi" || ext == ".mkv") {
    video_ = true;
    fourcc_ = cv::VideoWriter::fourcc('M', 'J', 'P', 'G');
  } else {
    std::error_code ec;
    fs::create_directories(path, ec);
    if (ec || !fs::is_directory(path))
      throw std::runtime_error("cannot create folder '" + path + "' for annotated frames" +
                               (ec ? ": " + ec.message() : std::string()));
  }
}

void AnnotationWriter::add(const cv::Mat& frame, const ReplayRecord& record) {
  frame.copyTo(scratch_);
  drawAnnotation(scratch_, record, motionRes_);
  if (video_) {
    if (!writer_.isOpened()) {
      writer_.open(path_, cv::CAP_FFMPEG, fourcc_, fps_, scratch_.size(), true);
      if (!writer_.isOpened())
        throw std::runtime_error("cannot write video '" + path_ + "' (no encoder for it?)");
    }
    writer_.write(scratch_);
    return;
  }
  char name[32];
  std::snprintf(name, sizeof name, "frame_%06ld.png", record.frame);
  const std::string file = (fs::path(path_) / name).string();
  if (!cv::imwrite(file, scratch_)) throw std::runtime_error("cannot write '" + file + "'");
}

void AnnotationWriter::close() {
  if (writer_.isOpened()) writer_.release();
}

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
