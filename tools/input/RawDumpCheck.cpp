#include "tools/input/RawDumpCheck.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>
#include <utility>

#include "tools/input/Files.h"
#include "tools/input/RawYuvSource.h"

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

// Frame sizes that cameras and recordings commonly have.
const std::pair<int, int> kCommonSizes[] = {
    {160, 120},   {176, 144},   {320, 240},  {352, 288},   {640, 360},   {640, 480},
    {720, 480},   {720, 576},   {768, 576},  {800, 600},   {960, 540},   {960, 720},
    {1024, 768},  {1280, 720},  {1280, 960}, {1440, 1080}, {1600, 1200}, {1920, 1080},
    {1920, 1088}, {2560, 1440}, {3840, 2160}};

// Row strides a camera may pad `width` to: the multiples of 16 from it up to
// 256 bytes more.
std::set<int> alignedStrides(int width) {
  std::set<int> strides;
  for (int s = (width + 15) / 16 * 16; s <= width + 256; s += 16) strides.insert(s);
  return strides;
}

// Mean absolute difference between bytes `step` apart, over a sample of the
// plane (every 7th byte, which is enough and keeps a large frame quick).
double rowDistance(const uint8_t* plane, size_t bytes, size_t step) {
  if (step >= bytes) return 1e9;
  double sum = 0;
  size_t n = 0;
  for (size_t i = 0; i + step < bytes; i += 7, ++n) sum += std::abs(plane[i] - plane[i + step]);
  return n ? sum / static_cast<double>(n) : 1e9;
}

std::string strideWarning(int best, const RawGeometry& g) {
  char buf[400];
  std::snprintf(buf, sizeof buf,
                "the luma rows of %dx%d %s match best %d bytes apart, not %d: if the frames are "
                "%d pixels wide, give --raw %dxH; if their rows are padded, --row-stride %d. "
                "Replayed as stated, the frames are noise",
                g.width, g.height, hdsml::layoutName(g.layout), best, g.yRowStride, best, best,
                best);
  return buf;
}

// Planar chroma read from an interleaved dump: neighbouring bytes alternate
// between the two chroma planes, so they differ more than bytes two apart.
bool chromaLooksInterleaved(const std::vector<uint8_t>& frame, const RawGeometry& g) {
  const size_t start = size_t(g.yRowStride) * g.height;
  const int rowBytes = g.width / 2;
  double near = 0, far = 0;
  size_t n = 0;
  for (int row = 0; row < g.height / 2; ++row) {
    const size_t at = start + size_t(row) * g.chromaRowStride;
    if (at + rowBytes > frame.size()) break;
    for (int i = 0; i + 2 < rowBytes; ++i, ++n) {
      near += std::abs(frame[at + i] - frame[at + i + 1]);
      far += std::abs(frame[at + i] - frame[at + i + 2]);
    }
  }
  if (n == 0) return false;
  near /= static_cast<double>(n);
  far /= static_cast<double>(n);
  return near >= 2.0 && near > 1.5 * far + 0.5;
}

// Interleaved chroma read from a planar dump (i420 as nv21): the region holds
// one whole plane, then the other. Its even and odd bytes then come from the
// same plane and have the same mean, while the two halves of the region (two
// planes) differ; and neighbouring bytes are neighbouring samples of a plane,
// closer than bytes two apart, where pairs would put Cr beside Cb. Measured on
// the samples' dumps: halves 4.4 to 21.5 apart, even and odd within 0.03,
// neighbours 0.7 to 2.1 apart against 1.2 to 2.6; read as what they are, even
// and odd bytes 4.5 to 21.5 apart, neighbours 6.4 to 21.5 against 0.7 to 2.1.
bool chromaLooksPlanar(const std::vector<uint8_t>& frame, const RawGeometry& g) {
  const size_t start = size_t(g.yRowStride) * g.height;
  const size_t end = std::min(frame.size(), start + size_t(g.chromaRowStride) * (g.height / 2));
  if (end <= start + 2 * size_t(g.chromaRowStride)) return false;
  const size_t middle = start + (end - start) / 2;
  double sum[2] = {0, 0}, halves[2] = {0, 0};
  for (size_t i = start; i < end; ++i) {
    sum[(i - start) & 1] += frame[i];
    halves[i >= middle] += frame[i];
  }
  const double pairs = double(end - start) / 2;
  const double evenOdd = std::abs(sum[0] - sum[1]) / pairs;
  const double halfApart =
      std::abs(halves[0] / double(middle - start) - halves[1] / double(end - middle));
  const uint8_t* chroma = frame.data() + start;
  return halfApart >= 2.0 && evenOdd < 0.25 * halfApart &&
         rowDistance(chroma, end - start, 1) < rowDistance(chroma, end - start, 2);
}

}  // namespace

