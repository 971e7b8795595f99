#include "tools/input/ImageFolderSource.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <opencv2/imgcodecs.hpp>

#include "tools/input/Files.h"

namespace hdsreplay {

namespace fs = std::filesystem;

ImageFolderSource::ImageFolderSource(const std::string& dir) {
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    if (!it->is_regular_file()) continue;
    const std::string ext = lowerExtension(it->path());
    if (ext == ".png" || ext == ".jpg" || ext == ".jpeg" || ext == ".bmp" || ext == ".tif" ||
        ext == ".tiff" || ext == ".ppm" || ext == ".pgm" || ext == ".webp")
      files_.push_back(it->path().string());
  }
  if (ec) throw std::runtime_error("cannot list folder '" + dir + "': " + ec.message());
  if (files_.empty())
    throw std::runtime_error("folder '" + dir +
                             "' holds no images (.png, .jpg, .bmp, .tif, "
                             ".ppm, .pgm, .webp)");
  std::sort(files_.begin(), files_.end());
}

bool ImageFolderSource::read(SourceFrame& out) {
  if (next_ >= files_.size()) return false;
  const std::string& file = files_[next_++];
  cv::Mat image = cv::imread(file, cv::IMREAD_COLOR);
  if (image.empty())
    throw std::runtime_error("cannot read image '" + file + "': " +
                             (::access(file.c_str(), R_OK) != 0 ? std::strerror(errno)
                                                                : "not a picture OpenCV decodes"));
  if (size_.empty()) {
    size_ = image.size();
  } else if (image.size() != size_) {
    throw std::runtime_error("image '" + file + "' is " + std::to_string(image.cols) + "x" +
                             std::to_string(image.rows) + ", the first one was " +
                             std::to_string(size_.width) + "x" + std::to_string(size_.height));
  }
  out.raw = false;
  out.bgr = image;
  return true;
}

}  // namespace hdsreplay
