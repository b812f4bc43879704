// The simulated COM runtime and WMI service, used as a Windows client uses
// them: strings, variants and safe arrays; apartments and security; the
// classes built from the machine; ScheduleAutoChk; and the description's
// "wmi" key.
#include "sim/windows/wmi.h"

#include <gtest/gtest.h>

#include "sim/windows/face_state.h"
#include "sim/windows/face_test_support.h"

namespace sim {
namespace windows {
namespace testing {
namespace {

const GUID kLocatorClass = {0x4590F811, 0x1D3A, 0x11D0, {0x89, 0x1F, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
const GUID kLocatorInterface = {0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};

class WmiFaceTest : public FaceTest {
 protected:
  void TearDown() override {
    if (classObject != nullptr) classObject->Release();
    if (services != nullptr) services->Release();
    if (locator != nullptr) locator->Release();
    while (comUsage().initialisations > 0) CoUninitialize();
    FaceTest::TearDown();
  }

  // COM, a locator and the services of `space`.
  void connect(const char16_t* space = u"ROOT\\CIMV2") {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    void* made = nullptr;
    ASSERT_EQ(CoCreateInstance(kLocatorClass, nullptr, CLSCTX_INPROC_SERVER, kLocatorInterface, &made), S_OK);
    locator = static_cast<IWbemLocator*>(made);
    BSTR path = SysAllocString(space);
    ASSERT_EQ(locator->ConnectServer(path, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &services), S_OK);
    SysFreeString(path);
  }

  // The value of `field` in every row of a query, as text (numbers in decimal).
  std::vector<std::string> column(const char16_t* query, const char16_t* field) {
    std::vector<std::string> values;
    BSTR language = SysAllocString(u"WQL");
    BSTR text = SysAllocString(query);
    IEnumWbemClassObject* rows = nullptr;
    EXPECT_EQ(services->ExecQuery(language, text, WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                  &rows),
              S_OK);
    SysFreeString(language);
    SysFreeString(text);
    if (rows == nullptr) return values;
    for (;;) {
      IWbemClassObject* row = nullptr;
      ULONG returned = 0;
      rows->Next(WBEM_INFINITE, 1, &row, &returned);
      if (returned == 0) break;
      VARIANT value;
      VariantInit(&value);
      EXPECT_EQ(row->Get(field, 0, &value, nullptr, nullptr), S_OK);
      if (value.vt == VT_BSTR) values.push_back(narrow(value.bstrVal));
      if (value.vt == VT_I4) values.push_back(std::to_string(value.lVal));
      VariantClear(&value);
      row->Release();
    }
    rows->Release();
    return values;
  }

  // Runs ScheduleAutoChk on the drives; the method's ReturnValue, or -1.
  LONG scheduleAutoChk(const std::vector<const char16_t*>& drives) {
    BSTR className = SysAllocString(u"Win32_LogicalDisk");
    EXPECT_EQ(services->GetObject(className, 0, nullptr, &classObject, nullptr), S_OK);
    IWbemClassObject* signature = nullptr;
    IWbemClassObject* parameters = nullptr;
    EXPECT_EQ(classObject->GetMethod(u"ScheduleAutoChk", 0, &signature, nullptr), S_OK);
    EXPECT_EQ(signature->SpawnInstance(0, &parameters), S_OK);
    SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(drives.size()));
    for (LONG i = 0; i < static_cast<LONG>(drives.size()); ++i) {
      BSTR drive = SysAllocString(drives[static_cast<size_t>(i)]);
      EXPECT_EQ(SafeArrayPutElement(array, &i, drive), S_OK);
      SysFreeString(drive);
    }
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_ARRAY | VT_BSTR;
    value.parray = array;
    EXPECT_EQ(parameters->Put(u"LogicalDisk", 0, &value, 0), S_OK);
    VariantClear(&value);
    BSTR method = SysAllocString(u"ScheduleAutoChk");
    IWbemClassObject* out = nullptr;
    EXPECT_EQ(services->ExecMethod(className, method, 0, nullptr, parameters, &out, nullptr), S_OK);
    LONG result = -1;
    if (out != nullptr) {
      VARIANT returned;
      VariantInit(&returned);
      EXPECT_EQ(out->Get(u"ReturnValue", 0, &returned, nullptr, nullptr), S_OK);
      if (returned.vt == VT_I4) result = returned.lVal;
      VariantClear(&returned);
      out->Release();
    }
    SysFreeString(method);
    SysFreeString(className);
    parameters->Release();
    signature->Release();
    return result;
  }

  IWbemLocator* locator = nullptr;
  IWbemServices* services = nullptr;
  IWbemClassObject* classObject = nullptr;
};

Machine* installDefault() {
  std::string error;
  auto machine = Machine::defaultMachine();
  Machine* raw = machine.get();
  EXPECT_TRUE(installMachine(std::move(machine), &error)) << error;
  return raw;
}

bool installJson(const std::string& json, std::string* error) {
  auto machine = Machine::fromJsonText(json, error);
  if (!machine) return false;
  return installMachine(std::move(machine), error);
}

TEST_F(WmiFaceTest, ABstrCarriesItsByteLengthBeforeTheCharacters) {
  BSTR text = SysAllocString(u"C:");
  ASSERT_NE(text, nullptr);
  uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<uint8_t*>(text) - 4, 4);
  EXPECT_EQ(bytes, 4u);
  EXPECT_EQ(SysStringLen(text), 2u);
  EXPECT_EQ(text[2], 0);
  EXPECT_EQ(comUsage().strings, 1);
  SysFreeString(text);
  SysFreeString(nullptr);
  EXPECT_EQ(comUsage().strings, 0);
}

TEST_F(WmiFaceTest, ASafeArrayOfStringsKeepsCopiesAndFreesThemWithTheArray) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, 1);
  ASSERT_NE(array, nullptr);
  EXPECT_EQ(array->cDims, 1);
  EXPECT_EQ(array->cbElements, sizeof(BSTR));
  BSTR drive = SysAllocString(u"D:");
  LONG index = 0;
  EXPECT_EQ(SafeArrayPutElement(array, &index, drive), S_OK);
  SysFreeString(drive);
  LONG beyond = 1;
  EXPECT_EQ(SafeArrayPutElement(array, &beyond, drive), DISP_E_BADINDEX);
  BSTR copy = nullptr;
  EXPECT_EQ(SafeArrayGetElement(array, &index, &copy), S_OK);
  EXPECT_EQ(narrow(copy), "D:");
  SysFreeString(copy);
  VARIANT value;
  VariantInit(&value);
  value.vt = VT_ARRAY | VT_BSTR;
  value.parray = array;
  EXPECT_EQ(VariantClear(&value), S_OK);
  EXPECT_EQ(value.vt, VT_EMPTY);
  EXPECT_EQ(comUsage().strings, 0);
  EXPECT_EQ(comUsage().arrays, 0);
}

TEST_F(WmiFaceTest, AnApartmentKeepsItsModeAndCountsItsInitialisations) {
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
  EXPECT_EQ(comUsage().initialisations, 2);
  CoUninitialize();
  CoUninitialize();
  EXPECT_EQ(comUsage().initialisations, 0);
}

TEST_F(WmiFaceTest, SecurityIsSetOnceAProcessAndNeedsCom) {
  EXPECT_EQ(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, 0, 3, nullptr, 0, nullptr), CO_E_NOTINITIALIZED);
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  EXPECT_EQ(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, 0, 3, nullptr, 0, nullptr), S_OK);
  EXPECT_EQ(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, 0, 3, nullptr, 0, nullptr), RPC_E_TOO_LATE);
}

