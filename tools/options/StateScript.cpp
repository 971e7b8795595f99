#include "tools/options/StateScript.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace hdsreplay {

namespace {

std::string trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

std::string canonicalState(const std::string& name) {
  if (stateValue(name) >= 0) return name;
  if (name == "motion") return "DETECT_MOTION";
  if (name == "presence") return "DETECT_PRESENCE";
  if (name == "absence") return "DETECT_ABSENCE";
  throw std::invalid_argument("--states: unknown state '" + name +
                              "' (use DETECT_MOTION, DETECT_PRESENCE, DETECT_ABSENCE or "
                              "motion, presence, absence)");
}

}  // namespace

int stateValue(const std::string& stateName) {
  if (stateName == "DETECT_MOTION") return 0;
  if (stateName == "DETECT_PRESENCE") return 1;
  if (stateName == "DETECT_ABSENCE") return 2;
  return -1;
}

const char* stateShortName(int state) {
  switch (state) {
    case 0:
      return "MOTION";
    case 1:
      return "PRESENCE";
    case 2:
      return "ABSENCE";
  }
  return "?";
}

StateScript StateScript::parse(const std::string& text) {
  StateScript script;
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(',', start);
    if (comma == std::string::npos) comma = text.size();
    const std::string entry = trim(text.substr(start, comma - start));
    const size_t colon = entry.find(':');
    if (entry.empty() || colon == std::string::npos)
      throw std::invalid_argument("--states: entry '" + entry +
                                  "' is not WHEN:STATE (for example 30s:DETECT_ABSENCE)");
    Step step;
    step.at = TimeSpec::parse(trim(entry.substr(0, colon)), "--states");
    step.stateName = canonicalState(trim(entry.substr(colon + 1)));
    script.steps_.push_back(step);
    start = comma + 1;
  }
  return script;
}

std::vector<StateScript::Change> StateScript::resolve(double fps) const {
  return resolve(FrameClock(fps));
}

std::vector<StateScript::Change> StateScript::resolve(const FrameClock& clock) const {
  std::vector<Change> changes;
  for (const Step& step : steps_) changes.push_back({step.at.frameIndex(clock), step.stateName});
  std::stable_sort(changes.begin(), changes.end(),
                   [](const Change& a, const Change& b) { return a.frame < b.frame; });
  std::vector<Change> merged;
  for (const Change& c : changes) {
    if (!merged.empty() && merged.back().frame == c.frame)
      merged.back() = c;
    else
      merged.push_back(c);
  }
  if (merged.empty() || merged.front().frame != 0)
    merged.insert(merged.begin(), Change{0, "DETECT_MOTION"});
  return merged;
}

}  // namespace hdsreplay
