// What really happened in front of the camera during a replay, as a person
// marks it or a scenario knows it by construction: intervals labelled `moving`
// (someone there, which the detector should report) or `nuisance` (motion that
// must not count as presence: leaves in wind, a screen, a curtain). A CSV with
// a header row, one interval a row:
//   start,end,label,note
//   10s,89.5s,moving,people walk through the hall
// Times as on the command line (12s, 800ms, 2min, or a frame number) from the
// first frame handed over; the end is not part of the interval; the note is
// optional. Plain value type.
#pragma once

#include <string>
#include <vector>

#include "tools/options/FrameClock.h"
#include "tools/options/TimeSpec.h"

namespace hdsreplay {

// One interval on the replay's time line, in milliseconds from the first frame.
struct TruthSpan {
  double startMs = 0, endMs = 0;
  bool moving = true;  // else nuisance
  std::string note;
};

class Truth {
 public:
  struct Interval {
    TimeSpec start, end;
    bool moving;
    std::string note;
  };

  // Throw std::runtime_error naming the file and line of what is wrong.
  static Truth load(const std::string& path);
  static Truth parse(const std::string& text, const std::string& name);

  const std::string& path() const { return path_; }
  const std::vector<Interval>& intervals() const { return intervals_; }
  // The intervals on the replay's clock, in file order.
  std::vector<TruthSpan> resolve(const FrameClock& clock) const;

 private:
  std::string path_;
  std::vector<Interval> intervals_;
};

}  // namespace hdsreplay
