// The presence decision: motion reports in DETECT_MOTION, absence reports in
// DETECT_ABSENCE once no motion was seen for longer than the threshold.
#include <ctime>

#include "client/HDSMLClient.h"
#include "diagnostics/Log.h"
#include "frames/FrameData.h"

namespace {

// threshold < later - earlier, exactly, for all 64-bit values: a difference
// that does not fit in 64 bits is above every threshold when later > earlier
// and below every threshold otherwise.
bool exceeds(int64_t later, int64_t earlier, int64_t threshold) {
  int64_t elapsed;
  if (__builtin_sub_overflow(later, earlier, &elapsed)) return later > earlier;
  return threshold < elapsed;
}

}  // namespace

void HDSMLClient::saveOutput(PresenceStatus status, float score, long long frameTimestamp,
                             RegionList& /*regions*/, FrameData* frame) {
  std::lock_guard<std::mutex> lock(outputMutex);
  const int32_t currentState = state;

  if (status == PRESENCE_MOTION) {
    // Motion restarts the absence timer in every state.
    lastMotionTimestamp = frameTimestamp;
    if (currentState == DETECT_MOTION) {
      output.status = PRESENCE_MOTION;
      output.confidence = score;
      output.frameTimestamp = frameTimestamp;
      output.wallClockSeconds = time(nullptr);
      if (debugEnabled) hdsml::logPrintf("Motion Detected @ %lld \n", frameTimestamp);
      if (frame != nullptr) log("MOTION", frame->image, true);
    } else if (frame != nullptr) {
      log("MOTION", frame->image, false);
    }
  }

  if (currentState == DETECT_ABSENCE) {
    // The first frame after construction or resume() starts the timer.
    if (lastMotionTimestamp == -1) lastMotionTimestamp = frameTimestamp;
    const int64_t lastMotion = lastMotionTimestamp;
    if (exceeds(frameTimestamp, lastMotion, absenceThreshold)) {
      output.status = PRESENCE_ABSENCE;
      output.confidence = 1.0f;
      output.frameTimestamp = frameTimestamp;
      output.wallClockSeconds = time(nullptr);
      hdsml::logPrintf("Absence Detected @ %lld %lld %lld\n", frameTimestamp,
                       static_cast<long long>(lastMotion),
                       static_cast<long long>(absenceThreshold));
      if (frame != nullptr) log("ABSENCE", frame->image, true);
    }
  }
}
