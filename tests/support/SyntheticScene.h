// Synthetic camera scenes: a fixed textured background, optionally with a
// bright square that moves a few pixels each frame.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace hdsml {

class SyntheticScene {
 public:
  SyntheticScene(int width, int height) : background_(height, width, CV_8UC3) {
    cv::RNG rng(20261121);  // fixed seed: every run sees the same scene
    rng.fill(background_, cv::RNG::UNIFORM, cv::Scalar(60, 70, 80), cv::Scalar(120, 130, 140));
    cv::GaussianBlur(background_, background_, cv::Size(5, 5), 0);
  }

  cv::Mat still() const { return background_.clone(); }

  // Frame `index`: a white square of `side` pixels across the middle, moving
  // right by `step` pixels a frame and wrapping around.
  cv::Mat moving(int index, int side = 64, int step = 8) const {
    cv::Mat frame = background_.clone();
    const int x = (index * step) % (frame.cols - side), y = (frame.rows - side) / 2;
    cv::rectangle(frame, cv::Rect(x, y, side, side), cv::Scalar(250, 250, 250), cv::FILLED);
    return frame;
  }

 private:
  cv::Mat background_;
};

}  // namespace hdsml
