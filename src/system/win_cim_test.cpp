// WinCim on the simulated PC: queries of the machine's management classes,
// where each status comes from, how values become text, and that every COM
// object, string and apartment is handed back.
#include "system/win_cim.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sim/windows/wmi.h"
#include "testing/cim_fields.h"
#include "testing/simulated_pc.h"

namespace {

using Fields = testing_support::CimFields;

constexpr const char* kCimv2 = "ROOT\\CIMV2";

class WinCimTest : public mstest::SimulatedPcTest {
 protected:
  // A machine without disks whose "wmi" key is `wmi`.
  void installWmi(const std::string& wmi) { installJson(R"({"name": "wmi", "wmi": )" + wmi + "}"); }

  // Nothing of COM is left behind by a call.
  void expectNothingHeld() {
    const sim::ComUsage usage = sim::comUsage();
    EXPECT_EQ(usage.objects, 0);
    EXPECT_EQ(usage.strings, 0);
    EXPECT_EQ(usage.arrays, 0);
    EXPECT_EQ(usage.initialisations, 0);
  }

  bool called(const std::string& line) {
    for (const std::string& call : sim::managementCalls()) {
      if (call == line) return true;
    }
    return false;
  }

  WinCim cim;
};

TEST_F(WinCimTest, QueryOfTheLogicalDisksListsEachDriveLetterWithItsFields) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID", "VolumeName", "FileSystem", "DriveType"});
  CimResult* result = nullptr;
  ASSERT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimSuccess);
  ASSERT_NE(result, nullptr);
  ASSERT_EQ(result->rows.size(), 2u);
  EXPECT_EQ(result->rows[0], (CimResult::Row{"C:", "Windows", "NTFS", "3"}));
  EXPECT_EQ(result->rows[1], (CimResult::Row{"D:", "DATA", "NTFS", "3"}));
  cim.freeResult(&result);
  EXPECT_EQ(result, nullptr);
  expectNothingHeld();
}

TEST_F(WinCimTest, QueryWhereSendsTheWqlTextAndKeepsOnlyTheMatchingRows) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID", "Model"});
  CimResult* result = nullptr;
  ASSERT_EQ(cim.queryWhere(fields.get(), "Index = 2", "Win32_DiskDrive", fields.count(), &result, kCimv2),
            kCimSuccess);
  EXPECT_TRUE(called("ExecQuery WQL SELECT DeviceID, Model FROM Win32_DiskDrive WHERE Index = 2"));
  ASSERT_NE(result, nullptr);
  ASSERT_EQ(result->rows.size(), 1u);
  EXPECT_EQ(result->rows[0][0], "\\\\.\\PHYSICALDRIVE2");
  cim.freeResult(&result);
  expectNothingHeld();
}

TEST_F(WinCimTest, AQueryWithNoMatchingObjectLeavesOutNullWithStatusZero) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.queryWhere(fields.get(), "DeviceID = 'Q:'", "Win32_LogicalDisk", fields.count(), &result, kCimv2),
            kCimSuccess);
  EXPECT_EQ(result, nullptr);
  expectNothingHeld();
}

TEST_F(WinCimTest, QueryWithFieldCountZeroGives27BeforeAnyComCall) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", 0, &result, kCimv2), kCimBadFieldCount);
  EXPECT_TRUE(sim::managementCalls().empty());
  EXPECT_EQ(result, nullptr);
}

TEST_F(WinCimTest, NullArgumentsAreRefusedBeforeAnyComCall) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(nullptr, "Win32_LogicalDisk", 1, &result, kCimv2), kCimNullField);
  EXPECT_EQ(cim.query(fields.get(), nullptr, 1, &result, kCimv2), kCimNullClass);
  EXPECT_EQ(cim.queryWhere(fields.get(), nullptr, "Win32_LogicalDisk", 1, &result, kCimv2), kCimNullWhere);
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", 1, nullptr, kCimv2), kCimNullField);
  EXPECT_TRUE(sim::managementCalls().empty());
}

TEST_F(WinCimTest, AFieldNameOfSixtyCharactersReachesTheServiceCutToFifty) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({std::string(60, 'X')});
  CimResult* result = nullptr;
  // The class has no such property, so the service refuses the query.
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimQueryFailed);
  EXPECT_TRUE(called("ExecQuery WQL SELECT " + std::string(50, 'X') + " FROM Win32_LogicalDisk"));
  expectNothingHeld();
}

