// The timestamp of every frame a replay hands over, and the way back from a
// time on the replay's time line (as the command line and truth files give it,
// from the first frame on) to a frame. Frames are evenly spaced at a frame rate,
// or stamped as a camera log says: frames held before the logged ones come at
// the log's median interval before its first timestamp, and frames after them
// at that interval after its last. Plain value type.
#pragma once

#include <cstdint>
#include <vector>

namespace hdsreplay {

class FrameClock {
 public:
  // Evenly spaced: frame i at round(i * 1000 / fps) ms.
  explicit FrameClock(double fps = 30.0);
  // Frames `lead` .. `lead` + n - 1 at the logged timestamps; `intervalMs` > 0
  // spaces the frames before and after them.
  FrameClock(std::vector<int64_t> loggedMs, long lead, int64_t intervalMs);

  int64_t timestampMs(long frame) const;
  // Milliseconds from the first frame (frame 0) to `frame`.
  int64_t relativeMs(long frame) const { return timestampMs(frame) - timestampMs(0); }
  // The first frame at or after `ms` from the first frame.
  long frameAt(double ms) const;
  // Frames a second, as the host tells stateChange(): the rate given, or the
  // one the log's median interval makes.
  double fps() const { return fps_; }
  bool logged() const { return !logged_.empty(); }

 private:
  double fps_;
  std::vector<int64_t> logged_;  // empty: evenly spaced
  long lead_ = 0;
  int64_t intervalMs_ = 0;
};

}  // namespace hdsreplay
