#include "tools/host/ReplayPlan.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

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
                  what.c_str(), clock.relativeMs(frame) / 1000.0, frame, total - 1,
                  clock.relativeMs(total - 1) / 1000.0);
    out.push_back(buf);
  };
  for (const StateScript::Change& c : changes)
    if (c.frame >= total) describe("--states: " + c.stateName, c.frame);
  if (probes.stepFrame >= total) describe("--exposure-step", probes.stepFrame);
  if (probes.grayscaleFrame >= total) describe("--grayscale-at", probes.grayscaleFrame);
  if (probes.settleFrame >= total) describe("--exposure-settle", probes.settleFrame);
  if (probes.lightFrame >= total) describe("--light-switch", probes.lightFrame);
  return out;
}

const CameraLog::Entry* ReplayPlan::logged(long inputIndex) const {
  if (!cameraLog) return nullptr;
  const auto& entries = cameraLog->entries();
  if (inputIndex >= static_cast<long>(entries.size()))
    throw std::runtime_error("camera log '" + cameraLog->path() + "' lists " +
                             std::to_string(entries.size()) + " frames; the input holds more");
  return &entries[static_cast<size_t>(inputIndex)];
}

namespace {

// The probes that stage the room: auto-exposure settling, the light switch and
// noise on every frame (the screen is not a per-frame plan).
void planSceneProbes(const SceneOptions& scene, const FrameClock& clock, TransformPlan& probes) {
  if (scene.settle) {
    probes.settleFrame = scene.settle->at.frameIndex(clock);
    probes.settleFactor = scene.settle->factor;
    probes.settleFrames = scene.settle->frames;
  }
  if (scene.lightSwitch) {
    probes.lightFrame = scene.lightSwitch->at.frameIndex(clock);
    probes.lightFactor = scene.lightSwitch->factor;
  }
  probes.sensorNoise = scene.sensorNoise;
}

}  // namespace

ReplayPlan planReplay(const ReplayOptions& o, long inputFrames, double fps,
                      std::optional<CameraLog> cameraLog) {
  if (o.maxFrames > 0 && (inputFrames < 0 || inputFrames > o.maxFrames)) inputFrames = o.maxFrames;
  ReplayPlan plan;
  plan.cameraLog = std::move(cameraLog);
  if (plan.cameraLog) {
    const auto& entries = plan.cameraLog->entries();
    if (inputFrames > static_cast<long>(entries.size()))
      throw std::runtime_error("camera log '" + plan.cameraLog->path() + "' lists " +
                               std::to_string(entries.size()) + " frames; the input holds " +
                               std::to_string(inputFrames));
    int64_t interval = plan.cameraLog->medianIntervalMs();
    if (interval <= 0) interval = std::llround(1000.0 / fps);
    fps = 1000.0 / static_cast<double>(interval);
    plan.leadFrames = o.holdFirst ? o.holdFirstSpan.frameCount(fps) : 0;
    std::vector<int64_t> stamps;
    for (const CameraLog::Entry& e : entries) stamps.push_back(e.timestampMs);
    plan.clock = FrameClock(std::move(stamps), plan.leadFrames, interval);
  } else {
    plan.leadFrames = o.holdFirst ? o.holdFirstSpan.frameCount(fps) : 0;
    plan.clock = FrameClock(fps);
  }
  plan.fps = fps;
  plan.tailFrames = o.holdLast ? o.holdSpan.frameCount(fps) : 0;
  plan.plannedTotal = inputFrames >= 0 ? plan.leadFrames + inputFrames + plan.tailFrames : -1;
  if (o.brightnessRamp && plan.plannedTotal < 0)
    throw std::runtime_error(
        "--brightness-ramp needs to know the number of frames, which this "
        "input does not say: add --frames");
  TransformPlan& probes = plan.probes;
  probes.ramp = o.brightnessRamp;
  probes.rampFrom = o.rampFrom;
  probes.rampTo = o.rampTo;
  probes.rampFrames = plan.plannedTotal;
  probes.stepFrame = o.exposureStep ? o.stepAt.frameIndex(plan.clock) : -1;
  probes.stepFactor = o.stepFactor;
  probes.grayscaleFrame = o.grayscale ? o.grayscaleAt.frameIndex(plan.clock) : -1;
  probes.noiseSigma = o.noiseSigma;
  probes.baseExposure = o.exposure;
  planSceneProbes(o.scene, plan.clock, probes);
  plan.changes = o.states.resolve(plan.clock);
  return plan;
}

}  // namespace hdsreplay
