// Probes a client's frame records from outside. A record is held (reference
// count not 0) from the moment it is queued until the motion thread has analysed
// it and written its decision, so no record held means the thread is idle and its
// results are visible. Used by the tests and by hds-replay's lockstep pacing.
#pragma once

#include <chrono>
#include <thread>

#include "client/HDSMLClient.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"

namespace hdsml {

inline int heldRecords(HDSMLClient& client) {
  int held = 0;
  for (FrameData* frame : client.framePool->frames) held += frame->getRef() != 0;
  return held;
}

// False when the timeout passed first. Spins briefly before sleeping: a frame
// at motion resolution is usually analysed within a fraction of a millisecond.
inline bool waitForIdle(HDSMLClient& client,
                        std::chrono::microseconds timeout = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (int spin = 0; heldRecords(client) != 0; ++spin) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (spin < 50)
      std::this_thread::yield();
    else
      std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  return true;
}

}  // namespace hdsml
