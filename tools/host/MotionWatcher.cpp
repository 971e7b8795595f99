#include "tools/host/MotionWatcher.h"

#include <chrono>

#include "tools/host/ClientView.h"

namespace hdsreplay {

MotionWatcher::MotionWatcher(HDSMLClient* client) : client_(client) {
  thread_ = std::thread([this] {
    bool any = false;
    int64_t last = 0;
    while (!stop_.load()) {
      const MotionStatus s = client_->queryMotionDetector();
      if (written(s) && (!any || s.frameTimestamp != last)) {
        any = true;
        last = s.frameTimestamp;
        std::lock_guard<std::mutex> hold(mutex_);
        seen_[s.frameTimestamp] = {s.motionDetected, s.filterScore};
      }
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  });
}

void MotionWatcher::stop() {
  stop_.store(true);
  if (!thread_.joinable()) return;
  thread_.join();
  const MotionStatus s = client_->queryMotionDetector();
  std::lock_guard<std::mutex> hold(mutex_);
  if (written(s)) seen_[s.frameTimestamp] = {s.motionDetected, s.filterScore};
}

bool MotionWatcher::find(int64_t timestamp, Seen& out) {
  std::lock_guard<std::mutex> hold(mutex_);
  const auto it = seen_.find(timestamp);
  if (it == seen_.end()) return false;
  out = it->second;
  return true;
}

}  // namespace hdsreplay
