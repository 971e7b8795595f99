// Analysis on the motion thread: the library's motion detector with each rule,
// against OpenCV programs that find moving regions in the same motion frames:
// an absdiff-against-running-average pipeline and the MOG2 and KNN background
// subtractors, each followed by contour finding and bounding rectangles.
#include <opencv2/imgproc.hpp>
#include <opencv2/video/background_segm.hpp>

#include <utility>
#include <vector>

#include "bench/BenchFrames.h"
#include "bench/BenchSuites.h"
#include "motion/SceneGuards.h"
#include "motion/motionDetector.h"
#include "motion/vantorData.h"

namespace hdsml_bench {
namespace {

const Size kMotionSizes[] = {{320, 240}, {640, 480}};

// setImage + runAlgo + getAlgoOutput per frame, as the motion thread does. The
// ring is filled first so that every timed frame is compared.
void motionDetectorFrames(benchmark::State& state, const char* algorithm, Size size) {
  const auto& frames = motionFrames(size.width, size.height);
  motionDetector detector;
  detector.setAlgoType(algorithm, size.width, size.height);
  size_t i = 0;
  for (int k = 0; k < 20; ++k) {
    detector.setImage(frames[i++ % frames.size()]);
    detector.runAlgo(true);
  }
  size_t regions = 0;
  const AllocationCount before = allocationsOnThisThread();
  for (auto _ : state) {
    detector.setImage(frames[i++ % frames.size()]);
    detector.runAlgo(true);
    vantorData* out = nullptr;
    detector.getAlgoOutput(out);
    regions += static_cast<vantorList<std::pair<cv::Rect, float>>*>(out)->list.size();
  }
  reportAllocations(state, before, true);
  state.counters["regions"] =
      benchmark::Counter(double(regions), benchmark::Counter::kAvgIterations);
}

// The guarded analysis with every guard on, as the motion thread runs it in
// place of the detector; allocations are reported as for the detector.
void guardedFrames(benchmark::State& state, Size size) {
  const auto& frames = motionFrames(size.width, size.height);
  hdsml::GuardSettings settings;
  settings.globalChange = settings.noise = settings.night = true;
  hdsml::SceneGuards guards(settings, size.width, size.height);
  std::vector<std::pair<cv::Rect, float>> found;
  found.reserve(64);
  size_t i = 0;
  int64_t ts = 0;
  for (int k = 0; k < 20; ++k)
    guards.analyse(frames[i++ % frames.size()].data, 10000000, ++ts, false, found);
  size_t regions = 0;
  const AllocationCount before = allocationsOnThisThread();
  for (auto _ : state) {
    guards.analyse(frames[i++ % frames.size()].data, 10000000, ++ts, false, found);
    regions += found.size();
  }
  reportAllocations(state, before, true);
  state.counters["regions"] =
      benchmark::Counter(double(regions), benchmark::Counter::kAvgIterations);
}

// The peers' last step, with their vectors reused from frame to frame.
struct RegionFinder {
  size_t operator()(cv::Mat& foreground) {
    cv::findContours(foreground, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    rects.clear();
    for (const auto& contour : contours) rects.push_back(cv::boundingRect(contour));
    return rects.size();
  }
  std::vector<std::vector<cv::Point>> contours;
  std::vector<cv::Rect> rects;
};

// The classic motion-detection pipeline: grey, 3x3 blur, absolute difference
// to a running average, threshold, two dilations, contours.
void absdiffPipeline(benchmark::State& state, Size size) {
  const auto& frames = motionFrames(size.width, size.height);
  cv::Mat grey, average, averageU8, difference, foreground;
  RegionFinder findRegions;
  size_t i = 0, regions = 0;
  for (auto _ : state) {
    cv::cvtColor(frames[i++ % frames.size()], grey, cv::COLOR_RGB2GRAY);
    cv::GaussianBlur(grey, grey, cv::Size(3, 3), 0);
    if (average.empty()) grey.convertTo(average, CV_32F);
    cv::convertScaleAbs(average, averageU8);
    cv::absdiff(grey, averageU8, difference);
    cv::accumulateWeighted(grey, average, 0.5);
    cv::threshold(difference, foreground, 25, 255, cv::THRESH_BINARY);
    cv::dilate(foreground, foreground, cv::Mat(), cv::Point(-1, -1), 2);
    regions += findRegions(foreground);
  }
  state.counters["regions"] =
      benchmark::Counter(double(regions), benchmark::Counter::kAvgIterations);
}

void backgroundSubtractor(benchmark::State& state, cv::Ptr<cv::BackgroundSubtractor> subtractor,
                          Size size) {
  const auto& frames = motionFrames(size.width, size.height);
  cv::Mat foreground;
  RegionFinder findRegions;
  size_t i = 0, regions = 0;
  for (int k = 0; k < 20; ++k) subtractor->apply(frames[i++ % frames.size()], foreground);
  for (auto _ : state) {
    subtractor->apply(frames[i++ % frames.size()], foreground);
    regions += findRegions(foreground);
  }
  state.counters["regions"] =
      benchmark::Counter(double(regions), benchmark::Counter::kAvgIterations);
}

}  // namespace

void registerAnalysisBenchmarks() {
  for (Size size : kMotionSizes) {
    const std::string s = sizeName(size);
    for (const char* algorithm : {"FrameDiff", "FrameDiffLowLight"}) {
      benchmark::RegisterBenchmark(("analysis/" + std::string(algorithm) + "/" + s).c_str(),
                                   motionDetectorFrames, algorithm, size);
    }
    benchmark::RegisterBenchmark(("analysis/guarded/" + s).c_str(), guardedFrames, size);
    benchmark::RegisterBenchmark(("peer/analysis/absdiff/" + s).c_str(), absdiffPipeline, size);
    benchmark::RegisterBenchmark(("peer/analysis/MOG2/" + s).c_str(),
                                 [](benchmark::State& state, Size sz) {
                                   backgroundSubtractor(state, cv::createBackgroundSubtractorMOG2(),
                                                        sz);
                                 },
                                 size);
    benchmark::RegisterBenchmark(("peer/analysis/KNN/" + s).c_str(),
                                 [](benchmark::State& state, Size sz) {
                                   backgroundSubtractor(state, cv::createBackgroundSubtractorKNN(),
                                                        sz);
                                 },
                                 size);
  }
}

}  // namespace hdsml_bench
