// Abstract frame-differencing algorithm: shrinks each camera frame into a ring of
// small motion frames, asks the subclass for a foreground mask between the newest
// and the oldest frame of the ring, and keeps the bounding rectangles of the moving
// areas. Owned by motionDetector; used by one thread only, with no locks.
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core.hpp>

#include "hdsml_export.h"

class HDSML_EXPORT MotionDiff {
 public:
  MotionDiff();
  MotionDiff(int width, int height, int historyLength);

  // Paints the moving blocks of `current` against `reference` (both packed
  // width x height x 3 bytes) white in `mask`; true when enough of the frame moved.
  virtual bool estForegroundMask(unsigned char* current, unsigned char* reference,
                                 cv::Mat* mask) = 0;
  virtual ~MotionDiff();

  MotionDiff(const MotionDiff&) = delete;
  MotionDiff& operator=(const MotionDiff&) = delete;

  // Nearest-neighbour shrink of a packed 3-byte-per-pixel `source` into `target`,
  // stepping in 1/32 pixel; leaves `target` untouched when a step would be 0.
  void resizeAndCopy(cv::Mat& source, cv::Mat& target);
  // Empties the ring logically: the next historyLength - 1 frames only refill it.
  void clear();
  // Stores `frame` in the ring and, when `detect` is set and the ring is full,
  // refreshes `regions`.
  void processImage(cv::Mat& frame, bool detect);

  int frameCount;
  int width;
  int height;
  std::vector<cv::Mat> history;  // ring of motion frames, height x width, CV_8UC3
  int currentIndex;              // ring slot of the newest frame
  int referenceIndex;            // ring slot of the oldest frame; negative while filling
  int historyLength;
  int minRegionArea;              // smallest kept rectangle area; also scales the mask rules' vote
  std::vector<cv::Rect> regions;  // rectangles accepted by the last processImage
  cv::Mat mask;                   // height x width, CV_8UC1; scratch for the rules

 protected:
  // A 4x4 block rule: does the block at `current` differ from the one at
  // `reference`? `rowBytes` is the distance between pixel rows of both frames.
  using BlockRule = bool (*)(const unsigned char* current, const unsigned char* reference,
                             int rowBytes);

  // The block walk behind every estForegroundMask: clears `mask`, paints white each
  // block `isForeground` accepts, and is true when those blocks hold more pixels than
  // a third of minRegionArea. The rule is a template argument so that it is inlined
  // into the walk rather than called through a pointer per block.
  template <BlockRule isForeground>
  bool markForegroundBlocks(const unsigned char* current, const unsigned char* reference,
                            cv::Mat* mask) {
    mask->setTo(cv::Scalar(0));
    unsigned char* maskData = mask->data;
    const int rowBytes = 3 * width;
    int counter = 0;
    // Blocks are visited only while their centre is more than 2 pixels from the
    // right and bottom edges, so the last whole column and row of blocks are skipped.
    for (int cx = 2; cx < width - 2; cx += 4) {
      for (int cy = 2; cy < height - 2; cy += 4) {
        const size_t pixel = static_cast<size_t>(cy - 2) * width + (cx - 2);
        if (!isForeground(current + 3 * pixel, reference + 3 * pixel, rowBytes)) continue;
        counter += 16;
        unsigned char* block = maskData + pixel;
        for (int row = 0; row < 4; ++row, block += width) {
          block[0] = block[1] = block[2] = block[3] = 255;
        }
      }
    }
    return (minRegionArea / 3) < counter;
  }

 private:
  void allocateRing();
};
