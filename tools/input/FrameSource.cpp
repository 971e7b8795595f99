#include "tools/input/FrameSource.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "tools/input/Files.h"
#include "tools/input/ImageFolderSource.h"
#include "tools/input/RawYuvSource.h"
#include "tools/input/VideoSource.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

// The extension of the raw frames the path names or a folder holds; empty when none.
std::string rawExtensionOf(const std::string& path) {
  std::error_code ec;
  if (!fs::is_directory(path, ec)) {
    const std::string ext = lowerExtension(path);
    return RawYuvSource::isRawExtension(ext) ? ext : std::string();
  }
  for (fs::directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string ext = lowerExtension(it->path());
    if (it->is_regular_file() && RawYuvSource::isRawExtension(ext)) return ext;
  }
  return {};
}

}  // namespace

std::unique_ptr<FrameSource> FrameSource::open(const std::string& path,
                                               const std::optional<RawGeometry>& raw) {
  std::error_code ec;
  const fs::file_status st = fs::status(path, ec);
  if (ec || !fs::exists(st)) throw std::runtime_error("no such file or folder: '" + path + "'");
  if (!fs::is_directory(st) && !fs::is_regular_file(st))
    throw std::runtime_error("'" + path + "' is neither a file nor a folder");
  // Said as it is: a file that cannot be opened is not one that cannot be decoded.
  if (::access(path.c_str(), fs::is_directory(st) ? R_OK | X_OK : R_OK) != 0)
    throw std::runtime_error("cannot read '" + path + "': " + std::strerror(errno));
  if (raw) return std::make_unique<RawYuvSource>(path, *raw);
  if (!rawExtensionOf(path).empty())
    throw std::runtime_error("'" + path +
                             "' holds raw camera frames: give their size with --raw WxH (and "
                             "their layout with --layout unless the name says it)");
  if (fs::is_directory(st)) return std::make_unique<ImageFolderSource>(path);
  return std::make_unique<VideoSource>(path);
}

std::string endedEarlyWarning(const std::string& path, long read, long declared) {
  return "'" + path + "' ended after " + std::to_string(read) + " frames, though its header says " +
         std::to_string(declared) + ": the file may be cut short or damaged";
}

std::string inputName(const std::string& path) {
  std::string name = fs::path(path).filename().string();
  return name.empty() ? path : name;
}

std::optional<hdsml::YuvLayout> layoutFromName(const std::string& path) {
  const std::string ext = rawExtensionOf(path);
  if (ext.empty() || ext == ".yuv") return std::nullopt;
  return hdsml::parseLayout(ext.substr(1));
}

}  // namespace hdsreplay
