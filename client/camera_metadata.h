// Per-frame metadata record that the camera application hands over with each
// preview frame. The library reads only lensMoving and exposureTime; every other
// field and the entries are carried verbatim. Each frame record keeps its own
// deep copy, so the record owns its entries array. Not thread-safe.
#pragma once

#include <cstdint>

#include "hdsml_export.h"

// One entry of the application's variable-length list: 11 opaque 32-bit words.
struct camera_metadata_entry {
  int32_t words[11];
};
static_assert(sizeof(camera_metadata_entry) == 44, "entries are 44 bytes each");

struct HDSML_EXPORT camera_metadata {
  camera_metadata() = default;
  camera_metadata(const camera_metadata& other);
  camera_metadata& operator=(const camera_metadata& other);
  ~camera_metadata();

  int32_t word0 = 0;
  int32_t lensMoving = 0;  // 1 while the lens moves; such frames are not analysed
  int32_t word2 = 0;
  int32_t word3 = 0;
  int32_t word4 = 0;
  int32_t word5 = 0;
  int32_t word6 = 0;
  int32_t word7 = 0;
  float word8 = -1.0f;
  int32_t exposureTime = -1;  // -1 when unknown
  int32_t entryCount = 0;
  camera_metadata_entry* entries = nullptr;  // owned, entryCount elements
};