TEST_F(WinCimTest, ConnectionRunsInTheDocumentedOrderWithTheDocumentedArguments) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  ASSERT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimSuccess);
  cim.freeResult(&result);
  const std::vector<std::string> calls = sim::managementCalls();
  ASSERT_GE(calls.size(), 7u);
  EXPECT_EQ(calls[0], "CoInitializeEx 2");            // apartment threaded
  EXPECT_EQ(calls[1], "CoInitializeSecurity -1 0 3 0");  // default authentication, impersonate
  EXPECT_EQ(calls[2], "CoCreateInstance 1");          // in-process server
  EXPECT_EQ(calls[3], "ConnectServer ROOT\\CIMV2");
  EXPECT_EQ(calls[4], "CoSetProxyBlanket 10 0 3 3 0");  // WinNT, no authorisation, call level, impersonate
  EXPECT_EQ(calls[5], "ExecQuery WQL SELECT DeviceID FROM Win32_LogicalDisk");
  EXPECT_EQ(calls.back(), "CoUninitialize");
}

TEST_F(WinCimTest, ASecondQueryAcceptsSecurityThatIsAlreadySet) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  ASSERT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimSuccess);
  cim.freeResult(&result);
  // Security can be set once a process: the second call is too late, and fine.
  ASSERT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimSuccess);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->rows.size(), 2u);
  cim.freeResult(&result);
  expectNothingHeld();
}

TEST_F(WinCimTest, AThreadInAnotherComModeIsUsedAsItIsAndLeftInitialised) {
  ASSERT_NE(installDefault(), nullptr);
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimSuccess);
  EXPECT_TRUE(cim.comAlreadyInitialised);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->rows.size(), 2u);
  cim.freeResult(&result);
  // The caller's apartment is still there, and only the caller undoes it.
  EXPECT_EQ(sim::comUsage().initialisations, 1);
  EXPECT_FALSE(called("CoUninitialize"));
  CoUninitialize();
  expectNothingHeld();
}

TEST_F(WinCimTest, AFailedCoInitializeExGives16) {
  installWmi(R"({"failures": ["CoInitializeEx"]})");
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimComInitFailed);
  EXPECT_FALSE(called("CoCreateInstance 1"));
  expectNothingHeld();
}

TEST_F(WinCimTest, AFailedCoInitializeSecurityUndoesComAndGives17) {
  installWmi(R"({"failures": ["CoInitializeSecurity"]})");
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimSecurityFailed);
  EXPECT_TRUE(called("CoUninitialize"));
  expectNothingHeld();
}

TEST_F(WinCimTest, NoLocatorGives18) {
  installWmi(R"({"failures": ["CoCreateInstance"]})");
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimNoLocator);
  expectNothingHeld();
}

TEST_F(WinCimTest, AnUnknownNamespaceGives19) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, "ROOT\\NOWHERE"),
            kCimConnectFailed);
  expectNothingHeld();
}

TEST_F(WinCimTest, AFailedProxyBlanketGives20) {
  installWmi(R"({"failures": ["CoSetProxyBlanket"]})");
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Win32_LogicalDisk", fields.count(), &result, kCimv2), kCimProxyBlanketFailed);
  expectNothingHeld();
}

TEST_F(WinCimTest, AnUnknownClassGives21) {
  ASSERT_NE(installDefault(), nullptr);
  Fields fields({"DeviceID"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Win32_NoSuchClass", fields.count(), &result, kCimv2), kCimQueryFailed);
  expectNothingHeld();
}

TEST_F(WinCimTest, AFailedGetGives23AndKeepsTheOldResultPointer) {
  installWmi(R"({"failures": ["Get:B"], "objects": [
      {"namespace": "ROOT\\WMI", "class": "Probe", "properties": {"A": 1, "B": 2}}]})");
  Fields fields({"A", "B"});
  CimResult earlier;
  CimResult* result = &earlier;
  EXPECT_EQ(cim.query(fields.get(), "Probe", fields.count(), &result, "ROOT\\WMI"), kCimReadFailed);
  EXPECT_EQ(result, &earlier);
  expectNothingHeld();
}

TEST_F(WinCimTest, AFailedGetLetsTheWalkGoOnToTheOtherFields) {
  installJson(R"({"name": "wmi", "wmi": {"failures": ["Get:A"], "objects": [
      {"namespace": "ROOT\\WMI", "class": "Probe", "properties": {"A": 1, "B": 2}}]}})");
  Fields fields({"A", "B"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Probe", fields.count(), &result, "ROOT\\WMI"), kCimReadFailed);
  EXPECT_TRUE(called("Get A"));
  EXPECT_TRUE(called("Get B"));
  EXPECT_EQ(result, nullptr);
  expectNothingHeld();
}

TEST_F(WinCimTest, ARowWithoutItsObjectGives23) {
  installWmi(R"({"failures": ["NextWithoutObject"], "objects": [
      {"namespace": "ROOT\\WMI", "class": "Probe", "properties": {"A": 1}}]})");
  Fields fields({"A"});
  CimResult* result = nullptr;
  EXPECT_EQ(cim.query(fields.get(), "Probe", fields.count(), &result, "ROOT\\WMI"), kCimReadFailed);
  EXPECT_EQ(result, nullptr);
  expectNothingHeld();
}

