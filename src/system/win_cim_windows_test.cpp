// WinCim on a real Win32 (Windows or Wine): COM, the WMI locator and WQL
// queries of Win32_LogicalDisk, with the fields the module reads. The same
// service is tested on the simulated PC's WMI in win_cim_test.cpp.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "system/win_cim.h"
#include "testing/cim_fields.h"

namespace {

using Fields = testing_support::CimFields;

constexpr const char* kCimv2 = "ROOT\\CIMV2";

// "C:" for the drive the system runs from.
std::string systemDeviceId() {
  char windows[MAX_PATH] = {};
  if (GetSystemWindowsDirectoryA(windows, MAX_PATH) == 0) return "C:";
  return std::string(1, windows[0]) + ":";
}

TEST(WinCimOnWindows, LogicalDisksListTheSystemDriveAsAFixedDiskWithItsFileSystem) {
  WinCim cim;
  Fields fields({"DeviceID", "DriveType", "FileSystem"});
  CimResult* result = nullptr;
  ASSERT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimSuccess);
  ASSERT_NE(result, nullptr);
  bool found = false;
  for (const CimResult::Row& row : result->rows) {
    ASSERT_EQ(row.size(), 3u);
    if (row[0] != systemDeviceId()) continue;
    found = true;
    EXPECT_EQ(row[1], "3") << "DriveType 3: a local fixed disk, as a VT_I4 in decimal";
    EXPECT_FALSE(row[2].empty());
  }
  EXPECT_TRUE(found) << "no row for " << systemDeviceId();
  cim.freeResult(&result);
  EXPECT_EQ(result, nullptr);
}

TEST(WinCimOnWindows, WhereClauseKeepsOnlyTheRowsThatMatch) {
  WinCim cim;
  Fields fields({"DeviceID", "DriveType"});
  CimResult* result = nullptr;
  const std::string where = "DeviceID = '" + systemDeviceId() + "'";
  ASSERT_EQ(cim.queryWhere(fields.get(), where.c_str(), "Win32_LogicalDisk", fields.count(), &result, kCimv2),
            kCimSuccess);
  ASSERT_NE(result, nullptr);
  ASSERT_EQ(result->rows.size(), 1u);
  EXPECT_EQ(result->rows[0][0], systemDeviceId());
  cim.freeResult(&result);
}

TEST(WinCimOnWindows, QueriesRunOneAfterAnotherOnTheSameThread) {
  // Each query initialises COM and undoes it; a second one starts afresh.
  WinCim cim;
  Fields fields({"DeviceID"});
  for (int round = 0; round < 3; ++round) {
    CimResult* result = nullptr;
    ASSERT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimSuccess) << round;
    ASSERT_NE(result, nullptr);
    EXPECT_FALSE(result->rows.empty());
    cim.freeResult(&result);
  }
}

TEST(WinCimOnWindows, UnknownNamespaceFailsToConnectAndLeavesTheResultAlone) {
  WinCim cim;
  Fields fields({"DeviceID"});
  CimResult kept;
  CimResult* result = &kept;
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, "ROOT\\NO_SUCH_NAMESPACE"),
            kCimConnectFailed);
  EXPECT_EQ(result, &kept);
}

TEST(WinCimOnWindows, ClassObjectOfTheLogicalDisksIsFetchedAndHandedBack) {
  WinCim cim;
  IWbemLocator* locator = nullptr;
  IWbemServices* services = nullptr;
  IWbemClassObject* diskClass = nullptr;
  ASSERT_EQ(cim.openClass(kCimv2, "Win32_LogicalDisk", &locator, &services, &diskClass), kCimSuccess);
  EXPECT_NE(locator, nullptr);
  EXPECT_NE(services, nullptr);
  EXPECT_NE(diskClass, nullptr);
  cim.closeClass(locator, services, diskClass);
}

}  // namespace
