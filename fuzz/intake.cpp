// Fuzzes frame intake with arbitrary but consistent geometry: planes allocated
// to exactly the bytes their sizes and strides address, from empty to 2^26 and
// more samples a row, interleaved or planar chroma, padded rows, rows stored
// bottom-up (negative row strides). Checks that
//   - destride samples exactly the bytes its fixed-point rule names, every one
//     of them inside its plane, and writes exactly its output (or nothing when
//     a step is 0);
//   - cameraFrameData queues the frame exactly when it can be shrunk to the
//     client's motion resolution, reads only inside the planes, and fills the
//     record with the bytes destride and cv::cvtColor make of the frame.
//
// Input layout (missing bytes read as 0):
//   0..3   source width, little-endian, top bit ignored
//   4..7   source height, likewise
//   8      bits 0-1: luma pixel stride - 1; bit 2: planar chroma pixel stride 2
//   9      bit 0: interleaved chroma (pixel stride 2, one buffer); bit 1: the
//          second pointer (U) is the later byte (NV21 rather than NV12);
//          bit 2: rows bottom-up
//   10, 11 luma and chroma row padding, bytes
//   12, 13 output width and height of the direct destride call, modulo 65
//   14..17 exposure time in the metadata, little-endian
#include <unistd.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "frames/Buffer.h"
#include "frames/FrameData.h"

namespace {

// Planes are allocated but only the sampled bytes are written, so a large bound
// costs address space, not memory; it still keeps 2^26-sample rows in reach.
constexpr int64_t kMaxTotalBytes = int64_t{1} << 28;
// Small, so that a huge frame touches few pages, yet with the drop rule in play:
// frames under 2x2 samples cannot be shrunk to it.
constexpr int kMotionW = 64, kMotionH = 48;

HDSMLClient* gClient = nullptr;
int64_t gTimestamp = 0;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "intake fuzzer: %s\n", what);
  std::abort();
}

// A plane inside an allocated buffer (interleaved chroma planes share one).
struct Plane {
  uint8_t* buffer = nullptr;
  int64_t bytes = 0;
  uint8_t* origin = nullptr;  // the pointer handed over: first sample of the first row
  int pixelStride = 1, rowStride = 0;

  bool contains(const uint8_t* p) const { return p >= buffer && p < buffer + bytes; }
};

uint32_t readLE(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }

// Bytes from the first sample to the last of a cols x rows plane; 0 when empty.
int64_t span(int64_t cols, int64_t rows, int64_t pixelStride, int64_t rowStride) {
  return cols < 1 || rows < 1 ? 0 : (rows - 1) * rowStride + (cols - 1) * pixelStride + 1;
}

// Points the plane at its first sample, `offset` bytes into the buffer; stored
// bottom-up, the first row is the buffer's last and the row stride negative.
void place(Plane& plane, uint8_t* buffer, int64_t bytes, int64_t offset, int64_t rows,
           bool bottomUp) {
  plane.buffer = buffer;
  plane.bytes = bytes;
  plane.origin = buffer + offset;
  if (bottomUp && rows > 1) {
    plane.origin += (rows - 1) * int64_t{plane.rowStride};
    plane.rowStride = -plane.rowStride;
  }
}

// Writes a value derived from each sampled position, then reads back what the
// output must hold: several outputs may share a position. Fails when a sample
// lies outside its plane.
void expectSamples(const Plane& plane, int rows, int cols, int64_t sx, int64_t sy, int salt,
                   std::vector<uint8_t>& expected) {
  for (int pass = 0; pass < 2; ++pass)
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        uint8_t* p =
            plane.origin + plane.rowStride * ((r * sy) >> 5) + plane.pixelStride * ((c * sx) >> 5);
        if (!plane.contains(p)) fail("a sample lies outside its plane");
        if (pass == 0) *p = static_cast<uint8_t>(1 + (r * 31 + c * 7 + salt) % 251);
        if (pass == 1) expected.push_back(*p);
      }
}

void checkDestride(const Plane& y, const Plane& u, const Plane& v, int width, int height, int outW,
                   int outH) {
  const size_t outBytes = size_t(outW) * outH + 2 * size_t(outW / 2) * (outH / 2);
  // Exactly the output's size, so that AddressSanitizer sees one byte too many.
  std::vector<uint8_t> out(outBytes, 0), expected;
  const int64_t sx = outW == 0 ? 0 : int64_t{width} * 32 / outW;
  const int64_t sy = outH == 0 ? 0 : int64_t{height} * 32 / outH;
  if (sx > 0 && sy > 0) {
    expectSamples(y, outH, outW, sx, sy, 0, expected);
    expectSamples(u, outH / 2, outW / 2, sx, sy, 50, expected);
    expectSamples(v, outH / 2, outW / 2, sx, sy, 100, expected);
  } else {
    expected.assign(outBytes, 0);
  }
  destride(y.origin, u.origin, v.origin, height, width, y.pixelStride, y.rowStride, u.pixelStride,
           u.rowStride, v.pixelStride, v.rowStride, outH, outW, out.data());
  if (out != expected) fail("destride sampled other bytes than its rule names");
}

