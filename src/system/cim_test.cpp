// The platform-free part of the management-query service: the argument
// checks, the WQL text, and the release of a result.
#include "system/cim.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testing/cim_fields.h"

namespace {

using Fields = testing_support::CimFields;

// Cim with the queries left out: only freeResult is under test.
class ResultOnlyCim : public Cim {
 public:
  uint32_t queryWhere(char**, const char*, const char*, int32_t, CimResult**, const char*) override { return 0; }
  uint32_t query(char**, const char*, int32_t, CimResult**, const char*) override { return 0; }
};

TEST(CimQueryTextTest, JoinsTheFieldsWithCommaAndBlankBeforeTheClass) {
  Fields fields({"DeviceID", "Size", "FreeSpace"});
  EXPECT_EQ(buildCimQueryText(fields.get(), fields.count(), "Win32_LogicalDisk", nullptr),
            "SELECT DeviceID, Size, FreeSpace FROM Win32_LogicalDisk");
}

TEST(CimQueryTextTest, AddsTheWhereClauseBehindTheClass) {
  Fields fields({"DeviceID"});
  EXPECT_EQ(buildCimQueryText(fields.get(), fields.count(), "Win32_LogicalDisk", "DriveType = 3"),
            "SELECT DeviceID FROM Win32_LogicalDisk WHERE DriveType = 3");
}

TEST(CimQueryTextTest, AFieldNameOfSixtyCharactersIsCutToFiftyInTheQueryText) {
  const std::string sixty(60, 'F');
  Fields fields({sixty});
  EXPECT_EQ(buildCimQueryText(fields.get(), fields.count(), "Win32_DiskDrive", nullptr),
            "SELECT " + std::string(50, 'F') + " FROM Win32_DiskDrive");
}

TEST(CimQueryTextTest, ClassNameIsCutToFiftyAndTheClauseToFiveHundredCharacters) {
  Fields fields({"A"});
  const std::string className(70, 'C');
  const std::string clause(600, 'w');
  EXPECT_EQ(buildCimQueryText(fields.get(), fields.count(), className.c_str(), clause.c_str()),
            "SELECT A FROM " + std::string(50, 'C') + " WHERE " + std::string(500, 'w'));
}

TEST(CimArgumentsTest, ANullFieldListGives25) {
  EXPECT_EQ(checkCimArguments(nullptr, "Win32_DiskDrive", 1, false, nullptr), kCimNullField);
  EXPECT_EQ(kCimNullField, 25u);
}

TEST(CimArgumentsTest, ANullNameInTheFieldListGives25) {
  char name[] = "Model";
  char* fields[] = {name, nullptr};
  EXPECT_EQ(checkCimArguments(fields, "Win32_DiskDrive", 2, false, nullptr), kCimNullField);
}

TEST(CimArgumentsTest, ANullClassNameGives26) {
  Fields fields({"Model"});
  EXPECT_EQ(checkCimArguments(fields.get(), nullptr, 1, false, nullptr), kCimNullClass);
  EXPECT_EQ(kCimNullClass, 26u);
}

TEST(CimArgumentsTest, AFieldCountBelowOneGives27) {
  Fields fields({"Model"});
  EXPECT_EQ(checkCimArguments(fields.get(), "Win32_DiskDrive", 0, false, nullptr), kCimBadFieldCount);
  EXPECT_EQ(checkCimArguments(fields.get(), "Win32_DiskDrive", -3, false, nullptr), kCimBadFieldCount);
  EXPECT_EQ(kCimBadFieldCount, 27u);
}

TEST(CimArgumentsTest, ANullWhereClauseGives29OnlyWhenOneIsNeeded) {
  Fields fields({"Model"});
  EXPECT_EQ(checkCimArguments(fields.get(), "Win32_DiskDrive", 1, true, nullptr), kCimNullWhere);
  EXPECT_EQ(checkCimArguments(fields.get(), "Win32_DiskDrive", 1, false, nullptr), kCimSuccess);
  EXPECT_EQ(kCimNullWhere, 29u);
}

TEST(CimArgumentsTest, TheFieldCountIsCheckedBeforeTheNamesSoAnEmptyListIsNeverRead) {
  // The list holds no valid entry at all; with a count of 0 it must not be read.
  char* fields[] = {nullptr};
  EXPECT_EQ(checkCimArguments(fields, "Win32_DiskDrive", 0, false, nullptr), kCimBadFieldCount);
}

TEST(CimFreeResultTest, FreeResultOnANullPointerOrAPointerToNullDoesNothing) {
  ResultOnlyCim cim;
  cim.freeResult(nullptr);
  CimResult* none = nullptr;
  cim.freeResult(&none);
  EXPECT_EQ(none, nullptr);
}

TEST(CimFreeResultTest, FreeResultReleasesTheRowsAndNullsThePointer) {
  ResultOnlyCim cim;
  auto* result = new CimResult;
  result->rows.push_back({"C:", "NTFS"});
  cim.freeResult(&result);
  EXPECT_EQ(result, nullptr);
}

TEST(CimStatusTest, StatusCodesHaveTheirDocumentedValues) {
  EXPECT_EQ(kCimSuccess, 0u);
  EXPECT_EQ(kCimComInitFailed, 16u);
  EXPECT_EQ(kCimSecurityFailed, 17u);
  EXPECT_EQ(kCimNoLocator, 18u);
  EXPECT_EQ(kCimConnectFailed, 19u);
  EXPECT_EQ(kCimProxyBlanketFailed, 20u);
  EXPECT_EQ(kCimQueryFailed, 21u);
  EXPECT_EQ(kCimReadFailed, 23u);
  EXPECT_EQ(kCimNullQuery, 28u);
  EXPECT_EQ(kCimComAlreadyInitialised, 91u);
}

}  // namespace
