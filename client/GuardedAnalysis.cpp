#include "client/GuardedAnalysis.h"

#include "client/ClientExtensions.h"
#include "client/HDSMLClient.h"
#include "diagnostics/Log.h"
#include "frames/FrameData.h"
#include "motion/SceneGuards.h"

namespace hdsml {

void analyseGuarded(HDSMLClient& client, FrameData& frame, SceneGuards& guards) {
  const long long timestamp = frame.timestamp;
  if (client.debugEnabled)
    logPrintf("[MOTION FPS] Motion thread processing frame %lld\n", timestamp);

  const SceneGuards::Verdict verdict =
      guards.analyse(frame.image.data, frame.metadata.exposureTime, timestamp,
                     client.normalLight == 0, client.regions);
  publishVote(client, verdict.voted, verdict.vote, timestamp);
}

bool lastGuardReport(const HDSMLClient& client, GuardReport& out) {
  const ClientExtensions* extensions = findExtensions(&client);
  if (extensions == nullptr || !extensions->guards) return false;
  out = extensions->guards->report();
  return true;
}

}  // namespace hdsml
