#include "wrapper/PresenceDetectorWrapper.h"

#include <atomic>
#include <cstddef>
#include <cstring>

#include "client/HDSMLClient.h"
#include "frames/Timer.h"

namespace detector_wrapper {

// The host reads the object's fields directly, so their offsets are part of the
// binary interface (64-bit hosts).
#if UINTPTR_MAX == UINT64_MAX
static_assert(offsetof(PresenceDetectorWrapper, client) == 0, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, state) == 8, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, status) == 12, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, detectTimeMs) == 16, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, confidence) == 20, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, detectCount) == 24, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, outputFrameTimestamp) == 32, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, outputWallClock) == 40, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, stateChangeTimestamp) == 48, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, frameResult) == 56, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, motionDetected) == 60, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, motionScore) == 64, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, motionFrameTimestamp) == 72, "facade layout");
static_assert(offsetof(PresenceDetectorWrapper, motionWallClock) == 80, "facade layout");
static_assert(sizeof(PresenceDetectorWrapper) == 88, "facade layout");
#endif
static_assert(sizeof(bool) == 1, "motionDetected is one byte");

namespace {

// The process-wide facade object. initialize() and destroy() run on the host's
// control thread and detect() on its camera thread; the host orders them.
std::atomic<PresenceDetectorWrapper*> instance{nullptr};

constexpr const char* kDebugLogPath = "/data/logs/HDSML_debug.txt";

}  // namespace

PresenceDetectorWrapper::PresenceDetectorWrapper() = default;

PresenceDetectorWrapper::~PresenceDetectorWrapper() {
  HDSMLClient::destroy(client);
  client = nullptr;
}

PresenceDetectorWrapper* PresenceDetectorWrapper::initialize(const char* configPath, bool debug) {
  // A second initialize() without destroy() leaves the first object behind, as
  // the host is expected to destroy before initialising again.
  auto* facade = new PresenceDetectorWrapper();
  instance = facade;
  facade->client = HDSMLClient::initialize(configPath, debug, kDebugLogPath);
  return facade->client != nullptr ? facade : nullptr;
}

void PresenceDetectorWrapper::destroy() { delete instance.exchange(nullptr); }

// The member functions below act on the process-wide object whatever object
// they are called on. They also do nothing without a client (after a failed
// initialize), where the host would otherwise crash the camera process.
void PresenceDetectorWrapper::pause() {
  PresenceDetectorWrapper* self = instance;
  if (self != nullptr && self->client != nullptr) self->client->pause();
}

void PresenceDetectorWrapper::resume() {
  PresenceDetectorWrapper* self = instance;
  if (self != nullptr && self->client != nullptr) self->client->resume();
}

void PresenceDetectorWrapper::detect(unsigned char* y, unsigned char* u, unsigned char* v,
                                     int width, int height, int yPixelStride, int yRowStride,
                                     int uPixelStride, int uRowStride, int vPixelStride,
                                     int vRowStride, long long timestamp, camera_metadata& metadata,
                                     int /*unused*/) {
  PresenceDetectorWrapper* self = instance;
  if (self == nullptr || self->client == nullptr) return;
  HDSMLClient& c = *self->client;

  Orv::Timer timer;
  timer.start();
  self->frameResult =
      c.cameraFrameData(y, u, v, width, height, yPixelStride, yRowStride, uPixelStride, uRowStride,
                        vPixelStride, vRowStride, timestamp, &metadata, 0);
  PresenceOutput out;
  {
    std::lock_guard<std::mutex> lock(c.outputMutex);
    out = c.output;
  }
  self->confidence = out.confidence;
  self->outputFrameTimestamp = out.frameTimestamp;
  self->outputWallClock = out.wallClockSeconds;

  const MotionStatus motion = c.queryMotionDetector();
  self->motionDetected = motion.motionDetected;
  self->motionScore = motion.filterScore;
  self->motionFrameTimestamp = motion.frameTimestamp;
  self->motionWallClock = motion.wallClockSeconds;

  // A decision made on a frame older than the last state change belongs to the
  // previous state and is not reported.
  if (self->outputFrameTimestamp >= __atomic_load_n(&self->stateChangeTimestamp, __ATOMIC_RELAXED))
    self->status = out.status;

  timer.stop();
  self->detectTimeMs = static_cast<float>(timer.getElapsedTimeInMilliSeconds());
  // 2^31 calls come after 2 years at 30 frames a second, or 20 minutes of a
  // host calling as fast as it can: the count wraps (defined) instead of
  // overflowing.
  self->detectCount = static_cast<int32_t>(static_cast<uint32_t>(self->detectCount) + 1u);
}

void PresenceDetectorWrapper::stateChange(const char* stateName, int frameRate, long long timestamp,
                                          const char* reason) {
  PresenceDetectorWrapper* self = instance;
  if (self == nullptr) return;
  // Read by detect() on the camera thread; the field's layout is fixed, so the
  // access is made atomic in place.
  __atomic_store_n(&self->stateChangeTimestamp, static_cast<int64_t>(timestamp), __ATOMIC_RELAXED);
  if (stateName != nullptr) {
    if (std::strcmp(stateName, "DETECT_MOTION") == 0)
      self->state = DETECT_MOTION;
    else if (std::strcmp(stateName, "DETECT_PRESENCE") == 0)
      self->state = DETECT_PRESENCE;
    else if (std::strcmp(stateName, "DETECT_ABSENCE") == 0)
      self->state = DETECT_ABSENCE;
  }
  if (self->client != nullptr)
    self->client->stateChange(static_cast<HDSState>(self->state), reason, frameRate);
}

}  // namespace detector_wrapper
