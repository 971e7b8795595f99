#include "client/camera_metadata.h"

#include <gtest/gtest.h>

#include <cstddef>

// The host hands the record over by address, so its layout is an interface.
static_assert(offsetof(camera_metadata, word8) == 32, "word8 offset");
static_assert(offsetof(camera_metadata, exposureTime) == 36, "exposureTime offset");
static_assert(offsetof(camera_metadata, entryCount) == 40, "entryCount offset");
static_assert(sizeof(void*) != 8 || offsetof(camera_metadata, entries) == 48, "entries offset");

namespace {

// A record carrying count entries whose words are all distinct, seeded by base.
camera_metadata makeRecord(int count, int base) {
  camera_metadata record;
  record.word0 = base;
  record.lensMoving = 1;
  record.word7 = base + 7;
  record.word8 = 0.5f;
  record.exposureTime = 33000;
  record.entryCount = count;
  if (count > 0) {
    record.entries = new camera_metadata_entry[count];
    for (int i = 0; i < count; ++i)
      for (int w = 0; w < 11; ++w) record.entries[i].words[w] = base + i * 11 + w;
  }
  return record;
}

void expectSameEntries(const camera_metadata& a, const camera_metadata& b) {
  ASSERT_EQ(a.entryCount, b.entryCount);
  for (int i = 0; i < a.entryCount; ++i)
    for (int w = 0; w < 11; ++w) EXPECT_EQ(a.entries[i].words[w], b.entries[i].words[w]);
}

TEST(CameraMetadataTest, DefaultRecordIsStillWithUnknownExposure) {
  camera_metadata record;
  EXPECT_EQ(record.word0, 0);
  EXPECT_EQ(record.lensMoving, 0);
  EXPECT_EQ(record.word2 | record.word3 | record.word4 | record.word5 | record.word6 | record.word7,
            0);
  EXPECT_EQ(record.word8, -1.0f);
  EXPECT_EQ(record.exposureTime, -1);
  EXPECT_EQ(record.entryCount, 0);
  EXPECT_EQ(record.entries, nullptr);
}

TEST(CameraMetadataTest, AssignmentCopiesEntriesIntoItsOwnArray) {
  camera_metadata source = makeRecord(3, 100);
  camera_metadata copy = makeRecord(2, 900);
  copy = source;

  EXPECT_EQ(copy.word0, 100);
  EXPECT_EQ(copy.lensMoving, 1);
  EXPECT_EQ(copy.word7, 107);
  EXPECT_EQ(copy.word8, 0.5f);
  EXPECT_EQ(copy.exposureTime, 33000);
  EXPECT_NE(copy.entries, source.entries);
  expectSameEntries(copy, source);

  const int before = copy.entries[2].words[10];
  source.entries[2].words[10] = -5;
  EXPECT_EQ(copy.entries[2].words[10], before);

  camera_metadata constructed(copy);
  EXPECT_NE(constructed.entries, copy.entries);
  expectSameEntries(constructed, copy);
}

TEST(CameraMetadataTest, AssigningRecordWithoutEntriesReleasesArray) {
  camera_metadata record = makeRecord(2, 0);
  record = camera_metadata();
  EXPECT_EQ(record.entryCount, 0);
  EXPECT_EQ(record.entries, nullptr);

  // Filling it again after the release must not free anything twice.
  camera_metadata refill = makeRecord(4, 50);
  record = refill;
  expectSameEntries(record, refill);
}

TEST(CameraMetadataTest, SelfAssignmentChangesNothing) {
  camera_metadata record = makeRecord(3, 7);
  camera_metadata_entry* entries = record.entries;
  camera_metadata& alias = record;
  record = alias;
  EXPECT_EQ(record.entries, entries);
  EXPECT_EQ(record.entryCount, 3);
  EXPECT_EQ(record.entries[2].words[10], 7 + 2 * 11 + 10);
}

}  // namespace
