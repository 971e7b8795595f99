// The detection-state script of a replay, e.g. "0:DETECT_MOTION,30s:DETECT_ABSENCE":
// which state name the tool hands to stateChange() and from which frame on.
// Parsed from the command line, then resolved against the replay's clock. Plain value.
#pragma once

#include <string>
#include <vector>

#include "tools/options/TimeSpec.h"

namespace hdsreplay {

class StateScript {
 public:
  struct Step {
    TimeSpec at;
    std::string stateName;  // "DETECT_MOTION", "DETECT_PRESENCE" or "DETECT_ABSENCE"
  };
  struct Change {
    long frame;
    std::string stateName;
  };

  // Entries are separated by commas, each WHEN:STATE. STATE is a full state name
  // or its short form (motion, presence, absence). Throws std::invalid_argument.
  static StateScript parse(const std::string& text);

  // State changes by frame index, in order. A camera application that never
  // calls stateChange() gets no analysis at all, so when the script says nothing
  // about frame 0 the replay starts in DETECT_MOTION there. Of several entries
  // that land on one frame the last one counts.
  std::vector<Change> resolve(double fps) const;
  std::vector<Change> resolve(const FrameClock& clock) const;

  const std::vector<Step>& steps() const { return steps_; }

 private:
  std::vector<Step> steps_;
};

// The state's number as the facade stores it (0, 1, 2), or -1 for an unknown name.
int stateValue(const std::string& stateName);
// Short label for plots and tables: "MOTION", "PRESENCE", "ABSENCE".
const char* stateShortName(int state);

}  // namespace hdsreplay
