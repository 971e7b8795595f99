// The frames a replay hands over, in order: the input's first frame held for
// the lead (a still scene before it), the input's frames, then its last frame
// held for the tail. One thread.
#pragma once

#include "tools/input/FrameSource.h"
#include "tools/input/InputFrames.h"

namespace hdsreplay {

class Footage {
 public:
  enum class Part { Lead, Input, Tail };

  Footage(InputFrames& input, long leadFrames, long tailFrames)
      : input_(input), lead_(leadFrames), tail_(tailFrames) {}
  Footage(const Footage&) = delete;
  Footage& operator=(const Footage&) = delete;

  // Moves on to the next frame; false after the last. Throws what the input throws.
  bool advance();

  long index() const { return index_; }  // of the frame handed over, from 0
  Part part() const { return part_; }
  bool held() const { return part_ != Part::Input; }
  // The input frame shown: the first during the lead, the last during the tail.
  long inputIndex() const { return part_ == Part::Lead ? 0 : input_.framesRead() - 1; }
  const SourceFrame& frame() const { return input_.last(); }

 private:
  InputFrames& input_;
  const long lead_, tail_;
  long index_ = -1;
  Part part_ = Part::Lead;
};

}  // namespace hdsreplay
