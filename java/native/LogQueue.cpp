#include "java/native/LogQueue.h"

namespace hdsml_jni {

LogQueue::LogQueue() : slots_(kCapacity) {
  for (Slot& slot : slots_) slot.text.reserve(kReservedBytes);
}

void LogQueue::push(const char* text, size_t length) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_) return;
    if (count_ == kCapacity) {
      ++dropped_;
      return;
    }
    Slot& slot = slots_[(first_ + count_) % kCapacity];
    slot.text.assign(text, length);
    slot.droppedBefore = dropped_;
    dropped_ = 0;
    ++count_;
  }
  changed_.notify_all();
}

bool LogQueue::take(Message& out) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return count_ > 0 || dropped_ > 0 || closed_; });
  if (count_ > 0) {
    Slot& slot = slots_[first_];
    out.text.swap(slot.text);
    out.droppedBefore = slot.droppedBefore;
    out.hasText = true;
    first_ = (first_ + 1) % kCapacity;
    --count_;
  } else if (dropped_ > 0) {
    // Dropped after the last queued message: told on their own.
    out.text.clear();
    out.droppedBefore = dropped_;
    out.hasText = false;
    dropped_ = 0;
  } else {
    return false;
  }
  delivering_ = true;
  return true;
}

void LogQueue::delivered() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    delivering_ = false;
  }
  changed_.notify_all();
}

void LogQueue::close() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

bool LogQueue::waitUntilDelivered(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout,
                           [this] { return count_ == 0 && dropped_ == 0 && !delivering_; });
}

}  // namespace hdsml_jni
