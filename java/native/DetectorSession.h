// One open org.hdsml.PresenceDetector: the library's process-wide facade and
// the forwarding of its messages to Java, from open() to the destructor. The
// Java side calls it under its locks: detect() and read() on one thread at a
// time, the state calls one at a time, and the destructor only once neither is
// running.
#pragma once

#include <jni.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "java/native/JavaLogForwarder.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace hdsml_jni {

// One frame's planes, already checked by the Java side against the geometry.
struct Frame {
  unsigned char* y;
  unsigned char* u;
  unsigned char* v;
  int yPixelStride, yRowStride, uPixelStride, uRowStride, vPixelStride, vRowStride;
  int width, height;
  int64_t timestamp;
  int32_t exposureTime;
  bool lensMoving;
};

// The slots of the array org.hdsml.DetectionResult is built from.
enum ResultSlot {
  kStatus,
  kConfidence,  // float bits, as are the other floats
  kDecisionTimestamp,
  kDecisionWallClock,
  kFresh,
  kMotionDetected,
  kMotionScore,
  kMotionFrameTimestamp,
  kMotionWallClock,
  kDetectTime,
  kResultSlots
};

class DetectorSession {
 public:
  // `logTarget` is the org.hdsml.LogForwarder that gets the messages.
  DetectorSession(JNIEnv* env, jobject logTarget);
  // Destroys the facade (stopping the motion thread) and restores the default log sink.
  ~DetectorSession();
  DetectorSession(const DetectorSession&) = delete;
  DetectorSession& operator=(const DetectorSession&) = delete;

  // Creates the facade. False when the configuration file cannot be opened;
  // the configuration's own errors escape as the library raises them. Either
  // way no facade is left behind.
  bool open(const std::string& configPath, bool debug);

  // Hands the frame to the facade and reads its fields into `result`.
  void detect(const Frame& frame, int64_t result[kResultSlots]);
  // The facade's fields as the last detect() left them, with no time spent:
  // what a frame the Java side keeps from the library gets.
  void read(int64_t result[kResultSlots]) const;
  // `state`: 0 motion, 1 presence, 2 absence.
  void setState(int state, int frameRate, int64_t timestamp, const char* reason);
  // Pauses the library, then waits (`timeout` at most) for the analysis of a
  // frame it had already taken: the Java side hands over no frame meanwhile, so
  // nothing is analysed once this returns true.
  bool pause(std::chrono::milliseconds timeout);
  void resume();
  bool flushLog(std::chrono::milliseconds timeout) { return log_.flush(timeout); }

  detector_wrapper::PresenceDetectorWrapper* facade() const { return facade_; }

 private:
  JavaLogForwarder log_;
  detector_wrapper::PresenceDetectorWrapper* facade_ = nullptr;
};

}  // namespace hdsml_jni
