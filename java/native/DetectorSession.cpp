#include "java/native/DetectorSession.h"

#include <cstring>
#include <stdexcept>

#include "client/camera_metadata.h"

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

  // The fields detect() just wrote, on the thread that called it, as the
  // facade means them to be read. Only stateChangeTimestamp may be written
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
  result[kDetectTime] = bitsOf(d.detectTimeMs);
}

void DetectorSession::setState(int state, int frameRate, int64_t timestamp, const char* reason) {
  if (state < 0 || state > 2) throw std::invalid_argument("unknown state");
  facade_->stateChange(kStateNames[state], frameRate, timestamp, reason);
}

void DetectorSession::pause() { facade_->pause(); }

void DetectorSession::resume() { facade_->resume(); }

}  // namespace hdsml_jni
