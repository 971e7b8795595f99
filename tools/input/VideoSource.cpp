#include "tools/input/VideoSource.h"

#include <stdexcept>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgproc.hpp>

namespace hdsreplay {

namespace {

cv::Mat toBgr(const cv::Mat& frame) {
  if (frame.type() == CV_8UC3) return frame;
  cv::Mat out;
  if (frame.channels() == 1)
    cv::cvtColor(frame, out, cv::COLOR_GRAY2BGR);
  else if (frame.channels() == 4)
    cv::cvtColor(frame, out, cv::COLOR_BGRA2BGR);
  else
    throw std::runtime_error("unsupported pixel format in the video");
  return out;
}

}  // namespace

VideoSource::VideoSource(const std::string& path) : path_(path) {
  // CAP_FFMPEG first: with CAP_ANY a plain file name that OpenCV cannot decode
  // may be taken for an image-sequence pattern, which reads as zero frames.
  // Backends that cannot read the file complain on stderr; the message below
  // says what went wrong in the user's terms.
  const auto level = cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  capture_.open(path, cv::CAP_FFMPEG);
  if (!capture_.isOpened()) capture_.open(path, cv::CAP_ANY);
  cv::utils::logging::setLogLevel(level);
  if (!capture_.isOpened())
    throw std::runtime_error("cannot open '" + path +
                             "' as a video (OpenCV's videoio could "
                             "not decode it)");
  if (!capture_.read(first_) || first_.empty())
    throw std::runtime_error("'" + path + "' opened as a video but holds no readable frame");
  fps_ = capture_.get(cv::CAP_PROP_FPS);
  if (!(fps_ > 0.0 && fps_ < 1000.0)) fps_ = 0.0;
  const double n = capture_.get(cv::CAP_PROP_FRAME_COUNT);
  frameCount_ = n >= 1.0 ? static_cast<long>(n) : -1;
}

bool VideoSource::read(SourceFrame& out) {
  out.raw = false;
  if (!first_.empty()) {
    out.bgr = toBgr(first_);
    first_.release();
    return true;
  }
  cv::Mat frame;
  if (!capture_.read(frame) || frame.empty()) return false;
  out.bgr = toBgr(frame);
  return true;
}

}  // namespace hdsreplay
