#include "client/GuardedAnalysis.h"

#include <ctime>

#include "client/ClientExtensions.h"
#include "client/HDSMLClient.h"
#include "conditioning/Filter.h"
#include "diagnostics/Log.h"
#include "frames/FrameData.h"
#include "motion/SceneGuards.h"

namespace hdsml {
namespace {
// As without guards: the float ratio widened against the double 0.8.
constexpr double kMotionRatio = 0.8;
}  // namespace

void analyseGuarded(HDSMLClient& client, FrameData& frame, SceneGuards& guards) {
  const long long timestamp = frame.timestamp;
  if (client.debugEnabled)
    logPrintf("[MOTION FPS] Motion thread processing frame %lld\n", timestamp);

  const SceneGuards::Verdict verdict =
      guards.analyse(frame.image.data, frame.metadata.exposureTime, timestamp,
                     client.normalLight == 0, client.regions);
  if (client.debugEnabled) {
    for (const auto& region : client.regions) {
      const cv::Rect& r = region.first;
      logPrintf("*#*# MotionROI timestamp %lld %d,%d,%d,%d \n", timestamp, r.x, r.y, r.width,
                r.height);
    }
  }

  Filter& filter = *client.motionFilter;
  if (verdict.voted) filter.updateBuffer(verdict.vote);
  const float score = filter.ratio;
  const bool motion = filter.full && static_cast<double>(score) > kMotionRatio;
  {
    std::lock_guard<std::mutex> lock(client.motionStatus->lock);
    client.motionStatus->motionDetected = motion;
    client.motionStatus->filterScore = score;
    client.motionStatus->frameTimestamp = timestamp;
    client.motionStatus->wallClockSeconds = time(nullptr);
  }
  client.saveOutput(motion ? PRESENCE_MOTION : PRESENCE_NO_MOTION, score, timestamp, client.regions,
                    nullptr);
}

bool lastGuardReport(const HDSMLClient& client, GuardReport& out) {
  const ClientExtensions* extensions = findExtensions(&client);
  if (extensions == nullptr || !extensions->guards) return false;
  out = extensions->guards->report();
  return true;
}

}  // namespace hdsml
