#include "motion/GuardSettings.h"

#include <cmath>

namespace hdsml {

double GuardSettings::thresholdScale() const {
  return std::exp2((kDefaultSensitivity - sensitivity) / 25.0);
}

int GuardSettings::minRegionPixels(int width, int height) const {
  // The default's W * H / 384 in integer division; the same at the default setting.
  if (minRegionArea == kDefaultMinRegionArea) return (height * width) / 384;
  return static_cast<int>(std::floor(minRegionArea / 100.0 * double(width) * double(height)));
}

}  // namespace hdsml
