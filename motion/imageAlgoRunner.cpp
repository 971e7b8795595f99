#include "motion/imageAlgoRunner.h"

#include <cstring>

imageAlgoRunner::imageAlgoRunner()
    : algoType(),
      config(),
      imageRect(0, 0, 0, 0),
      profiling(false),
      spareCount(0),
      spareTicks(0),
      runCount(0),
      totalMs(0.0) {}

imageAlgoRunner::~imageAlgoRunner() {}

void imageAlgoRunner::setAlgoType(const char* name, int /*width*/, int /*height*/) {
  if (name != nullptr) std::strcpy(algoType, name);
}

void imageAlgoRunner::runAlgo(bool /*detect*/) {}

void imageAlgoRunner::setConfig(const char* text) {
  if (text != nullptr) std::strcpy(config, text);
}

void imageAlgoRunner::setImage(const cv::Mat& frame) {
  image = frame;
  imageRect = cv::Rect(0, 0, frame.cols, frame.rows);
}

char* imageAlgoRunner::getAlgoType() { return algoType; }

cv::Mat* imageAlgoRunner::getImage() { return &image; }