// One object of class Probe in ROOT\WMI with each kind of value.
class WinCimValueTest : public WinCimTest {
 protected:
  void SetUp() override {
    WinCimTest::SetUp();
    installWmi(R"({"objects": [{"namespace": "ROOT\\WMI", "class": "Probe", "properties": {
        "Int": -42,
        "Text": "Disk_0",
        "Long": ")" + std::string(600, 'L') + R"(",
        "Signed": {"vt": "I1", "value": 65},
        "Byte": {"vt": "UI1", "value": 66},
        "Word": {"vt": "UI2", "value": 513},
        "Bytes": {"vt": "UI1[]", "value": [72, 105, 0, 33]},
        "Flag": true,
        "Real": 1.5,
        "Nothing": null,
        "Names": {"vt": "BSTR[]", "value": ["a", "b"]}}}]})");
  }

  std::string valueOf(const char* field) {
    Fields fields({field});
    CimResult* result = nullptr;
    EXPECT_EQ(cim.query(fields.get(), "Probe", fields.count(), &result, "ROOT\\WMI"), kCimSuccess) << field;
    if (result == nullptr || result->rows.size() != 1 || result->rows[0].size() != 1) {
      ADD_FAILURE() << "no single value for " << field;
      cim.freeResult(&result);
      return "<none>";
    }
    const std::string value = result->rows[0][0];
    cim.freeResult(&result);
    return value;
  }
};

TEST_F(WinCimValueTest, AnI4IsWrittenInDecimal) { EXPECT_EQ(valueOf("Int"), "-42"); }

TEST_F(WinCimValueTest, AStringIsNarrowed) { EXPECT_EQ(valueOf("Text"), "Disk_0"); }

TEST_F(WinCimValueTest, AStringIsCutAtFiveHundredCharacters) { EXPECT_EQ(valueOf("Long"), std::string(500, 'L')); }

TEST_F(WinCimValueTest, AnI1AndAUi1BecomeTheCharacterOfTheirCode) {
  EXPECT_EQ(valueOf("Signed"), "A");
  EXPECT_EQ(valueOf("Byte"), "B");
}

TEST_F(WinCimValueTest, AUi2IsWrittenInDecimal) { EXPECT_EQ(valueOf("Word"), "513"); }

TEST_F(WinCimValueTest, AByteArrayGivesItsBytesInnerNulsAndAll) {
  EXPECT_EQ(valueOf("Bytes"), std::string("Hi\0!", 4));
}

TEST_F(WinCimValueTest, OtherTypesGiveTheEmptyText) {
  EXPECT_EQ(valueOf("Flag"), "");
  EXPECT_EQ(valueOf("Real"), "");
  EXPECT_EQ(valueOf("Nothing"), "");
  EXPECT_EQ(valueOf("Names"), "");
  expectNothingHeld();
}

TEST(CimValueTextTest, AMalformedByteArrayOrANullStringGivesTheEmptyText) {
  VARIANT value;
  VariantInit(&value);
  value.vt = VT_ARRAY | VT_UI1;
  value.parray = nullptr;
  EXPECT_EQ(cimValueText(value), "");
  value.vt = VT_BSTR;
  value.bstrVal = nullptr;
  EXPECT_EQ(cimValueText(value), "");
}

TEST_F(WinCimTest, OpenClassGivesTheClassObjectAndCloseClassUndoesEverything) {
  ASSERT_NE(installDefault(), nullptr);
  IWbemLocator* locator = nullptr;
  IWbemServices* services = nullptr;
  IWbemClassObject* classObject = nullptr;
  ASSERT_EQ(cim.openClass(kCimv2, "Win32_LogicalDisk", &locator, &services, &classObject), kCimSuccess);
  ASSERT_NE(classObject, nullptr);
  EXPECT_TRUE(called("GetObject Win32_LogicalDisk"));
  EXPECT_EQ(sim::comUsage().initialisations, 1);
  cim.closeClass(locator, services, classObject);
  expectNothingHeld();
}

TEST_F(WinCimTest, OpenClassOfAnUnknownClassHoldsNothing) {
  ASSERT_NE(installDefault(), nullptr);
  IWbemLocator* locator = nullptr;
  IWbemServices* services = nullptr;
  IWbemClassObject* classObject = nullptr;
  EXPECT_EQ(cim.openClass(kCimv2, "Win32_Nothing", &locator, &services, &classObject), kCimReadFailed);
  EXPECT_EQ(locator, nullptr);
  EXPECT_EQ(services, nullptr);
  EXPECT_EQ(classObject, nullptr);
  expectNothingHeld();
}

}  // namespace
