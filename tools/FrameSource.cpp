#include "tools/FrameSource.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

class VideoSource : public FrameSource {
 public:
  explicit VideoSource(const std::string& path) : path_(path) {
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

  bool read(cv::Mat& bgr) override {
    if (!first_.empty()) {
      bgr = toBgr(first_);
      first_.release();
      return true;
    }
    cv::Mat frame;
    if (!capture_.read(frame) || frame.empty()) return false;
    bgr = toBgr(frame);
    return true;
  }
  double fps() const override { return fps_; }
  long frameCount() const override { return frameCount_; }
  std::string kind() const override { return "video"; }

 private:
  static cv::Mat toBgr(const cv::Mat& frame) {
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

  std::string path_;
  cv::VideoCapture capture_;
  cv::Mat first_;  // read at open() to prove the file decodes
  double fps_ = 0.0;
  long frameCount_ = -1;
};

class ImageFolderSource : public FrameSource {
 public:
  explicit ImageFolderSource(const std::string& dir) {
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
      if (!it->is_regular_file()) continue;
      std::string ext = it->path().extension().string();
      std::transform(ext.begin(), ext.end(), ext.begin(),
                     [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      if (ext == ".png" || ext == ".jpg" || ext == ".jpeg" || ext == ".bmp" || ext == ".tif" ||
          ext == ".tiff" || ext == ".ppm" || ext == ".pgm" || ext == ".webp")
        files_.push_back(it->path().string());
    }
    if (ec) throw std::runtime_error("cannot list folder '" + dir + "': " + ec.message());
    if (files_.empty())
      throw std::runtime_error("folder '" + dir +
                               "' holds no images (.png, .jpg, .bmp, .tif, "
                               ".ppm, .pgm, .webp)");
    // File-name order: number frames with leading zeros (frame_0001.png).
    std::sort(files_.begin(), files_.end());
  }

  bool read(cv::Mat& bgr) override {
    if (next_ >= files_.size()) return false;
    const std::string& file = files_[next_++];
    cv::Mat image = cv::imread(file, cv::IMREAD_COLOR);
    if (image.empty()) throw std::runtime_error("cannot read image '" + file + "'");
    if (size_.empty()) {
      size_ = image.size();
    } else if (image.size() != size_) {
      throw std::runtime_error("image '" + file + "' is " + std::to_string(image.cols) + "x" +
                               std::to_string(image.rows) + ", the first one was " +
                               std::to_string(size_.width) + "x" + std::to_string(size_.height));
    }
    bgr = image;
    return true;
  }
  double fps() const override { return 0.0; }
  long frameCount() const override { return static_cast<long>(files_.size()); }
  std::string kind() const override { return "images"; }

 private:
  std::vector<std::string> files_;
  size_t next_ = 0;
  cv::Size size_;
};

}  // namespace

std::unique_ptr<FrameSource> FrameSource::open(const std::string& path) {
  std::error_code ec;
  const fs::file_status st = fs::status(path, ec);
  if (ec || !fs::exists(st)) throw std::runtime_error("no such file or folder: '" + path + "'");
  if (fs::is_directory(st)) return std::make_unique<ImageFolderSource>(path);
  if (!fs::is_regular_file(st))
    throw std::runtime_error("'" + path + "' is neither a video file nor a folder of images");
  return std::make_unique<VideoSource>(path);
}

}  // namespace hdsreplay
