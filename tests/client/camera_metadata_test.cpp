#include "client/camera_metadata.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

// The host hands the record over by address, so its layout is an interface.
static_assert(offsetof(camera_metadata, exposureTime) == 36, "exposureTime offset");
static_assert(sizeof(void*) != 8 || offsetof(camera_metadata, entries) == 48, "entries offset");

namespace {

constexpr size_t kScalars = offsetof(camera_metadata, entryCount);  // word0 .. exposureTime

// A record whose scalar bytes all equal base and whose count entries hold base, base + 1, ...
camera_metadata makeRecord(int count, int base) {
  camera_metadata record;
  std::memset(static_cast<void*>(&record), base, kScalars);
  record.entryCount = count;
  record.entries = new camera_metadata_entry[count];
  for (int i = 0; i < count * 11; ++i) record.entries[i / 11].words[i % 11] = base + i;
  return record;
}

TEST(CameraMetadataTest, CopiesOwnTheirEntriesAndSelfOrEmptyAssignmentReleasesNothingTwice) {
  camera_metadata source = makeRecord(3, 100);
  camera_metadata assigned = makeRecord(2, 90);
  assigned = source;  // replaces the two entries it had
  camera_metadata constructed(source);
  source.entries[2].words[10] = -5;
  camera_metadata& alias = assigned;
  assigned = alias;
  for (const camera_metadata* copy : {&assigned, &constructed}) {
    EXPECT_EQ(std::memcmp(copy, &source, kScalars), 0);
    ASSERT_EQ(copy->entryCount, 3);
    EXPECT_NE(copy->entries, source.entries);
    for (int i = 0; i < 33; ++i) EXPECT_EQ(copy->entries[i / 11].words[i % 11], 100 + i);
  }

  assigned = camera_metadata();  // still lens, unknown exposure, no entries
  EXPECT_EQ(assigned.lensMoving, 0);
  EXPECT_EQ(assigned.word8, -1.0f);
  EXPECT_EQ(assigned.exposureTime, -1);
  EXPECT_EQ(assigned.entryCount, 0);
}

}  // namespace
