// Nearest-neighbour shrink of the three strided YUV 4:2:0 planes into the packed
// planar image at the motion resolution, in 1/32-pixel fixed point. Steps,
// accumulators and offsets are 64-bit, so that no size a camera could report
// overflows them.
#include "client/Destride.h"

#include <cstddef>
#include <cstdint>

#include "client/HDSMLClient.h"
#include "client/RowSampling.h"

namespace {

constexpr int kFractionBits = kStepFractionBits;

// The geometry of one destride call, as both implementations use it.
struct Geometry {
  int64_t stepX = 0;
  int64_t stepY = 0;
};

// False when there is nothing to do: an output size or a step of 0.
bool makeGeometry(int height, int width, int outHeight, int outWidth, Geometry& g) {
  g.stepX = destrideStep(width, outWidth);
  g.stepY = destrideStep(height, outHeight);
  return g.stepX != 0 && g.stepY != 0;
}

// ---------------------------------------------------------------------------
// Plain: one sample at a time, the reference.

// Copies `outCols` samples of one source row, one every `step`/32 samples.
unsigned char* sampleRowPlain(const unsigned char* row, int64_t pixelStride, int64_t step,
                              int outCols, unsigned char* out) {
  int64_t ax = 0;
  for (int c = 0; c < outCols; ++c, ax += step) *out++ = row[pixelStride * (ax >> kFractionBits)];
  return out;
}

// Shrinks one plane and returns the next output position.
unsigned char* samplePlanePlain(const unsigned char* plane, int64_t pixelStride, int64_t rowStride,
                                int64_t stepX, int64_t stepY, int outRows, int outCols,
                                unsigned char* out) {
  int64_t ay = 0;
  for (int r = 0; r < outRows; ++r, ay += stepY)
    out =
        sampleRowPlain(plane + rowStride * (ay >> kFractionBits), pixelStride, stepX, outCols, out);
  return out;
}

void destridePlain(unsigned char* y, unsigned char* u, unsigned char* v, int height, int width,
                   int yPixelStride, int yRowStride, int uPixelStride, int uRowStride,
                   int vPixelStride, int vRowStride, int outHeight, int outWidth,
                   unsigned char* out) {
  Geometry g;
  if (!makeGeometry(height, width, outHeight, outWidth, g)) return;
  // The chroma planes are half the source and the output half the output, so
  // the luma steps apply to them unchanged.
  out = samplePlanePlain(y, yPixelStride, yRowStride, g.stepX, g.stepY, outHeight, outWidth, out);
  out = samplePlanePlain(u, uPixelStride, uRowStride, g.stepX, g.stepY, outHeight >> 1,
                         outWidth >> 1, out);
  samplePlanePlain(v, vPixelStride, vRowStride, g.stepX, g.stepY, outHeight >> 1, outWidth >> 1,
                   out);
}

// ---------------------------------------------------------------------------
// Fast: the same samples, row by row through the samplers of RowSampling.h
// (column tables built once per geometry, vector loads for whole-sample steps,
// both chroma planes in one pass over interleaved chroma).

// The three planes' samplers, per thread, so that concurrent callers never
// share one.
struct Samplers {
  RowSampler luma, u, v;
  PairSampler pairs;
};

// Shrinks one plane and returns the next output position.
unsigned char* samplePlaneFast(const unsigned char* plane, int64_t pixelStride, int64_t rowStride,
                               const Geometry& g, int outRows, int outCols, RowSampler& sampler,
                               unsigned char* out) {
  if (outRows <= 0 || outCols <= 0) return out;
  sampler.configure(pixelStride, g.stepX, outCols);
  const OverreadRule overread(rowStride, g.stepY, outRows, sampler.overread());
  for (int r = 0; r < outRows; ++r, out += outCols) {
    if (r + kPrefetchRows < outRows)
      prefetchRowStart(plane + sourceRowOffset(rowStride, g.stepY, r + kPrefetchRows));
    sampler.sample(plane + sourceRowOffset(rowStride, g.stepY, r), out, overread.allows(r));
  }
  return out;
}

// Both chroma planes in one pass over interleaved chroma: each pair of samples
// is read once instead of each plane's row being walked on its own.
void sampleInterleavedChromaFast(const unsigned char* u, const unsigned char* v, int64_t rowStride,
                                 const Geometry& g, int outRows, int outCols, PairSampler& sampler,
                                 unsigned char* outU) {
  if (outRows <= 0 || outCols <= 0) return;
  const bool lowIsU = u < v;
  const unsigned char* pairs = lowIsU ? u : v;
  sampler.configure(g.stepX, outCols);
  const OverreadRule overread(rowStride, g.stepY, outRows, sampler.overread());
  unsigned char* outV = outU + static_cast<std::ptrdiff_t>(outRows) * outCols;
  for (int r = 0; r < outRows; ++r, outU += outCols, outV += outCols) {
    if (r + kPrefetchRows < outRows)
      prefetchRowStart(pairs + sourceRowOffset(rowStride, g.stepY, r + kPrefetchRows));
    sampler.sample(pairs + sourceRowOffset(rowStride, g.stepY, r), lowIsU ? outU : outV,
                   lowIsU ? outV : outU, overread.allows(r));
  }
}

void destrideFast(unsigned char* y, unsigned char* u, unsigned char* v, int height, int width,
                  int yPixelStride, int yRowStride, int uPixelStride, int uRowStride,
                  int vPixelStride, int vRowStride, int outHeight, int outWidth,
                  unsigned char* out) {
  Geometry g;
  if (!makeGeometry(height, width, outHeight, outWidth, g)) return;
  thread_local Samplers samplers;
  out = samplePlaneFast(y, yPixelStride, yRowStride, g, outHeight, outWidth, samplers.luma, out);
  const int chromaRows = outHeight >> 1, chromaCols = outWidth >> 1;
  if (chromaAreInterleaved(u, v, uPixelStride, uRowStride, vPixelStride, vRowStride)) {
    sampleInterleavedChromaFast(u, v, uRowStride, g, chromaRows, chromaCols, samplers.pairs, out);
    return;
  }
  out = samplePlaneFast(u, uPixelStride, uRowStride, g, chromaRows, chromaCols, samplers.u, out);
  samplePlaneFast(v, vPixelStride, vRowStride, g, chromaRows, chromaCols, samplers.v, out);
}

}  // namespace