TEST_F(WmiFaceTest, TheLocatorNeedsComAndItsOwnClass) {
  void* made = nullptr;
  EXPECT_EQ(CoCreateInstance(kLocatorClass, nullptr, CLSCTX_INPROC_SERVER, kLocatorInterface, &made),
            CO_E_NOTINITIALIZED);
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  EXPECT_EQ(CoCreateInstance(kLocatorInterface, nullptr, CLSCTX_INPROC_SERVER, kLocatorInterface, &made),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(made, nullptr);
}

TEST_F(WmiFaceTest, AnUnknownNamespaceIsRefused) {
  ASSERT_NE(installDefault(), nullptr);
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  void* made = nullptr;
  ASSERT_EQ(CoCreateInstance(kLocatorClass, nullptr, CLSCTX_INPROC_SERVER, kLocatorInterface, &made), S_OK);
  locator = static_cast<IWbemLocator*>(made);
  BSTR path = SysAllocString(u"ROOT\\NOWHERE");
  EXPECT_EQ(locator->ConnectServer(path, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &services),
            WBEM_E_INVALID_NAMESPACE);
  EXPECT_EQ(services, nullptr);
  SysFreeString(path);
}

TEST_F(WmiFaceTest, LogicalDisksComeFromTheMachinesVolumes) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  EXPECT_EQ(column(u"SELECT DeviceID FROM Win32_LogicalDisk", u"DeviceID"), (std::vector<std::string>{"C:", "D:"}));
  EXPECT_EQ(column(u"SELECT VolumeSerialNumber FROM Win32_LogicalDisk WHERE DeviceID = 'C:'",
                   u"VolumeSerialNumber"),
            std::vector<std::string>{"5E1A7C02"});
  EXPECT_EQ(column(u"SELECT * FROM Win32_LogicalDisk WHERE VolumeName = 'data'", u"FileSystem"),
            std::vector<std::string>{"NTFS"});
}

