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

std::vector<ReplayRecord> fromFirstFrame(std::vector<ReplayRecord> records) {
  if (records.empty() || records.front().timestampMs == 0) return records;
  const int64_t start = records.front().timestampMs;
  for (ReplayRecord& r : records) {
    r.timestampMs -= start;
    r.reportTimestampMs -= start;
  }
  return records;
}

}  // namespace hdsreplay
