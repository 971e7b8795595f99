#include "tools/host/ReplayPlan.h"

#include <cstdio>
#include <stdexcept>

namespace hdsreplay {

double frameRate(const ReplayOptions& o, const FrameSource& source) {
  double fps = o.fps;
  if (fps <= 0.0) fps = source.fps();
  if (fps <= 0.0) {
    fps = 30.0;
    if (source.kind() == "video")
      std::fprintf(stderr,
                   "hds-replay: the video declares no frame rate; assuming 30 fps "
                   "(set --fps)\n");
  }
  return fps;
}

std::vector<std::string> ReplayPlan::unreached(long total) const {
  std::vector<std::string> out;
  const auto describe = [&](const std::string& what, long frame) {
    char buf[256];
    std::snprintf(buf, sizeof buf,
                  "%s at %.1f s (frame %ld) comes after the replay's last frame (frame %ld, "
                  "%.1f s) and is never applied",
                  what.c_str(), frameTimestampMs(frame, fps) / 1000.0, frame, total - 1,
                  frameTimestampMs(total - 1, fps) / 1000.0);
    out.push_back(buf);
  };
  for (const StateScript::Change& c : changes)
    if (c.frame >= total) describe("--states: " + c.stateName, c.frame);
  if (probes.stepFrame >= total) describe("--exposure-step", probes.stepFrame);
  if (probes.grayscaleFrame >= total) describe("--grayscale-at", probes.grayscaleFrame);
  return out;
}

ReplayPlan planReplay(const ReplayOptions& o, long inputFrames, double fps) {
  if (o.maxFrames > 0 && (inputFrames < 0 || inputFrames > o.maxFrames)) inputFrames = o.maxFrames;
  ReplayPlan plan;
  plan.fps = fps;
  plan.tailFrames = o.holdLast ? o.holdSpan.frameCount(fps) : 0;
  plan.plannedTotal = inputFrames >= 0 ? inputFrames + plan.tailFrames : -1;
  if (o.brightnessRamp && plan.plannedTotal < 0)
    throw std::runtime_error(
        "--brightness-ramp needs to know the number of frames, which this "
        "input does not say: add --frames");
  TransformPlan& probes = plan.probes;
  probes.ramp = o.brightnessRamp;
  probes.rampFrom = o.rampFrom;
  probes.rampTo = o.rampTo;
  probes.rampFrames = plan.plannedTotal;
  probes.stepFrame = o.exposureStep ? o.stepAt.frameIndex(fps) : -1;
  probes.stepFactor = o.stepFactor;
  probes.grayscaleFrame = o.grayscale ? o.grayscaleAt.frameIndex(fps) : -1;
  probes.noiseSigma = o.noiseSigma;
  probes.baseExposure = o.exposure;
  plan.changes = o.states.resolve(fps);
  return plan;
}

}  // namespace hdsreplay
