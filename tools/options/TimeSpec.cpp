#include "tools/options/TimeSpec.h"

#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace hdsreplay {

TimeSpec TimeSpec::parse(const std::string& text, const std::string& what) {
  const auto fail = [&]() {
    return std::invalid_argument(what + ": '" + text +
                                 "' is neither a time (12s, 1.5s, 800ms, 2min) nor a frame "
                                 "number (120)");
  };
  if (text.empty() || text[0] == '-' || text[0] == '+') throw fail();
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || !std::isfinite(number) || number < 0) throw fail();
  const std::string unit(end);
  TimeSpec parsed;
  if (unit.empty()) {
    if (number != std::floor(number)) throw fail();  // "2.5" frames makes no sense
    parsed.isFrames = true;
    parsed.value = number;
  } else if (unit == "ms") {
    parsed.isFrames = false;
    parsed.value = number;
  } else if (unit == "s") {
    parsed.isFrames = false;
    parsed.value = number * 1000.0;
  } else if (unit == "min") {
    parsed.isFrames = false;
    parsed.value = number * 60000.0;
  } else {
    throw fail();
  }
  return parsed;
}

long long frameTimestampMs(long index, double fps) {
  return std::llround(static_cast<double>(index) * 1000.0 / fps);
}

long TimeSpec::frameIndex(double fps) const { return frameIndex(FrameClock(fps)); }

long TimeSpec::frameIndex(const FrameClock& clock) const {
  return isFrames ? static_cast<long>(value) : clock.frameAt(value);
}

double TimeSpec::ms(const FrameClock& clock) const {
  return isFrames ? static_cast<double>(clock.relativeMs(static_cast<long>(value))) : value;
}

long TimeSpec::frameCount(double fps) const {
  if (isFrames) return static_cast<long>(value);
  return std::lround(value * fps / 1000.0);
}

}  // namespace hdsreplay
