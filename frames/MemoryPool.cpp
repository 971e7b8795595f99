#include "frames/MemoryPool.h"

MemoryPool::MemoryPool(int count, int width, int height)
    : count(count), width(width), height(height) {
  for (int i = 0; i < count; ++i) frames.push_front(new FrameData(height, width));
}

MemoryPool::~MemoryPool() {
  for (int i = 0; i < count; ++i) {
    delete frames[i];
    frames[i] = nullptr;
  }
}

FrameData* MemoryPool::newFrame() {
  for (int i = 0; i < count; ++i) {
    if (frames[i]->getRef() == 0) return frames[i];
  }
  return nullptr;
}