TEST_F(WmiFaceTest, DiskDrivesComeFromTheMachinesDisks) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  const std::vector<std::string> ids = column(u"SELECT DeviceID FROM Win32_DiskDrive", u"DeviceID");
  ASSERT_EQ(ids.size(), 7u);
  EXPECT_EQ(ids[0], "\\\\.\\PHYSICALDRIVE0");
  EXPECT_EQ(column(u"SELECT InterfaceType FROM Win32_DiskDrive WHERE Index = 2", u"InterfaceType"),
            std::vector<std::string>{"SCSI"});
  EXPECT_EQ(column(u"SELECT Model FROM Win32_DiskDrive WHERE Index = 0", u"Model"),
            std::vector<std::string>{"WDC WD10EZEX-08WN4A0"});
}

TEST_F(WmiFaceTest, AQueryOfAnUnknownClassOrPropertyOrLanguageIsRefused) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  IEnumWbemClassObject* rows = nullptr;
  BSTR wql = SysAllocString(u"WQL");
  BSTR other = SysAllocString(u"SQL");
  BSTR unknownClass = SysAllocString(u"SELECT A FROM Win32_Nothing");
  BSTR unknownProperty = SysAllocString(u"SELECT Colour FROM Win32_LogicalDisk");
  BSTR fine = SysAllocString(u"SELECT DeviceID FROM Win32_LogicalDisk");
  EXPECT_EQ(services->ExecQuery(wql, unknownClass, 0, nullptr, &rows), WBEM_E_INVALID_CLASS);
  EXPECT_EQ(services->ExecQuery(wql, unknownProperty, 0, nullptr, &rows), WBEM_E_INVALID_QUERY);
  EXPECT_EQ(services->ExecQuery(other, fine, 0, nullptr, &rows), WBEM_E_INVALID_QUERY_TYPE);
  EXPECT_EQ(rows, nullptr);
  for (BSTR text : {wql, other, unknownClass, unknownProperty, fine}) SysFreeString(text);
}

TEST_F(WmiFaceTest, AProjectedRowHasOnlyTheSelectedProperties) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  BSTR wql = SysAllocString(u"WQL");
  BSTR query = SysAllocString(u"SELECT DeviceID FROM Win32_LogicalDisk");
  IEnumWbemClassObject* rows = nullptr;
  ASSERT_EQ(services->ExecQuery(wql, query, 0, nullptr, &rows), S_OK);
  IWbemClassObject* row = nullptr;
  ULONG returned = 0;
  ASSERT_EQ(rows->Next(WBEM_INFINITE, 1, &row, &returned), S_OK);
  ASSERT_EQ(returned, 1u);
  VARIANT value;
  VariantInit(&value);
  EXPECT_EQ(row->Get(u"Size", 0, &value, nullptr, nullptr), WBEM_E_NOT_FOUND);
  CIMTYPE type = 0;
  EXPECT_EQ(row->Get(u"deviceid", 0, &value, &type, nullptr), S_OK);
  EXPECT_EQ(type, CIM_STRING);
  VariantClear(&value);
  row->Release();
  rows->Release();
  SysFreeString(wql);
  SysFreeString(query);
}

TEST_F(WmiFaceTest, ScheduleAutoChkSchedulesAFixedLocalRoot) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  EXPECT_EQ(scheduleAutoChk({u"c:"}), 0);
  EXPECT_EQ(scheduledChecks(), std::vector<std::string>{"C:"});
}

TEST_F(WmiFaceTest, ScheduleAutoChkRefusesAnUnknownDriveAndSchedulesNothing) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  EXPECT_EQ(scheduleAutoChk({u"C:", u"Q:"}), 4);
  EXPECT_TRUE(scheduledChecks().empty());
}

TEST_F(WmiFaceTest, ScheduleAutoChkRefusesAPathThatIsNotTheRoot) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  EXPECT_EQ(scheduleAutoChk({u"C:\\Windows"}), 3);
}

TEST_F(WmiFaceTest, ScheduleAutoChkRefusesARemovableDrive) {
  std::string error;
  nlohmann::json machine = nlohmann::json::parse(Machine::defaultMachineJson());
  for (auto& disk : machine["disks"]) {
    if (disk["name"] == "emmc0") disk["removable"] = true;
  }
  ASSERT_TRUE(installJson(machine.dump(), &error)) << error;
  connect();
  EXPECT_EQ(scheduleAutoChk({u"D:"}), 2);
}

