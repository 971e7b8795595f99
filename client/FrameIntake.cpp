// Frame intake on the camera thread: exposure to light estimate, strided YUV
// planes shrunk to the motion resolution, colour conversion into a pooled frame
// record, and hand-over to the motion thread.
#include <opencv2/imgproc.hpp>

#include <cstdint>
#include <cstdio>

#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "conditioning/LightEstimator.h"
#include "frames/Buffer.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"

namespace {

// Steps are in 1/32 pixel: the fractional part keeps the sampling even without
// a division per sample.
constexpr int kFractionBits = 5;

// The step from `size` source samples to `outSize` output samples; 0 when the
// output is more than 32 times the source or `outSize` is 0. In 64 bits: a
// source of 2^26 samples or more no longer fits an int once shifted, and the
// accumulated positions reach 32 times the source size.
inline int64_t fixedPointStep(int size, int outSize) {
  return outSize == 0 ? 0 : static_cast<int64_t>(size) * (1 << kFractionBits) / outSize;
}

// Copies `outCols` samples of one source row, one every `step`/32 samples.
inline unsigned char* sampleRow(const unsigned char* row, int pixelStride, int64_t step,
                                int outCols, unsigned char* out) {
  int64_t ax = 0;
  for (int c = 0; c < outCols; ++c, ax += step)
    *out++ = row[static_cast<int64_t>(pixelStride) * (ax >> kFractionBits)];
  return out;
}

// Shrinks one plane and returns the next output position.
unsigned char* samplePlane(const unsigned char* plane, int pixelStride, int rowStride,
                           int64_t stepX, int64_t stepY, int outRows, int outCols,
                           unsigned char* out) {
  int64_t ay = 0;
  for (int r = 0; r < outRows; ++r, ay += stepY)
    out = sampleRow(plane + static_cast<int64_t>(rowStride) * (ay >> kFractionBits), pixelStride,
                    stepX, outCols, out);
  return out;
}

}  // namespace

void destride(unsigned char* y, unsigned char* u, unsigned char* v, int height, int width,
              int yPixelStride, int yRowStride, int uPixelStride, int uRowStride, int vPixelStride,
              int vRowStride, int outHeight, int outWidth, unsigned char* out) {
  if (outWidth == 0 || outHeight == 0) return;
  const int64_t stepX = fixedPointStep(width, outWidth);
  const int64_t stepY = fixedPointStep(height, outHeight);
  if (stepX == 0 || stepY == 0) return;

  // The chroma planes are half the source and the output half the output, so
  // the luma steps apply to them unchanged.
  out = samplePlane(y, yPixelStride, yRowStride, stepX, stepY, outHeight, outWidth, out);
  out = samplePlane(u, uPixelStride, uRowStride, stepX, stepY, outHeight >> 1, outWidth >> 1, out);
  samplePlane(v, vPixelStride, vRowStride, stepX, stepY, outHeight >> 1, outWidth >> 1, out);
}

int HDSMLClient::cameraFrameData(unsigned char* y, unsigned char* u, unsigned char* v, int width,
                                 int height, int yPixelStride, int yRowStride, int uPixelStride,
                                 int uRowStride, int vPixelStride, int vRowStride,
                                 long long timestamp, camera_metadata* metadata, int /*unused*/) {
  int lightMode = normalLight;
  if (metadata != nullptr) {
    if (metadata->exposureTime != lastExposure) {
      lastExposure = metadata->exposureTime;
      printf("Camera exposure time in microseconds %ld\n", static_cast<long>(lastExposure));
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
  if (width < 1 || height < 1 || fixedPointStep(width, motionResW) == 0 ||
      fixedPointStep(height, motionResH) == 0)
    return 0;

  FrameData* frame = framePool->newFrame();
  // Both records held: drop the frame; the motion thread works on a newer one soon.
  // An empty image means an allocation failed at start-up: nothing to convert into.
  if (frame == nullptr || yuvImage.empty() || frame->image.empty()) return 0;

  destride(y, u, v, height, width, yPixelStride, yRowStride, uPixelStride, uRowStride, vPixelStride,
           vRowStride, motionResH, motionResW, yuvBuffer);
  // The plane of `u` sits where YV12 keeps V: the planes are deliberately not
  // reordered, and both differencing rules are symmetric in the two chroma bytes.
  cv::cvtColor(yuvImage, frame->image, cv::COLOR_YUV2RGB_YV12);
  frame->timestamp = timestamp;
  frame->lightMode = lightMode;
  if (metadata != nullptr) frame->metadata = *metadata;

  frameQueue->clear();
  frameQueue->push_front(frame);
  return 0;
}
