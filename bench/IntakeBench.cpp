// Intake on the camera thread: the shrink alone, beside the time it takes to
// read one byte of every cache line it must read; the whole intake into a frame
// record (the fused kernel, and destride with cv::cvtColor); and a whole
// detect() call. Peers: OpenCV's way of doing the same job and libyuv's
// (bench/LibyuvIntake.h), on the same NV21 frames.
#include <opencv2/imgproc.hpp>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchFrames.h"
#include "bench/BenchSuites.h"
#include "bench/LibyuvIntake.h"
#include "client/FusedIntake.h"
#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"
#include "tests/support/YuvPlanes.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace hdsml_bench {
namespace {

const Size kCameraSizes[] = {{640, 480}, {1280, 720}, {1920, 1080}, {4032, 3024}};

// The packed planar 4:2:0 image at the motion resolution that intake produces,
// and its single-channel view for the colour conversion.
struct PackedImage {
  std::vector<unsigned char> bytes =
      std::vector<unsigned char>(size_t(kMotionWidth) * kMotionHeight * 3 / 2);
  cv::Mat view{kMotionHeight * 3 / 2, kMotionWidth, CV_8UC1, bytes.data()};
};

void shrink(const hdsml::YuvFrame& f, PackedImage& packed) {
  destride(f.y, f.u, f.v, f.height, f.width, f.yPixelStride, f.yRowStride, f.uPixelStride,
           f.uRowStride, f.vPixelStride, f.vRowStride, kMotionHeight, kMotionWidth,
           packed.bytes.data());
}

// OpenCV's intake: nearest-neighbour resize of the luma plane and of the
// interleaved VU plane, then a split of VU into the two chroma planes, laid
// out as the library lays them out.
struct OpenCvShrink {
  explicit OpenCvShrink(PackedImage& packed)
      : luma(kMotionHeight, kMotionWidth, CV_8UC1, packed.bytes.data()),
        vu(kMotionHeight / 2, kMotionWidth / 2, CV_8UC2) {
    unsigned char* chroma = packed.bytes.data() + kMotionWidth * kMotionHeight;
    const size_t planeBytes = size_t(kMotionWidth / 2) * (kMotionHeight / 2);
    // NV21 holds V first; the library's buffer holds U, then V.
    planes[0] = cv::Mat(kMotionHeight / 2, kMotionWidth / 2, CV_8UC1, chroma + planeBytes);
    planes[1] = cv::Mat(kMotionHeight / 2, kMotionWidth / 2, CV_8UC1, chroma);
  }
  void operator()(const hdsml::YuvFrame& f) {
    const cv::Mat y(f.height, f.width, CV_8UC1, f.y, f.yRowStride);
    const cv::Mat interleaved(f.height / 2, f.width / 2, CV_8UC2, f.v, f.vRowStride);
    cv::resize(y, luma, luma.size(), 0, 0, cv::INTER_NEAREST);
    cv::resize(interleaved, vu, vu.size(), 0, 0, cv::INTER_NEAREST);
    cv::split(vu, planes);
  }
  cv::Mat luma, vu;
  cv::Mat planes[2];
};

void destrideOnly(benchmark::State& state, Size size) {
  const auto& frames = nv21Frames(size.width, size.height);
  PackedImage packed;
  size_t i = 0;
  const AllocationCount before = allocationsOnThisThread();
  for (auto _ : state) {
    shrink(frames[i++ % frames.size()], packed);
    benchmark::ClobberMemory();
  }
  reportAllocations(state, before, false);
}

// The first byte of each cache line that destride reads: for every sampled
// row of luma and of interleaved chroma, the lines from its first sample to its
// last. One byte a line is the least any shrink must fetch.
class SampledLines {
 public:
  explicit SampledLines(const hdsml::YuvFrame& f) {
    const int64_t sx = int64_t(f.width) * 32 / kMotionWidth;
    const int64_t sy = int64_t(f.height) * 32 / kMotionHeight;
    const unsigned char* pairs = std::min(f.u, f.v);
    for (int r = 0; r < kMotionHeight; ++r)
      add(f.y + f.yRowStride * ((r * sy) >> 5), (((kMotionWidth - 1) * sx) >> 5) + 1);
    for (int r = 0; r < kMotionHeight / 2; ++r)
      add(pairs + f.uRowStride * ((r * sy) >> 5), 2 * (((kMotionWidth / 2 - 1) * sx) >> 5) + 2);
  }
  unsigned touch() const {
    unsigned sum = 0;
    for (const Span& s : spans_) {
      sum += s.first[0];
      for (const unsigned char* line = s.nextLine; line < s.end; line += 64) sum += *line;
    }
    return sum;
  }

