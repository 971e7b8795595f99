#include "bench/CallgrindKernels.h"

#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "bench/BenchFrames.h"
#include "bench/BenchSuites.h"
#include "client/Destride.h"
#include "frames/KernelPath.h"
#include "motion/motionDetector.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) (void)(name)
#endif

namespace hdsml_bench {
namespace {

// One measured kernel: `run` processes `frames` frames once; its counts are
// dumped under `name`, which also carries the frame count for scripts/bench.
struct Kernel {
  std::string name;
  int frames;
  std::function<void()> run;
};

const char* pathName(KernelPath path) { return path == KernelPath::kPlain ? "plain" : "vector"; }

void addIntakeKernels(std::vector<Kernel>& kernels) {
  static std::vector<unsigned char> packed(size_t(kMotionWidth) * kMotionHeight * 3 / 2);
  static cv::Mat packedView(kMotionHeight * 3 / 2, kMotionWidth, CV_8UC1, packed.data());
  static cv::Mat rgb(kMotionHeight, kMotionWidth, CV_8UC3);
  for (Size size : {Size{640, 480}, Size{1280, 720}, Size{1920, 1080}, Size{4032, 3024}}) {
    const auto& frames = nv21Frames(size.width, size.height);
    for (KernelPath path : {KernelPath::kVector, KernelPath::kPlain}) {
      kernels.push_back({"intake/destride/" + sizeName(size) + "/" + pathName(path),
                         int(frames.size()), [&frames, path] {
                           for (const hdsml::YuvFrame& f : frames)
                             destrideWith(path, f.y, f.u, f.v, f.height, f.width, f.yPixelStride,
                                          f.yRowStride, f.uPixelStride, f.uRowStride,
                                          f.vPixelStride, f.vRowStride, kMotionHeight, kMotionWidth,
                                          packed.data());
                         }});
    }
  }
  const int conversions = 20;
  kernels.push_back({"intake/colour-conversion/320x240/opencv", conversions, [] {
                       for (int i = 0; i < conversions; ++i)
                         cv::cvtColor(packedView, rgb, cv::COLOR_YUV2RGB_YV12);
                     }});
}

// The motion detector over the motion frames, its ring filled beforehand.
void addAnalysisKernels(std::vector<Kernel>& kernels) {
  for (Size size : {Size{320, 240}, Size{640, 480}}) {
    const auto& frames = motionFrames(size.width, size.height);
    for (const char* algorithm : {"FrameDiff", "FrameDiffLowLight"}) {
      for (KernelPath path : {KernelPath::kVector, KernelPath::kPlain}) {
        auto detector = std::make_shared<motionDetector>();
        detector->setAlgoType(algorithm, size.width, size.height);
        detector->algorithm->setKernelPath(path);
        for (int k = 0; k < 15; ++k) {
          detector->setImage(frames[k % frames.size()]);
          detector->runAlgo(true);
        }
        const std::string name =
            "analysis/" + std::string(algorithm) + "/" + sizeName(size) + "/" + pathName(path);
        kernels.push_back({name, int(frames.size()), [detector, &frames] {
                             for (const cv::Mat& frame : frames) {
                               detector->setImage(frame);
                               detector->runAlgo(true);
                             }
                           }});
      }
    }
  }
}

}  // namespace

int runCallgrindKernels() {
  // Frames are decoded and converted before any kernel runs, so that
  // scripts/bench can leave valgrind's instrumentation off until here.
  std::vector<Kernel> kernels;
  addIntakeKernels(kernels);
  addAnalysisKernels(kernels);
  CALLGRIND_START_INSTRUMENTATION;
  for (const Kernel& kernel : kernels) {
    const std::string dumpName = kernel.name + " frames=" + std::to_string(kernel.frames);
    CALLGRIND_ZERO_STATS;
    kernel.run();
    CALLGRIND_DUMP_STATS_AT(dumpName.c_str());
    std::fprintf(stderr, "hdsml_bench: ran %s\n", dumpName.c_str());
  }
  return 0;
}

}  // namespace hdsml_bench