void checkIntake(const Plane& y, const Plane& u, const Plane& v, int width, int height,
                 int32_t exposure) {
  camera_metadata metadata;
  metadata.exposureTime = exposure;
  const int64_t timestamp = ++gTimestamp;
  gClient->cameraFrameData(y.origin, u.origin, v.origin, width, height, y.pixelStride, y.rowStride,
                           u.pixelStride, u.rowStride, v.pixelStride, v.rowStride, timestamp,
                           &metadata, 0);
  const bool shrinkable = width >= 1 && height >= 1 && int64_t{width} * 32 / kMotionW > 0 &&
                          int64_t{height} * 32 / kMotionH > 0;
  std::lock_guard<std::mutex> lock(gClient->frameQueue->mutex);
  const auto& queue = gClient->frameQueue->queue;
  if (shrinkable != (!queue.empty() && queue.front()->timestamp == timestamp))
    fail(shrinkable ? "a frame that can be shrunk was not queued" : "a too small frame was queued");
  if (!shrinkable) return;
  std::vector<uint8_t> packed(kMotionW * kMotionH * 3 / 2);
  destride(y.origin, u.origin, v.origin, height, width, y.pixelStride, y.rowStride, u.pixelStride,
           u.rowStride, v.pixelStride, v.rowStride, kMotionH, kMotionW, packed.data());
  cv::Mat expected;
  cv::cvtColor(cv::Mat(kMotionH * 3 / 2, kMotionW, CV_8UC1, packed.data()), expected,
               cv::COLOR_YUV2RGB_YV12);
  if (cv::countNonZero(expected.reshape(1) != queue.front()->image.reshape(1)) != 0)
    fail("the record differs from what destride and cv::cvtColor make of the frame");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* dir = std::getenv("TMPDIR");
  const std::string path = std::string(dir != nullptr ? dir : "/tmp") + "/hdsml_fuzz_intake_" +
                           std::to_string(getpid()) + ".json";
  FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) fail("cannot write the configuration");
  std::fprintf(file, R"({"vantor": {"motionResW": %d, "motionResH": %d}})", kMotionW, kMotionH);
  std::fclose(file);
  // Detection is never switched on, so the motion thread sleeps and the queue
  // keeps the last accepted frame for the check.
  gClient = HDSMLClient::initialize(path.c_str(), false, "");
  std::remove(path.c_str());
  if (gClient == nullptr) fail("no client");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  uint8_t in[18] = {};
  std::memcpy(in, data, size < sizeof in ? size : sizeof in);
  const int width = static_cast<int>(readLE(in) & INT_MAX);
  const int height = static_cast<int>(readLE(in + 4) & INT_MAX);
  const bool interleaved = in[9] & 1, secondLater = in[9] & 2, bottomUp = in[9] & 4;
  const int64_t cw = (int64_t{width} + 1) / 2, ch = (int64_t{height} + 1) / 2;

  Plane y, u, v;
  y.pixelStride = 1 + (in[8] & 3);
  u.pixelStride = v.pixelStride = interleaved ? 2 : 1 + ((in[8] >> 2) & 1);
  // Interleaved rows hold both chroma planes: one byte more than one plane.
  const int64_t yRow = span(width, 1, y.pixelStride, 0) + in[10];
  const int64_t cRow = span(cw, 1, u.pixelStride, 0) + (interleaved ? 1 : 0) + in[11];
  if (yRow > INT_MAX || cRow > INT_MAX) return 0;
  y.rowStride = static_cast<int>(yRow);
  u.rowStride = v.rowStride = static_cast<int>(cRow);
  const int64_t yBytes = std::max<int64_t>(1, span(width, height, y.pixelStride, yRow));
  const int64_t cBytes =
      std::max<int64_t>(1, span(cw, ch, u.pixelStride, cRow) + (interleaved ? 1 : 0));
  if (yBytes + (interleaved ? 1 : 2) * cBytes > kMaxTotalBytes) return 0;

  std::vector<std::unique_ptr<uint8_t[]>> buffers;
  buffers.emplace_back(new uint8_t[yBytes]);
  place(y, buffers.back().get(), yBytes, 0, height, bottomUp);
  buffers.emplace_back(new uint8_t[cBytes]);
  if (interleaved) {
    place(u, buffers.back().get(), cBytes, secondLater ? 1 : 0, ch, bottomUp);
    place(v, buffers.back().get(), cBytes, secondLater ? 0 : 1, ch, bottomUp);
  } else {
    place(u, buffers.back().get(), cBytes, 0, ch, bottomUp);
    buffers.emplace_back(new uint8_t[cBytes]);
    place(v, buffers.back().get(), cBytes, 0, ch, bottomUp);
  }

  checkDestride(y, u, v, width, height, in[12] % 65, in[13] % 65);
  checkIntake(y, u, v, width, height, static_cast<int32_t>(readLE(in + 14)));
  return 0;
}