 private:
  struct Span {
    const unsigned char *first, *nextLine, *end;
  };
  void add(const unsigned char* first, int64_t bytes) {
    const auto next = (reinterpret_cast<uintptr_t>(first) | 63) + 1;
    spans_.push_back({first, reinterpret_cast<const unsigned char*>(next), first + bytes});
  }
  std::vector<Span> spans_;
};

void touchSampledLines(benchmark::State& state, Size size) {
  const auto& frames = nv21Frames(size.width, size.height);
  std::vector<SampledLines> lines(frames.begin(), frames.end());
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(lines[i++ % lines.size()].touch());
}

void openCvShrinkOnly(benchmark::State& state, Size size) {
  const auto& frames = nv21Frames(size.width, size.height);
  PackedImage packed;
  OpenCvShrink openCv(packed);
  size_t i = 0;
  for (auto _ : state) {
    openCv(frames[i++ % frames.size()]);
    benchmark::ClobberMemory();
  }
}

void destrideAndConvert(benchmark::State& state, Size size) {
  const auto& frames = nv21Frames(size.width, size.height);
  PackedImage packed;
  FrameData record(kMotionHeight, kMotionWidth);
  size_t i = 0;
  const AllocationCount before = allocationsOnThisThread();
  for (auto _ : state) {
    shrink(frames[i++ % frames.size()], packed);
    cv::cvtColor(packed.view, record.image, cv::COLOR_YUV2RGB_YV12);
    benchmark::ClobberMemory();
  }
  reportAllocations(state, before, false);
}

// The library's intake: the fused kernel, straight into a frame record and
// the client's packed image.
void fusedIntake(benchmark::State& state, Size size) {
  const auto& frames = nv21Frames(size.width, size.height);
  FusedIntake kernel;
  FrameData record(kMotionHeight, kMotionWidth);
  std::vector<unsigned char> packed(size_t(kMotionWidth) * kMotionHeight * 3 / 2);
  size_t i = 0;
  const AllocationCount before = allocationsOnThisThread();
  for (auto _ : state) {
    const hdsml::YuvFrame& f = frames[i++ % frames.size()];
    kernel.run(hdsml::planesOf(f), record.image, packed.data());
    benchmark::ClobberMemory();
  }
  reportAllocations(state, before, false);
}

void libyuvShrinkAndConvert(benchmark::State& state, Size size) {
  const auto& frames = nv21Frames(size.width, size.height);
  LibyuvIntake libyuv(kMotionWidth, kMotionHeight);
  cv::Mat rgb(kMotionHeight, kMotionWidth, CV_8UC3);
  size_t i = 0;
  for (auto _ : state) {
    libyuv.shrink(frames[i++ % frames.size()]);
    libyuv.convert(rgb.data);
    benchmark::ClobberMemory();
  }
}

void openCvShrinkAndConvert(benchmark::State& state, Size size) {
  const auto& frames = nv21Frames(size.width, size.height);
  PackedImage packed;
  OpenCvShrink openCv(packed);
  cv::Mat rgb(kMotionHeight, kMotionWidth, CV_8UC3);
  size_t i = 0;
  for (auto _ : state) {
    openCv(frames[i++ % frames.size()]);
    cv::cvtColor(packed.view, rgb, cv::COLOR_YUV2RGB_YV12);
    benchmark::ClobberMemory();
  }
}

// Runs `call` with the process's standard output sent to /dev/null: the
// library announces state changes and exposure times there.
template <typename Call>
void quietly(Call call) {
  std::fflush(stdout);
  const int saved = dup(1);
  std::FILE* null = std::fopen("/dev/null", "w");
  if (null != nullptr) dup2(fileno(null), 1);
  call();
  std::fflush(stdout);
  if (saved >= 0) dup2(saved, 1);
  if (saved >= 0) close(saved);
  if (null != nullptr) std::fclose(null);
}

// Waits, untimed, until the motion thread has finished with every frame record,
// as it has between the frames of a camera running at 30 frames a second.
void waitUntilAnalysed(detector_wrapper::PresenceDetectorWrapper& hds) {
  for (;;) {
    bool busy = false;
    for (FrameData* record : hds.client->framePool->frames) busy = busy || record->getRef() != 0;
    if (!busy) return;
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

// A whole detect() call in DETECT_MOTION, each frame handed over once the
// motion thread is idle again (otherwise intake drops the frame at once, both
// records being held, and the call measures nothing but the drop).
void wholeDetect(benchmark::State& state, Size size) {
  using detector_wrapper::PresenceDetectorWrapper;
  const auto& frames = nv21Frames(size.width, size.height);
  const std::string config = "/tmp/hdsml_bench_" + std::to_string(getpid()) + ".json";
  std::ofstream(config) << "{ \"vantor\": { \"motionResW\": " << kMotionWidth
                        << ", \"motionResH\": " << kMotionHeight << " } }";
  camera_metadata metadata;
  metadata.exposureTime = 10000000;  // 10 ms: normal light
  long long timestamp = 0;
  size_t i = 0;
  PresenceDetectorWrapper* hds = nullptr;
  quietly([&] {
    hds = PresenceDetectorWrapper::initialize(config.c_str(), false);
    hds->stateChange("DETECT_MOTION", 30, 0, "bench");
    for (int k = 0; k < 30; ++k) {
      const hdsml::YuvFrame& f = frames[i++ % frames.size()];
      hds->detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                  f.uRowStride, f.vPixelStride, f.vRowStride, timestamp += 33, metadata, 0);
    }
  });
  const AllocationCount before = allocationsOnThisThread();
  const AllocationCount processBefore = allocationsInProcess();
  for (auto _ : state) {
    state.PauseTiming();
    waitUntilAnalysed(*hds);
    state.ResumeTiming();
    const hdsml::YuvFrame& f = frames[i++ % frames.size()];
    hds->detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                f.uRowStride, f.vPixelStride, f.vRowStride, timestamp += 33, metadata, 0);
  }
  reportAllocations(state, before, false);
  // Both threads: intake here and the analysis of every frame on the motion thread.
  const AllocationCount process = allocationsInProcess() - processBefore;
  state.counters["process_allocs"] =
      benchmark::Counter(double(process.outsideContours), benchmark::Counter::kAvgIterations);
  state.counters["process_contour_allocs"] =
      benchmark::Counter(double(process.insideContours), benchmark::Counter::kAvgIterations);
  quietly([] { PresenceDetectorWrapper::destroy(); });
  std::remove(config.c_str());
}

}  // namespace

void registerIntakeBenchmarks() {
  for (Size size : kCameraSizes) {
    const std::string s = sizeName(size);
    benchmark::RegisterBenchmark(("intake/destride/" + s).c_str(), destrideOnly, size);
    benchmark::RegisterBenchmark(("peer/intake/resize+split/" + s).c_str(), openCvShrinkOnly, size);
    benchmark::RegisterBenchmark(("intake/touch-lines/" + s).c_str(), touchSampledLines, size);
    benchmark::RegisterBenchmark(("intake/fused/" + s).c_str(), fusedIntake, size);
    benchmark::RegisterBenchmark(("intake/destride+convert/" + s).c_str(), destrideAndConvert,
                                 size);
    if (libyuvBuilt())
      benchmark::RegisterBenchmark(("peer/intake/libyuv/" + s).c_str(), libyuvShrinkAndConvert,
                                   size);
    benchmark::RegisterBenchmark(("peer/intake/resize+split+convert/" + s).c_str(),
                                 openCvShrinkAndConvert, size);
  }
  benchmark::RegisterBenchmark("intake/detect/640x480", wholeDetect, Size{640, 480});
}

}  // namespace hdsml_bench
