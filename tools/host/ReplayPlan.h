// What a replay will hand over, fixed before the first frame: the clock of its
// timestamps, the frames held before and after the input, the camera log, the
// probes and the state changes by frame. Plain value type.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/input/CameraLog.h"
#include "tools/input/FrameSource.h"
#include "tools/input/FrameTransform.h"
#include "tools/options/FrameClock.h"
#include "tools/options/ReplayOptions.h"
#include "tools/options/StateScript.h"

namespace hdsreplay {

struct ReplayPlan {
  FrameClock clock;
  double fps = 30.0;       // clock.fps(), the rate told to stateChange()
  long leadFrames = 0;     // the first frame held before the input
  long tailFrames = 0;     // still-tail frames after the input
  long plannedTotal = -1;  // frames to hand over in all; -1 when the input does not say
  std::optional<CameraLog> cameraLog;
  TransformPlan probes;
  std::vector<StateScript::Change> changes;

  // What the plan asks for at or after frame `total`, which a replay of `total`
  // frames never reaches: one sentence for each state change or probe.
  std::vector<std::string> unreached(long total) const;
  // The camera log's entry for input frame `inputIndex`, null without a log.
  // Throws std::runtime_error when the log ends before the input.
  const CameraLog::Entry* logged(long inputIndex) const;
};

// The rate of the replay's timestamps: --fps, else the input's own, else 30
// (with a warning for a video that declares none).
double frameRate(const ReplayOptions& options, const FrameSource& source);

// `inputFrames` is what the input declares, -1 when it cannot tell. Throws
// std::runtime_error when a probe needs a frame count the input does not give,
// or the camera log lists fewer frames than the input.
ReplayPlan planReplay(const ReplayOptions& options, long inputFrames, double fps,
                      std::optional<CameraLog> cameraLog = std::nullopt);

}  // namespace hdsreplay
