// A one-line progress bar on standard error, redrawn at most ten times a second,
// shown only when standard error is a terminal. One thread.
#pragma once

#include <chrono>
#include <string>

namespace hdsreplay {

class ProgressBar {
 public:
  // `total` < 1: unknown, the bar then shows a count only.
  ProgressBar(bool enabled, long total);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void update(long done, const std::string& note);
  // Clears the line so that later output starts on a clean one.
  void finish();

  // The bar text for `done` of `total` in `width` cells, without escape codes.
  static std::string render(long done, long total, int width, const std::string& note);

 private:
  bool enabled_;
  long total_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace hdsreplay
