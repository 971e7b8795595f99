// Frame intake on the camera thread: exposure to light estimate, strided YUV
// planes shrunk to the motion resolution and converted to colour in a pooled
// frame record (in one pass by FusedIntake, or by destride, in Destride.cpp,
// and cv::cvtColor), and hand-over to the motion thread.
#include <opencv2/imgproc.hpp>

#include <cstdint>

#include "client/ClientExtensions.h"
#include "client/Destride.h"
#include "client/FusedIntake.h"
#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "conditioning/LightEstimator.h"
#include "diagnostics/Log.h"
#include "frames/Buffer.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"

int HDSMLClient::cameraFrameData(unsigned char* y, unsigned char* u, unsigned char* v, int width,
                                 int height, int yPixelStride, int yRowStride, int uPixelStride,
                                 int uRowStride, int vPixelStride, int vRowStride,
                                 long long timestamp, camera_metadata* metadata, int /*unused*/) {
  int lightMode = normalLight;
  if (metadata != nullptr) {
    if (metadata->exposureTime != lastExposure) {
      lastExposure = metadata->exposureTime;
      hdsml::logPrintf("Camera exposure time in microseconds %ld\n",
                       static_cast<long>(lastExposure));
    }
    // An exposure of 0 or below means "unknown" (the record's default is -1):
    // it would feed an infinity or a huge negative level that the running
    // single-precision sum never recovers from, so it carries no light sample.
    if (metadata->exposureTime > 0)
      lightEstimator->estimate(1000000000.0f / static_cast<float>(metadata->exposureTime));
    lightMode = lightEstimator->getLightMode();
  }
  if (state == DETECT_PRESENCE) return 0;
  // A frame that cannot be shrunk (a size below 1, or under 1/32 of the motion
  // resolution) would leave the packed buffer as the previous frame left it,
  // and that stale picture would be analysed under this frame's timestamp.
  if (width < 1 || height < 1 || destrideStep(width, motionResW) == 0 ||
      destrideStep(height, motionResH) == 0)
    return 0;

  FrameData* frame = framePool->newFrame();
  // Both records held: drop the frame; the motion thread works on a newer one soon.
  // An empty image means an allocation failed at start-up: nothing to convert into.
  if (frame == nullptr || yuvImage.empty() || frame->image.empty()) return 0;

  ClientExtensions* extensions = hdsml::findExtensions(this);
  if (extensions != nullptr && extensions->intakePath == KernelPath::kVector) {
    extensions->fusedIntake->run(YuvPlanes{y, u, v, width, height, yPixelStride, yRowStride,
                                           uPixelStride, uRowStride, vPixelStride, vRowStride},
                                 frame->image);
  } else {
    destride(y, u, v, height, width, yPixelStride, yRowStride, uPixelStride, uRowStride,
             vPixelStride, vRowStride, motionResH, motionResW, yuvBuffer);
    // The plane of `u` sits where YV12 keeps V: the planes are deliberately not
    // reordered, and both differencing rules are symmetric in the two chroma bytes.
    cv::cvtColor(yuvImage, frame->image, cv::COLOR_YUV2RGB_YV12);
  }
  frame->timestamp = timestamp;
  frame->lightMode = lightMode;
  if (metadata != nullptr) frame->metadata = *metadata;

  frameQueue->clear();
  frameQueue->push_front(frame);
  return 0;
}
