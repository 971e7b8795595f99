#include "tools/input/Footage.h"

namespace hdsreplay {

bool Footage::advance() {
  ++index_;
  if (index_ == 0) input_.next();  // the first frame, which the lead holds
  if (index_ < lead_) {
    part_ = Part::Lead;
    return true;
  }
  // The first input frame was read above; the others as they come.
  if (part_ != Part::Tail && (index_ == lead_ || input_.next())) {
    part_ = Part::Input;
    return true;
  }
  part_ = Part::Tail;
  return index_ < lead_ + input_.framesRead() + tail_;
}

}  // namespace hdsreplay
