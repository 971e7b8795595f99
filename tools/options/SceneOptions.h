// The probes that stage a room around the replayed frames, beyond a fixed
// light and held frames: auto-exposure settling over several frames, a room
// light switched on or off, sensor noise on every frame, and a screen playing
// another video in a rectangle of the picture. Parsed from hds-replay's
// command line; the parse functions throw std::invalid_argument naming the
// option. Plain value types.
#pragma once

#include <optional>
#include <string>

#include "tools/options/TimeSpec.h"

namespace hdsreplay {

// --exposure-settle T:F:N: from T on, exposure time and brightness move by the
// factor F in N geometric steps, as a camera's auto-exposure converges.
struct ExposureSettle {
  TimeSpec at;
  double factor = 1.0;
  long frames = 1;
};

// --light-switch T:F: from T on the room's light is F times what it was; the
// exposure time stays until auto-exposure (--exposure-settle) answers.
struct LightSwitch {
  TimeSpec at;
  double factor = 1.0;
};

// A rectangle of the picture in frame-relative coordinates: 0 to 1 from the
// top left, x to the right, y down.
struct RelativeRect {
  double x = 0, y = 0, w = 0, h = 0;
};

// --screen SOURCE:X,Y,W,H (and --screen-raw WxH for a camera dump): a screen
// showing SOURCE's frames, one per frame handed over and from the start again
// when they run out, scaled into the rectangle.
struct ScreenSpec {
  std::string source;
  RelativeRect rect;
  int rawWidth = 0, rawHeight = 0;  // 0: SOURCE is a video or a folder of images
};

struct SceneOptions {
  std::optional<ExposureSettle> settle;
  std::optional<LightSwitch> lightSwitch;
  double sensorNoise = -1.0;  // --sensor-noise; -1: the input's frames stay clean
  std::optional<ScreenSpec> screen;
};

ExposureSettle parseExposureSettle(const std::string& option, const std::string& text);
LightSwitch parseLightSwitch(const std::string& option, const std::string& text);
// SOURCE:X,Y,W,H, split at the last colon; the rectangle must lie in the frame.
ScreenSpec parseScreen(const std::string& option, const std::string& text);

}  // namespace hdsreplay
