// The motion detector: runs the frame-differencing algorithm chosen by name on the
// frame set with setImage and publishes the accepted motion rectangles, in
// motion-frame coordinates, as a vantorList of (rectangle, 0.0) pairs. Owned by the
// detection client; single-threaded by contract (no locks).
#pragma once

#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "hdsml_export.h"
#include "motion/MotionDiff.h"
#include "motion/imageAlgoRunner.h"
#include "motion/vantorData.h"

class HDSML_EXPORT motionDetector : public imageAlgoRunner {
 public:
  motionDetector();
  ~motionDetector() override;

  // Rebuilds the algorithm ("FrameDiff", "SingleFrameDiff" or "FrameDiffLowLight")
  // for width x height motion frames, with an empty ring and a new, empty output
  // list; any other name leaves no algorithm. A null name reuses `algoType`.
  void setAlgoType(const char* name, int width, int height) override;
  // Runs the algorithm on `image`; the output list then holds this run's rectangles.
  void runAlgo(bool detect) override;
  // `out` stays valid until the next setAlgoType or the runner's destruction.
  void getAlgoOutput(vantorData*& out) override;
  // Restarts the ring: the algorithm compares again once it has refilled.
  void clear();

  MotionDiff* algorithm;                           // owned; null until a known name
  vantorList<std::pair<cv::Rect, float>>* output;  // owned; null until setAlgoType

 private:
  void destroyAlgorithm();
  void destroyOutput();

  // The list handed to `output` each run, kept so that its storage is reused.
  std::vector<std::pair<cv::Rect, float>> found_;
};
