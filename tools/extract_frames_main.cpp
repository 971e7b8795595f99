// hds-extract-frames: writes the frames of a video as numbered PNGs, which
// hds-replay reads back as a folder, or with --layout as a camera dump of YUV
// frames and its camera log, which hds-replay reads back with --raw WxH. The
// same video file decodes to slightly different pixels on different CPUs
// (FFmpeg's arm64 and x86 paths round differently), while PNGs and dumps hold
// the same pixels everywhere; the cross-architecture checks therefore decode
// once and feed every build the same frames. See --help.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>

#include "tools/input/CameraDumpWriter.h"
#include "tools/input/VideoSource.h"
#include "tools/options/ExtractOptions.h"
#include "tools/options/Version.h"
#include "tools/output/Interruption.h"
#include "tools/output/OutputGuard.h"

namespace {

using namespace hdsreplay;

// Writes the frames under temporary names; returns how many. Throws std::runtime_error.
long extract(const ExtractOptions& o, VideoSource& video, PendingOutputs& pending,
             std::string& described) {
  std::unique_ptr<CameraDumpWriter> dump;
  const std::string out = pending.add(o.out);
  if (o.layout) {
    const bool oneFile = CameraDumpWriter::namesOneFile(o.out);
    const std::string log = oneFile ? pending.add(CameraDumpWriter::logPathFor(o.out)) : "";
    dump = std::make_unique<CameraDumpWriter>(
        out, *o.layout, o.rowPadding, video.fps() > 0 ? video.fps() : 30.0, o.exposure, log);
  } else {
    std::error_code ec;
    std::filesystem::create_directories(out, ec);
    if (ec) throw std::runtime_error("cannot create folder '" + o.out + "': " + ec.message());
  }
  // Fast compression: the files live only as long as one check.
  const std::vector<int> params = {cv::IMWRITE_PNG_COMPRESSION, 1};
  long count = 0;
  for (SourceFrame frame; (o.maxFrames < 0 || count < o.maxFrames) && video.read(frame); ++count) {
    throwIfInterrupted();
    if (dump) {
      dump->add(frame.bgr);
      continue;
    }
    const std::string name = cv::format("frame_%06ld.png", count);
    if (!cv::imwrite((std::filesystem::path(out) / name).string(), frame.bgr, params))
      throw std::runtime_error("cannot write '" + (std::filesystem::path(o.out) / name).string() +
                               "'");
  }
  if (dump) {
    dump->close();
    described =
        dump->geometry()->describe() + ", camera log " + CameraDumpWriter::logPathFor(o.out);
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  ExtractOptions o;
  try {
    o = parseExtractOptions(argc, argv);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "hds-extract-frames: %s\nTry 'hds-extract-frames --help'.\n", e.what());
    return 2;
  }
  if (o.help) {
    std::fputs(extractUsage().c_str(), stdout);
    return 0;
  }
  if (o.version) {
    std::fputs(versionLine("hds-extract-frames").c_str(), stdout);
    return 0;
  }
  stopOnSignals();
  try {
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);
    OutputGuard guard;
    guard.input(o.video, "video");
    guard.output(o.out, o.layout ? "camera dump" : "frames",
                 !o.layout || !CameraDumpWriter::namesOneFile(o.out));
    if (o.layout && CameraDumpWriter::namesOneFile(o.out))
      guard.output(CameraDumpWriter::logPathFor(o.out), "camera log");
    VideoSource video(o.video);
    PendingOutputs pending;
    std::string described;
    const long count = extract(o, video, pending, described);
    if (count < video.frameCount() && (o.maxFrames < 0 || count < o.maxFrames))
      std::fprintf(stderr, "hds-extract-frames: warning: %s\n",
                   endedEarlyWarning(o.video, count, video.frameCount()).c_str());
    pending.commitAll();
    if (o.layout)
      std::printf("%ld frames of %s written to %s\n", count, described.c_str(), o.out.c_str());
    else
      std::printf("%ld frames written to %s\n", count, o.out.c_str());
  } catch (const std::exception& e) {
    return reportFailure("hds-extract-frames", e);
  }
  return 0;
}
