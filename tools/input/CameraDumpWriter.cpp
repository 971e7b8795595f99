#include "tools/input/CameraDumpWriter.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "tools/input/Files.h"
#include "tools/input/RawYuvSource.h"
#include "tools/options/TimeSpec.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

std::FILE* create(const std::string& path, const char* what) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr)
    throw std::runtime_error(std::string("cannot write ") + what + " '" + path +
                             "': " + std::strerror(errno));
  return f;
}

}  // namespace

bool CameraDumpWriter::namesOneFile(const std::string& path) {
  return RawYuvSource::isRawExtension(lowerExtension(path));
}

std::string CameraDumpWriter::logPathFor(const std::string& path) {
  return namesOneFile(path) ? fs::path(path).replace_extension(".csv").string()
                            : (fs::path(path) / "frames.csv").string();
}

CameraDumpWriter::CameraDumpWriter(const std::string& path, hdsml::YuvLayout layout, int rowPadding,
                                   double fps, int exposureNs, const std::string& logPath)
    : path_(path),
      layout_(layout),
      rowPadding_(rowPadding),
      fps_(fps),
      exposureNs_(exposureNs),
      oneFile_(namesOneFile(path)),
      logPath_(logPath.empty() ? logPathFor(path) : logPath) {
  if (oneFile_) {
    frames_ = create(path, "camera dump");
  } else {
    std::error_code ec;
    fs::create_directories(path, ec);
    if (ec) throw std::runtime_error("cannot create folder '" + path + "': " + ec.message());
  }
  log_ = create(logPath_, "camera log");
  std::fputs("timestamp_ms,exposure_ns,lens_moving\n", log_);
}

CameraDumpWriter::~CameraDumpWriter() {
  if (frames_ != nullptr) std::fclose(frames_);
  if (log_ != nullptr) std::fclose(log_);
}

void CameraDumpWriter::add(const cv::Mat& bgr) {
  const cv::Mat even = bgr(cv::Rect(0, 0, bgr.cols & ~1, bgr.rows & ~1));
  const hdsml::YuvFrame yuv = hdsml::packYuv(even.clone(), layout_, rowPadding_);
  if (!geometry_) geometry_ = RawGeometry::padded(yuv.width, yuv.height, layout_, rowPadding_);
  if (oneFile_) {
    // Frames that follow one another take their full size, padding included.
    std::vector<uint8_t> frame(yuv.bytes);
    frame.resize(geometry_->frameBytes(), 0);
    std::fwrite(frame.data(), 1, frame.size(), frames_);
  } else {
    char name[32];
    std::snprintf(name, sizeof name, "frame_%06ld.%s", count_, hdsml::layoutName(layout_));
    const std::string file = (fs::path(path_) / name).string();
    std::FILE* out = create(file, "frame");
    const bool ok = std::fwrite(yuv.bytes.data(), 1, yuv.bytes.size(), out) == yuv.bytes.size();
    if (std::fclose(out) != 0 || !ok) throw std::runtime_error("cannot write '" + file + "'");
  }
  std::fprintf(log_, "%lld,%d,0\n", frameTimestampMs(count_, fps_), exposureNs_);
  ++count_;
}

void CameraDumpWriter::close() {
  bool ok = true;
  for (std::FILE** f : {&frames_, &log_}) {
    if (*f == nullptr) continue;
    ok = std::ferror(*f) == 0 && ok;
    ok = std::fclose(*f) == 0 && ok;
    *f = nullptr;
  }
  if (!ok) throw std::runtime_error("writing the camera dump '" + path_ + "' failed");
}

}  // namespace hdsreplay
