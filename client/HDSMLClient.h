// HDSMLClient is the detection engine behind the exported facade. It owns the
// frame pool, the frame queue, the motion detector, the vote filter, the light
// estimator and one detached motion thread. Camera frames enter on the host's
// camera thread (cameraFrameData), are analysed on the motion thread
// (lookForMotion), and the resulting presence decision is left in `output`.
//
// Threads: cameraFrameData on the camera thread; stateChange, pause, resume and
// destruction on the host's control thread; lookForMotion on its own thread.
// Fields are public because they are the library's inspectable state; the lock
// that guards each shared one is named beside it.
#pragma once

#include <opencv2/core.hpp>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "frames/KernelPath.h"
#include "hdsml_export.h"

class Buffer;
class FrameData;
class Filter;
class LightEstimator;
class MemoryPool;
class motionDetector;
struct camera_metadata;

// The host's detection state.
enum HDSState { DETECT_MOTION = 0, DETECT_PRESENCE = 1, DETECT_ABSENCE = 2 };

// Outcome of one analysed frame (PRESENCE_MOTION / PRESENCE_NO_MOTION) and what
// the output record reports (PRESENCE_MOTION / PRESENCE_ABSENCE / PRESENCE_NONE).
enum PresenceStatus {
  PRESENCE_MOTION = 0,
  PRESENCE_ABSENCE = 2,
  PRESENCE_NO_MOTION = 3,
  PRESENCE_NONE = 5,
};

// The client's last report to the host; guarded by HDSMLClient::outputMutex.
struct PresenceOutput {
  int32_t status = PRESENCE_NONE;  // a PresenceStatus
  float confidence = 0.0f;         // filter ratio for motion, 1.0 for absence
  int64_t frameTimestamp = 0;      // timestamp of the frame the report was made on
  int64_t wallClockSeconds = 0;    // time(nullptr) when the report was made
};

// The filtered vote of the last analysed frame. Written whole under `lock` by
// the motion thread; copies carry the values and get a fresh, unlocked mutex.
struct HDSML_EXPORT MotionStatus {
  MotionStatus() = default;
  MotionStatus(const MotionStatus& other);
  MotionStatus& operator=(const MotionStatus& other);

  std::mutex lock;
  bool motionDetected = false;
  float filterScore = 0.0f;
  int64_t frameTimestamp = 0;
  int64_t wallClockSeconds = 0;
};

// Reads the absence threshold from the system property "persist.hds.cv.absence"
// (on other hosts the environment variable PERSIST_HDS_CV_ABSENCE). Returns -1
// when it is unset or empty, and after a message when its value does not fit in
// 64 bits. Digits are not validated: each character counts as its code - 48.
HDSML_EXPORT int64_t getPropValForAbsence();

// Nearest-neighbour shrink of three strided YUV 4:2:0 planes into one packed
// planar image (luma, then the plane of `u`, then the plane of `v`) of
// outWidth x outHeight, stepping in 1/32-pixel fixed point (64-bit steps and
// positions, so any int size is exact). Note the order: heights before widths.
// Does nothing when a size or a step is 0.
HDSML_EXPORT void destride(unsigned char* y, unsigned char* u, unsigned char* v, int height,
                           int width, int yPixelStride, int yRowStride, int uPixelStride,
                           int uRowStride, int vPixelStride, int vRowStride, int outHeight,
                           int outWidth, unsigned char* out);

class HDSML_EXPORT HDSMLClient {
 public:
  using RegionList = std::vector<std::pair<cv::Rect, float>>;

  // Returns null, after a message, when `configPath` cannot be opened or is a
  // directory. Configuration errors (bad JSON, missing or invalid keys) escape
  // as the exceptions listed in client/ClientConfiguration.h, naming the file
  // and the key.
  static HDSMLClient* initialize(const char* configPath, bool debug, const char* logPath);
  static void destroy(HDSMLClient* client);

  // `logPath` is accepted for the host's sake and not used: no log file is written.
  HDSMLClient(const char* configPath, bool debug, const char* logPath);
  ~HDSMLClient();
  HDSMLClient(const HDSMLClient&) = delete;
  HDSMLClient& operator=(const HDSMLClient&) = delete;

