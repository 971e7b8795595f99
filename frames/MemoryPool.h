// Fixed pool of frame records, all allocated up front so that no pixel memory
// is allocated while frames flow. The pool owns its records for its whole life
// and lends them out by reference count. newFrame() is for one producer thread
// only (it reads counts without reserving); any thread may lower a count.
#pragma once

#include <deque>

#include "frames/FrameData.h"
#include "hdsml_export.h"

class HDSML_EXPORT MemoryPool {
 public:
  // Builds count records of height rows by width columns.
  MemoryPool(int count, int width, int height);
  // Frees every record, whatever its count.
  ~MemoryPool();

  MemoryPool(const MemoryPool&) = delete;
  MemoryPool& operator=(const MemoryPool&) = delete;

  // First record whose count is exactly 0, or null when all are held. Takes no
  // reference: the record stays free until someone calls incRef().
  FrameData* newFrame();

  int count;
  int width;
  int height;
  std::deque<FrameData*> frames;  // owned; the last one created stands first
};
