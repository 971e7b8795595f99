#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

const char* statusName(int status) {
  switch (status) {
    case kStatusMotion:
      return "MOTION";
    case kStatusAbsence:
      return "ABSENCE";
    case kStatusNoMotion:
      return "NO_MOTION";
    case kStatusNone:
      return "NONE";
  }
  return "?";
}

}  // namespace hdsreplay
