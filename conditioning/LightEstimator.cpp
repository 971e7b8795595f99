#include "conditioning/LightEstimator.h"

#include <cstddef>

#include "diagnostics/Log.h"

LightEstimator::LightEstimator(int capacity, float highThreshold, float lowThreshold)
    : capacity(capacity), highThreshold(highThreshold), lowThreshold(lowThreshold) {
  hdsml::logPrintf("Light estimation buffer size: %d\n", capacity);
}

void LightEstimator::estimate(float sample) {
  std::lock_guard<std::mutex> guard(mutex_);
  sum += sample;
  samples.push_back(sample);
  if (samples.size() > static_cast<size_t>(capacity)) {
    full = true;
    sum -= samples.front();
    samples.pop_front();
  }
}

int LightEstimator::getLightMode() {
  std::lock_guard<std::mutex> guard(mutex_);
  if (!full) return 2;

  const float n = static_cast<float>(capacity);
  if (mode == 0 && sum > highThreshold * n) {
    mode = 1;
  } else if (mode == 1 && sum <= lowThreshold * n) {
    mode = 0;
  } else if (mode == 2) {
    // The first decision looks at the low threshold only, so a mean inside the
    // hysteresis band starts in normal light.
    mode = sum > lowThreshold * n ? 1 : 0;
  }
  return mode;
}

void LightEstimator::clear() {
  std::lock_guard<std::mutex> guard(mutex_);
  samples.clear();
  full = false;
  sum = 0.0f;
}
