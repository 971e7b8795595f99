#include "motion/motionDetector.h"

#include <cstring>

#include "motion/FrameDiff.h"
#include "motion/FrameDiffLowLight.h"

template class vantorList<std::pair<cv::Rect, float>>;

namespace {

// Timed runs after which the profiling sums start over.
constexpr int kProfilingWindow = 500;

}  // namespace

motionDetector::motionDetector() : algorithm(nullptr), output(nullptr) {}

motionDetector::~motionDetector() {
  destroyAlgorithm();
  destroyOutput();
}

void motionDetector::destroyAlgorithm() {
  delete algorithm;
  algorithm = nullptr;
}

void motionDetector::destroyOutput() {
  delete output;
  output = nullptr;
}

void motionDetector::setAlgoType(const char* name, int width, int height) {
  if (name != nullptr) std::strcpy(algoType, name);
  destroyAlgorithm();

  // Each name is tested on its own; exactly one can match.
  if (std::strcmp(algoType, "FrameDiff") == 0) algorithm = new FrameDiff(width, height, 15);
  if (std::strcmp(algoType, "SingleFrameDiff") == 0) algorithm = new FrameDiff(width, height, 2);
  if (std::strcmp(algoType, "FrameDiffLowLight") == 0) {
    algorithm = new FrameDiffLowLight(width, height, 5);
  }

  destroyOutput();
  output = new vantorList<std::pair<cv::Rect, float>>();

  spareCount = 0;
  spareTicks = 0;
  runCount = 0;
  totalMs = 0.0;
}

void motionDetector::runAlgo(bool detect) {
  // Without an algorithm (an unknown name was chosen) there is nothing to run;
  // the output list keeps whatever it holds.
  if (algorithm == nullptr) return;

  int64_t start = 0;
  if (profiling) start = cv::getTickCount();

  algorithm->processImage(image, detect);
  found_.clear();
  for (const cv::Rect& region : algorithm->regions) found_.emplace_back(region, 0.0f);
  output->setList(found_);

  if (profiling) {
    const int64_t end = cv::getTickCount();
    ++runCount;
    totalMs += static_cast<double>(end - start) / cv::getTickFrequency() * 1000.0;
    if (runCount == kProfilingWindow) {
      totalMs = 0.0;
      runCount = 0;
    }
  }
}

void motionDetector::getAlgoOutput(vantorData*& out) { out = output; }

void motionDetector::clear() {
  // Nothing to restart without an algorithm.
  if (algorithm == nullptr) return;
  algorithm->clear();
}
