// What the replay saw for one frame it handed to detect(): the state it was in,
// what the host reads back from the facade, and what the motion thread made of
// the frame. Written by the replay loop, read by the CSV, plot, annotation and
// summary writers. Plain value type.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>

#include "motion/GuardReport.h"

namespace hdsreplay {

// The facade's status codes.
enum : int { kStatusMotion = 0, kStatusAbsence = 2, kStatusNoMotion = 3, kStatusNone = 5 };
const char* statusName(int status);  // "MOTION", "ABSENCE", "NO_MOTION", "NONE"

struct ReplayRecord {
  long frame = 0;
  int64_t timestampMs = 0;  // as handed to detect(): the input's own clock
  int64_t timeMs = 0;       // from the first frame handed over: the clock of every output
  int state = 0;           // 0 DETECT_MOTION, 1 DETECT_PRESENCE, 2 DETECT_ABSENCE
  bool stillLead = false;  // the input's first frame, held before it
  bool stillTail = false;  // a repeat of the last input frame

  // The facade's fields right after detect() returned: the host's view, which
  // carries the decision made on an earlier frame.
  int status = kStatusNone;
  float confidence = 0.0f;
  int64_t reportTimestampMs = 0;  // frame timestamp of the decision in force
  bool newReport = false;         // this detect() made a new decision visible
  // The decision behind `status` is not older than the last state change (or
  // nothing was reported yet). A stale status is one the facade keeps showing
  // because newer decisions came from frames before the state change.
  bool fresh = true;

  // The motion thread's verdict on this very frame, when it was analysed.
  bool processed = false;
  bool dropped = false;  // handed over in an analysing state but never analysed
  bool motionDetected = false;
  float motionScore = 0.0f;
  int vote = -1;                // 1 regions found, 0 none, -1 unknown (not lockstep)
  bool rectsKnown = false;      // only in lockstep
  std::vector<cv::Rect> rects;  // motion-resolution coordinates
  int windowVotes = -1;         // votes for motion in the filter's window; -1 unknown
  int windowLength = 0;         // the window's length (12; 5 in low light)
  bool lensMoving = false;      // handed over as moving: the library skips such frames

  // The absence timer: this frame's timestamp minus the last motion's; empty
  // while the timer has not started.
  std::optional<int64_t> sinceMotionMs;

  double detectUs = 0.0;  // wall time of the detect() call

  // What the scene guards made of this frame, when the replay runs them (lockstep).
  std::optional<hdsml::GuardReport> guard;
};

// The records with every timestamp counted from the first frame's, as the
// summary and the pictures show times; the same records when the first is 0.
std::vector<ReplayRecord> fromFirstFrame(std::vector<ReplayRecord> records);

}  // namespace hdsreplay
