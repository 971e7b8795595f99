#include "tools/options/SceneOptions.h"

#include <cmath>
#include <stdexcept>
#include <vector>

#include "tools/options/CommandLine.h"

namespace hdsreplay {

namespace {

std::vector<std::string> split(const std::string& text, char sep) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t at; (at = text.find(sep, start)) != std::string::npos; start = at + 1)
    parts.push_back(text.substr(start, at - start));
  parts.push_back(text.substr(start));
  return parts;
}

// Parse errors here are std::invalid_argument, as TimeSpec's are.
double number(const std::string& option, const std::string& text, double min, double max) {
  try {
    return parseNumber(option, text, min, max);
  } catch (const UsageError& e) {
    throw std::invalid_argument(e.what());
  }
}

}  // namespace

ExposureSettle parseExposureSettle(const std::string& option, const std::string& text) {
  const std::vector<std::string> parts = split(text, ':');
  if (parts.size() != 3)
    throw std::invalid_argument(option + ": '" + text +
                                "' is not of the form T:FACTOR:FRAMES (20s:0.5:8)");
  ExposureSettle s;
  s.at = TimeSpec::parse(parts[0], option);
  s.factor = number(option, parts[1], 0.01, 100.0);
  const double frames = number(option, parts[2], 1, 10000);
  if (frames != std::floor(frames))
    throw std::invalid_argument(option + ": '" + parts[2] + "' is not a whole number of frames");
  s.frames = static_cast<long>(frames);
  return s;
}

LightSwitch parseLightSwitch(const std::string& option, const std::string& text) {
  const std::vector<std::string> parts = split(text, ':');
  if (parts.size() != 2)
    throw std::invalid_argument(option + ": '" + text + "' is not of the form T:FACTOR (20s:4)");
  LightSwitch l;
  l.at = TimeSpec::parse(parts[0], option);
  l.factor = number(option, parts[1], 0.01, 100.0);
  return l;
}

ScreenSpec parseScreen(const std::string& option, const std::string& text) {
  const size_t colon = text.rfind(':');
  const std::string form = " is not of the form SOURCE:X,Y,W,H (Megamind.avi:0.05,0.6,0.3,0.3)";
  if (colon == std::string::npos || colon == 0)
    throw std::invalid_argument(option + ": '" + text + "'" + form);
  const std::vector<std::string> parts = split(text.substr(colon + 1), ',');
  if (parts.size() != 4) throw std::invalid_argument(option + ": '" + text + "'" + form);
  ScreenSpec s;
  s.source = text.substr(0, colon);
  RelativeRect& r = s.rect;
  r.x = number(option, parts[0], 0.0, 1.0);
  r.y = number(option, parts[1], 0.0, 1.0);
  r.w = number(option, parts[2], 0.0, 1.0);
  r.h = number(option, parts[3], 0.0, 1.0);
  if (r.w <= 0.0 || r.h <= 0.0)
    throw std::invalid_argument(option + ": the screen needs a width and a height above 0");
  if (r.x + r.w > 1.0 || r.y + r.h > 1.0)
    throw std::invalid_argument(
        option + ": the screen reaches past the frame (X+W and Y+H must be at most 1)");
  return s;
}

}  // namespace hdsreplay
