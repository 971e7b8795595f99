// Abstract frame-differencing algorithm: shrinks each camera frame into a ring of
// small motion frames, asks the subclass for a foreground mask between the newest
// and the oldest frame of the ring, and keeps the bounding rectangles of the moving
// areas. Owned by motionDetector; used by one thread only, with no locks.
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core.hpp>

#include "frames/KernelPath.h"
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
  // Plain loops or vector kernels for the block rule and the ring copy. Starts as
  // defaultKernelPath(); both give the same bytes, the choice is there to compare.
  void setKernelPath(KernelPath path) { kernelPath_ = path; }
  KernelPath kernelPath() const { return kernelPath_; }

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
  // Sets every byte of `mask` to 0 without the scratch buffer that
  // cv::Mat::setTo allocates on every call.
  static void clearMask(cv::Mat& mask);

  // Set by rules whose masks consist of whole 4x4 blocks on the frame's 4-pixel
  // grid; their regions can then be found on the grid of blocks.
  bool masksAreWholeBlocks_ = false;

 private:
  void allocateRing();
  // Appends the bounding boxes of the outer contours of `mask` larger than
  // minRegionArea to `regions`, from the mask itself or from its block grid.
  void findRegionsOnMask();
  void findRegionsOnBlockGrid();

  KernelPath kernelPath_;
  // Outlines of the last mask, kept so that their storage is reused frame after frame.
  std::vector<std::vector<cv::Point>> contours_;
  cv::Mat blockGrid_;  // one byte per 4x4 block of the mask, made on first use
};
