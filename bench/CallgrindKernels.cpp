#include "bench/CallgrindKernels.h"

#include <opencv2/imgproc.hpp>

#include <unistd.h>

#include <sys/syscall.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "bench/BenchFrames.h"
#include "bench/BenchSuites.h"
#include "bench/LibyuvIntake.h"
#include "client/Destride.h"
#include "client/FusedIntake.h"
#include "client/HDSMLClient.h"
#include "frames/KernelPath.h"
#include "motion/SceneGuards.h"
#include "motion/motionDetector.h"
#include "tests/support/YuvPlanes.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) (void)(name)
#endif

namespace hdsml_bench {
namespace {

// One measured kernel: `prepare` makes its frames and says how many it runs
// over, before counting starts; `run` processes them once. Its counts are
// dumped under `name`, which also carries the frame count for the scripts.
struct Kernel {
  std::string name;
  std::function<int()> prepare;
  std::function<void()> run;
};

const char* pathName(KernelPath path) { return path == KernelPath::kPlain ? "plain" : "vector"; }

// Names end in the implementation: "vector" (the library's fast kernel),
// "plain" (its plain loop, or for the whole intake destride and cv::cvtColor,
// the path before the fused kernel) or "libyuv" (the peer).
void addIntakeKernels(std::vector<Kernel>& kernels) {
  static std::vector<unsigned char> packed(size_t(kMotionWidth) * kMotionHeight * 3 / 2);
  static cv::Mat packedView(kMotionHeight * 3 / 2, kMotionWidth, CV_8UC1, packed.data());
  static cv::Mat rgb(kMotionHeight, kMotionWidth, CV_8UC3);
  static FusedIntake fused;
  static LibyuvIntake libyuv(kMotionWidth, kMotionHeight);
  for (Size size : {Size{640, 480}, Size{1280, 720}, Size{1920, 1080}, Size{4032, 3024}}) {
    const std::string s = sizeName(size);
    auto frames = [size]() -> const std::vector<hdsml::YuvFrame>& {
      return nv21Frames(size.width, size.height);
    };
    auto add = [&](const std::string& name, std::function<void(const hdsml::YuvFrame&)> each) {
      kernels.push_back({name, [frames] { return int(frames().size()); },
                         [frames, each] {
                           for (const hdsml::YuvFrame& f : frames()) each(f);
                         }});
    };
    for (KernelPath path : {KernelPath::kVector, KernelPath::kPlain})
      add("intake/destride/" + s + "/" + pathName(path), [path](const hdsml::YuvFrame& f) {
        destrideWith(path, f.y, f.u, f.v, f.height, f.width, f.yPixelStride, f.yRowStride,
                     f.uPixelStride, f.uRowStride, f.vPixelStride, f.vRowStride, kMotionHeight,
                     kMotionWidth, packed.data());
      });
    add("intake/whole/" + s + "/vector",
        [](const hdsml::YuvFrame& f) { fused.run(hdsml::planesOf(f), rgb, packed.data()); });
    add("intake/whole/" + s + "/plain", [](const hdsml::YuvFrame& f) {
      destride(f.y, f.u, f.v, f.height, f.width, f.yPixelStride, f.yRowStride, f.uPixelStride,
               f.uRowStride, f.vPixelStride, f.vRowStride, kMotionHeight, kMotionWidth,
               packed.data());
      cv::cvtColor(packedView, rgb, cv::COLOR_YUV2RGB_YV12);
    });
    if (!libyuvBuilt()) continue;
    add("intake/destride/" + s + "/libyuv", [](const hdsml::YuvFrame& f) { libyuv.shrink(f); });
    add("intake/whole/" + s + "/libyuv", [](const hdsml::YuvFrame& f) {
      libyuv.shrink(f);
      libyuv.convert(rgb.data);
    });
  }
  const int conversions = 20;
  kernels.push_back({"intake/colour-conversion/320x240/plain", [] { return conversions; },
                     [] {
                       for (int i = 0; i < conversions; ++i)
                         cv::cvtColor(packedView, rgb, cv::COLOR_YUV2RGB_YV12);
                     }});
  if (libyuvBuilt())
    kernels.push_back({"intake/colour-conversion/320x240/libyuv",
                       [] {
                         libyuv.shrink(nv21Frames(640, 480).front());
                         return conversions;
                       },
                       [] {
                         for (int i = 0; i < conversions; ++i) libyuv.convert(rgb.data);
                       }});
}

// The motion detector over the motion frames, its ring filled beforehand.
void addAnalysisKernels(std::vector<Kernel>& kernels) {
  for (Size size : {Size{320, 240}, Size{640, 480}}) {
    for (const char* algorithm : {"FrameDiff", "FrameDiffLowLight"}) {
      for (KernelPath path : {KernelPath::kVector, KernelPath::kPlain}) {
        auto detector = std::make_shared<motionDetector>();
        auto prepare = [detector, algorithm, path, size] {
          const auto& frames = motionFrames(size.width, size.height);
          detector->setAlgoType(algorithm, size.width, size.height);
          detector->algorithm->setKernelPath(path);
          for (int k = 0; k < 15; ++k) {
            detector->setImage(frames[k % frames.size()]);
            detector->runAlgo(true);
          }
          return int(frames.size());
        };
        const std::string name =
            "analysis/" + std::string(algorithm) + "/" + sizeName(size) + "/" + pathName(path);
        kernels.push_back({name, prepare, [detector, size] {
                             for (const cv::Mat& frame : motionFrames(size.width, size.height)) {
                               detector->setImage(frame);
                               detector->runAlgo(true);
                             }
                           }});
      }
    }
  }
}

// The guarded analysis with every guard on, beside "FrameDiff" and
// "FrameDiffLowLight" above: the same frames, its ring filled beforehand, in
// normal light (analysis/guarded/SIZE/PATH) and in low light under the night
// rule (analysis/guarded-lowlight/SIZE/PATH). PATH is that of its block sums.
void addGuardedKernels(std::vector<Kernel>& kernels) {
  for (bool lowLight : {false, true}) {
    for (Size size : {Size{320, 240}, Size{640, 480}}) {
      for (KernelPath path : {KernelPath::kVector, KernelPath::kPlain}) {
        hdsml::GuardSettings settings;
        settings.globalChange = settings.noise = settings.night = true;
        auto guards = std::make_shared<hdsml::SceneGuards>(settings, size.width, size.height);
        auto regions = std::make_shared<std::vector<std::pair<cv::Rect, float>>>();
        auto prepare = [guards, regions, path, size, lowLight] {
          const auto& frames = motionFrames(size.width, size.height);
          guards->setKernelPath(path);
          for (int k = 0; k < 15; ++k)
            guards->analyse(frames[k % frames.size()].data, 10000000, k, lowLight, *regions);
          return int(frames.size());
        };
        const std::string name = lowLight ? "analysis/guarded-lowlight/" : "analysis/guarded/";
        kernels.push_back({name + sizeName(size) + "/" + pathName(path), prepare,
                           [guards, regions, size, lowLight] {
                             int64_t ts = 100;
                             for (const cv::Mat& frame : motionFrames(size.width, size.height))
                               guards->analyse(frame.data, 10000000, ++ts, lowLight, *regions);
                           }});
      }
    }
  }
}

// A mark for qemu-thread-insns.c.
void mark(bool marks, long id) {
  if (marks) syscall(SYS_write, -1L, nullptr, id);
}

}  // namespace

int runCallgrindKernels(const std::string& only, bool marks) {
  std::vector<Kernel> all, kernels;
  addIntakeKernels(all);
  addAnalysisKernels(all);
  addGuardedKernels(all);
  for (Kernel& kernel : all)
    if (kernel.name.compare(0, only.size(), only) == 0) kernels.push_back(std::move(kernel));
  // Frames are decoded and converted before any kernel runs, so that
  // scripts/bench can leave valgrind's instrumentation off until here.
  std::vector<int> frames;
  for (const Kernel& kernel : kernels) frames.push_back(kernel.prepare());
  CALLGRIND_START_INSTRUMENTATION;
  for (size_t i = 0; i < kernels.size(); ++i) {
    const std::string dumpName = kernels[i].name + " frames=" + std::to_string(frames[i]);
    CALLGRIND_ZERO_STATS;
    mark(marks, long(2 * i));
    kernels[i].run();
    mark(marks, long(2 * i + 1));
    CALLGRIND_DUMP_STATS_AT(dumpName.c_str());
    std::fprintf(stderr, "hdsml_bench: ran %s\n", dumpName.c_str());
  }
  return 0;
}

}  // namespace hdsml_bench
