// Waits, with a bound, for a client's motion thread to finish with every frame
// handed to it. A record is held (reference count above 0) from the moment it
// is queued until the motion thread has analysed it and written its decision,
// so "every record free" means the thread is idle and its results are visible.
#pragma once

#include <chrono>
#include <thread>

#include "client/HDSMLClient.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"

namespace hdsml {

inline bool allRecordsFree(HDSMLClient& client) {
  for (FrameData* frame : client.framePool->frames)
    if (frame->getRef() != 0) return false;
  return true;
}

// Polls every 200 microseconds; false when the timeout passed first.
inline bool waitForIdle(HDSMLClient& client,
                        std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!allRecordsFree(client)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

}  // namespace hdsml