std::vector<std::string> fittingGeometries(size_t bytes, const RawGeometry& stated, size_t count) {
  std::set<std::pair<int, int>> sizes(std::begin(kCommonSizes), std::end(kCommonSizes));
  sizes.insert({stated.width, stated.height});
  struct Fit {
    double distance;
    std::string text;
  };
  std::vector<Fit> fits;
  const double statedArea = double(stated.width) * stated.height;
  for (const auto& [w, h] : sizes) {
    std::set<int> strides = alignedStrides(w);
    strides.insert(w);
    for (int stride : strides) {
      const RawGeometry g = RawGeometry::strided(w, h, stated.layout, stride);
      const size_t frame = g.frameBytes();
      const bool whole = bytes % frame == 0 || bytes == g.tightBytes();
      if (bytes == 0 || !whole) continue;
      const size_t frames = bytes == g.tightBytes() ? 1 : bytes / frame;
      char buf[120];
      std::snprintf(buf, sizeof buf, "--raw %dx%d%s (%zu frame%s)", w, h,
                    stride == w ? "" : (" --row-stride " + std::to_string(stride)).c_str(), frames,
                    frames == 1 ? "" : "s");
      // Nearest in area first, then the least padding.
      fits.push_back({std::abs(std::log(double(w) * h / statedArea)) + (stride - w) * 1e-4, buf});
    }
  }
  std::sort(fits.begin(), fits.end(),
            [](const Fit& a, const Fit& b) { return a.distance < b.distance; });
  std::vector<std::string> out;
  for (size_t i = 0; i < fits.size() && i < count; ++i) out.push_back(fits[i].text);
  return out;
}

int bestLumaStride(const std::vector<uint8_t>& frame, const RawGeometry& g) {
  const size_t luma = std::min(frame.size(), size_t(g.yRowStride) * g.height);
  std::set<int> candidates = alignedStrides(g.width);
  for (const int s : {g.yRowStride, g.width, 2 * g.yRowStride, g.yRowStride / 2}) {
    candidates.insert(s);
    for (int a : alignedStrides(s)) candidates.insert(a);
  }
  for (const auto& [w, h] : kCommonSizes) candidates.insert(w);
  int best = g.yRowStride;
  double bestDistance = rowDistance(frame.data(), luma, size_t(g.yRowStride));
  const double stated = bestDistance;
  for (int s : candidates) {
    // A quarter of the plane at least, so that the rows compared are many.
    if (s < 8 || size_t(s) * 4 > luma) continue;
    const double d = rowDistance(frame.data(), luma, size_t(s));
    if (d < bestDistance) {
      best = s;
      bestDistance = d;
    }
  }
  // Only a clear winner over a plane that has some texture counts.
  return stated >= 2.0 && bestDistance < 0.6 * stated ? best : g.yRowStride;
}

std::vector<std::string> checkRawFrame(const std::vector<uint8_t>& frame, const RawGeometry& g) {
  std::vector<std::string> warnings;
  const int best = bestLumaStride(frame, g);
  if (best != g.yRowStride) warnings.push_back(strideWarning(best, g));
  if (hdsml::isPlanar(g.layout) && chromaLooksInterleaved(frame, g))
    warnings.push_back(
        std::string("the chroma of the dump looks interleaved (nv21 or nv12), not ") +
        hdsml::layoutName(g.layout) + " as stated: check --layout");
  if (!hdsml::isPlanar(g.layout) && chromaLooksPlanar(frame, g))
    warnings.push_back(std::string("the chroma of the dump looks planar (i420 or yv12), not ") +
                       hdsml::layoutName(g.layout) + " as stated: check --layout");
  return warnings;
}

std::vector<std::string> checkRawDump(const std::string& path, const RawGeometry& g) {
  std::string file = path;
  std::error_code ec;
  if (fs::is_directory(path, ec)) {
    file.clear();
    for (fs::directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec))
      if (it->is_regular_file() && RawYuvSource::isRawExtension(lowerExtension(it->path())) &&
          (file.empty() || it->path().string() < file))
        file = it->path().string();
  }
  std::ifstream in(file, std::ios::binary);
  if (file.empty() || !in) return {};
  std::vector<uint8_t> frame(g.frameBytes());
  in.read(reinterpret_cast<char*>(frame.data()), static_cast<std::streamsize>(frame.size()));
  frame.resize(static_cast<size_t>(in.gcount()));
  return checkRawFrame(frame, g);
}

}  // namespace hdsreplay
