#include "java/native/DetectorSession.h"

#include <cstring>
#include <stdexcept>
#include <thread>

#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"

namespace hdsml_jni {
namespace {

using detector_wrapper::PresenceDetectorWrapper;

const char* const kStateNames[] = {"DETECT_MOTION", "DETECT_PRESENCE", "DETECT_ABSENCE"};

int64_t bitsOf(float value) {
  int32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

}  // namespace

DetectorSession::DetectorSession(JNIEnv* env, jobject logTarget) : log_(env, logTarget) {}

DetectorSession::~DetectorSession() {
  if (facade_ != nullptr) PresenceDetectorWrapper::destroy();
  log_.uninstall();
}

bool DetectorSession::open(const std::string& configPath, bool debug) {
  log_.install();
  try {
    facade_ = PresenceDetectorWrapper::initialize(configPath.c_str(), debug);
  } catch (...) {
    // A configuration error leaves the facade installed without a client.
    PresenceDetectorWrapper::destroy();
    log_.uninstall();
    throw;
  }
  if (facade_ == nullptr) {
    PresenceDetectorWrapper::destroy();
    log_.uninstall();
    return false;
  }
  return true;
}

void DetectorSession::detect(const Frame& f, int64_t result[kResultSlots]) {
  camera_metadata metadata;
  metadata.exposureTime = f.exposureTime;
  metadata.lensMoving = f.lensMoving ? 1 : 0;
  facade_->detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                  f.uRowStride, f.vPixelStride, f.vRowStride, f.timestamp, metadata, 0);
  read(result);
  result[kDetectTime] = bitsOf(facade_->detectTimeMs);
}

void DetectorSession::read(int64_t result[kResultSlots]) const {
  // The fields the last detect() wrote, read on the thread that called it or
  // on one the Java side's frame lock orders after it, as the facade means them
  // to be read. Only stateChangeTimestamp may be written
  // meanwhile (by setState on another thread): read it as the facade does.
  const PresenceDetectorWrapper& d = *facade_;
  result[kStatus] = d.status;
  result[kConfidence] = bitsOf(d.confidence);
  result[kDecisionTimestamp] = d.outputFrameTimestamp;
  result[kDecisionWallClock] = d.outputWallClock;
  result[kFresh] =
      d.outputFrameTimestamp >= __atomic_load_n(&d.stateChangeTimestamp, __ATOMIC_RELAXED);
  result[kMotionDetected] = d.motionDetected;
  result[kMotionScore] = bitsOf(d.motionScore);
  result[kMotionFrameTimestamp] = d.motionFrameTimestamp;
  result[kMotionWallClock] = d.motionWallClock;
  result[kDetectTime] = bitsOf(0.0f);
}

void DetectorSession::setState(int state, int frameRate, int64_t timestamp, const char* reason) {
  if (state < 0 || state > 2) throw std::invalid_argument("unknown state");
  facade_->stateChange(kStateNames[state], frameRate, timestamp, reason);
}

bool DetectorSession::pause(std::chrono::milliseconds timeout) {
  facade_->pause();
  // A frame record stays held from the moment it is queued until its decision
  // is written. The pause emptied the queue, so a record still held is the
  // frame being analysed; its decision, written after a resume(), would start
  // the new absence timer at that old frame's time.
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (int spin = 0;; ++spin) {
    bool held = false;
    for (FrameData* frame : facade_->client->framePool->frames) held |= frame->getRef() != 0;
    if (!held) return true;
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (spin < 100)
      std::this_thread::yield();
    else
      std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

void DetectorSession::resume() { facade_->resume(); }

}  // namespace hdsml_jni
