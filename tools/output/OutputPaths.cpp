#include "tools/output/OutputPaths.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <opencv2/imgcodecs.hpp>

#include "tools/input/Files.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

void checkFolder(const std::string& path, const std::string& what) {
  const fs::path parent = fs::path(path).parent_path();
  std::error_code ec;
  if (!parent.empty() && !fs::is_directory(parent, ec))
    throw std::runtime_error("cannot write " + what + " '" + path + "': no folder '" +
                             parent.string() + "'");
}

}  // namespace

std::string pictureFormats() {
  std::string list;
  for (const char* ext : {".png", ".jpg", ".bmp", ".tif", ".webp", ".ppm", ".pgm"}) {
    if (!cv::haveImageWriter(std::string("x") + ext)) continue;
    list += (list.empty() ? "" : ", ") + std::string(ext);
  }
  return list;
}

bool isVideoPath(const std::string& path) {
  const std::string ext = lowerExtension(path);
  return ext == ".mp4" || ext == ".avi" || ext == ".mkv";
}

void checkPicturePath(const std::string& path, const std::string& what) {
  if (path.empty()) return;
  checkFolder(path, what);
  if (!cv::haveImageWriter(path)) {
    const std::string ext = lowerExtension(path);
    throw std::runtime_error("cannot write " + what + " '" + path + "': " +
                             (ext.empty() ? std::string("the name has no picture type")
                                          : ext + " is not a picture type OpenCV writes") +
                             "; it writes " + pictureFormats());
  }
}

void checkAnnotationPath(const std::string& path) {
  if (path.empty() || !isVideoPath(path)) return;  // a folder is created as needed
  checkFolder(path, "annotated video");
}

}  // namespace hdsreplay
