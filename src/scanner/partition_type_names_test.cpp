// The partition type tables and their lookups.
#include "scanner/partition_type_names.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "scanner/partition_type_rows_expected.h"

namespace {

TEST(PartitionTypeNames, TablesHoldAllTheirRowsInOrder) {
  const size_t gptRows = sizeof(partition_rows::kGpt) / sizeof(partition_rows::kGpt[0]);
  const size_t mbrRows = sizeof(partition_rows::kMbr) / sizeof(partition_rows::kMbr[0]);
  ASSERT_EQ(gptRows, 73u);
  ASSERT_EQ(mbrRows, 185u);
  ASSERT_EQ(gptTypeRows().size(), gptRows);
  ASSERT_EQ(mbrTypeRows().size(), mbrRows);
  for (size_t i = 0; i < gptRows; ++i) {
    EXPECT_STREQ(gptTypeRows()[i].guid, partition_rows::kGpt[i].key) << "GPT row " << i;
    EXPECT_STREQ(gptTypeRows()[i].name, partition_rows::kGpt[i].name) << "GPT row " << i;
  }
  for (size_t i = 0; i < mbrRows; ++i) {
    EXPECT_EQ(static_cast<int>(mbrTypeRows()[i].type), partition_rows::kMbr[i].type) << "MBR row " << i;
    EXPECT_STREQ(mbrTypeRows()[i].name, partition_rows::kMbr[i].name) << "MBR row " << i;
  }
}

TEST(PartitionTypeNames, EveryKeyLooksUpTheNameOfItsLastRow) {
  PartitionTypeNames names;
  std::map<std::string, std::string> lastGpt;
  for (const partition_rows::GptRow& row : partition_rows::kGpt) lastGpt[row.key] = row.name;
  for (const auto& entry : lastGpt) EXPECT_EQ(names.gptTypeName(entry.first), entry.second) << entry.first;
  std::map<int, std::string> lastMbr;
  for (const partition_rows::MbrRow& row : partition_rows::kMbr) lastMbr[row.type] = row.name;
  for (int type = 0; type < 256; ++type) {
    const auto it = lastMbr.find(type);
    EXPECT_EQ(names.mbrTypeName(static_cast<uint8_t>(type)), it == lastMbr.end() ? "" : it->second) << type;
  }
}

TEST(PartitionTypeNames, LaterRowOfADuplicatedGuidWins) {
  PartitionTypeNames names;
  EXPECT_EQ(names.gptTypeName("bfbfafe7-a34f-448a-9a5b-6213eb736c22"), "_CEPH_|JOURNAL");
  EXPECT_EQ(names.gptTypeName("6a898cc3-1dd2-11b2-99a6-080020736631"), "_SOLARIS_/USR_PARTITION");
}

TEST(PartitionTypeNames, UnknownGptTypeHasNoName) {
  PartitionTypeNames names;
  EXPECT_EQ(names.gptTypeName("00000000-0000-0000-0000-000000000001"), "");
  EXPECT_EQ(names.gptTypeName("EBD0A0A2-B9E5-4433-87C0-68B6B72699C7"), "") << "keys are lower case";
  EXPECT_EQ(names.gptTypeName("ebd0a0a2-b9e5-4433-87c0-68b6b72699c7"), "_WINDOWS_BASIC_DATA_PARTITION");
}

TEST(PartitionTypeNames, MbrNamesAndUnnamedTypes) {
  PartitionTypeNames names;
  EXPECT_EQ(names.mbrTypeName(7), "IFS, HPFS, NTFS, exFAT");
  EXPECT_EQ(names.mbrTypeName(11), "FAT32");
  EXPECT_EQ(names.mbrTypeName(57), "Plan 9");
  EXPECT_EQ(names.mbrTypeName(5), "") << "the extended type has no name of its own";
  EXPECT_EQ(names.mbrTypeName(0), "");
}

TEST(PartitionTypeNames, FormatGuidGivesTheLowerCaseTextForm) {
  const uint8_t tail[8] = {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
  EXPECT_EQ(PartitionTypeNames::formatGuid(0xEBD0A0A2, 0xB9E5, 0x4433, tail), "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7");
}

TEST(PartitionTypeNames, ExtendedTypesFollowTheirOwnList) {
  for (uint64_t type : {5, 15, 21, 31, 34, 57, 59, 92, 94, 95, 133, 145, 153, 155, 165, 166, 169, 191, 197, 207, 213, 245}) {
    EXPECT_TRUE(isExtendedType(type)) << type;
  }
  EXPECT_TRUE(isExtendedType(57)) << "named Plan 9, still a container";
  EXPECT_FALSE(isExtendedType(7));
  EXPECT_FALSE(isExtendedType(0));
  EXPECT_FALSE(isExtendedType(0x105)) << "only the type byte's own values count";
}

TEST(PartitionTypeNames, GptTypeNameOfAGuidRecordLooksUpItsTextForm) {
  PartitionTypeNames names;
  const GUID ceph{0xBFBFAFE7, 0xA34F, 0x448A, {0x9A, 0x5B, 0x62, 0x13, 0xEB, 0x73, 0x6C, 0x22}};
  EXPECT_EQ(names.gptTypeName(ceph), "_CEPH_|JOURNAL");
  const GUID basicData{0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
  EXPECT_EQ(names.gptTypeName(basicData), "_WINDOWS_BASIC_DATA_PARTITION");
  const GUID unknown{0x00000001, 0x0002, 0x0003, {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_EQ(names.gptTypeName(unknown), "");
}

}  // namespace
