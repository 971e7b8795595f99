#include "tools/output/SceneDumpWriter.h"

#include <cinttypes>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

bool sameFile(const std::string& a, const std::string& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code ec;
  return fs::equivalent(a, b, ec) && !ec;
}

void closeFile(std::FILE*& f, bool& ok) {
  if (!f) return;
  ok = std::fflush(f) == 0 && !std::ferror(f) && ok;
  ok = std::fclose(f) == 0 && ok;
  f = nullptr;
}

}  // namespace

SceneDumpWriter::SceneDumpWriter(const std::string& path, const std::string& input,
                                 const std::string& inputLog, std::optional<RawGeometry> raw,
                                 hdsml::YuvLayout layout, int rowPadding)
    : path_(path), layout_(layout), rowPadding_(rowPadding), geometry_(std::move(raw)) {
  const std::string ext = fs::path(path).extension().string();
  if (ext != ".nv21" && ext != ".nv12" && ext != ".i420" && ext != ".yv12" && ext != ".yuv")
    throw std::runtime_error(
        "--save-dump: '" + path +
        "' must end in .nv21, .nv12, .i420, .yv12 or .yuv (one file of frames)");
  logPath_ = fs::path(path).replace_extension(".csv").string();
  for (const std::string& out : {path, logPath_})
    if (sameFile(out, input) || sameFile(out, inputLog))
      throw std::runtime_error("--save-dump: '" + out +
                               "' is the replay's own input or camera log, which is never "
                               "overwritten");
  frames_ = std::fopen(path.c_str(), "wb");
  if (!frames_) throw std::runtime_error("--save-dump: cannot write '" + path + "'");
  log_ = std::fopen(logPath_.c_str(), "w");
  if (!log_) {
    std::fclose(frames_);
    throw std::runtime_error("--save-dump: cannot write its camera log '" + logPath_ + "'");
  }
  std::fputs("timestamp_ms,exposure_ns,lens_moving\n", log_);
}

SceneDumpWriter::~SceneDumpWriter() {
  bool ok = true;
  closeFile(frames_, ok);
  closeFile(log_, ok);
}

void SceneDumpWriter::add(const hdsml::YuvFrame& frame, int64_t timestampMs, int exposureNs,
                          bool lensMoving) {
  if (!geometry_) geometry_ = RawGeometry::padded(frame.width, frame.height, layout_, rowPadding_);
  // The frame's bytes start with its luma plane; a packed frame may end right
  // after its last sample, and the dump gives every frame its full size.
  const size_t full = geometry_->frameBytes();
  if (frame.y != frame.bytes.data() || frame.bytes.size() > full)
    throw std::runtime_error("--save-dump: a frame is not laid out as " + geometry_->describe());
  std::vector<uint8_t> bytes(full, 0);
  std::copy(frame.bytes.begin(), frame.bytes.end(), bytes.begin());
  if (std::fwrite(bytes.data(), 1, bytes.size(), frames_) != bytes.size())
    throw std::runtime_error("--save-dump: cannot write '" + path_ + "'");
  std::fprintf(log_, "%" PRId64 ",%d,%d\n", timestampMs, exposureNs, lensMoving ? 1 : 0);
}

void SceneDumpWriter::close() {
  bool ok = true;
  closeFile(frames_, ok);
  closeFile(log_, ok);
  if (!ok)
    throw std::runtime_error("--save-dump: '" + path_ + "' or its log was not written whole");
}

}  // namespace hdsreplay
