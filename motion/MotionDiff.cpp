#include "motion/MotionDiff.h"

#include <opencv2/imgproc.hpp>

#include <cstring>

namespace {

// The ring size the normal-light detector runs with; the runner always passes its
// own, so this only matters to code that builds a rule directly.
constexpr int kDefaultHistoryLength = 15;

// Copies one target row of 3-byte pixels, picking source column (x * xStep) >> 5.
void shrinkRow(const unsigned char* sourceRow, unsigned char* target, int xStep, int width) {
  int sourceX = 0;  // in 1/32 pixel
  for (int x = 0; x < width; ++x) {
    const unsigned char* pixel = sourceRow + 3 * (sourceX >> 5);
    target[0] = pixel[0];
    target[1] = pixel[1];
    target[2] = pixel[2];
    target += 3;
    sourceX += xStep;
  }
}

}  // namespace

MotionDiff::MotionDiff() : MotionDiff(333, 188, kDefaultHistoryLength) {}

MotionDiff::MotionDiff(int width, int height, int historyLength)
    : frameCount(0),
      width(width),
      height(height),
      currentIndex(-1),
      referenceIndex(-historyLength),
      historyLength(historyLength),
      minRegionArea(0),
      mask(height, width, CV_8UC1),
      kernelPath_(defaultKernelPath()) {
  allocateRing();
}

MotionDiff::~MotionDiff() {}

void MotionDiff::allocateRing() {
  history.resize(historyLength);
  for (cv::Mat& slot : history) slot = cv::Mat::zeros(height, width, CV_8UC3);
}

void MotionDiff::resizeAndCopy(cv::Mat& source, cv::Mat& target) {
  if (target.cols == 0 || target.rows == 0) return;
  const int xStep = (source.cols * 32) / target.cols;
  const int yStep = (source.rows * 32) / target.rows;
  if (xStep == 0 || yStep == 0) return;

  // At equal sizes both steps are exactly one pixel (32/32): the shrink samples
  // every source pixel in order, which is a straight copy of the packed bytes.
  if (kernelPath_ == KernelPath::kVector && source.cols == target.cols &&
      source.rows == target.rows) {
    std::memcpy(target.data, source.data, 3 * static_cast<size_t>(target.cols) * target.rows);
    return;
  }

  // Both images are treated as packed rows; their strides are not consulted.
  const unsigned char* sourceData = source.data;
  const size_t sourceRowBytes = 3 * static_cast<size_t>(source.cols);
  const size_t targetRowBytes = 3 * static_cast<size_t>(target.cols);
  unsigned char* targetRow = target.data;
  int sourceY = 0;  // in 1/32 pixel
  for (int y = 0; y < target.rows; ++y) {
    shrinkRow(sourceData + (sourceY >> 5) * sourceRowBytes, targetRow, xStep, target.cols);
    targetRow += targetRowBytes;
    sourceY += yStep;
  }
}

void MotionDiff::clearMask(cv::Mat& mask) {
  if (mask.isContinuous())
    std::memset(mask.data, 0, mask.total() * mask.elemSize());
  else
    mask.setTo(cv::Scalar(0));
}

void MotionDiff::clear() {
  currentIndex = -1;
  referenceIndex = -historyLength;
  regions.clear();
}

void MotionDiff::processImage(cv::Mat& frame, bool detect) {
  regions.clear();

  ++frameCount;
  ++currentIndex;
  ++referenceIndex;
  if (currentIndex > historyLength - 1) currentIndex = 0;
  if (referenceIndex > historyLength - 1) referenceIndex = 0;

  // The frame joins the ring whether or not it is compared, so the reference a
  // later frame is compared with is always historyLength - 1 frames older.
  resizeAndCopy(frame, history[currentIndex]);
  if (referenceIndex < 0 || !detect) return;

  if (!estForegroundMask(history[currentIndex].data, history[referenceIndex].data, &mask)) return;

  if (kernelPath_ == KernelPath::kVector && masksAreWholeBlocks_)
    findRegionsOnBlockGrid();
  else
    findRegionsOnMask();
}

void MotionDiff::findRegionsOnMask() {
  cv::findContours(mask, contours_, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE, cv::Point(0, 0));
  for (const std::vector<cv::Point>& contour : contours_) {
    const cv::Rect box = cv::boundingRect(cv::Mat(contour));
    if (box.width * box.height > minRegionArea) regions.push_back(box);
  }
}

// A mask made of whole blocks on the 4-pixel grid has the outlines of its block
// grid scaled by 4: two blocks touch, by a side or a corner, exactly when their
// pixels do, and background areas connect likewise, so the grid has the same
// components and holes, and a raster scan meets them in the same order (a
// component's first pixel is its first block's top-left corner). The contour
// finder runs on 1/16 of the pixels; each bounding box is scaled back.
void MotionDiff::findRegionsOnBlockGrid() {
  constexpr int kBlockSide = 4;
  const int gridRows = height / kBlockSide, gridCols = width / kBlockSide;
  blockGrid_.create(gridRows, gridCols, CV_8UC1);
  for (int by = 0; by < gridRows; ++by) {
    const unsigned char* maskRow = mask.ptr(kBlockSide * by);
    unsigned char* gridRow = blockGrid_.ptr(by);
    for (int bx = 0; bx < gridCols; ++bx) gridRow[bx] = maskRow[kBlockSide * bx];
  }
  cv::findContours(blockGrid_, contours_, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE,
                   cv::Point(0, 0));
  for (const std::vector<cv::Point>& contour : contours_) {
    const cv::Rect cell = cv::boundingRect(cv::Mat(contour));
    const cv::Rect box(kBlockSide * cell.x, kBlockSide * cell.y, kBlockSide * cell.width,
                       kBlockSide * cell.height);
    if (box.width * box.height > minRegionArea) regions.push_back(box);
  }
}
