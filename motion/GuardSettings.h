// What the optional "guards" object of the configuration asks for: which scene
// guards run and the two numbers a person tunes (sensitivity, smallest moving
// area). Plain value type, made once at configuration, read by SceneGuards.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "hdsml_export.h"

namespace hdsml {

struct HDSML_EXPORT GuardSettings {
  // Sensitivity 50 and the smallest region of 1/384 of the frame are what the
  // built-in rules use; see docs/tuning.md for how they map onto thresholds.
  static constexpr double kDefaultSensitivity = 50.0;
  static constexpr double kDefaultMinRegionArea = 100.0 / 384.0;  // percent of the frame

  bool globalChange = false;                 // whole-picture changes: exposure, infrared, lights
  bool noise = false;                        // thresholds follow the noise measured on the scene
  bool night = false;                        // the low-light rule sees dim walkers
  double sensitivity = kDefaultSensitivity;  // 0 (least) to 100 (most)
  double minRegionArea = kDefaultMinRegionArea;  // percent of the frame, above 0, at most 100
  // Polygons in frame-relative coordinates (0 to 1, origin top left, y down).
  std::vector<std::vector<cv::Point2d>> masks;

  // The block-change thresholds are multiplied by this: 1 at sensitivity 50,
  // halved every 25 points up, doubled every 25 points down.
  double thresholdScale() const;
  // Smallest accepted region, in motion-frame pixels, for a width x height frame.
  int minRegionPixels(int width, int height) const;
};

}  // namespace hdsml
