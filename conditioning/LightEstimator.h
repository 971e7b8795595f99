// Decides from recent exposure-derived light levels whether the scene is in low
// (0) or normal (1) light, with hysteresis so the motion thread does not flip
// between differencing rules; 2 means not known yet. Owned by the client; fed
// on the camera thread and cleared from the control thread, so every operation
// takes the estimator's own lock.
#pragma once

#include <deque>
#include <mutex>

#include "frames/RecyclingAllocator.h"
#include "hdsml_export.h"

class HDSML_EXPORT LightEstimator {
 public:
  // Thresholds are mean light levels: above highThreshold low light turns into
  // normal light; at or below lowThreshold normal light turns into low light.
  LightEstimator(int capacity, float highThreshold, float lowThreshold);
  ~LightEstimator() = default;

  LightEstimator(const LightEstimator&) = delete;
  LightEstimator& operator=(const LightEstimator&) = delete;

  // Adds one sample (1e9 / exposure) to the window.
  void estimate(float sample);
  // Updates and returns the mode; 2 while the window has not filled.
  int getLightMode();
  // Empties the window but keeps the last mode for the hysteresis.
  void clear();

  // Oldest at the front. Its allocator reuses the block the window leaves behind
  // every 128 samples, so feeding the estimator never allocates.
  std::deque<float, RecyclingAllocator<float>> samples;
  float sum = 0.0f;  // running single-precision sum, never recomputed
  int capacity;
  bool full = false;  // set once more than capacity samples arrived since the last clear
  int mode = 2;
  float highThreshold;
  float lowThreshold;

 private:
  // Guards the fields above. pause() clears the estimator on the control thread
  // while the camera thread may be feeding it; nothing else orders the two.
  std::mutex mutex_;
};
