#include "tools/output/AnnotationWriter.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <opencv2/imgcodecs.hpp>

#include "tools/input/Files.h"
#include "tools/output/Annotation.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

}  // namespace

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

}  // namespace hdsreplay
