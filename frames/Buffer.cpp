#include "frames/Buffer.h"

Buffer::Buffer() = default;

Buffer::~Buffer() {
  stopWait();
  clear();
}

void Buffer::push_front(FrameData* frame) {
  std::lock_guard<std::mutex> guard(mutex);
  frame->incRef();
  queue.push_front(frame);
  ready.notify_all();
}

FrameData* Buffer::pop_front() {
  std::unique_lock<std::mutex> guard(mutex);
  ready.wait(guard, [this] { return !queue.empty() || stopped; });
  if (queue.empty()) return nullptr;
  FrameData* frame = queue.front();
  queue.pop_front();
  return frame;
}

void Buffer::clear() {
  std::lock_guard<std::mutex> guard(mutex);
  while (!queue.empty()) {
    FrameData* frame = queue.front();
    if (frame != nullptr) frame->decRef();
    queue.pop_front();
  }
}

void Buffer::stopWait() {
  std::lock_guard<std::mutex> guard(mutex);
  stopped = true;
  ready.notify_all();
}
