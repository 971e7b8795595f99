// Watches the motion status from a thread of its own when frames are not handed
// over in lockstep, so that frames analysed between two detect() calls are seen.
// Started by the constructor, stopped by stop() or the destructor; find() may be
// called from the replay's thread at any time.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>

#include "client/HDSMLClient.h"

namespace hdsreplay {

class MotionWatcher {
 public:
  struct Seen {
    bool motionDetected;
    float score;
  };

  explicit MotionWatcher(HDSMLClient* client);
  ~MotionWatcher() { stop(); }
  MotionWatcher(const MotionWatcher&) = delete;
  MotionWatcher& operator=(const MotionWatcher&) = delete;

  // Stops watching; a last look catches a frame finished since the last poll.
  void stop();
  // The verdict on the frame stamped `timestamp`, if it was seen.
  bool find(int64_t timestamp, Seen& out);

 private:
  HDSMLClient* client_;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;  // guards seen_
  std::map<int64_t, Seen> seen_;
  std::thread thread_;
};

}  // namespace hdsreplay
