// Blocking hand-over of frame records from the camera thread to the motion
// thread. Both ends work at the front, so the consumer always gets the newest
// record. Each queued pointer holds one reference, passed on by pop_front() and
// dropped by clear(). Safe for any number of producer and consumer threads.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "frames/FrameData.h"
#include "frames/RecyclingAllocator.h"
#include "hdsml_export.h"

class HDSML_EXPORT Buffer {
 public:
  Buffer();
  // Stops the queue and drops the references of records still queued.
  ~Buffer();

  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  // Takes a reference on frame and queues it at the front.
  void push_front(FrameData* frame);
  // Blocks until a record is queued or the queue is stopped. Returns the newest
  // record, whose reference the caller must drop, or null once stopped and empty.
  FrameData* pop_front();
  // Empties the queue, dropping the reference of each record removed.
  void clear();
  // Final: from now on pop_front() never blocks.
  void stopWait();

  // Guards queue and stopped. Taken before a record's lock, never after it.
  std::mutex mutex;
  std::condition_variable ready;  // a record was queued or the queue was stopped
  // Its allocator reuses the block a record leaves behind: no allocation per frame.
  std::deque<FrameData*, RecyclingAllocator<FrameData*>> queue;
  bool stopped = false;
};