  // Frame intake on the camera thread; never blocks on the motion thread and
  // always returns 0. `metadata` may be null; the last argument is unused.
  // Frames too small to shrink to the motion resolution are dropped.
  int cameraFrameData(unsigned char* y, unsigned char* u, unsigned char* v, int width, int height,
                      int yPixelStride, int yRowStride, int uPixelStride, int uRowStride,
                      int vPixelStride, int vRowStride, long long timestamp,
                      camera_metadata* metadata, int unused);

  // Control thread: steer the motion thread. `reason` is not used.
  void stateChange(HDSState state, const char* reason, int rate);
  void pause();
  void resume();
  MotionStatus queryMotionDetector();

  // The motion thread's body; returns once stopRequested is seen.
  void lookForMotion();
  // Turns one frame's outcome into the output record (motion thread).
  void saveOutput(PresenceStatus status, float score, long long frameTimestamp, RegionList& regions,
                  FrameData* frame);
  // Hook through which decisions could attach an image; deliberately empty.
  void log(std::string label, cv::Mat& image, bool flag);
  // Sets up yuvBuffer and its single-channel view yuvImage.
  void initializeAllignedImageBuffers();

  // Which intake runs: kVector, the fused kernel (FusedIntake: shrink and
  // conversion in one pass), or kPlain, destride into yuvBuffer and
  // cv::cvtColor. Both give the same bytes. Construction picks kVector when
  // defaultKernelPath() does and the kernel agrees with this process's OpenCV
  // (IntakeSelfCheck.h). Camera thread, between frames.
  void setIntakeKernelPath(KernelPath path);
  KernelPath intakeKernelPath() const;

  std::unique_ptr<MotionStatus> motionStatus;
  std::unique_ptr<Filter> motionFilter;      // motion thread only
  std::unique_ptr<motionDetector> detector;  // motion thread only (after construction)
  std::unique_ptr<MemoryPool> framePool;     // newFrame() from the camera thread only
  int32_t reserved0;
  std::unique_ptr<Buffer> frameQueue;
  std::atomic<int32_t> state{DETECT_MOTION};  // an HDSState
  float frameRate = 30.0f;                    // rate given with the last state change
  std::atomic<bool> stopRequested{false};
  std::mutex outputMutex;      // guards output
  std::mutex threadExitMutex;  // guards motionThreadDone
  std::mutex stateMutex;       // guards detectionActive; serialises state changes and pause
  std::mutex reservedMutex;
  std::atomic<int64_t> lastMotionTimestamp{-1};  // absence timer start; -1 = not started
  int64_t absenceThreshold = 5000;               // in the host's timestamp units
  std::thread motionThread;                      // detached at once; ended by the exit handshake
  bool motionThreadDone = false;
  bool detectionActive = false;
  std::atomic<bool> paused{false};  // one-shot request to reset detector and filter
  bool debugEnabled = false;
  cv::Mat yuvImage;  // single-channel view of yuvBuffer, motionResH * 3/2 rows
  cv::Mat workImage;
  unsigned char* yuvBuffer = nullptr;  // packed planar 4:2:0 at motion resolution
  int32_t reserved1 = 0;
  std::condition_variable threadExitCv;  // with threadExitMutex: the motion thread has ended
  std::condition_variable wakeCv;        // with stateMutex: detection switched on, or stop
  std::condition_variable reservedCv;
  PresenceOutput output;
  int32_t motionResW = 0;
  int32_t motionResH = 0;
  std::atomic<bool> reservedFlags[2] = {false, false};
  // Rectangles of the last analysed frame, in motion-resolution coordinates.
  // Written by the motion thread; kept as a member so no frame allocates.
  RegionList regions;
  int32_t reservedWords[3];
  // Light mode of the running algorithm: 1 "FrameDiff" (filter of 12), 0
  // "FrameDiffLowLight" (filter of 5). Written by the motion thread and read by
  // intake for frames without metadata, hence atomic.
  std::atomic<int32_t> normalLight{1};
  float lightScore = -1.0f;
  // Last exposure seen by intake; starts at a value no camera reports so that the
  // first frame's exposure is always printed.
  int32_t lastExposure = -1;
  std::unique_ptr<LightEstimator> lightEstimator;

 private:
  void switchLightMode(int lightMode);
  void analyse(FrameData& frame);
};
