// hds-extract-frames: writes the frames of a video as numbered PNGs, which
// hds-replay reads back as a folder. The same video file decodes to slightly
// different pixels on different CPUs (FFmpeg's arm64 and x86 paths round
// differently), while a PNG holds the same pixels everywhere; the
// cross-architecture check therefore decodes once and feeds both builds the PNGs.
//
//   hds-extract-frames VIDEO FOLDER [MAX_FRAMES]
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::fputs("usage: hds-extract-frames VIDEO FOLDER [MAX_FRAMES]\n", stderr);
    return 2;
  }
  const long maxFrames = argc == 4 ? std::atol(argv[3]) : -1;
  try {
    cv::VideoCapture video(argv[1]);
    if (!video.isOpened()) {
      std::fprintf(stderr, "hds-extract-frames: cannot open video %s\n", argv[1]);
      return 1;
    }
    const std::filesystem::path folder(argv[2]);
    std::filesystem::create_directories(folder);
    // Fast compression: the files live only as long as one check.
    const std::vector<int> params = {cv::IMWRITE_PNG_COMPRESSION, 1};
    long count = 0;
    for (cv::Mat frame; (maxFrames < 0 || count < maxFrames) && video.read(frame); ++count) {
      const std::string name = (folder / cv::format("frame_%06ld.png", count)).string();
      if (!cv::imwrite(name, frame, params)) {
        std::fprintf(stderr, "hds-extract-frames: cannot write %s\n", name.c_str());
        return 1;
      }
    }
    if (count == 0) {
      std::fprintf(stderr, "hds-extract-frames: no frames in %s\n", argv[1]);
      return 1;
    }
    std::printf("%ld frames written to %s\n", count, argv[2]);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "hds-extract-frames: %s\n", e.what());
    return 1;
  }
  return 0;
}
