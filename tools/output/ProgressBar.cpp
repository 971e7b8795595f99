#include "tools/output/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace hdsreplay {

ProgressBar::ProgressBar(bool enabled, long total)
    : enabled_(enabled && ::isatty(STDERR_FILENO)), total_(total) {}

ProgressBar::~ProgressBar() { finish(); }

std::string ProgressBar::render(long done, long total, int width, const std::string& note) {
  char buf[64];
  if (total < 1) {
    std::snprintf(buf, sizeof buf, "%ld frames", done);
    return std::string(buf) + (note.empty() ? "" : "  " + note);
  }
  done = std::clamp(done, 0L, total);
  const int filled = static_cast<int>(static_cast<double>(done) / total * width);
  std::string bar = "[" + std::string(filled, '#') + std::string(width - filled, '.') + "]";
  std::snprintf(buf, sizeof buf, " %3d%% %ld/%ld", static_cast<int>(100.0 * done / total), done,
                total);
  return bar + buf + (note.empty() ? "" : "  " + note);
}

void ProgressBar::update(long done, const std::string& note) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (drawn_ && now - last_ < std::chrono::milliseconds(100) && done != total_) return;
  last_ = now;
  drawn_ = true;
  std::fprintf(stderr, "\r\033[K%s", render(done, total_, 30, note).c_str());
  std::fflush(stderr);
}

void ProgressBar::finish() {
  if (!enabled_ || !drawn_) return;
  std::fprintf(stderr, "\r\033[K");
  std::fflush(stderr);
  drawn_ = false;
}

}  // namespace hdsreplay
