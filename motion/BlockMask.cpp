#include "motion/BlockMask.h"

#include <cstddef>

namespace hdsml {
namespace {

constexpr int kSide = 4;
constexpr int kHalfBlock = kSide * kSide / 2;

// Even-odd rule: a ray to the right from `p` crosses the outline an odd number
// of times. Each edge counts for the points whose y lies in [y0, y1) of its
// span, so a vertex on the ray's height is counted once.
bool inside(const std::vector<cv::Point2d>& polygon, cv::Point2d p) {
  bool in = false;
  for (size_t i = 0, j = polygon.size() - 1; i < polygon.size(); j = i++) {
    const cv::Point2d a = polygon[i], b = polygon[j];
    if ((a.y > p.y) == (b.y > p.y)) continue;
    const double x = a.x + (p.y - a.y) * (b.x - a.x) / (b.y - a.y);
    if (p.x < x) in = !in;
  }
  return in;
}

}  // namespace

std::vector<uint8_t> blockMaskOfPolygons(const std::vector<std::vector<cv::Point2d>>& polygons,
                                         int width, int height) {
  const int cols = width / kSide, rows = height / kSide;
  std::vector<uint8_t> blocks(size_t(cols) * rows, 0);
  if (polygons.empty()) return blocks;
  for (int by = 0; by < rows; ++by)
    for (int bx = 0; bx < cols; ++bx) {
      int covered = 0;
      for (int y = kSide * by; y < kSide * by + kSide; ++y)
        for (int x = kSide * bx; x < kSide * bx + kSide; ++x) {
          const cv::Point2d centre((x + 0.5) / width, (y + 0.5) / height);
          for (const auto& polygon : polygons)
            if (inside(polygon, centre)) {
              ++covered;
              break;
            }
        }
      blocks[size_t(by) * cols + bx] = covered >= kHalfBlock ? 1 : 0;
    }
  return blocks;
}

}  // namespace hdsml