int64_t destrideStep(int size, int outSize) {
  // A multiplication, not a shift: a negative size stays defined behaviour.
  return outSize == 0 ? 0 : static_cast<int64_t>(size) * (1 << kFractionBits) / outSize;
}

void destrideWith(KernelPath path, unsigned char* y, unsigned char* u, unsigned char* v, int height,
                  int width, int yPixelStride, int yRowStride, int uPixelStride, int uRowStride,
                  int vPixelStride, int vRowStride, int outHeight, int outWidth,
                  unsigned char* out) {
  if (path == KernelPath::kPlain) {
    destridePlain(y, u, v, height, width, yPixelStride, yRowStride, uPixelStride, uRowStride,
                  vPixelStride, vRowStride, outHeight, outWidth, out);
  } else {
    destrideFast(y, u, v, height, width, yPixelStride, yRowStride, uPixelStride, uRowStride,
                 vPixelStride, vRowStride, outHeight, outWidth, out);
  }
}

void destride(unsigned char* y, unsigned char* u, unsigned char* v, int height, int width,
              int yPixelStride, int yRowStride, int uPixelStride, int uRowStride, int vPixelStride,
              int vRowStride, int outHeight, int outWidth, unsigned char* out) {
  destrideWith(defaultKernelPath(), y, u, v, height, width, yPixelStride, yRowStride, uPixelStride,
               uRowStride, vPixelStride, vRowStride, outHeight, outWidth, out);
}
