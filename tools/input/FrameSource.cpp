#include "tools/input/FrameSource.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "tools/input/ImageFolderSource.h"
#include "tools/input/VideoSource.h"

namespace hdsreplay {

namespace fs = std::filesystem;

std::unique_ptr<FrameSource> FrameSource::open(const std::string& path) {
  std::error_code ec;
  const fs::file_status st = fs::status(path, ec);
  if (ec || !fs::exists(st)) throw std::runtime_error("no such file or folder: '" + path + "'");
  if (fs::is_directory(st)) return std::make_unique<ImageFolderSource>(path);
  if (!fs::is_regular_file(st))
    throw std::runtime_error("'" + path + "' is neither a video file nor a folder of images");
  return std::make_unique<VideoSource>(path);
}

std::string inputName(const std::string& path) {
  std::string name = fs::path(path).filename().string();
  return name.empty() ? path : name;
}

}  // namespace hdsreplay
