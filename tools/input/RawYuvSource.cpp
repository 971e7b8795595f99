#include "tools/input/RawYuvSource.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "tools/input/Files.h"
#include "tools/input/RawDumpCheck.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

}  // namespace

bool RawYuvSource::isRawExtension(const std::string& ext) {
  return ext == ".nv21" || ext == ".nv12" || ext == ".i420" || ext == ".yv12" || ext == ".yuv";
}

RawYuvSource::RawYuvSource(const std::string& path, const RawGeometry& geometry)
    : path_(path), geometry_(geometry) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) {
    for (fs::directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec))
      if (it->is_regular_file() && isRawExtension(lowerExtension(it->path())))
        files_.push_back(it->path().string());
    if (ec) throw std::runtime_error("cannot list folder '" + path + "': " + ec.message());
    if (files_.empty())
      throw std::runtime_error("folder '" + path + "' holds no raw frames (" + rawExtensions() +
                               ")");
    std::sort(files_.begin(), files_.end());
    frameCount_ = static_cast<long>(files_.size());
    return;
  }
  const uintmax_t bytes = fs::file_size(path, ec);
  if (ec) throw std::runtime_error("cannot read '" + path + "': " + ec.message());
  const size_t frame = geometry_.frameBytes();
  // One frame may end without its last row's padding; frames that follow others must not.
  if (bytes == geometry_.tightBytes() || (bytes > 0 && bytes % frame == 0))
    frameCount_ = bytes == geometry_.tightBytes() ? 1 : static_cast<long>(bytes / frame);
  else
    throw std::runtime_error(wholeFramesMessage(path, bytes));
  file_ = std::fopen(path.c_str(), "rb");
  if (file_ == nullptr)
    throw std::runtime_error("cannot read '" + path + "': " + std::strerror(errno));
}

RawYuvSource::~RawYuvSource() {
  if (file_ != nullptr) std::fclose(file_);
}

std::string RawYuvSource::kind() const {
  return std::string("raw ") + hdsml::layoutName(geometry_.layout);
}

std::string RawYuvSource::sizeMessage(const std::string& file, size_t bytes) const {
  return "'" + file + "' holds " + std::to_string(bytes) + " bytes; a frame of " +
         geometry_.describe() + " takes " + std::to_string(geometry_.frameBytes()) +
         (geometry_.tightBytes() != geometry_.frameBytes()
              ? " (" + std::to_string(geometry_.tightBytes()) + " without its last row's padding)"
              : std::string()) +
         ": check --raw, --layout and --row-stride";
}

std::string RawYuvSource::wholeFramesMessage(const std::string& file, size_t bytes) const {
  char frames[64];
  std::snprintf(frames, sizeof frames, ", %.2f frames: not a whole number",
                static_cast<double>(bytes) / static_cast<double>(geometry_.frameBytes()));
  std::string fits;
  for (const std::string& g : fittingGeometries(bytes, geometry_))
    fits += (fits.empty() ? "" : ", ") + g;
  return sizeMessage(file, bytes) + frames +
         (fits.empty() ? std::string("; no common frame size fits its size")
                       : "; sizes that fit: " + fits);
}

bool RawYuvSource::read(SourceFrame& out) {
  if (next_ >= frameCount_) return false;
  out.raw = true;
  hdsml::YuvFrame& f = out.yuv;
  if (file_ != nullptr) {
    f.bytes.resize(frameCount_ == 1 ? static_cast<size_t>(fs::file_size(path_))
                                    : geometry_.frameBytes());
    if (std::fread(f.bytes.data(), 1, f.bytes.size(), file_) != f.bytes.size())
      throw std::runtime_error("cannot read frame " + std::to_string(next_) + " of '" + path_ +
                               "'");
  } else {
    const std::string& name = files_[static_cast<size_t>(next_)];
    std::error_code ec;
    const uintmax_t bytes = fs::file_size(name, ec);
    if (ec || (bytes != geometry_.frameBytes() && bytes != geometry_.tightBytes()))
      throw std::runtime_error(ec ? "cannot read '" + name + "': " + ec.message()
                                  : sizeMessage(name, bytes));
    f.bytes.resize(bytes);
    std::FILE* in = std::fopen(name.c_str(), "rb");
    const bool ok = in != nullptr && std::fread(f.bytes.data(), 1, bytes, in) == bytes;
    if (in != nullptr) std::fclose(in);
    if (!ok) throw std::runtime_error("cannot read '" + name + "'");
  }
  geometry_.place(f);
  ++next_;
  return true;
}

}  // namespace hdsreplay
