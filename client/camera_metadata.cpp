#include "client/camera_metadata.h"

camera_metadata::camera_metadata(const camera_metadata& other) { *this = other; }

camera_metadata& camera_metadata::operator=(const camera_metadata& other) {
  if (this == &other) return *this;

  word0 = other.word0;
  lensMoving = other.lensMoving;
  word2 = other.word2;
  word3 = other.word3;
  word4 = other.word4;
  word5 = other.word5;
  word6 = other.word6;
  word7 = other.word7;
  word8 = other.word8;
  exposureTime = other.exposureTime;

  if (entryCount >= 1 && entries != nullptr) delete[] entries;

  entryCount = other.entryCount;
  if (entryCount < 1) {
    // Nothing to copy. Drop the released pointer rather than keep it dangling:
    // the count already says there are no entries, and a null pointer cannot be
    // released twice if a later assignment brings the count back up.
    entries = nullptr;
    return *this;
  }

  entries = new camera_metadata_entry[entryCount];
  for (int32_t i = 0; i < entryCount; ++i) {
    for (int w = 0; w < 11; ++w) entries[i].words[w] = other.entries[i].words[w];
  }
  return *this;
}

camera_metadata::~camera_metadata() {
  if (entryCount >= 1 && entries != nullptr) delete[] entries;
}
