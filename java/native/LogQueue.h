// The bounded hand-off of the library's messages from the threads that write
// them to the one thread that delivers them to Java. push() never waits for the
// delivery: when the queue is full the message is dropped and counted, and the
// next message taken carries the count. Every slot keeps its buffer, so a message
// that fits kReservedBytes is queued without allocating. Any thread may push;
// take() and delivered() belong to the delivering thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace hdsml_jni {

class LogQueue {
 public:
  static constexpr size_t kCapacity = 256;
  static constexpr size_t kReservedBytes = 256;

  // What take() hands over: a message, the number dropped just before it, or
  // both. `hasText` is false when only the count is left to tell.
  struct Message {
    std::string text;
    uint64_t droppedBefore = 0;
    bool hasText = false;
  };

  LogQueue();
  LogQueue(const LogQueue&) = delete;
  LogQueue& operator=(const LogQueue&) = delete;

  // Queues `length` bytes of `text`, or counts them dropped when the queue is
  // full; ignored once closed.
  void push(const char* text, size_t length);
  // Waits for the next message (`out.text` trades buffers with the slot) or a
  // count of dropped ones. False once closed with nothing left to tell.
  bool take(Message& out);
  // The message take() gave has been delivered.
  void delivered();
  // No more pushes: take() returns what is left, then false.
  void close();
  // Waits until everything pushed so far has been taken and delivered; false
  // when `timeout` passed first.
  bool waitUntilDelivered(std::chrono::milliseconds timeout);

 private:
  struct Slot {
    std::string text;
    uint64_t droppedBefore = 0;
  };

  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  std::vector<Slot> slots_;
  size_t first_ = 0;          // the oldest queued slot
  size_t count_ = 0;          // queued slots
  uint64_t dropped_ = 0;      // dropped since the last queued message
  bool delivering_ = false;   // between take() and delivered()
  bool closed_ = false;
};

}  // namespace hdsml_jni
