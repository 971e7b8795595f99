// The library's one entry point for a camera application. The host calls
// initialize() once with a JSON configuration, hands every preview frame to
// detect(), reports its detection state through stateChange(), and reads the
// results from the fields of the process-wide object that initialize() returns.
//
// There is exactly one facade object per process; pause/resume/detect/
// stateChange act on it whatever object they are called on. detect() runs on
// the camera thread, the others on the host's control thread. The fields are
// written without a lock and are meant to be read by the thread that called
// detect(), after it returns. Their order and widths are a binary interface.
#pragma once

#include <cstdint>

#include "client/camera_metadata.h"
#include "hdsml_export.h"

class HDSMLClient;

namespace detector_wrapper {

class HDSML_EXPORT PresenceDetectorWrapper {
 public:
  PresenceDetectorWrapper();
  ~PresenceDetectorWrapper();
  PresenceDetectorWrapper(const PresenceDetectorWrapper&) = delete;
  PresenceDetectorWrapper& operator=(const PresenceDetectorWrapper&) = delete;

  // Creates the process-wide object and its client. Returns null when the
  // configuration file cannot be opened (the object stays installed with a
  // null client; call destroy()). Configuration errors escape as exceptions.
  // A second call without destroy() leaves the first object and its client,
  // motion thread included, running and unreachable until the process ends.
  static PresenceDetectorWrapper* initialize(const char* configPath, bool debug);
  // Deletes the process-wide object; does nothing when there is none.
  static void destroy();

  void pause();
  void resume();
  // One YUV 4:2:0 preview frame: u is the first chroma plane, v the second.
  // Returns without waiting for the frame to be analysed.
  void detect(unsigned char* y, unsigned char* u, unsigned char* v, int width, int height,
              int yPixelStride, int yRowStride, int uPixelStride, int uRowStride, int vPixelStride,
              int vRowStride, long long timestamp, camera_metadata& metadata, int unused);
  // stateName: "DETECT_MOTION", "DETECT_PRESENCE" or "DETECT_ABSENCE".
  void stateChange(const char* stateName, int frameRate, long long timestamp, const char* reason);

  HDSMLClient* client = nullptr;     // owned; null when initialize failed
  int32_t state = 0;                 // HDSState of the last accepted state name
  int32_t status = 5;                // PresenceStatus reported to the host
  float detectTimeMs = 0.0f;         // wall time of the last detect()
  float confidence = 0.0f;           // score that came with the last decision
  int32_t detectCount = 1;           // 1 + number of detect() calls, wrapping at 2^32
  int64_t outputFrameTimestamp = 0;  // frame timestamp of the last decision
  int64_t outputWallClock = 0;       // calendar seconds of the last decision
  int64_t stateChangeTimestamp = 0;  // timestamp given to the last stateChange()
  int32_t frameResult = 0;           // result of the client's intake for the last frame
  bool motionDetected = false;       // filtered motion vote of the last analysed frame
  float motionScore = 0.0f;          // the vote filter's ratio for that frame
  int64_t motionFrameTimestamp = 0;  // timestamp of that frame
  int64_t motionWallClock = 0;       // calendar seconds when it was voted on
};

}  // namespace detector_wrapper
