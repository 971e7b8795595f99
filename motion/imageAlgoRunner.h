// Shape of an image algorithm that takes one frame at a time: choose it by name,
// hand it a frame, run it, collect a polymorphic result. The owner (the detection
// client) drives it from one thread at a time; it holds no locks.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

#include "hdsml_export.h"
#include "motion/vantorData.h"

class HDSML_EXPORT imageAlgoRunner {
 public:
  imageAlgoRunner();
  virtual ~imageAlgoRunner();

  imageAlgoRunner(const imageAlgoRunner&) = delete;
  imageAlgoRunner& operator=(const imageAlgoRunner&) = delete;

  // Records the algorithm name; `width` and `height` are for subclasses. `name`
  // must fit in `algoType` (at most 19 characters).
  virtual void setAlgoType(const char* name, int width, int height);
  virtual void runAlgo(bool detect);
  // Points `out` at the runner's result; the runner keeps ownership.
  virtual void getAlgoOutput(vantorData*& out) = 0;

  // `text` must fit in `config` (at most 199 characters).
  void setConfig(const char* text);
  // Shares the pixels of `frame`, which must stay unchanged until runAlgo returns.
  void setImage(const cv::Mat& frame);
  char* getAlgoType();
  cv::Mat* getImage();

  char algoType[20];
  cv::Mat image;
  char config[200];
  cv::Rect imageRect;
  bool profiling;  // when set, runAlgo sums its own duration into totalMs
  int spareCount;
  int64_t spareTicks;
  int runCount;    // timed runs since the last reset
  double totalMs;  // duration of those runs, in milliseconds
};
