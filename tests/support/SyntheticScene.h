// Synthetic camera scenes for tests: a fixed textured background, optionally
// with a bright square that moves a few pixels each frame.
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

  // The background alone: consecutive calls give identical frames.
  cv::Mat still() const { return background_.clone(); }

  // Frame `index` with a white square of `side` pixels moving right by `step`
  // pixels a frame (wrapping around) across the middle of the picture.
  cv::Mat moving(int index, int side = 64, int step = 8) const {
    cv::Mat frame = background_.clone();
    const int travel = frame.cols - side;
    const int x = (index * step) % travel;
    const int y = (frame.rows - side) / 2;
    cv::rectangle(frame, cv::Rect(x, y, side, side), cv::Scalar(250, 250, 250), cv::FILLED);
    return frame;
  }

 private:
  cv::Mat background_;
};

}  // namespace hdsml
