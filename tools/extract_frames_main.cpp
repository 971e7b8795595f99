// hds-extract-frames: writes the frames of a video as numbered PNGs, which
// hds-replay reads back as a folder, or with --raw as a camera dump of YUV
// frames and its camera log, which hds-replay reads back with --raw WxH. The
// same video file decodes to slightly different pixels on different CPUs
// (FFmpeg's arm64 and x86 paths round differently), while PNGs and dumps hold
// the same pixels everywhere; the cross-architecture checks therefore decode
// once and feed every build the same frames.
//
//   hds-extract-frames [--raw LAYOUT [--row-padding N] [--exposure E]] VIDEO OUT [MAX_FRAMES]
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>

#include "tests/support/YuvFrame.h"
#include "tools/input/CameraDumpWriter.h"

namespace {

constexpr const char* kUsage =
    "usage: hds-extract-frames [--raw LAYOUT [--row-padding N] [--exposure E]] VIDEO OUT "
    "[MAX_FRAMES]\n"
    "  without --raw: OUT is a folder of PNGs, frame_000000.png ...\n"
    "  --raw nv21|nv12|i420|yv12: a camera dump for hds-replay --raw WxH: one file of\n"
    "      frames when OUT ends in .nv21, .nv12, .i420, .yv12 or .yuv (camera log\n"
    "      OUT without its extension + .csv), else a folder of one file a frame (camera\n"
    "      log OUT/frames.csv). N bytes pad every row; E is the exposure time logged\n"
    "      (default 10000000 ns); timestamps follow the video's frame rate.\n";

struct Arguments {
  std::vector<std::string> positional;
  std::string rawLayout;
  int rowPadding = 0;
  int exposure = 10000000;
};

bool parse(int argc, char** argv, Arguments& a) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--raw" && hasValue)
      a.rawLayout = argv[++i];
    else if (arg == "--row-padding" && hasValue)
      a.rowPadding = std::atoi(argv[++i]);
    else if (arg == "--exposure" && hasValue)
      a.exposure = std::atoi(argv[++i]);
    else if (arg.rfind("--", 0) == 0)
      return false;
    else
      a.positional.push_back(arg);
  }
  return a.positional.size() == 2 || a.positional.size() == 3;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments args;
  if (!parse(argc, argv, args) || args.rowPadding < 0 || args.exposure < 1) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const std::string& input = args.positional[0];
  const std::string& out = args.positional[1];
  const long maxFrames = args.positional.size() == 3 ? std::atol(args.positional[2].c_str()) : -1;
  try {
    cv::VideoCapture video(input);
    if (!video.isOpened()) {
      std::fprintf(stderr, "hds-extract-frames: cannot open video %s\n", input.c_str());
      return 1;
    }
    std::unique_ptr<hdsreplay::CameraDumpWriter> dump;
    if (!args.rawLayout.empty()) {
      const double fps = video.get(cv::CAP_PROP_FPS);
      dump = std::make_unique<hdsreplay::CameraDumpWriter>(out, hdsml::parseLayout(args.rawLayout),
                                                           args.rowPadding, fps > 0 ? fps : 30.0,
                                                           args.exposure);
    } else {
      std::filesystem::create_directories(out);
    }
    // Fast compression: the files live only as long as one check.
    const std::vector<int> params = {cv::IMWRITE_PNG_COMPRESSION, 1};
    long count = 0;
    for (cv::Mat frame; (maxFrames < 0 || count < maxFrames) && video.read(frame); ++count) {
      if (dump) {
        dump->add(frame);
        continue;
      }
      const std::string name =
          (std::filesystem::path(out) / cv::format("frame_%06ld.png", count)).string();
      if (!cv::imwrite(name, frame, params)) {
        std::fprintf(stderr, "hds-extract-frames: cannot write %s\n", name.c_str());
        return 1;
      }
    }
    if (count == 0) {
      std::fprintf(stderr, "hds-extract-frames: no frames in %s\n", input.c_str());
      return 1;
    }
    if (dump) {
      dump->close();
      std::printf("%ld frames of %s written to %s, camera log %s\n", count,
                  dump->geometry()->describe().c_str(), out.c_str(), dump->logPath().c_str());
    } else {
      std::printf("%ld frames written to %s\n", count, out.c_str());
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "hds-extract-frames: %s\n", e.what());
    return 1;
  }
  return 0;
}
