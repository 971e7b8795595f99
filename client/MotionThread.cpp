// The motion thread and the state entry points that steer it.
#include <ctime>

#include "client/ClientExtensions.h"
#include "client/GuardedAnalysis.h"
#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "conditioning/Filter.h"
#include "conditioning/LightEstimator.h"
#include "diagnostics/Log.h"
#include "frames/Buffer.h"
#include "frames/FrameData.h"
#include "motion/SceneGuards.h"
#include "motion/motionDetector.h"
#include "motion/vantorData.h"

namespace {
constexpr int kNormalLightFilterLength = 12;
constexpr int kLowLightFilterLength = 5;
// Compared as a double against the filter's single-precision ratio: with a
// window of 5, the float 4/5 widens to just above 0.8, so 4 of 5 votes count.
constexpr double kMotionRatio = 0.8;
}  // namespace

void HDSMLClient::lookForMotion() {
  // Attached by the constructor before this thread started; null without guards.
  const ClientExtensions* extensions = hdsml::findExtensions(this);
  hdsml::SceneGuards* guards = extensions != nullptr ? extensions->guards.get() : nullptr;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(stateMutex);
      wakeCv.wait(lock, [this] { return detectionActive || stopRequested; });
    }
    if (stopRequested) break;

    FrameData* frame = frameQueue->pop_front();
    // A pause is honoured by the first pass after it, with or without a frame.
    if (paused) {
      paused = false;
      detector->clear();
      motionFilter->clear();
      if (guards != nullptr) guards->restart();
    }
    if (frame == nullptr) continue;

    if (frame->metadata.lensMoving == 1) {
      hdsml::logPuts("LENS IS MOVING - SO SKIPPING!");
      frame->decRef();
      continue;
    }
    const int lightBefore = normalLight;
    switchLightMode(frame->lightMode);
    if (guards == nullptr) {
      analyse(*frame);
    } else {
      // The guards keep their own ring across a switch, and the new filter
      // starts from the latest votes rather than from nothing.
      if (normalLight != lightBefore) {
        guards->refill(*motionFilter);
        guards->noteLightSwitch();
      }
      hdsml::analyseGuarded(*this, *frame, *guards);
    }
    frame->decRef();
  }

  // Notify while holding the lock: once the destructor can see
  // motionThreadDone it frees this object, condition variable included.
  std::lock_guard<std::mutex> lock(threadExitMutex);
  motionThreadDone = true;
  threadExitCv.notify_one();
}

// Swaps algorithm and vote filter when the frame's light mode differs from the
// running one. Mode 2 (not known yet) keeps whatever runs. A new filter starts
// empty, so past votes never carry over a switch.
void HDSMLClient::switchLightMode(int lightMode) {
  if (lightMode == 0 && normalLight != 0) {
    detector->setAlgoType("FrameDiffLowLight", motionResW, motionResH);
    normalLight = 0;
    motionFilter.reset();
    motionFilter = std::make_unique<Filter>(kLowLightFilterLength);
    hdsml::logPuts("Switching to low light frame differencing");
  } else if (lightMode == 1 && normalLight != 1) {
    detector->setAlgoType("FrameDiff", motionResW, motionResH);
    normalLight = 1;
    motionFilter.reset();
    motionFilter = std::make_unique<Filter>(kNormalLightFilterLength);
    hdsml::logPuts("Switching to high light frame differencing");
  }
}

void HDSMLClient::analyse(FrameData& frame) {
  const long long timestamp = frame.timestamp;
  detector->setImage(frame.image);
  if (debugEnabled)
    hdsml::logPrintf("[MOTION FPS] Motion thread processing frame %lld\n", timestamp);

  detector->runAlgo(true);
  vantorData* data = nullptr;
  detector->getAlgoOutput(data);
  auto* list = dynamic_cast<vantorList<std::pair<cv::Rect, float>>*>(data);
  if (list != nullptr)
    list->getList(regions);
  else
    regions.clear();
  hdsml::publishVote(*this, true, !regions.empty(), timestamp);
}

namespace hdsml {

void publishVote(HDSMLClient& client, bool voted, bool vote, long long timestamp) {
  if (client.debugEnabled) {
    for (const auto& region : client.regions) {
      const cv::Rect& r = region.first;
      logPrintf("*#*# MotionROI timestamp %lld %d,%d,%d,%d \n", timestamp, r.x, r.y, r.width,
                r.height);
    }
  }

  Filter& filter = *client.motionFilter;
  if (voted) filter.updateBuffer(vote);
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

}  // namespace hdsml

void HDSMLClient::stateChange(HDSState newState, const char* /*reason*/, int rate) {
  std::lock_guard<std::mutex> lock(stateMutex);
  state = newState;
  frameRate = static_cast<float>(rate);
  switch (newState) {
    case DETECT_PRESENCE:
      hdsml::logPuts("State changed to DETECT_PRESENCE");
      detectionActive = false;
      break;
    case DETECT_ABSENCE:
      hdsml::logPuts("State changed to DETECT_ABSENCE");
      detectionActive = true;
      break;
    case DETECT_MOTION:
      hdsml::logPuts("State changed to DETECT_MOTION");
      detectionActive = true;
      break;
  }
  wakeCv.notify_one();
}

void HDSMLClient::pause() {
  std::lock_guard<std::mutex> lock(stateMutex);
  detectionActive = false;
  paused = true;
  frameQueue->clear();
  lightEstimator->clear();
  hdsml::logPuts("HDSMLClient Paused");
}

void HDSMLClient::resume() {
  lastMotionTimestamp = -1;
  stateChange(static_cast<HDSState>(state.load()), nullptr, 30);
  hdsml::logPuts("HDSMLClient Resumed");
}

MotionStatus HDSMLClient::queryMotionDetector() {
  std::lock_guard<std::mutex> lock(motionStatus->lock);
  return *motionStatus;
}