TEST_F(WmiFaceTest, APutOfTheWrongTypeIsATypeMismatch) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  BSTR className = SysAllocString(u"Win32_LogicalDisk");
  ASSERT_EQ(services->GetObject(className, 0, nullptr, &classObject, nullptr), S_OK);
  IWbemClassObject* signature = nullptr;
  IWbemClassObject* parameters = nullptr;
  ASSERT_EQ(classObject->GetMethod(u"ScheduleAutoChk", 0, &signature, nullptr), S_OK);
  ASSERT_EQ(signature->SpawnInstance(0, &parameters), S_OK);
  VARIANT value;
  VariantInit(&value);
  value.vt = VT_BSTR;
  value.bstrVal = SysAllocString(u"C:");
  EXPECT_EQ(parameters->Put(u"LogicalDisk", 0, &value, 0), WBEM_E_TYPE_MISMATCH);
  EXPECT_EQ(parameters->Put(u"NoSuchParameter", 0, &value, 0), WBEM_E_NOT_FOUND);
  VariantClear(&value);
  IWbemClassObject* missing = nullptr;
  EXPECT_EQ(classObject->GetMethod(u"Chkdsk2", 0, &missing, nullptr), WBEM_E_NOT_FOUND);
  parameters->Release();
  signature->Release();
  SysFreeString(className);
}

TEST_F(WmiFaceTest, ObjectsAndStringsAreAllHandedBackByAClientThatReleasesThem) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  column(u"SELECT * FROM Win32_DiskDrive", u"Size");
  scheduleAutoChk({u"C:"});
  classObject->Release();
  classObject = nullptr;
  services->Release();
  services = nullptr;
  locator->Release();
  locator = nullptr;
  EXPECT_EQ(comUsage().objects, 0);
  EXPECT_EQ(comUsage().strings, 0);
  EXPECT_EQ(comUsage().arrays, 0);
}

TEST_F(WmiFaceTest, TheDescriptionAddsObjectsWithTypedValues) {
  std::string error;
  ASSERT_TRUE(installJson(R"({"name": "m", "wmi": {"objects": [
      {"namespace": "root\\wmi", "class": "MSStorageDriver_FailurePredictStatus",
       "properties": {"InstanceName": "IDE\\Disk_0", "Reason": 0, "PredictFailure": false}}]}})",
                          &error))
      << error;
  connect(u"ROOT\\WMI");
  EXPECT_EQ(column(u"SELECT InstanceName FROM MSStorageDriver_FailurePredictStatus WHERE PredictFailure = FALSE",
                   u"InstanceName"),
            std::vector<std::string>{"IDE\\Disk_0"});
}

TEST_F(WmiFaceTest, AWrongWmiKeyIsRejectedWithItsPath) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"wmi": []})", "wmi: expected an object"},
      {R"({"wmi": {"failures": ["Explode"]}})", "wmi.failures[0]: unknown call \"Explode\""},
      {R"({"wmi": {"failures": [7]}})", "wmi.failures[0]: expected the name of a call"},
      {R"({"wmi": {"objects": [{"class": "X"}]}})", "wmi.objects[0].namespace"},
      {R"({"wmi": {"objects": [{"namespace": "ROOT\\WMI", "class": "X", "properties": {"A": {"vt": "UI2", "value": 70000}}}]}})",
       "wmi.objects[0].properties.A.value: must be from 0 to 65535"},
      {R"({"wmi": {"objects": [{"namespace": "ROOT\\WMI", "class": "X", "properties": {"A": {"vt": "XYZ", "value": 1}}}]}})",
       "wmi.objects[0].properties.A.vt: unknown variant type"},
      {R"({"wmi": {"objects": [{"namespace": "ROOT\\WMI", "class": "X", "properties": {"A": 5000000000}}]}})",
       "wmi.objects[0].properties.A: beyond 32 bits"},
      {R"({"wmi": {"colour": 1}})", "wmi.colour"},
  };
  for (const auto& entry : cases) {
    std::string error;
    EXPECT_FALSE(installJson(entry.first, &error)) << entry.first;
    EXPECT_NE(error.find(entry.second), std::string::npos) << entry.first << " gave: " << error;
    EXPECT_EQ(installedMachine(), nullptr);
  }
}

TEST_F(WmiFaceTest, InstallingAMachineForgetsTheLastOnesScheduledChecksAndCalls) {
  ASSERT_NE(installDefault(), nullptr);
  connect();
  ASSERT_EQ(scheduleAutoChk({u"C:"}), 0);
  ASSERT_FALSE(managementCalls().empty());
  ASSERT_NE(installDefault(), nullptr);
  EXPECT_TRUE(scheduledChecks().empty());
  EXPECT_TRUE(managementCalls().empty());
}

}  // namespace
}  // namespace testing
}  // namespace windows
}  // namespace sim
